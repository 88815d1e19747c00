# Helpers for console sessions on the test bench, and the tool's own texts
# that the console shares.
import subprocess

OPEN_LINE = "going to open input file /dev/spidev0.0\n"
READ_OK = "Switch SPI read selftest OK.\n"
WRITE_OK = "Switch SPI write/read selftest OK.\n"
CONSOLE_PREAMBLE = OPEN_LINE + READ_OK + WRITE_OK + "KSZ8895 CLI Function version  1.0.2 .\n"
VALID = "valid device ID!\n"
CONSOLE_END = "exit cli function.\n"
EIO = "can't send spi message: Input/output error\n"
# The tool's own set-up on a device that is not there.
NO_DEVICE = ("can't open device: No such file or directory\ncan't set spi mode: Bad file descriptor\n"
             "can't set bits per word: Bad file descriptor\ncan't set max speed hz: Bad file descriptor\n")


# Runs `switch_config -C` with the lines as input (each ended by a newline,
# `exit` added); `.outputs` holds each command line's output without its echo.
def console_session(bench, *lines, exit_line=True):
    text = "".join(line + "\n" for line in lines) + ("exit\n" if exit_line else "")
    res = bench.run(["-C"], stdin=text)
    assert res.out.startswith(CONSOLE_PREAMBLE), res.out[:300]
    assert res.out.endswith(CONSOLE_END), res.out[-300:]
    chunks = res.out[len(CONSOLE_PREAMBLE):-len(CONSOLE_END)].split("=>")
    assert chunks[0] == "", chunks[:2]
    res.outputs = [chunk.partition("\r\n")[2] if "\r\n" in chunk else chunk for chunk in chunks[1:]]
    return res


# The transfers after the console's start: the self-test (767) and the device id check (1).
def command_xfers(bench):
    return bench.xfers()[768:]


# Runs the tool and checks its exit status, standard output and error.
def check(bench, args, rc, out, err="", **kwargs):
    res = bench.run(args, **kwargs)
    assert (res.rc, res.out, res.err) == (rc, out, err)
    return res


def tokens(*toks):
    return "".join(f"The token {i + 1} is argv[{i}]={t} \n" for i, t in enumerate(toks))


# The handler's echo of the blank-separated tokens after the command word.
def echo(line):
    words = line.split()[1:]
    return f"The argc is {len(words)}\n" + tokens(*words)


# Sets registers on the chip and starts the event log afresh.
def prepare(bench, pokes):
    for reg, val in pokes.items():
        bench.poke(reg, val)
    bench.clear_events()


# Types one command line (on a chip prepared with the pokes, when given) and
# checks what it prints after the token echo and its transfers.
def check_command(bench, line, printed, xfers, pokes=None):
    prepare(bench, pokes or {})
    assert console_session(bench, line).outputs[0] == echo(line) + printed
    assert command_xfers(bench) == xfers


def rmw(reg, before, after):
    return [("R", reg, before), ("W", reg, after)]


# `switch_config -C` fed its input a piece at a time, for what it shows before
# it has read the rest. Its standard output is a file, which gets what the C
# library buffers only when the program flushes it; "\r\n" reads back as "\n".
class LiveConsole:
    def __init__(self, bench):
        self.bench = bench
        self.proc = bench.spawn(["-C"], stdin=subprocess.PIPE)

    def send(self, keys):
        self.proc.popen.stdin.write(keys)
        self.proc.popen.stdin.flush()

    # Waits until the output so far meets the predicate; returns it.
    def wait(self, predicate):
        assert self.bench.wait_for(lambda: predicate(self.proc.output())), self.proc.output()[-300:]
        return self.proc.output()

    def close(self):
        self.proc.popen.stdin.close()
        assert self.proc.wait() == 0
