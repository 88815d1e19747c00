# Per-port settings in the console: the port VLAN settings (default VID,
# tagging, ingress rules, 802.1Q), port mirroring, and their displays.
import pytest

from console_util import check_command, console_session, prepare, rmw


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


VID_ERROR = "error: incorrect default vid ({}) to set! \n"


# Each line: the register values before, the transfers, what it prints after
# the echo. Setters keep the other bits of their register; refused lines print
# the message and make no transfer.

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
    ("sniffer 4 0", {65: 0xFF}, rmw(65, 0xFF, 0x7F), ""),
    ("sniffmode 1", {5: 0x80}, rmw(5, 0x80, 0x81), ""),
    ("vlandefvid 6 4096", {}, [], "error: incorrect Switch port (6) to set! \n"),
    ("vlandefvid 1 4096", {}, [], VID_ERROR.format(4096)),
    ("vlandefvid 1 0", {}, [], VID_ERROR.format(0)),
    ("sniffmode", {}, [], "Usage: sniffmode   <sniff-sel>            "
                          "-- configure the mirroring filter function.\n\n"),
])
def test_setters_and_refusals(bench, line, pokes, xfers, printed):
    check_command(bench, line, printed, xfers, pokes)
