"""Port mirroring in the console: monitored ports, the sniffer, the filter
mode, and the mirrorinfo display."""
import pytest

from console_util import command_xfers, console_session, echo, prepare

MIRROR_REGS = [17, 33, 49, 65, 81, 5]


def test_mirrorinfo_shows_ports_two_to_five(bench):
    prepare(bench, {reg: 0 for reg in MIRROR_REGS} | {5: 0x01})
    res = console_session(
        bench,
        "sniffer 1 1", "mirrortx 1 1",  # port number 1 has no column
        "mirrortx 4 1", "mirrorrx 4 1", "sniffer 2 1", "sniffmode 0",
        "mirrorinfo")
    assert res.outputs[-2] == echo("mirrorinfo") + (
        "\n"
        "                  Port :        1           2           3           4           \n"
        "Mirror monitor transmit:  disable     disable      enable     disable    \n"
        "Mirror monitor receive :  disable     disable      enable     disable    \n"
        "Mirror sniffer         :   enable     disable     disable     disable    \n"
        "Mirror Rx AND Tx       :  disable\n")


def test_mirrorinfo_last_column_and_mode(bench):
    prepare(bench, {reg: 0 for reg in MIRROR_REGS})
    res = console_session(bench, "mirrorrx 5 1", "sniffer 5 1", "sniffmode 1", "mirrorinfo")
    lines = res.outputs[3].split("\n")
    assert lines[3:7] == [
        "Mirror monitor transmit:  disable     disable     disable     disable    ",
        "Mirror monitor receive :  disable     disable     disable      enable    ",
        "Mirror sniffer         :  disable     disable     disable      enable    ",
        "Mirror Rx AND Tx       :   enable",
    ]


def test_mirrorinfo_read_order(bench):
    prepare(bench, {})
    console_session(bench, "mirrorinfo")
    assert [(op, reg) for op, reg, _ in command_xfers(bench)] == [("R", r) for r in MIRROR_REGS]


@pytest.mark.parametrize("line,reg,before,after", [
    ("mirrortx 1 1", 17, 0x81, 0xA1),
    ("mirrortx 3 0", 49, 0xFF, 0xDF),
    ("mirrorrx 5 1", 81, 0x00, 0x40),
    ("mirrorrx 3 2", 49, 0xFF, 0xBF),
    ("sniffer 2 1", 33, 0x60, 0xE0),
    ("sniffer 4 0", 65, 0xFF, 0x7F),
    ("sniffmode 1", 5, 0x80, 0x81),
    ("sniffmode 2", 5, 0xFF, 0xFE),
])
def test_setter_keeps_other_bits(bench, line, reg, before, after):
    prepare(bench, {reg: before})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line)
    assert command_xfers(bench) == [("R", reg, before), ("W", reg, after)]
    assert bench.peek(reg) == after


@pytest.mark.parametrize("line,output", [
    ("mirrortx 0 1", "error: incorrect Switch port (0) to set! \n"),
    ("mirrorrx 6 1", "error: incorrect Switch port (6) to set! \n"),
    ("sniffer 6 1", "error: incorrect Switch port (6) to set! \n"),
    ("sniffmode", "Usage: sniffmode   <sniff-sel>            "
                  "-- configure the mirroring filter function.\n\n"),
    ("mirrortx 2", "Usage: mirrortx    <Port> <Flag>          "
                   "-- enable\\disable transmit monitored on a Switch port.\n\n"),
])
def test_refused_lines_touch_nothing(bench, line, output):
    prepare(bench, {})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + output
    assert command_xfers(bench) == []
