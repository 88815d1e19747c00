# Stands in for an address service: appends the name of every signal it
# receives to the file named first, one per line, after a first line "ready".
import signal
import sys

out = open(sys.argv[1], "a", buffering=1)
# The two signals the services are sent; any other one ends it.
for sig in (signal.SIGHUP, signal.SIGUSR2):
    signal.signal(sig, lambda signum, _frame: out.write(signal.Signals(signum).name + "\n"))
out.write("ready\n")
while True:
    signal.pause()
