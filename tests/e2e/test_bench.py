# The test bench itself: real spidev clients (python3-spidev, spi-pipe) on the
# simulated chip, and the chip model's rules that the product tests rest on.
import os

import pytest

SPI_PIPE = {"argv0": "spi-pipe", "prog": "/usr/bin/spi-pipe"}


def reads(*regs):
    return [[r] for r in regs]


def test_real_clients_read_the_chip_id(bench):
    code = "import spidev; s = spidev.SpiDev(); s.open(0, 0); print(s.xfer2([3, 0, 0xFF])[2])"
    assert bench.run(["-c", code], argv0="python3", prog="/usr/bin/python3").out == "149\n"
    assert [x.op for x in bench.xfer_events()] == ["R"]
    if not bench.sees_calls:  # the VM: the node is the kernel's spidev's, on the bench's controller
        assert os.readlink("/sys/bus/spi/devices/spi0.0/driver").endswith("/spidev")
        assert os.path.realpath("/sys/class/spidev/spidev0.0/device") == os.path.realpath(
            "/sys/bus/spi/devices/spi0.0")


@pytest.mark.parametrize("setup,ops,expected", [
    # The chip id is read-only, register 1 keeps its high nibble, the link
    # bits follow the cable alone.
    ([("link", 2, "down")], [[0, 0], [1, 0], [46, 0], [62, 0x20], [104, 0xA5]] + reads(0, 1, 46, 62, 104),
     [0x95, 0x60, 0x20, 0x00, 0xA5]),
    ([("managed", 0)], [[104, 0x12]] + reads(0, 1, 104), [0xFF, 0xFF, 0xFF]),
    # Static MAC row 3 written in the write layout, read back in the read layout.
    ([], [[113, 5], [114, 0xE2]] + [[115 + i, i + 1] for i in range(6)] + [[110, 0], [111, 3], [110, 0x10], [111, 3]]
     + reads(*range(113, 121)), [0x0B, 0x62, 1, 2, 3, 4, 5, 6]),
    # VID 5 is row 1 of table address 1.
    ([("vlan", "set", 5, 3, 0x11, 1)], [[110, 0x14], [111, 1]] + reads(*range(114, 121)),
     list(bytes.fromhex("00000003106000"))),
    # A MIB counter clears on read; a dropped-packet count does not.
    ([("mib", 1, 5, 0x123456, "overflow"), ("dropped", 0x106, 0xBEEF)],
     ([[110, 0x1C], [111, 37]] + reads(117, 118, 119, 120)) * 2 + ([[110, 0x1D], [111, 6]] + reads(119, 120)) * 2,
     [0xC0, 0x12, 0x34, 0x56, 0x40, 0, 0, 0, 0xBE, 0xEF, 0xBE, 0xEF]),
    ([], [[110, 0x18], [111, 1]] + reads(112), [0x80]),  # the empty dynamic table
    ([("dynmac", "add", "00:11:22:33:44:55", 1, 2, 3), ("dynmac", "add", "66:77:88:99:aa:bb", 0x7F, 4, 1)],
     [[110, 0x18], [111, 1]] + reads(*range(112, 121)), [0, 0x2C, 0x7F, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB]),
    ([("dynmac", "add", "00:11:22:33:44:55", 1, 2, 3), ("dynmac", "count", 1000)],
     [[110, 0x18], [111, 0]] + reads(112, 113), [0x7C, 0xFA]),  # 999 entries follow
])
# Register transfers of three bytes each by spi-pipe on the board: [reg] is a
# read, [reg, value] a write; the values read are those expected.
def test_chip_model(bench, setup, ops, expected):
    for args in setup:
        bench.ctl(*args)
    frames = b"".join(bytes([3, op[0], 0] if len(op) == 1 else [2, *op]) for op in ops)
    res = bench.run(["-d", "/dev/spidev0.0", "-b", "3", "-n", str(len(ops))], stdin=frames, **SPI_PIPE)
    assert res.rc == 0, res.err
    assert [res.out_bytes[3 * i + 2] for i, op in enumerate(ops) if len(op) == 1] == expected
