"""Rate limiting in the console: egress and ingress limits per queue, the
all-ports and all-queues ranges, flow control, limit modes, and rateinfo."""
import pytest

from console_util import command_xfers, console_session, echo, prepare

RATE_REGS = [16 * i + off for i in range(5) for off in range(182, 191)]

PORT_ERROR = "error: incorrect Switch port ({}) to set! \n"
QUEUE_ERROR = "error: incorrect priority queue ({}) to set! \n"
RATE_ERROR = "error: incorrect rate limit ({}) Kbps to set! \n"
MODE_ERROR = "error: incorrect Ingress limit mode ({}) to set! \n"


def test_rateinfo_shows_ports_two_to_five(bench):
    prepare(bench, {reg: 0 for reg in RATE_REGS})
    res = console_session(
        bench,
        "rateconftx 1 64 3", "rateconfrx 1 2048 1", "ratemode 1 2",  # no column for port 1
        "rateconftx 3 102400", "rateconftx 4 960 0", "rateconfrx 5 1024 0", "rateconfrx 5 1024",
        "raterxflow 4 1", "ratemode 4 3",
        "rateinfo")
    assert res.outputs[-2] == echo("rateinfo") + (
        "\n"
        "                         Port :        1           2           3           4           \n"
        "Rate Limit transmit rate (Q0) :        0      102400         960           0    \n"
        "Rate Limit transmit rate (Q1) :        0      102400           0           0    \n"
        "Rate Limit transmit rate (Q2) :        0      102400           0           0    \n"
        "Rate Limit transmit rate (Q3) :        0      102400           0           0    \n"
        "Rate Limit receive rate  (Q0) :        0           0           0        1024    \n"
        "Rate Limit receive rate  (Q1) :        0           0           0        1024    \n"
        "Rate Limit receive rate  (Q2) :        0           0           0        1024    \n"
        "Rate Limit receive rate  (Q3) :        0           0           0        1024    \n"
        "Rate Limit transmit      (Q0) :  disable      enable      enable     disable    \n"
        "Rate Limit transmit      (Q1) :  disable      enable     disable     disable    \n"
        "Rate Limit transmit      (Q2) :  disable      enable     disable     disable    \n"
        "Rate Limit transmit      (Q3) :  disable      enable     disable     disable    \n"
        "Rate Limit receive       (Q0) :  disable     disable     disable      enable    \n"
        "Rate Limit receive       (Q1) :  disable     disable     disable      enable    \n"
        "Rate Limit receive       (Q2) :  disable     disable     disable      enable    \n"
        "Rate Limit receive       (Q3) :  disable     disable     disable      enable    \n"
        "Receive flow control          :  disable     disable      enable     disable    \n"
        "Rate Limit receive mode       :        0           0           3           0    \n")


def test_rateinfo_masks_bit_7_and_shows_codes(bench):
    # 0x81 is code 1 (1024), 116 has no Kbps but is on, 101 is 64, 0xE4 is 100.
    prepare(bench, {reg: 0 for reg in RATE_REGS} | {203: 0x81, 204: 116, 205: 101, 215: 0xE4})
    res = console_session(bench, "rateinfo")
    lines = res.outputs[0].split("\n")
    assert lines[3:6] == [
        "Rate Limit transmit rate (Q0) :     1024           0           0           0    ",
        "Rate Limit transmit rate (Q1) :        0           0           0           0    ",
        "Rate Limit transmit rate (Q2) :       64           0           0           0    ",
    ]
    assert lines[7] == "Rate Limit receive rate  (Q0) :        0      102400           0           0    "
    assert lines[11:14] == [
        "Rate Limit transmit      (Q0) :   enable     disable     disable     disable    ",
        "Rate Limit transmit      (Q1) :   enable     disable     disable     disable    ",
        "Rate Limit transmit      (Q2) :   enable     disable     disable     disable    ",
    ]


def test_rateinfo_read_order(bench):
    prepare(bench, {})
    console_session(bench, "rateinfo")
    regs = []
    for i in range(5):
        for q in range(4):
            regs += [16 * i + 187 + q, 16 * i + 183 + q]
        regs.append(16 * i + 182)
    assert [(op, reg) for op, reg, _ in command_xfers(bench)] == [("R", r) for r in regs]


@pytest.mark.parametrize("kbps,code,reported", [
    (64, 101, "64 K"), (127, 101, "64 K"), (128, 102, "128 K"), (959, 114, "896 K"),
    (960, 115, "960 K"), (1023, 115, "960 K"), (1024, 1, "1 M"), (2047, 1, "1 M"),
    (102400, 100, "100 M"),
])
def test_rate_codes_written_and_reported(bench, kbps, code, reported):
    prepare(bench, {189: 0x80})
    line = f"rateconftx 1 {kbps} 2"
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + f"Q2 egress rate limit is {reported}bps.\n"
    assert command_xfers(bench) == [("W", 189, code)]
    assert bench.peek(189) == code


def writes(regs, val):
    return [("W", r, val) for r in regs]


def per_port(ports, offsets):
    return [16 * p + off for p in ports for off in offsets]


# The registers written for one line, in order, and what it prints after the echo.
@pytest.mark.parametrize("line,xfers,printed", [
    ("rateconftx 1 1000", writes([187, 188, 189, 190], 115),
     "Q0 Q1 Q2 Q3 egress rate limit is 960 Kbps.\n"),
    ("rateconfrx 1 1000", writes([184, 185, 186], 115),
     "Q1 Q2 Q3 ingress rate limit is 960 Kbps.\n"),
    ("rateconftx 256 1000", writes(per_port(range(1, 5), range(187, 191)), 115),
     "Q0 Q1 Q2 Q3 egress rate limit is 960 Kbps.\n"),
    ("rateconftx 256 3000 2", writes(per_port(range(1, 5), [189]), 2),
     "Q2 egress rate limit is 2 Mbps.\n"),
    ("rateconfrx 256 1000", writes(per_port(range(5), range(184, 187)), 115),
     "Q1 Q2 Q3 ingress rate limit is 960 Kbps.\n"),
    ("rateconfrx 256 64 0", writes(per_port(range(5), [183]), 101),
     "Q0 ingress rate limit is 64 Kbps.\n"),
    ("rateconftx 1 64 255", writes([187, 188, 189, 190], 101),
     "Q0 Q1 Q2 Q3 egress rate limit is 64 Kbps.\n"),
    ("rateconftx 1 64 256", writes([187], 101), "Q0 egress rate limit is 64 Kbps.\n"),
    ("ratetx 1 0", writes([188, 189, 190], 0), ""),
    ("ratetx 256 0", writes(per_port(range(5), range(188, 191)), 0), ""),
    ("ratetx 256 0 0", writes(per_port(range(5), [187]), 0), ""),
    ("raterx 2 5", writes([200, 201, 202], 0), ""),
    ("raterx 256 0", writes(per_port(range(5), range(184, 187)), 0), ""),
    ("raterx 256 0 3", writes(per_port(range(5), [186]), 0), ""),
])
def test_ranges_of_the_rate_registers(bench, line, xfers, printed):
    prepare(bench, {reg: 0x8F for reg in RATE_REGS})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + printed
    assert command_xfers(bench) == xfers


# Read-modify-writes of register 16p + 182 keep the other bits.
@pytest.mark.parametrize("line,before,after", [
    ("raterxflow 1 1", {182: 0xEF}, {182: 0xFF}),
    ("raterxflow 2 0 9", {198: 0xFF}, {198: 0xEF}),
    ("raterxflow 256 1", {198: 0x01, 214: 0x02, 230: 0x04, 246: 0x08},
     {198: 0x11, 214: 0x12, 230: 0x14, 246: 0x18}),
    ("ratemode 3 2", {214: 0xF3}, {214: 0xFB}),
    ("ratemode 4 0", {230: 0xFF}, {230: 0xF3}),
    ("ratemode 5 3", {246: 0x10}, {246: 0x1C}),
])
def test_port_control_keeps_other_bits(bench, line, before, after):
    prepare(bench, before | {182: before.get(182, 0x5A)})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line)
    expected = []
    for reg in before:
        expected += [("R", reg, before[reg]), ("W", reg, after[reg])]
    assert command_xfers(bench) == expected
    assert {reg: bench.peek(reg) for reg in after} == after
    if 182 not in before:
        assert bench.peek(182) == 0x5A


# Refused lines print one message, in the order queue, port, rate (or port,
# mode), and write nothing; ratetx/raterx with Flag 1 do nothing at all.
@pytest.mark.parametrize("line,message", [
    ("rateconftx 9 10 7", QUEUE_ERROR.format(7)),
    ("rateconftx 9 10", PORT_ERROR.format(9)),
    ("rateconftx 1 63", RATE_ERROR.format(63)),
    ("rateconftx 1 102401 0", RATE_ERROR.format(102401)),
    ("rateconftx 1 64 4", QUEUE_ERROR.format(4)),
    ("rateconfrx 0 64 2", PORT_ERROR.format(0)),
    ("rateconfrx 256 -5", RATE_ERROR.format(-5)),
    ("ratetx 1 0 4", QUEUE_ERROR.format(4)),
    ("ratetx 7 0 9", QUEUE_ERROR.format(9)),
    ("raterx 7 0 1", PORT_ERROR.format(7)),
    ("ratetx 1 1 9", ""),
    ("raterx 99 1", ""),
    ("raterxflow 6 1", PORT_ERROR.format(6)),
    ("raterxflow 0 1", PORT_ERROR.format(0)),
    ("ratemode 256 1", PORT_ERROR.format(256)),
    ("ratemode 1 4", MODE_ERROR.format(4)),
    ("ratemode 6 4", PORT_ERROR.format(6)),
])
def test_refused_values_touch_nothing(bench, line, message):
    prepare(bench, {})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + message
    assert command_xfers(bench) == []


@pytest.mark.parametrize("line,usage", [
    ("rateconftx 1", "rateconftx  <Port> <#Kbps> <Q#>    -- configure egress rate limit on a Switch port and priority queue.\n"),
    ("raterxflow 1", "raterxflow  <Port> <Flag>          -- enable\\disable ingress flow control on a Switch port.\n"),
    ("ratemode", "ratemode    <Port> <Rate-mode>     -- configure Ingress Limit mode.\n"),
])
def test_too_few_tokens_print_usage(bench, line, usage):
    prepare(bench, {})
    res = console_session(bench, line)
    assert res.outputs[0] == echo(line) + "Usage: " + usage + "\n"
    assert command_xfers(bench) == []
