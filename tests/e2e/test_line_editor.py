"""The console's line editor: its echo of each key, byte for byte, through a
pipe, and what a real terminal (a tmux pane) shows after editing."""
import shlex
import shutil
import subprocess
import time

import pytest

from console_util import CONSOLE_END, CONSOLE_PREAMBLE, command_xfers, console_session

ERASE = b"\b \b"
CTRL_W = b"readline: case 0x17\n"
RRB_USAGE = "Usage: rrb        <RegNum>                -- register read in byte\n\n"


# Each case ends with Ctrl-C, which adds nothing to the screen.
@pytest.mark.parametrize("keys,shown", [
    # Tabs stop every 8 columns; the prompt takes columns 0 and 1.
    (b"\tx", b"  " * 3 + b"x"),
    (b"abcde\t", b"abcde "),
    (b"abcdef\t", b"abcdef" + b" " * 8),
    # Deleting a tab erases back to the prompt and retypes up to the tab.
    (b"ab\t\x08", b"ab    " + ERASE * 6 + b"ab"),
    (b"\ta\t\x7f", b" " * 6 + b"a" + b" " * 7 + ERASE * 14 + b" " * 6 + b"a"),
    (b"ab\x7f\x08\x08\x08", b"ab" + ERASE * 2),
    (b"a\x01\x08", b"a\x01" + ERASE),
    (b"\xff\x1b", b"\xff\x1b"),
    (b"a\tb\x15", b"a" + b" " * 5 + b"b" + ERASE * 7),
    (b"ab\x15\x7f", b"ab" + ERASE * 2),  # nothing is left to delete
    # Ctrl-W: the first blank met going back ends the word, a tab does not.
    (b"ab cd \x17\x17", b"ab cd " + CTRL_W + ERASE + CTRL_W + ERASE * 3),
    (b"\x17", CTRL_W),
    (b"a\tb\x17", b"a     b" + CTRL_W + ERASE + ERASE * 6 + b"a" + ERASE),
    (b"r\x00r\x00", b"rr"),
    # 254 characters at most, a tab counting as one; a full line still edits.
    (b"x" * 254 + b"yz\x08", b"x" * 254 + b"\x07\x07" + ERASE),
    (b"\t" * 254 + b"a", b" " * 6 + b" " * 8 * 253 + b"\x07"),
])
def test_echo_of_editing_keys(bench, keys, shown):
    res = bench.run(["-C"], stdin=keys + b"\x03")
    assert (res.rc, res.err) == (0, "valid device ID!\n")
    assert res.out_bytes == CONSOLE_PREAMBLE.encode() + b"=>" + shown + CONSOLE_END.encode()
    assert command_xfers(bench) == []


def test_lines_end_and_recall(bench):
    bench.poke(0x10, 0x42)
    bench.clear_events()
    res = console_session(bench, "rrb 10\r", "", "rrb 11", "abc\x15", "rrb 12", "x\x7f", "r\0rb\0 13")
    # CR and LF each end a line; an empty line, also one emptied by editing,
    # recalls what the handler left: the command word and its blank.
    assert res.outputs[:3] == ["The token 1 is argv[0]=10 \nreg.10 : 42 \n", RRB_USAGE, RRB_USAGE]
    assert res.outputs[4] == res.outputs[6] == RRB_USAGE
    assert res.outputs[7] == "The token 1 is argv[0]=13 \nreg.13 : 00 \n"
    assert "reg.11 : 00 \n=>abc" + "\b \b" * 3 + "rrb \r\n" + RRB_USAGE in res.out
    assert command_xfers(bench) == [("R", 0x10, 0x42), ("R", 0x11, 0), ("R", 0x12, 0), ("R", 0x13, 0)]


# -- a real terminal ----------------------------------------------------------

START_LINES = CONSOLE_PREAMBLE.splitlines() + ["valid device ID!"]


@pytest.fixture
def screen(bench, tmp_path):
    """The console in a tmux pane whose terminal delivers every key as it
    comes (no line editing, echo or signal keys of its own), as whoever
    starts the console for a user sets it up; the command line is the one
    Bench.run would use. Gives a function that sends keys (tmux key names,
    or text in a list) and returns the pane below the start lines once it
    shows the expected lines (or the time is up)."""
    if shutil.which("tmux") is None:
        pytest.skip("tmux is not installed")
    sock = str(tmp_path / "tmux.sock")

    def tmux(*args):
        return subprocess.run(["tmux", "-S", sock, *args], check=True, capture_output=True, text=True).stdout

    env = bench._env()
    setting = " ".join(f"{k}={shlex.quote(env[k])}" for k in ("LD_PRELOAD", "ZORVI_SANDBOX", "ASAN_OPTIONS")
                       if k in env)
    command = shlex.join(bench._argv(["-C"], "switch_config", None))
    tmux("new-session", "-d", "-x", "80", "-y", "24",
         f"stty -icanon -echo -isig -iexten -ixon; env {setting} {command}; sleep 60")

    def keys(expected, *names):
        for name in names:
            tmux("send-keys", *(["-l"] + name if isinstance(name, list) else [name]))
        deadline = time.monotonic() + 10
        while True:
            lines = tmux("capture-pane", "-p").rstrip("\n").splitlines()
            if lines == START_LINES + expected or time.monotonic() > deadline:
                return lines[len(START_LINES):] if lines[:len(START_LINES)] == START_LINES else lines
            time.sleep(0.05)

    yield keys
    subprocess.run(["tmux", "-S", sock, "kill-server"], capture_output=True)


def test_screen_after_editing(screen):
    assert screen(["=>"]) == ["=>"]
    assert screen(["=>ab    cd"], ["ab"], "Tab", ["cd"]) == ["=>ab    cd"]
    # Backspace over the tab retypes the line up to it.
    assert screen(["=>ab"], "BSpace", "BSpace", "BSpace") == ["=>ab"]
    assert screen(["=>"], "Tab", ["x"], "C-u") == ["=>"]
    # The Ctrl-W line moves the cursor to the next line, where the erasing
    # of the word no longer shows: the line now holds "rrb" alone.
    shown = ["=>rrb 10 readline: case 0x17", "readline: case 0x17", " 10"]
    assert screen(shown, ["rrb 10 "], "C-w", "C-w", [" 10"]) == shown
    shown += ["The token 1 is argv[0]=10", "reg.10 : 00", "=>"]
    assert screen(shown, "Enter") == shown
    # An empty line recalls what the handler left of the line.
    shown[-1:] = ["=>rrb", RRB_USAGE[:-2], "", "=>"]
    assert screen(shown, "Enter") == shown
    shown[-1:] = ["=>exit", "exit cli function."]
    assert screen(shown, ["exit"], "Enter") == shown
