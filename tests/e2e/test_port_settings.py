# Per-port settings in the console and their displays: the port VLAN settings
# (default VID, tagging, ingress rules, 802.1Q), port mirroring, QoS (fair
# queueing, the four-queue split, the priority and TOS maps, port-based queues)
# and rate limiting (egress and ingress limits per queue, the all-ports and
# all-queues ranges, flow control, limit modes).
import pytest

from console_util import check_command, console_session, prepare, rmw

PORT_ERROR = "error: incorrect Switch port ({}) to set! \n"
ON, OFF = "enable", "disable"


def test_vlaninfo_shows_port_indices_1_to_4(bench):
    # VID 2748 and the ingress filter on for index 1, insertion and discarding
    # on for index 3, removal on and VID 100 for index 4, 802.1Q on. Index 0
    # has no column; the other bits of the registers, the high VID register's
    # bits 4-7 among them, show nothing.
    pokes = {16: 0xFF, 18: 0xFF, 19: 0xFF, 20: 0xFF, 32: 0xF9, 34: 0xDF, 35: 0xFA, 36: 0xBC, 52: 1,
             64: 0x04, 66: 0x20, 68: 1, 80: 0x02, 83: 0x50, 84: 100, 5: 0xFF}
    regs = [16 * i + off for i in range(5) for off in (20, 19, 16, 18)] + [5]
    check_command(bench, "vlaninfo", (
        "\n"
        "                Port :        1           2           3           4           \n"
        "VLAN defaul VID      :     2748           1           1         100    \n"
        "VLAN tag insertion   :  disable     disable      enable     disable    \n"
        "VLAN tag removal     :  disable     disable     disable      enable    \n"
        "VLAN ingress filter  :   enable     disable     disable     disable    \n"
        "VLAN discard PVID    :  disable     disable      enable     disable    \n"
        "VLAN 802.1Q          :   enable\n"), [("R", r, pokes.get(r, 0)) for r in regs], pokes)
    prepare(bench, {5: 0x7F})
    assert console_session(bench, "vlaninfo").outputs[0].endswith("VLAN 802.1Q          :  disable\n")


def test_mirrorinfo_shows_port_indices_1_to_4(bench):
    # Monitoring both ways on index 3, the sniffer on index 1. Index 0 has no
    # column, and the other bits show nothing.
    pokes = {17: 0xFF, 33: 0x9F, 49: 0x00, 65: 0x7F, 81: 0x1F, 5: 0xFE}
    check_command(bench, "mirrorinfo", "\n"
                  "                  Port :        1           2           3           4           \n"
                  "Mirror monitor transmit:  disable     disable      enable     disable    \n"
                  "Mirror monitor receive :  disable     disable      enable     disable    \n"
                  "Mirror sniffer         :   enable     disable     disable     disable    \n"
                  "Mirror Rx AND Tx       :  disable\n", [("R", r, v) for r, v in pokes.items()], pokes)


def diffserv(queues):
    return "DiffServ mapping to Q       : " + "".join(
        f"{tos:2d}-Q{queues.get(tos, 0)}  " + ("\n" + " " * 30) * (tos % 8 == 7) for tos in range(64)) + "\n"


def test_qosinfo_shows_port_indices_1_to_4_and_the_maps(bench):
    # Index 0 has no column, the other bits show nothing, and fair queueing
    # shows only with the bit in all four registers (index 1, not index 3),
    # which are read until the first clear one.
    pokes = {16: 0xFF, 177: 0xFF, 178: 0x80, 179: 0x80, 180: 0x80, 181: 0x80, 32: 0x27, 193: 0xFD,
             194: 0x80, 195: 0x80, 196: 0x80, 197: 0x80, 48: 0x67, 209: 0xFD, 213: 0x7F, 64: 0xB7,
             225: 0xFD, 227: 0x80, 228: 0x80, 229: 0x80, 80: 0xA7, 241: 0xFF, 128: 0x51, 129: 0xFA,
             144: 0x02, 147: 0x0C, 159: 0x40}
    wfq = {0: [181, 180, 179, 178], 1: [197, 196, 195, 194], 2: [213], 3: [229, 228, 227, 226], 4: [245]}
    regs = [r for i in range(5) for r in [16 * i + 177, 16 * i + 16] + wfq[i]]
    regs += [128] * 4 + [129] * 4 + [144 + t // 4 for t in range(64)]
    check_command(bench, "qosinfo", (
        "\n"
        "                       Port :        1           2           3           4           \n"
        "QoS split TXQ into 4Q       :  disable     disable     disable      enable    \n"
        "QoS DiffServ                :  disable      enable     disable     disable    \n"
        "QoS 802.1p                  :   enable      enable      enable      enable    \n"
        "QoS WFQ(q3:q2:q1:q0=8:4:2:1):   enable     disable     disable     disable    \n"
        "QoS Port-based mapping to Q :       Q0          Q0          Q2          Q0    \n"
        "802.1p mapping to Q         :  0-Q1   1-Q0   2-Q1   3-Q1   4-Q2   5-Q2   6-Q3   7-Q3  \n"
    ) + diffserv({0: 2, 13: 3, 63: 1}), [("R", r, pokes.get(r, 0)) for r in regs], pokes)


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


# Each line: the register values before, the transfers, what it prints after
# the echo. Setters keep the other bits of their register. Refused lines, in
# the order of comparison, print the message and make no transfer; negative
# numbers are refused with the message of the value they stand for.
@pytest.mark.parametrize("line,pokes,xfers,printed", [
    ("vlandefvid 1 4095", {19: 0xA0}, [("W", 20, 0xFF)] + rmw(19, 0xA0, 0xAF), ""),
    ("vlandefvid 2 65637", {35: 0x0F}, [("W", 36, 101)] + rmw(35, 0x0F, 0x00), ""),
    ("vlanenable", {5: 0x01}, rmw(5, 0x01, 0x81), ""),
    ("vlandisable", {5: 0xFF}, rmw(5, 0xFF, 0x7F), ""),
    ("vlanenabletag 1 1", {16: 0x41}, rmw(16, 0x41, 0x45), ""),
    ("vlanenabletag 1 2", {16: 0x00}, rmw(16, 0x00, 0x02), ""),
    ("vlandisabletag 2 1", {32: 0xFF}, rmw(32, 0xFF, 0xFB), ""),
    ("vlaningressfilter 3 2", {50: 0xFF}, rmw(50, 0xFF, 0xBF), ""),
    ("vlandiscardnonvid 5 0", {82: 0xFF}, rmw(82, 0xFF, 0xDF), ""),
    ("mirrortx 1 1", {17: 0x81}, rmw(17, 0x81, 0xA1), ""),
    ("mirrorrx 5 1", {81: 0x00}, rmw(81, 0x00, 0x40), ""),
    # The mirror setters check the port in the shared flag writer only.
    ("mirrortx 0 1", {}, [], "error: incorrect Switch port (0) to set! \n"),
    ("sniffer 4 0", {65: 0xFF}, rmw(65, 0xFF, 0x7F), ""),
    ("sniffmode 1", {5: 0x80}, rmw(5, 0x80, 0x81), ""),
    ("qoswfq 1", {181: 0x05, 180: 0x05, 179: 0x05, 178: 0x05},
     rmw(181, 5, 0x85) + rmw(180, 5, 0x85) + rmw(179, 5, 0x85) + rmw(178, 5, 0x85), ""),
    ("qoswfq 2 2", {197: 0xFF, 196: 0xFF, 195: 0xFF, 194: 0xFF},
     rmw(197, 0xFF, 0x7F) + rmw(196, 0xFF, 0x7F) + rmw(195, 0xFF, 0x7F) + rmw(194, 0xFF, 0x7F), ""),
    # Enabling port 2: the scan stops at the first port with the split bit.
    ("qossplitq 2 1", {32: 0x0F, 193: 0x00, 177: 0x00, 135: 0x00},
     [("R", 32, 0x0F), ("R", 193, 0x00), ("W", 32, 0x0E), ("W", 193, 0x02),
      ("R", 177, 0x00), ("R", 193, 0x02), ("R", 135, 0x00), ("W", 135, 0x08)], ""),
    # Disabling port 2 while port 3 still splits keeps the chip-wide bit.
    ("qossplitq 2 0", {32: 0x01, 193: 0xFF, 177: 0x00, 209: 0x02, 135: 0x08},
     [("R", 32, 0x01), ("R", 193, 0xFF), ("W", 32, 0x00), ("W", 193, 0xFD),
      ("R", 177, 0x00), ("R", 193, 0xFD), ("R", 209, 0x02), ("R", 135, 0x08), ("W", 135, 0x08)], ""),
    # Disabling the last one clears it; bit 0 of 16p + 16 is cleared either way.
    ("qossplitq 1 0", {16: 0xFF, 177: 0xFF, 193: 0, 209: 0, 225: 0, 241: 0xFD, 135: 0xFF},
     [("R", 16, 0xFF), ("R", 177, 0xFF), ("W", 16, 0xFE), ("W", 177, 0xFD),
      ("R", 177, 0xFD), ("R", 193, 0), ("R", 209, 0), ("R", 225, 0), ("R", 241, 0xFD),
      ("R", 135, 0xFF), ("W", 135, 0xF7)], ""),
    ("qostag2q 3", {128: 0xFF}, rmw(128, 0xFF, 0x3F), "QoS 802.1p priority 3 mapping to Q0. \n"),
    ("qostag2q 7 1", {129: 0xFF}, rmw(129, 0xFF, 0x7F), "QoS 802.1p priority 7 mapping to Q1. \n"),
    ("qostos2q 63 1", {159: 0x00}, rmw(159, 0, 0x40), "QoS TOS priority 63 mapping to Q1. \n"),
    ("qostos2q 8", {146: 0xFF}, rmw(146, 0xFF, 0xFC), "QoS TOS priority 8 mapping to Q0. \n"),
    ("qosportbase 2 1 3", {32: 0x81}, rmw(32, 0x81, 0x99), ""),
    ("qosportbase 2 1", {32: 0xFF}, rmw(32, 0xFF, 0xE7), ""),
    ("qosportbase 2 0 2", {32: 0xFF}, rmw(32, 0xFF, 0xE7), ""),
    ("qosdiffserv 3 1", {48: 0x01}, rmw(48, 0x01, 0x41), ""),
    ("qosdot1p 5 0", {80: 0xFF}, rmw(80, 0xFF, 0xDF), ""),
    # Rates in Kbps, the code written for each, and the rate reported; rate
    # registers are written whole, without a read first.
    *[(f"rateconftx 1 {kbps} 2", {}, [("W", 189, code)], f"Q2 egress rate limit is {reported}bps.\n")
      for kbps, code, reported in [(64, 101, "64 K"), (1024, 1, "1 M"), (102400, 100, "100 M")]],
    ("rateconftx 1 1000", {}, writes([0], range(187, 191), 115), "Q0 Q1 Q2 Q3 egress rate limit is 960 Kbps.\n"),
    ("rateconftx 256 3000 2", {}, writes(range(1, 5), [189], 2), "Q2 egress rate limit is 2 Mbps.\n"),
    ("rateconfrx 256 1000", {}, writes(range(5), range(184, 187), 115),
     "Q1 Q2 Q3 ingress rate limit is 960 Kbps.\n"),
    ("rateconftx 1 64 255", {}, writes([0], range(187, 191), 101),
     "Q0 Q1 Q2 Q3 egress rate limit is 64 Kbps.\n"),
    ("ratetx 256 0", {}, writes(range(5), range(188, 191), 0), ""),
    ("raterx 256 5", {}, writes(range(5), range(184, 187), 0), ""),
    ("raterxflow 2 0 9", {198: 0x91}, rmw(198, 0x91, 0x81), ""),
    ("raterxflow 256 1", {198: 0x91, 214: 0xE3, 230: 0x84, 246: 0x08},
     rmw(198, 0x91, 0x91) + rmw(214, 0xE3, 0xF3) + rmw(230, 0x84, 0x94) + rmw(246, 0x08, 0x18), ""),
    ("ratemode 3 2", {214: 0xE3}, rmw(214, 0xE3, 0xEB), ""),
    ("vlandefvid 6 4096", {}, [], PORT_ERROR.format(6)),
    ("vlandefvid 1 4096", {}, [], "error: incorrect default vid (4096) to set! \n"),
    ("vlandefvid 1 0", {}, [], "error: incorrect default vid (0) to set! \n"),
    ("sniffmode", {}, [], "Usage: sniffmode   <sniff-sel>            "
                          "-- configure the mirroring filter function.\n\n"),
    ("qoswfq 1 0", {}, [], PORT_ERROR.format(0)),
    ("qossplitq 6 1", {}, [], PORT_ERROR.format(6)),
    ("qosportbase 6 1 9", {}, [], PORT_ERROR.format(6)),
    ("qosportbase 2 0 7", {}, [], "error: incorrect priority queue number(7) to set! \n"),
    ("qostag2q 8 9", {}, [], "error: incorrect 802.1p priority value(8) to set! \n"),
    ("qostag2q 1 -1", {}, [], "error: incorrect priority queue number(-1) to set! \n"),
    ("qostag2q -1 2", {}, [], "error: incorrect 802.1p priority value(-1) to set! \n"),
    ("qostos2q 64", {}, [], "error: incorrect TOS (64) value to set! \n"),
    ("qoswfq", {}, [], "Usage: qoswfq      <Flag> <Port>          "
                           "-- enable\\disable Weighted Fair Queueing on a Switch port.\n\n"),
    ("qostag2q", {}, [], "Usage: qostag2q    <Priority> <Q#>        -- mapping 802.1p priority to priority TxQ.\n\n"),
    ("qosportbase 1", {}, [], "Usage: qosportbase <Port> <Flag> <Q#>     "
                                  "-- enable\\disable mapping port-base to priority TxQ on a Switch port.\n\n"),
    # Rate limits: one message, in the order queue, port, rate (or port,
    # mode); ratetx and raterx with Flag 1 do nothing at all.
    ("rateconftx 9 10 4", {}, [], "error: incorrect priority queue (4) to set! \n"),
    ("rateconftx 9 10", {}, [], PORT_ERROR.format(9)),
    ("rateconftx 1 63", {}, [], "error: incorrect rate limit (63) Kbps to set! \n"),
    ("rateconftx 1 102401 0", {}, [], "error: incorrect rate limit (102401) Kbps to set! \n"),
    ("ratetx 7 0 9", {}, [], "error: incorrect priority queue (9) to set! \n"),
    ("raterx 7 0 1", {}, [], PORT_ERROR.format(7)),
    ("ratetx 1 1 9", {}, [], ""),
    ("raterxflow 6 1", {}, [], PORT_ERROR.format(6)),
    ("ratemode 256 4", {}, [], PORT_ERROR.format(256)),
    ("ratemode 1 4", {}, [], "error: incorrect Ingress limit mode (4) to set! \n"),
    ("rateconftx 1", {}, [], "Usage: rateconftx  <Port> <#Kbps> <Q#>    "
                             "-- configure egress rate limit on a Switch port and priority queue.\n\n"),
    ("raterxflow 1", {}, [], "Usage: raterxflow  <Port> <Flag>          "
                             "-- enable\\disable ingress flow control on a Switch port.\n\n"),
])
def test_setters_and_refusals(bench, line, pokes, xfers, printed):
    check_command(bench, line, printed, xfers, pokes)
