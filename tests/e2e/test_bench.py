"""The test bench itself: real spidev clients, the chip model, faults, events
and the namespaces."""

import errno
import json
import os
import signal
import subprocess

import pytest

from bench import BENCH_DIR, Bench

PY = "/usr/bin/python3"

# A small spidev client run on the board. argv[1] is a JSON list of
# operations; it prints one JSON result per operation: a value, or
# ["err", errno].
CLIENT = r"""
import ctypes, errno, fcntl, json, os, sys

def ioc(d, nr, size):
    return (d << 30) | (size << 16) | (0x6B << 8) | nr

WR, RD = 1, 2
SETUP = {"mode": (1, 1), "lsb": (2, 1), "bits": (3, 1), "speed": (4, 4), "mode32": (5, 4)}

class Xfer(ctypes.Structure):
    _fields_ = [("tx_buf", ctypes.c_uint64), ("rx_buf", ctypes.c_uint64),
                ("len", ctypes.c_uint32), ("speed_hz", ctypes.c_uint32),
                ("delay_usecs", ctypes.c_uint16), ("bits_per_word", ctypes.c_uint8),
                ("cs_change", ctypes.c_uint8), ("tx_nbits", ctypes.c_uint8),
                ("rx_nbits", ctypes.c_uint8), ("word_delay_usecs", ctypes.c_uint8),
                ("pad", ctypes.c_uint8)]

libc = ctypes.CDLL(None, use_errno=True)

def message(fd, frames, rx=True):
    # frames: list of byte lists, one transfer each; cs_change ends a frame
    n = len(frames)
    xs = (Xfer * n)()
    bufs = []
    for i, data in enumerate(frames):
        tx = (ctypes.c_uint8 * len(data))(*data)
        rb = (ctypes.c_uint8 * len(data))()
        bufs.append((tx, rb))
        xs[i].tx_buf = ctypes.addressof(tx)
        xs[i].rx_buf = ctypes.addressof(rb) if rx else 0
        xs[i].len = len(data)
        xs[i].cs_change = 1
    r = libc.ioctl(fd, ioc(WR, 0, 32 * n), ctypes.byref(xs))
    if r < 0:
        return ["err", ctypes.get_errno()]
    return [r] + [list(rb) for _, rb in bufs]

out = []
fd = None
for op in json.loads(sys.argv[1]):
    name, args = op[0], op[1:]
    try:
        if name == "open":
            fd = os.open("/dev/spidev0.0", os.O_RDWR)
            out.append(0)
        elif name in ("wr", "rd"):
            nr, size = SETUP[args[0]]
            if name == "wr":
                buf = args[1].to_bytes(size, "little")
                fcntl.ioctl(fd, ioc(WR, nr, size), buf)
                out.append(0)
            else:
                got = fcntl.ioctl(fd, ioc(RD, nr, size), bytes(size))
                out.append(int.from_bytes(got, "little"))
        elif name == "read":
            r = message(fd, [[3, args[0], 0xFF]])
            out.append(r if r[0] == "err" else r[1][2])
        elif name == "write":
            r = message(fd, [[2, args[0], args[1]]], rx=False)
            out.append(r if r[0] == "err" else r[0])
        elif name == "frames":
            out.append(message(fd, args[0]))
        elif name == "raw":  # raw ioctl: request, integer argument
            r = libc.ioctl(fd if args[2] else -1, ctypes.c_ulong(args[0]), ctypes.c_void_p(args[1]))
            out.append(["err", ctypes.get_errno()] if r < 0 else r)
        elif name == "file":  # open a path, write bytes, close
            f = os.open(args[0], os.O_RDWR)
            try:
                os.write(f, bytes.fromhex(args[1]))
            finally:
                os.close(f)
            out.append(0)
        elif name == "usleep":
            out.append(libc.usleep(args[0]))
        elif name == "syslog":
            libc.openlog(b"benchtest", 3, 3 << 3)
            libc.syslog(args[0], b"%s", args[1].encode())
            out.append(0)
    except OSError as e:
        out.append(["err", e.errno])
print(json.dumps(out))
"""


def client(bench, *ops):
    r = bench.run(["-c", CLIENT, json.dumps(ops)], argv0="python3", prog=PY)
    assert r.rc == 0, r.err
    return json.loads(r.out)


def read_regs(bench, regs):
    return client(bench, ["open"], *[["read", r] for r in regs])[1:]


def spi_write(bench, pairs):
    client(bench, ["open"], *[["write", r, v] for r, v in pairs])


def zorvi_run(bench, cmd, stdin=b""):
    return subprocess.run(
        [str(BENCH_DIR / "zorvi-run"), str(bench.sb), "--"] + cmd,
        input=stdin,
        capture_output=True,
        timeout=30,
    )


# -- real spidev clients --------------------------------------------------------


@pytest.mark.parametrize("board,chip_id", [("nand", 0x95), ("nor", 0x88)])
def test_real_clients_read_the_chip_id(tmp_path, board, chip_id):
    bench = Bench(tmp_path, board=board)
    try:
        r = zorvi_run(bench, ["spi-pipe", "-d", "/dev/spidev0.0", "-b", "3", "-n", "1"], b"\x03\x00\xff")
        assert r.returncode == 0, r.stderr
        assert r.stdout[2] == chip_id
        code = "import spidev; s = spidev.SpiDev(); s.open(0, 0); print(s.xfer2([3, 0, 0xFF])[2])"
        r = zorvi_run(bench, [PY, "-c", code])
        assert r.returncode == 0, r.stderr
        assert int(r.stdout) == chip_id
        assert [x.op for x in bench.xfer_events()] == ["R", "R"]
    finally:
        bench.close()


def test_without_sandbox_everything_passes_through(tmp_path):
    env = dict(os.environ, LD_PRELOAD=str(BENCH_DIR / "libzorvibench.so"))
    env.pop("ZORVI_SANDBOX", None)
    code = "import os\ntry:\n os.open('/dev/spidev0.0', os.O_RDWR)\nexcept OSError as e:\n print(e.errno)"
    r = subprocess.run([PY, "-c", code], env=env, capture_output=True, text=True, timeout=30)
    assert r.stdout.strip() == str(errno.ENOENT) or os.path.exists("/dev/spidev0.0")


# -- spidev semantics and faults --------------------------------------------------

MESSAGE_1 = (1 << 30) | (32 << 16) | (0x6B << 8)


@pytest.mark.parametrize(
    "ops,expected",
    [
        # set-up ioctls round-trip through the device's settings
        ([["wr", "mode", 3], ["rd", "mode"], ["wr", "lsb", 1], ["rd", "lsb"], ["rd", "mode32"]], [0, 3, 0, 1, 11]),
        ([["wr", "bits", 0], ["rd", "bits"], ["wr", "speed", 4000000], ["rd", "speed"]], [0, 8, 0, 4000000]),
        # the controller has no 3-wire mode; speed 0 and 33 bits are refused
        ([["wr", "mode", 0x10], ["wr", "speed", 0], ["wr", "bits", 33]], [["err", errno.EINVAL]] * 3),
        # other requests: ENOTTY; a bad pointer: EFAULT; a size that is no whole
        # number of transfers: EINVAL; a descriptor that isn't open: EBADF
        ([["raw", (0x54 << 8) | 1, 0, 1]], [["err", errno.ENOTTY]]),
        ([["raw", MESSAGE_1, 8, 1]], [["err", errno.EFAULT]]),
        ([["raw", (1 << 30) | (31 << 16) | (0x6B << 8), 0, 1]], [["err", errno.EINVAL]]),
        ([["raw", MESSAGE_1, 0, 0]], [["err", errno.EBADF]]),
    ],
)
def test_spidev_ioctls(bench, ops, expected):
    assert client(bench, ["open"], *ops)[1:] == expected


@pytest.mark.parametrize(
    "fault,ops,expected",
    [
        ("open", [["open"]], [["err", errno.ENOENT]]),
        ("wr-mode", [["open"], ["wr", "mode", 0], ["wr", "bits", 8]], [0, ["err", errno.EINVAL], 0]),
        ("wr-lsb", [["open"], ["wr", "lsb", 0], ["wr", "mode", 3]], [0, ["err", errno.EINVAL], 0]),
        ("wr-bits", [["open"], ["wr", "bits", 8], ["wr", "speed", 1000]], [0, ["err", errno.EINVAL], 0]),
        ("wr-speed", [["open"], ["wr", "speed", 4000000], ["rd", "speed"]], [0, ["err", errno.EINVAL], 10000000]),
        ("xfer", [["open"], ["read", 0], ["write", 104, 7]], [0, ["err", errno.EIO], ["err", errno.EIO]]),
        ("xfer-from=3", [["open"], ["read", 0], ["read", 0], ["read", 0], ["read", 1]],
         [0, 0x95, 0x95, ["err", errno.EIO], ["err", errno.EIO]]),
    ],
)
def test_spidev_faults(bench, fault, ops, expected):
    name, _, arg = fault.partition("=")
    bench.fault(name, arg or None)
    assert client(bench, *ops) == expected
    bench.clear_faults()
    assert read_regs(bench, [0]) == [0x95]


def test_failed_transfer_is_logged_and_has_no_effect(bench):
    bench.fault("xfer")
    client(bench, ["open"], ["write", 104, 9])
    assert bench.peek(104) == 0
    assert bench.xfers() == []
    assert [(x.op, x.reg, x.val, x.ok) for x in bench.xfer_events()] == [("W", 104, 9, 0)]


def test_frames_span_transfers_and_auto_increment(bench):
    bench.poke(2, 0x11)
    bench.poke(3, 0x22)
    # one chip-select frame of two transfers (no cs_change on the first)
    code = CLIENT.replace("xs[i].cs_change = 1", "xs[i].cs_change = int(i == n - 1)")
    r = bench.run(["-c", code, json.dumps([["open"], ["frames", [[3, 2], [0, 0]]]])], argv0="python3", prog=PY)
    assert json.loads(r.out)[1] == [4, [0, 0], [0x11, 0x22]]
    (x,) = bench.xfer_events()
    assert (x.op, x.reg, x.val, x.bpw, x.rx, x.len, x.ok) == ("R", 2, 0x11, 0, 1, 4, 1)


# -- chip model ----------------------------------------------------------------------


def test_register_access_rules(bench_nor):
    b = bench_nor
    # chip id read-only; register 1 keeps its high nibble; link bits read-only
    spi_write(b, [(0, 0), (1, 0x00), (30, 0x00), (46, 0xFF), (104, 0xA5)])
    assert [b.peek(r) for r in (0, 1, 30, 46, 104)] == [0x88, 0x60, 0x20, 0xFF, 0xA5]
    b.link(2, False)
    assert read_regs(b, [30, 46]) == [0x20, 0xDF]


def test_unmanaged_chip_does_not_answer(bench):
    bench.managed(0)
    spi_write(bench, [(104, 0x12)])
    assert read_regs(bench, [0, 1, 104]) == [0xFF, 0xFF, 0xFF]
    bench.managed(1)
    assert read_regs(bench, [0, 104]) == [0x95, 0]


def gpio_seq(level):
    """The management mode sequence as hex writes: export, direction, 191, pulse on 56."""
    return [
        ["file", "/sys/class/gpio/export", b"56".hex()],
        ["file", "/sys/class/gpio/export", b"191".hex()],
        ["file", "/sys/class/gpio/gpio56/direction", b"out\0".hex()],
        ["file", "/sys/class/gpio/gpio191/direction", b"out\0".hex()],
        ["file", "/sys/class/gpio/gpio191/value", f"{level}\0".encode().hex()],
        ["file", "/sys/class/gpio/gpio56/value", b"0\0".hex()],
        ["file", "/sys/class/gpio/gpio56/value", b"1\0".hex()],
        ["open"],
        ["read", 0],
    ]


@pytest.mark.parametrize(
    "board,stuck,level,chip_id",
    [("nand", False, 0, 0xFF), ("nand", False, 1, 0x95), ("nand", True, 0, 0x95), ("nor", False, 0, 0x88)],
)
def test_gpio_sequence_switches_management(tmp_path, board, stuck, level, chip_id):
    b = Bench(tmp_path, board=board)
    try:
        if stuck:
            b.fault("gpio-stuck")
        assert client(b, *gpio_seq(level))[-1] == chip_id
        assert b.path("/sys/class/gpio/gpio56/value").read_text() == "1\n"
        assert b.path("/sys/class/gpio/gpio191/direction").read_text() == "out\n"
        assert b.gpio_writes()[-1] == ("/sys/class/gpio/gpio56/value", b"1\0")
    finally:
        b.close()


def test_gpio_export(bench):
    assert client(bench, ["file", "/sys/class/gpio/export", b"56\n".hex()]) == [0]
    assert bench.path("/sys/class/gpio/gpio56/direction").read_text() == "in\n"
    assert bench.path("/sys/class/gpio/gpio56/value").read_text() == "0\n"
    # exported already, or not a number: as the kernel answers
    assert client(bench, ["file", "/sys/class/gpio/export", b"56".hex()], ["file", "/sys/class/gpio/export", b"x".hex()]) == [
        ["err", errno.EBUSY],
        ["err", errno.EINVAL],
    ]
    assert [e.raw.split(" ", 2)[2] for e in bench.events() if e.kind == "gpio"] == [
        "/sys/class/gpio/export 35360a ok=1",
        "/sys/class/gpio/export 3536 ok=0",
        "/sys/class/gpio/export 78 ok=0",
    ]


@pytest.mark.parametrize(
    "fault,arg,op,err",
    [
        ("export-busy", 191, ["file", "/sys/class/gpio/export", b"191".hex()], errno.EBUSY),
        ("gpio-open", "/sys/class/gpio/export", ["file", "/sys/class/gpio/export", b"56".hex()], errno.EACCES),
        ("gpio-write", "/sys/class/gpio/export", ["file", "/sys/class/gpio/export", b"56".hex()], errno.EIO),
    ],
)
def test_gpio_faults(bench, fault, arg, op, err):
    bench.fault(fault, arg)
    assert client(bench, op) == [["err", err]]
    assert not bench.path("/sys/class/gpio/gpio56").exists()


def test_static_mac_layouts(bench):
    # write layout: 113 = FID, 114 = UseFID|override|valid|ports, MAC, then 110/111
    spi_write(bench, [(113, 0x05), (114, 0xE2)] + [(115 + i, i + 1) for i in range(6)] + [(110, 0x00), (111, 3)])
    assert bench.static_get(3) == dict(valid=1, override=1, use_fid=1, ports=2, fid=5, mac="01:02:03:04:05:06")
    # read layout: FID one bit up with UseFID in bit 0
    bench.static_set(7, "aa:bb:cc:dd:ee:ff", ports=0x11, fid=0x7F, override=0, use_fid=1, valid=1)
    spi_write(bench, [(110, 0x10), (111, 7)])
    assert read_regs(bench, range(113, 121)) == [0xFF, 0x31, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF]


# Four rows packed at table address 1, each alone: (vid, fid, ports, raw bytes 114..120)
VLAN_ROWS = [
    (4, 0x55, 0x0A, "00000000001555"),
    (5, 0x03, 0x11, "00000003106000"),
    (6, 0x55, 0x0A, "00005554000000"),
    (7, 0x55, 0x0A, "0aaa8000000000"),
]


@pytest.mark.parametrize("vid,fid,ports,raw", VLAN_ROWS)
def test_vlan_packing(bench, vid, fid, ports, raw):
    bench.vlan_set(vid, fid, ports, 1)
    assert bench.vlan_raw(1) == bytes.fromhex(raw)
    spi_write(bench, [(110, 0x14), (111, 1)])
    assert read_regs(bench, range(114, 121)) == list(bytes.fromhex(raw))
    # a write action stores the seven registers as they stand
    spi_write(bench, [(114 + i, 0) for i in range(7)] + [(110, 0x04), (111, 1)])
    assert bench.vlan_get(vid) == dict(valid=0, fid=0, ports=0)


def test_mib_counters_clear_on_read_and_dropped_do_not(bench):
    bench.mib(1, 5, 0x123456, overflow=True)
    bench.dropped(0x106, 0xBEEF)
    mib_read = [(110, 0x1C), (111, 1 * 32 + 5)]
    regs = [117, 118, 119, 120]
    client_ops = [["open"]] + [["write", r, v] for r, v in mib_read] + [["read", r] for r in regs]
    assert client(bench, *client_ops)[3:] == [0xC0, 0x12, 0x34, 0x56]
    assert client(bench, *client_ops)[3:] == [0x40, 0, 0, 0]
    for _ in range(2):
        spi_write(bench, [(110, 0x1D), (111, 0x06)])
        assert read_regs(bench, [119, 120]) == [0xBE, 0xEF]


@pytest.mark.parametrize(
    "table,ctrl,addr,reg,bit,not_ready",
    [("mib", 0x1C, 0, 117, 0x40, 0), ("dyn", 0x18, 0, 114, 0x80, 0x80)],
)
def test_ready_forcing(bench, table, ctrl, addr, reg, bit, not_ready):
    bench.dynmac_add("00:11:22:33:44:55", 1, 2, 3)
    bench.notready(table, 3)
    got = client(bench, ["open"], ["write", 110, ctrl], ["write", 111, addr], *[["read", reg]] * 5)[3:]
    assert [v & bit for v in got] == [not_ready] * 3 + [bit ^ not_ready] * 2


def test_dynamic_mac_entries(bench):
    read_entry = [["write", 110, 0x18], ["write", 111, 1]] + [["read", r] for r in range(112, 121)]
    assert client(bench, ["open"], *read_entry)[3] == 0x80  # empty table
    bench.dynmac_add("00:11:22:33:44:55", 1, 2, 3)
    bench.dynmac_add("66:77:88:99:aa:bb", 0x7F, 4, 1)
    assert client(bench, ["open"], *read_entry)[3:] == [0, 0x20 | 0x08 | 4, 0x7F, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB]
    bench.dynmac_count(1000)  # count - 1 = 999 = 0b1111100111
    assert client(bench, ["open"], *read_entry)[3:5] == [0x7C, 0xE0 | 0x08 | 4]


# -- events, time and namespaces --------------------------------------------------------


def test_syslog_usleep_and_time_scale(bench):
    bench.timescale(10)
    r = client(bench, ["syslog", 0x1B, "a\tb\\c\x01\n"], ["usleep", 200000])
    assert r == [0, 0]
    kinds = [(e.kind, e.args) for e in bench.events()]
    assert kinds[0] == ("openlog", ["benchtest", "3", "24"])
    assert kinds[1] == ("syslog", ["3", "a\\tb\\\\c\\x01\\n"])
    assert bench.syslog() == [(3, "a\tb\\c\x01\n")]
    assert bench.sleeps() == [200000]


def test_namespaces_are_private_and_torn_down(tmp_path):
    one, two = Bench(tmp_path / "a"), Bench(tmp_path / "b", board="nor")
    try:
        p = one.spawn(["30"], argv0="avahi-daemon: running", prog="sleep")
        assert one.ns_pids("avahi-daemon") == [p.nspid]
        assert two.ns_pids("avahi-daemon") == []
        assert one.ns_run(["cat", f"/proc/{p.nspid}/cmdline"]).out.startswith("avahi-daemon: running")
        assert p.kill(signal.SIGTERM)
        assert p.wait() != 0
        assert one.wait_for(lambda: one.ns_pids("avahi") == [], 5)
        q = two.spawn(["30"], argv0="lingering", prog="sleep")
        host = [h for h, ns, _ in two._ns_procs() if ns == q.nspid]
    finally:
        one.close()
        two.close()
    assert not os.path.exists(f"/proc/{host[0]}/cmdline") or not open(f"/proc/{host[0]}/cmdline").read()
