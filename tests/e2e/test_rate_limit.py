# Rate limiting in the console: egress and ingress limits per queue, the
# all-ports and all-queues ranges, flow control, limit modes, and rateinfo.
import pytest

from console_util import check_command, rmw

PORT_ERROR = "error: incorrect Switch port ({}) to set! \n"
QUEUE_ERROR = "error: incorrect priority queue ({}) to set! \n"
RATE_ERROR = "error: incorrect rate limit ({}) Kbps to set! \n"
ON, OFF = "enable", "disable"


# A line of rateinfo: the label, then each port's cell right-aligned in 12 columns.
def row(label, cells):
    return f"{label:<30}:" + "".join(f"{c:>9}   " for c in cells) + " \n"


def test_rateinfo_shows_port_indices_1_to_4(bench):
    # Codes 100, 116 (no table row: 0, yet on), 101 and 114 on the egress
    # queues of index 2, code 115 on queue 0 of index 3, code 1 on the
    # ingress side of index 4, flow control and mode 3 on index 3. Index 0
    # has no column, and bit 7 of a rate register and the other bits of the
    # port control show nothing.
    pokes = {16 * i + off: 0x80 for i in range(5) for off in range(183, 191)} | {
        16 * i + 182: 0xE3 for i in range(5)} | {r: 0xFF for r in range(182, 191)} | {
        219: 0xE4, 220: 0xF4, 221: 0xE5, 222: 0xF2, 235: 0xF3, 247: 0x81, 248: 0x81, 249: 0x81, 250: 0x81,
        230: 0xFF}
    regs = [16 * i + off for i in range(5) for off in [o for q in range(4) for o in (187 + q, 183 + q)] + [182]]
    rows = [(f"Rate Limit transmit rate (Q{q})", [0, [102400, 0, 64, 896][q], 960 if q == 0 else 0, 0])
            for q in range(4)]
    rows += [(f"Rate Limit receive rate  (Q{q})", [0, 0, 0, 1024]) for q in range(4)]
    rows += [(f"Rate Limit transmit      (Q{q})", [OFF, ON, ON if q == 0 else OFF, OFF]) for q in range(4)]
    rows += [(f"Rate Limit receive       (Q{q})", [OFF, OFF, OFF, ON]) for q in range(4)]
    rows += [("Receive flow control", [OFF, OFF, ON, OFF]), ("Rate Limit receive mode", [0, 0, 3, 0])]
    head = "\n                         Port :        1           2           3           4           \n"
    check_command(bench, "rateinfo", head + "".join(row(*r) for r in rows), [("R", r, pokes[r]) for r in regs], pokes)


def writes(ports, offsets, val):
    return [("W", 16 * p + off, val) for p in ports for off in offsets]


# Rates in Kbps, the code written for each, and the rate reported.
CODES = [(64, 101, "64 K"), (1024, 1, "1 M"), (102400, 100, "100 M")]
# Refused lines print one message, in the order queue, port, rate (or port,
# mode), and write nothing; ratetx/raterx with Flag 1 do nothing at all.
REFUSED = [
    ("rateconftx 9 10 4", QUEUE_ERROR.format(4)),
    ("rateconftx 9 10", PORT_ERROR.format(9)),
    ("rateconftx 1 63", RATE_ERROR.format(63)),
    ("rateconftx 1 102401 0", RATE_ERROR.format(102401)),
    ("ratetx 7 0 9", QUEUE_ERROR.format(9)),
    ("raterx 7 0 1", PORT_ERROR.format(7)),
    ("ratetx 1 1 9", ""),
    ("raterxflow 6 1", PORT_ERROR.format(6)),
    ("ratemode 256 4", PORT_ERROR.format(256)),
    ("ratemode 1 4", "error: incorrect Ingress limit mode (4) to set! \n"),
    ("rateconftx 1", "Usage: rateconftx  <Port> <#Kbps> <Q#>    "
                     "-- configure egress rate limit on a Switch port and priority queue.\n\n"),
    ("raterxflow 1", "Usage: raterxflow  <Port> <Flag>          "
                     "-- enable\\disable ingress flow control on a Switch port.\n\n"),
]


# The registers written for one line, in order, and what it prints after the
# echo, on a chip with 0x8F in every rate register; the read-modify-writes of
# the port control (register 16p + 182) keep its other bits.
@pytest.mark.parametrize("line,xfers,printed", [
    (f"rateconftx 1 {kbps} 2", [("W", 189, code)], f"Q2 egress rate limit is {reported}bps.\n")
    for kbps, code, reported in CODES] + [
    ("rateconftx 1 1000", writes([0], range(187, 191), 115), "Q0 Q1 Q2 Q3 egress rate limit is 960 Kbps.\n"),
    ("rateconftx 256 3000 2", writes(range(1, 5), [189], 2), "Q2 egress rate limit is 2 Mbps.\n"),
    ("rateconfrx 256 1000", writes(range(5), range(184, 187), 115), "Q1 Q2 Q3 ingress rate limit is 960 Kbps.\n"),
    ("rateconftx 1 64 255", writes([0], range(187, 191), 101), "Q0 Q1 Q2 Q3 egress rate limit is 64 Kbps.\n"),
    ("ratetx 256 0", writes(range(5), range(188, 191), 0), ""),
    ("raterx 256 5", writes(range(5), range(184, 187), 0), ""),
    ("raterxflow 2 0 9", rmw(198, 0x91, 0x81), ""),
    ("raterxflow 256 1", rmw(198, 0x91, 0x91) + rmw(214, 0xE3, 0xF3) + rmw(230, 0x84, 0x94) + rmw(246, 0x08, 0x18),
     ""),
    ("ratemode 3 2", rmw(214, 0xE3, 0xEB), ""),
] + [(line, [], message) for line, message in REFUSED])
def test_rate_registers_written(bench, line, xfers, printed):
    pokes = {16 * i + off: 0x8F for i in range(5) for off in range(183, 191)}
    check_command(bench, line, printed, xfers, pokes | {182: 0x4A, 198: 0x91, 214: 0xE3, 230: 0x84, 246: 0x08})
