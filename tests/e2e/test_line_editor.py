# The console's line editor: its echo of each key, byte for byte, and each
# echo shown as its key comes.
import pytest

from console_util import CONSOLE_END, CONSOLE_PREAMBLE, VALID, LiveConsole, command_xfers, console_session, prepare

ERASE = b"\b \b"
CTRL_W = b"readline: case 0x17\n"
RRB_USAGE = "Usage: rrb        <RegNum>                -- register read in byte\n\n"


# Each case ends with Ctrl-C, which adds nothing to the screen and ends the
# console: neither the cancelled line nor what follows runs.
@pytest.mark.parametrize("keys,shown", [
    # Tabs stop every 8 columns; the prompt takes columns 0 and 1.
    (b"\tx", b"  " * 3 + b"x"),
    # Deleting a tab erases back to the prompt and retypes up to the tab.
    (b"\ta\t\x7f", b" " * 6 + b"a" + b" " * 7 + ERASE * 14 + b" " * 6 + b"a"),
    (b"a\x01\xff\x1b\x08", b"a\x01\xff\x1b" + ERASE),  # 0xFF is a key, not the end of input
    (b"ab\x15\x7f", b"ab" + ERASE * 2),  # nothing is left to delete
    # Ctrl-W: the first blank met going back ends the word, a tab does not.
    (b"ab cd \x17\x17", b"ab cd " + CTRL_W + ERASE + CTRL_W + ERASE * 3),
    (b"a\tb\x17", b"a     b" + CTRL_W + ERASE + ERASE * 6 + b"a" + ERASE),
    (b"r\x00r\x00", b"rr"),
    # 254 characters at most, a tab counting as one; a full line still edits.
    (b"x" * 254 + b"yz\x08", b"x" * 254 + b"\x07\x07" + ERASE),
    (b"\t" * 254 + b"a", b" " * 6 + b" " * 8 * 253 + b"\x07"),
])
def test_echo_of_editing_keys(bench, keys, shown):
    res = bench.run(["-C"], stdin=keys + b"\x03rwb 10 6\n")
    assert (res.rc, res.err) == (0, VALID)
    assert res.out_bytes == CONSOLE_PREAMBLE.encode() + b"=>" + shown + CONSOLE_END.encode()
    assert command_xfers(bench) == []


def test_lines_end_and_recall(bench):
    prepare(bench, {0x10: 0x42})
    res = console_session(bench, "rrb 10\r", "", "rrb 11", "abc\x15", "rrb 12", "x\x7f", "r\0rb\0 13")
    # CR and LF each end a line; an empty line, also one emptied by editing,
    # recalls what the handler left: the command word and its blank.
    assert res.outputs[:3] == ["The token 1 is argv[0]=10 \nreg.10 : 42 \n", RRB_USAGE, RRB_USAGE]
    assert res.outputs[4] == res.outputs[6] == RRB_USAGE
    assert res.outputs[7] == "The token 1 is argv[0]=13 \nreg.13 : 00 \n"
    assert "reg.11 : 00 \n=>abc" + "\b \b" * 3 + "rrb \r\n" + RRB_USAGE in res.out
    assert command_xfers(bench) == [("R", 0x10, 0x42), ("R", 0x11, 0), ("R", 0x12, 0), ("R", 0x13, 0)]


# Typed one key at a time, as on a terminal: each key's echo shows before the
# next key comes, and so do the prompt and the line end.
def test_each_key_shows_at_once(bench):
    console = LiveConsole(bench)
    shown = console.wait(lambda out: out.endswith("=>"))
    for key, echo in [(b"a", "a"), (b"\x7f", "\b \b"), (b"\r", "\n=>"), (b"\x03", CONSOLE_END)]:
        console.send(key)
        shown += echo
        assert console.wait(lambda out: out == shown) == shown
    console.close()
