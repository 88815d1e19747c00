"""Port mirroring in the console: monitored ports, the sniffer, the filter
mode, and the mirrorinfo display."""
import pytest

from console_util import check_command, rmw

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


# Setters keep the other bits of their register; refused lines touch nothing.
@pytest.mark.parametrize("line,pokes,xfers,printed", [
    ("mirrortx 1 1", {17: 0x81}, rmw(17, 0x81, 0xA1), ""),
    ("mirrorrx 5 1", {81: 0x00}, rmw(81, 0x00, 0x40), ""),
    ("sniffer 4 0", {65: 0xFF}, rmw(65, 0xFF, 0x7F), ""),
    ("sniffmode 1", {5: 0x80}, rmw(5, 0x80, 0x81), ""),
    ("mirrortx 0 1", {}, [], "error: incorrect Switch port (0) to set! \n"),
    ("sniffmode", {}, [], "Usage: sniffmode   <sniff-sel>            -- configure the mirroring filter function.\n\n"),
])
def test_setters_and_refusals(bench, line, pokes, xfers, printed):
    check_command(bench, line, printed, xfers, pokes)
