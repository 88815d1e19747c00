"""Port VLAN settings in the console: default VID, tagging, ingress rules,
802.1Q, and the vlaninfo display."""
import pytest

from console_util import command_xfers, console_session, prepare

PORT_REGS = [16 * i + off for i in range(5) for off in (16, 18, 19, 20)]


def echo(line, argc=None):
    tokens = line.split()[1:]
    text = f"The argc is {len(tokens) if argc is None else argc}\n"
    return text + "".join(f"The token {i + 1} is argv[{i}]={t} \n" for i, t in enumerate(tokens))


def test_vlaninfo_shows_ports_two_to_five(bench):
    prepare(bench, {reg: 0 for reg in PORT_REGS + [5]})
    res = console_session(
        bench,
        "vlandefvid 1 300",  # port number 1 has no column
        "vlanenabletag 1 1",
        "vlandefvid 2 1", "vlandefvid 3 1", "vlandefvid 4 1", "vlandefvid 5 100",
        "vlanenabletag 4 1", "vlanenabletag 5 0", "vlanenable",
        "vlaninfo")
    assert res.outputs[-2] == echo("vlaninfo") + (
        "\n"
        "                Port :        1           2           3           4           \n"
        "VLAN defaul VID      :        1           1           1         100    \n"
        "VLAN tag insertion   :  disable     disable      enable     disable    \n"
        "VLAN tag removal     :  disable     disable     disable      enable    \n"
        "VLAN ingress filter  :  disable     disable     disable     disable    \n"
        "VLAN discard PVID    :  disable     disable     disable     disable    \n"
        "VLAN 802.1Q          :   enable\n")


def test_vlaninfo_reads_high_vid_bits_and_rule_bits(bench):
    # Bits 4-7 of the high VID register are not part of the VID.
    prepare(bench, {reg: 0 for reg in PORT_REGS + [5]} | {35: 0xFA, 36: 0xBC, 50: 0x60,
                                                          80: 0x06, 5: 0x7F})
    res = console_session(bench, "vlaninfo")
    lines = res.outputs[0].split("\n")
    assert lines[3] == "VLAN defaul VID      :     2748           0           0           0    "
    assert lines[4:9] == [
        "VLAN tag insertion   :  disable     disable     disable      enable    ",
        "VLAN tag removal     :  disable     disable     disable      enable    ",
        "VLAN ingress filter  :  disable      enable     disable     disable    ",
        "VLAN discard PVID    :  disable      enable     disable     disable    ",
        "VLAN 802.1Q          :  disable",
    ]


def test_vlaninfo_read_order(bench):
    prepare(bench, {})
    console_session(bench, "vlaninfo")
    regs = [16 * i + off for i in range(5) for off in (20, 19, 16, 18)] + [5]
    assert [(op, reg) for op, reg, _ in command_xfers(bench)] == [("R", r) for r in regs]


# Each setter: the line, the register values before, the transfers.
@pytest.mark.parametrize("line,pokes,xfers", [
    ("vlandefvid 1 4095", {19: 0xA0}, [("W", 20, 0xFF), ("R", 19, 0xA0), ("W", 19, 0xAF)]),
    ("vlandefvid 5 100", {83: 0x5F}, [("W", 84, 100), ("R", 83, 0x5F), ("W", 83, 0x50)]),
    ("vlandefvid 2 65637", {35: 0x0F}, [("W", 36, 101), ("R", 35, 0x0F), ("W", 35, 0x00)]),
    ("vlandefvid 3 1", {51: 0x33}, [("W", 52, 1), ("R", 51, 0x33), ("W", 51, 0x30)]),
    ("vlanenable", {5: 0x01}, [("R", 5, 0x01), ("W", 5, 0x81)]),
    ("vlandisable", {5: 0xFF}, [("R", 5, 0xFF), ("W", 5, 0x7F)]),
    ("vlanenabletag 1 1", {16: 0x41}, [("R", 16, 0x41), ("W", 16, 0x45)]),
    ("vlanenabletag 1 0", {16: 0x41}, [("R", 16, 0x41), ("W", 16, 0x43)]),
    ("vlanenabletag 1 2", {16: 0x00}, [("R", 16, 0x00), ("W", 16, 0x02)]),
    ("vlandisabletag 2 1", {32: 0xFF}, [("R", 32, 0xFF), ("W", 32, 0xFB)]),
    ("vlandisabletag 2 0", {32: 0xFF}, [("R", 32, 0xFF), ("W", 32, 0xFD)]),
    ("vlaningressfilter 3 1", {50: 0x21}, [("R", 50, 0x21), ("W", 50, 0x61)]),
    ("vlaningressfilter 3 2", {50: 0xFF}, [("R", 50, 0xFF), ("W", 50, 0xBF)]),
    ("vlandiscardnonvid 4 1", {66: 0x40}, [("R", 66, 0x40), ("W", 66, 0x60)]),
    ("vlandiscardnonvid 5 0", {82: 0xFF}, [("R", 82, 0xFF), ("W", 82, 0xDF)]),
])
def test_setter_transfers(bench, line, pokes, xfers):
    prepare(bench, pokes)
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line)
    assert command_xfers(bench) == xfers
    for op, reg, val in xfers:
        if op == "W":
            assert bench.peek(reg) == val


def test_enable_ignores_tokens_past_its_maximum(bench):
    prepare(bench, {5: 0x00})
    res = console_session(bench, "vlanenable 1 2")
    assert res.outputs[0] == "The argc is 0\n"
    assert bench.peek(5) == 0x80


# Refused values: the message, and not one transfer.
@pytest.mark.parametrize("line,message", [
    ("vlandefvid 0 5", "error: incorrect Switch port (0) to set! \n"),
    ("vlandefvid x 5", "error: incorrect Switch port (0) to set! \n"),
    ("vlandefvid 6 4096", "error: incorrect Switch port (6) to set! \n"),
    ("vlandefvid 1 4096", "error: incorrect default vid (4096) to set! \n"),
    ("vlandefvid 1 0", "error: incorrect default vid (0) to set! \n"),
    ("vlandefvid 1 65536", "error: incorrect default vid (0) to set! \n"),
    ("vlanenabletag 6 1", "error: incorrect Switch port (6) to set! \n"),
    ("vlandisabletag 0 1", "error: incorrect Switch port (0) to set! \n"),
    ("vlaningressfilter 6 1", "error: incorrect Switch port (6) to set! \n"),
    ("vlandiscardnonvid 7 1", "error: incorrect Switch port (7) to set! \n"),
])
def test_refused_values_touch_nothing(bench, line, message):
    prepare(bench, {})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + message
    assert command_xfers(bench) == []


@pytest.mark.parametrize("line,usage", [
    ("vlandefvid 1", "vlandefvid  <Port> <vid>           -- configure default vid on a Switch port.\n"),
    ("vlanenabletag", "vlanenabletag  <Port> <tag>        -- enable VLAN tag insertiond/removal on a Switch port.\n"),
    ("vlandiscardnonvid 2", "vlandiscardnonvid <Port> <Flag>    -- enable\\disable discard non PVID on a Switch port.\n"),
])
def test_too_few_tokens_print_usage(bench, line, usage):
    prepare(bench, {})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + "Usage: " + usage + "\n"
    assert command_xfers(bench) == []


def test_recall_after_a_setter_gives_the_bare_command(bench):
    prepare(bench, {})
    res = console_session(bench, "vlandefvid 2 7", "")
    assert res.outputs[1].endswith(
        "The argc is 0\nUsage: vlandefvid  <Port> <vid>           "
        "-- configure default vid on a Switch port.\n\n")
