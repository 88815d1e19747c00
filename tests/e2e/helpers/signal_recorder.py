"""Stands in for an address service: appends the name of every signal it
receives to OUTFILE, one per line, after a first line "ready"."""
import signal
import sys

RECORDED = (signal.SIGHUP, signal.SIGUSR1, signal.SIGUSR2, signal.SIGINT,
            signal.SIGQUIT, signal.SIGALRM, signal.SIGPIPE)


def main(outfile):
    out = open(outfile, "a", buffering=1)

    def record(signum, _frame):
        out.write(signal.Signals(signum).name + "\n")

    for sig in RECORDED:
        signal.signal(sig, record)
    out.write("ready\n")
    while True:
        signal.pause()


if __name__ == "__main__":
    main(sys.argv[1])
