"""Helpers for console sessions on the test bench."""
import subprocess

CONSOLE_PREAMBLE = (
    "going to open input file /dev/spidev0.0\n"
    "Switch SPI read selftest OK.\n"
    "Switch SPI write/read selftest OK.\n"
    "KSZ8895 CLI Function version  1.0.2 .\n"
)
CONSOLE_END = "exit cli function.\n"
# Transfers a console makes before its first command: the self-test (767)
# and the device id check (1).
CONSOLE_START_XFERS = 768


def console_session(bench, *lines, exit_line=True):
    """Runs `switch_config -C` with the lines as input (each ended by a
    newline, `exit` added) and returns the result with `.outputs`: the output
    of each command line, the echo and its "\\r\\n" removed."""
    text = "".join(line + "\n" for line in lines)
    if exit_line:
        text += "exit\n"
    res = bench.run(["-C"], stdin=text)
    assert res.out.startswith(CONSOLE_PREAMBLE), res.out[:300]
    assert res.out.endswith(CONSOLE_END), res.out[-300:]
    body = res.out[len(CONSOLE_PREAMBLE):-len(CONSOLE_END)]
    chunks = body.split("=>")
    assert chunks[0] == "", body[:200]
    outputs = []
    for chunk in chunks[1:]:
        _echo, sep, rest = chunk.partition("\r\n")
        outputs.append(rest if sep else chunk)
    res.outputs = outputs
    return res


def console_command(bench, line):
    """Output of one command line typed at the prompt."""
    return console_session(bench, line).outputs[0]


def command_xfers(bench):
    """Chip transfers made by the console's commands (after its start)."""
    return bench.xfers()[CONSOLE_START_XFERS:]


def echo(line):
    """The handler's token echo for a command line with blank-separated
    tokens."""
    tokens = line.split()[1:]
    return f"The argc is {len(tokens)}\n" + "".join(
        f"The token {i + 1} is argv[{i}]={t} \n" for i, t in enumerate(tokens))


def prepare(bench, pokes):
    """Sets registers on the chip and starts the event log afresh."""
    for reg, val in pokes.items():
        bench.poke(reg, val)
    bench.clear_events()


def check_command(bench, line, printed, xfers, pokes=None):
    """Types one command line (on a chip prepared with the pokes, when given)
    and checks what it prints after the token echo and its transfers."""
    if pokes is not None:
        prepare(bench, pokes)
    assert console_session(bench, line).outputs[0] == echo(line) + printed
    assert command_xfers(bench) == xfers


def rmw(reg, before, after):
    """A read-modify-write of one register."""
    return [("R", reg, before), ("W", reg, after)]


class LiveConsole:
    """`switch_config -C` fed its input a piece at a time, for what it shows
    before it has read the rest. Its standard output is a file, which gets
    what the C library buffers only when the program flushes it; the text
    read back has "\\r\\n" as "\\n"."""

    def __init__(self, bench):
        self.bench = bench
        self.proc = bench.spawn(["-C"], stdin=subprocess.PIPE)

    def send(self, keys):
        self.proc.popen.stdin.write(keys)
        self.proc.popen.stdin.flush()

    def wait(self, predicate):
        """Waits until the output so far meets the predicate; returns it."""
        assert self.bench.wait_for(lambda: predicate(self.proc.output())), self.proc.output()[-300:]
        return self.proc.output()

    def close(self):
        self.proc.popen.stdin.close()
        assert self.proc.wait() == 0
