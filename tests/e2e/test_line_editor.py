"""The console's line editor: its echo of each key, byte for byte, through a
pipe, and what a real terminal (a tmux pane) shows after editing."""
import shlex
import shutil
import subprocess
import time

import pytest

from console_util import CONSOLE_END, CONSOLE_PREAMBLE, command_xfers, console_session

PRE = CONSOLE_PREAMBLE.encode()
END = CONSOLE_END.encode()
ERASE = b"\b \b"
CTRL_W = b"readline: case 0x17\n"
RRB_USAGE = "Usage: rrb        <RegNum>                -- register read in byte\n\n"


def keys_shown(bench, keys):
    """What the console writes between its start and its end for the keys."""
    res = bench.run(["-C"], stdin=keys)
    assert res.rc == 0 and res.err == "valid device ID!\n"
    assert res.out_bytes.startswith(PRE) and res.out_bytes.endswith(END), res.out_bytes
    return res.out_bytes[len(PRE):-len(END)]


# Each case ends with Ctrl-C, which adds nothing to the screen.
@pytest.mark.parametrize("keys,shown", [
    # Tabs stop every 8 columns; the prompt takes columns 0 and 1.
    (b"\tx", b"  " * 3 + b"x"),
    (b"ab\tc", b"ab" + b" " * 4 + b"c"),
    (b"abcde\t", b"abcde "),
    (b"abcdef\t", b"abcdef" + b" " * 8),
    # Deleting a tab erases back to the prompt and retypes up to the tab.
    (b"ab\t\x08", b"ab    " + ERASE * 6 + b"ab"),
    (b"\ta\t\x7f", b" " * 6 + b"a" + b" " * 7 + ERASE * 14 + b" " * 6 + b"a"),
    (b"ab\x7f\x08\x08\x08", b"ab" + ERASE * 2),
    (b"a\x01\x08", b"a\x01" + ERASE),
    (b"\x08\x7f", b""),
    (b"\xff\x1b", b"\xff\x1b"),
    (b"a\tb\x15", b"a" + b" " * 5 + b"b" + ERASE * 7),
    (b"\x15", b""),
    # Ctrl-W: the first blank met going back ends the word, a tab does not.
    (b"ab cd \x17\x17", b"ab cd " + CTRL_W + ERASE + CTRL_W + ERASE * 3),
    (b"\x17", CTRL_W),
    (b"a\tb\x17", b"a     b" + CTRL_W + ERASE + ERASE * 6 + b"a" + ERASE),
    (b"r\x00r\x00", b"rr"),
    # 254 characters at most, a tab counting as one.
    (b"x" * 254 + b"yz", b"x" * 254 + b"\x07\x07"),
    (b"\t" * 254 + b"a", b" " * 6 + b" " * 8 * 253 + b"\x07"),
])
def test_echo_of_editing_keys(bench, keys, shown):
    assert keys_shown(bench, keys + b"\x03") == b"=>" + shown
    assert command_xfers(bench) == []


def test_full_line_still_edits_and_ends(bench):
    keys = b"x" * 254 + b"y\x08\x17z\n" + b"x" * 254 + b"\x15rrb 10\r"
    shown = keys_shown(bench, keys + b"\x03")
    assert shown == (b"=>" + b"x" * 254 + b"\x07" + ERASE + CTRL_W + ERASE * 253 + b"z\r\n"
                     + b"unknown CLI command \n=>" + b"x" * 254 + ERASE * 254 + b"rrb 10\r\n"
                     + b"The token 1 is argv[0]=10 \nreg.10 : 00 \n=>")


def test_lines_end_and_recall(bench):
    bench.poke(0x10, 0x42)
    bench.clear_events()
    res = console_session(bench, "rrb 10\r", "", "rrb 11", "abc\x15", "rrb 12", "x\x7f",
                          "r\0rb\0 13")
    got = res.outputs
    # CR and LF each end a line; an empty line, also one emptied by editing,
    # recalls what the handler left: the command word and its blank.
    assert got[0] == "The token 1 is argv[0]=10 \nreg.10 : 42 \n"
    assert got[1:3] == [RRB_USAGE, RRB_USAGE]
    assert got[4] == RRB_USAGE
    assert got[6] == RRB_USAGE
    assert got[7] == "The token 1 is argv[0]=13 \nreg.13 : 00 \n"
    assert "reg.11 : 00 \n=>abc" + "\b \b" * 3 + "rrb \r\n" + RRB_USAGE in res.out
    assert command_xfers(bench) == [("R", 0x10, 0x42), ("R", 0x11, 0), ("R", 0x12, 0),
                                    ("R", 0x13, 0)]


# -- a real terminal ----------------------------------------------------------

class Screen:
    """The console in a tmux pane whose terminal delivers every key as it
    comes (no line editing, echo or signal keys of the terminal's own), as
    whoever starts the console for a user sets it up. The command line is the
    one Bench.run would use."""

    def __init__(self, bench, tmp_path):
        self.sock = str(tmp_path / "tmux.sock")
        env = bench._env()
        setting = " ".join(f"{k}={shlex.quote(env[k])}"
                           for k in ("LD_PRELOAD", "ZORVI_SANDBOX", "ASAN_OPTIONS"))
        command = shlex.join(bench._argv(["-C"], "switch_config", None))
        script = f"stty -icanon -echo -isig -iexten -ixon; env {setting} {command}; sleep 60"
        self.tmux("new-session", "-d", "-x", "80", "-y", "24", script)
        self.wait_for(lambda text: "=>" in text)

    def tmux(self, *args):
        return subprocess.run(["tmux", "-S", self.sock, *args], check=True,
                              capture_output=True, text=True).stdout

    def text(self):
        return self.tmux("capture-pane", "-p")

    def wait_for(self, done, timeout=10):
        deadline = time.monotonic() + timeout
        while True:
            text = self.text()
            if done(text) or time.monotonic() > deadline:
                return text
            time.sleep(0.05)

    def type(self, text):
        self.tmux("send-keys", "-l", text)

    def keys(self, *names):
        self.tmux("send-keys", *names)

    def after_start(self, expected):
        """The screen below the console's start lines, once it shows the
        expected lines (or the time is up)."""
        def below(text):
            return text.rstrip("\n").splitlines()[len(START_LINES):]
        return below(self.wait_for(lambda text: below(text) == expected))

    def close(self):
        subprocess.run(["tmux", "-S", self.sock, "kill-server"], capture_output=True)


@pytest.fixture
def screen(bench, tmp_path):
    if shutil.which("tmux") is None:
        pytest.skip("tmux is not installed")
    s = Screen(bench, tmp_path)
    yield s
    s.close()


START_LINES = CONSOLE_PREAMBLE.splitlines() + ["valid device ID!"]


def test_screen_after_editing(screen):
    assert screen.text().splitlines()[:len(START_LINES)] == START_LINES
    screen.type("ab")
    screen.keys("Tab")
    screen.type("cd")
    assert screen.after_start(["=>ab    cd"]) == ["=>ab    cd"]
    # Backspace over the tab retypes the line up to it.
    screen.keys("BSpace", "BSpace", "BSpace")
    assert screen.after_start(["=>ab"]) == ["=>ab"]
    screen.keys("Tab")
    screen.type("x")
    screen.keys("C-u")
    assert screen.after_start(["=>"]) == ["=>"]
    # The Ctrl-W line moves the cursor to the next line, where the erasing
    # of the word no longer shows: the line now holds "rrb" alone.
    screen.type("rrb 10 ")
    screen.keys("C-w", "C-w")
    screen.type(" 10")
    shown = ["=>rrb 10 readline: case 0x17", "readline: case 0x17", " 10"]
    assert screen.after_start(shown) == shown
    screen.keys("Enter")
    shown += ["The token 1 is argv[0]=10", "reg.10 : 00", "=>"]
    assert screen.after_start(shown) == shown
    # An empty line recalls what the handler left of the line.
    screen.keys("Enter")
    shown[-1:] = ["=>rrb", "Usage: rrb        <RegNum>                -- register read in byte",
                  "", "=>"]
    assert screen.after_start(shown) == shown
    screen.type("exit")
    screen.keys("Enter")
    shown[-1:] = ["=>exit", "exit cli function."]
    assert screen.after_start(shown) == shown
