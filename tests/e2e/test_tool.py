# The tool role on the simulated board: status line, exit statuses, usage,
# the already-running refusal, the pid file and the register actions.
import os

import pytest

from console_util import EIO, NO_DEVICE, check, prepare

NAND = "Zorvi HPB-NAND KSZ8864 "
NOR = "Zorvi HPB-NOR KSZ8893 "
GPIO = "/sys/class/gpio/"
PID_FILE = "/var/run/switch_config.pid"
OOPS = " Oops unknown hardware...\n"
USAGE = (
    "Usage: {} [-DmurwvcdMCy12h]\n"
    "  -D | --device         spi device to use, default {}\n"
    "  -m | --managed        change switch to managed mode\n"
    "  -u | --unmanaged      change switch to unmanaged mode\n"
    "  -r | --read=ADDR      read byte at ADDR\n"
    "  -w | --write=ADDR     write byte at ADDR\n"
    "  -v | --value=VAL      value to write\n"
    "  -c | --config=FILE    write values from FILE\n"
    "  -d | --dump           dump all registers\n"
    "  -M | --dump-mib       dump all MIB Counters\n"
    "  -C | --switch-console enter switch manager console\n"
    "  -y | --mac-dyn-table  show dynamic mac table\n"
    "  -1 | --enable-bcmc-1=1/0  enable/disable multicast and broadcast traffic through eth port 1 (the upper one)\n"
    "  -2 | --enable-bcmc-2=1/0  enable/disable multicast and broadcast traffic through eth port 2 (the lower one)\n"
    "  -h | --help           show this message\n"
    "  without arguments:    show switch status\n"
)


def dump_text(values):
    def row(label, cells):
        return f"{label}  " + "".join(f"{c} " for c in cells[:8]) + " " + "".join(f"{c} " for c in cells[8:])
    return "\n".join([row("####", [f"{n:2x}" for n in range(16)])] + [
        row(f"{b:04x}", [f"{v:02x}" for v in values[b:b + 16]]) for b in range(0, 256, 16)]) + "\n"


def start_named(bench, argv0, args=("60",), prog="/bin/sleep"):
    proc = bench.spawn(list(args), argv0=argv0, prog=prog)
    assert bench.wait_for(lambda: proc.nspid in bench.ns_pids(argv0))
    return proc


# --- status line ---------------------------------------------------------

@pytest.mark.parametrize("board,setup,line,regs", [
    ("bench", [("link", 1, "down"), ("link", 2, "down")], NAND + "MANAGED port1_link DOWN port2_link DOWN", [46, 62]),
    ("bench_nor", [("link", 2, "down")], NOR + "MANAGED port1_link UP port2_link DOWN", [30, 46]),
])
def test_status_line(request, board, setup, line, regs):
    bench = request.getfixturevalue(board)
    for args in setup:
        bench.ctl(*args)
    check(bench, [], 0, line + " daemon NONE\n")
    assert [x[:2] for x in bench.xfers()] == [("R", r) for r in [0] + regs]


# --- board identification ------------------------------------------------

# The machine name is matched as a prefix; on the NAND bench's chip a NOR board
# finds another chip id. An unknown board ends the run before either role: no
# pid file, no transfer.
@pytest.mark.parametrize("cpuinfo,out", [
    ("processor\t: 0\nHardware\t: Zorvi HPB-NOR rev 2\nRevision\t: 0000\n", NOR + "UNMANAGED/undetected\n"),
    ("x" * 255 + "Hardware\t: Zorvi HPB-NOR\n", NOR + "UNMANAGED/undetected\n"),  # read in pieces of 255
    pytest.param(None, OOPS, marks=pytest.mark.preload_only("the kernel's /proc/cpuinfo is always there")),
    ("processor\t: 0\nBogoMIPS\t: 100\n", OOPS),
    ("Hardware without a colon Zorvi HPB-NAND\n", OOPS),
    ("Hardware\t: Other board\nHardware\t: Zorvi HPB-NAND\n", OOPS),
    ("Hardware:", OOPS),  # nothing after the colon
])
def test_board_is_told_by_the_machine_name(bench, cpuinfo, out):
    if cpuinfo is None:
        os.unlink(bench.path("/proc/cpuinfo"))
    else:
        bench.path("/proc/cpuinfo").write_text(cpuinfo)
    check(bench, [], 0, out)
    assert os.path.exists(bench.path(PID_FILE)) == (out != OOPS)
    assert bench.xfers() == ([] if out == OOPS else [("R", 0, 0x95)])


# --- usage and exclusion ------------------------------------------------

# The usage text names the program as started and the device in use.
@pytest.mark.parametrize("args,err", [
    (["-h"], ""),
    (["--help"], ""),
    # Two actions together: each pair tells a flag's value from its neighbours'.
    (["-r", "1", "-d"], ""),
    (["-m", "-u"], ""),
    (["-m", "-w", "1"], ""),
    (["-1", "1", "-2", "1"], ""),
    (["--unmanaged"], "/usr/sbin/switch_config: unrecognized option '--unmanaged'\n"),
    (["-r"], "/usr/sbin/switch_config: option requires an argument -- 'r'\n"),
    (["-D", "/dev/spidev1.0"], NO_DEVICE),
])
def test_usage_text_exits_1(bench, args, err):
    device = args[1] if args[0] == "-D" else "/dev/spidev0.0"
    check(bench, args, 1, USAGE.format("/usr/sbin/switch_config", device), err, argv0="/usr/sbin/switch_config")


# The process scan: the tool's own name refuses every action, the daemon's
# shows in the status line; the needle is the whole argv[0].
def test_process_scan(bench):
    other = start_named(bench, "switch_config")
    check(bench, ["-r", "0"], 255, f"switch_config is already running with PID {other.nspid}\n")
    assert not os.path.exists(bench.path(PID_FILE))
    assert bench.xfers() == []
    # A tool started by its full path does not match a process started as
    # switch_config, while one named by the short name matches a longer one.
    bench.path(PID_FILE).write_text("99999\nold text that must go\n")
    assert bench.run(["-r", "0"], argv0="/usr/bin/switch_config").rc == 0
    assert bench.path(PID_FILE).read_text() == f"{bench.xfer_events()[0].pid}\n"
    # The needle only in a later argument (an editor's file) does not count.
    start_named(bench, "sh", ["-c", "sleep 60; :", "switch_daemon"], "/bin/sh")
    assert bench.run([], argv0="/usr/bin/switch_config").out.endswith(" daemon NONE\n")
    daemon = start_named(bench, "/usr/sbin/switch_daemon")
    assert bench.run([], argv0="/usr/bin/switch_config").out == NAND + (
        f"MANAGED port1_link UP port2_link UP daemon {daemon.nspid}\n")
    # An exec with an empty argument vector gives an empty name, which every
    # command line holds: the first by path text, pid 1, counts.
    exec_empty = "import ctypes, sys; ctypes.CDLL(None).execv(sys.argv[1].encode(), (ctypes.c_char_p * 1)())"
    check(bench, ["-c", exec_empty, bench.prog], 255, " is already running with PID 1\n", argv0="python3",
          prog="/usr/bin/python3")


def test_pid_file_that_cannot_be_created(bench):
    os.mkdir(bench.path(PID_FILE))
    check(bench, ["-r", "0"], 255, "")
    assert bench.xfers() == []


# --- single runs: register read and write, set-up failures, gates -----------

# One run of the tool on a chip set up through the bench: exit status, output,
# error and transfers. Some rows give an option's long form.
@pytest.mark.parametrize("setup,args,rc,out,err,xfers", [
    ([], "-x --read=300", 0, "Register offset  44 (0x2C) = 0x33\n", "switch_config: invalid option -- 'x'\n",
     [("R", 44, 0x33)]),
    ([], "--write 0x20 --value=7 -v 0x3c", 0, "writing 0x3C in 0x20\n", "", [("W", 0x20, 0x3C)]),
    ([], "-w 5", 0, "write error: value is missing\n", "", []),
    ([], "-v 5", 0, "write error: offset is missing\n", "", []),
    ([("fault", "xfer")], "-w 7 -v 1", 0, "writing 0x1 in 0x7\n", EIO, []),
    pytest.param([("fault", "xfer-from=3")], "--dump", 0, dump_text([0x95, 0x61] + [0xFF] * 254), EIO * 254,
                 [("R", 0, 0x95), ("R", 1, 0x61)], id="dump-of-failed-reads"),
    # The traffic gates: closing either also clears bit 7 of register 4.
    ([("poke", 49, 0x41)], "--enable-bcmc-1 1", 0, "", "", [("R", 49, 0x41), ("W", 49, 0x5B)]),
    ([("poke", 33, 0xFF), ("poke", 4, 0x81)], "-2 0", 0, "", "",
     [("R", 4, 0x81), ("W", 4, 0x01), ("R", 33, 0xFF), ("W", 33, 0xE3)]),
    ([], "-c /nonexistent/regs", 0, "Error while opening /nonexistent/regs\n", "", []),
    ([("fault", "open")], "", 255, NAND + "UNMANAGED/undetected\n",
     NO_DEVICE + "can't send spi message: Bad file descriptor\n", []),
])
def test_one_run(bench, setup, args, rc, out, err, xfers):
    prepare(bench, {44: 0x33})
    for ctl in setup:
        bench.ctl(*ctl)
    check(bench, args.split(), rc, out, err)
    assert bench.xfers() == xfers


# A closed standard output or error is /dev/null to the tool: the status and
# the transfers stay, and nothing lands in what the process opens next (on the
# bench, where openlog opens no socket, its state file, which a stray write
# would wreck for the next run).
def test_closed_outputs_write_nowhere(bench):
    prepare(bench, {5: 0x2A})
    bench.fault("xfer")  # for a message on standard error
    check(bench, ["-r", "5"], 0, "", closed=(1, 2))
    assert [(x.op, x.reg) for x in bench.xfer_events()] == [("R", 5)]
    bench.clear_faults()
    assert bench.run(["-r", "5"]).out == "Register offset   5 (0x5) = 0x2A\n"


# --- dump and load --------------------------------------------------------

# The tool's reads and writes alike: three bytes, 8 bits per word, a receive buffer.
def test_dump_reads_all_registers_in_order(bench):
    prepare(bench, {reg: (reg * 7) & 0xFF for reg in range(2, 40)})
    values = bench.regs()
    check(bench, ["-d"], 0, dump_text(values))
    assert bench.xfers() == [("R", r, values[r]) for r in range(256)]
    assert {(x.bpw, x.rx, x.len) for x in bench.xfer_events()} == {(8, 1, 3)}


@pytest.mark.parametrize("text,writes", [
    # A comment, an empty, a short line and a base that is no number write nothing.
    ("0000 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 # tail\n\n0040 01 02\n"
     "zz 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n", []),
    # At most 4 digits for the base and 2 per value: longer numbers split; the
    # register number wraps at 256.
    ("12345 1 2 3 4 5 6 7 8 9 a b c d e f\n", [(0x34, 5)] + [(0x35 + i, i + 1) for i in range(15)]),
    # A line longer than the buffer reaches the loader in pieces of 255.
    ("0060" + " 11" * 16 + " " * 203 + "0070" + " 22" * 16 + "\n",
     [(0x60 + i, 0x11) for i in range(16)] + [(0x70 + i, 0x22) for i in range(16)]),
    pytest.param(dump_text(range(256)), [(r, r) for r in range(256)], id="a-dump-loads-back"),
])
def test_load_register_file(bench, tmp_path, text, writes):
    (tmp_path / "regs.txt").write_text(text)
    check(bench, ["--config", str(tmp_path / "regs.txt")], 0, f"{len(writes)} registers written\n")
    assert bench.xfers() == [("W", r, v) for r, v in writes]
    assert {(x.bpw, x.rx, x.len) for x in bench.xfer_events()} <= {(8, 1, 3)}


# --- management mode -----------------------------------------------------

# From a fresh board: "out" on a direction drives the line low, then the
# mode level on 191, then the pulse on 56.
MANAGED_LEVELS = [(56, 0), (191, 0), (191, 1), (56, 0), (56, 1)]


def test_management_mode_changes(bench):
    bench.managed(0)
    check(bench, ["-m"], 0, "")
    assert (bench.levels(), bench.xfers()) == (MANAGED_LEVELS, [("W", 1, 1)])
    if bench.sees_calls:
        assert bench.gpio_writes() == [(GPIO + f, v) for f, v in [
            ("export", b"56"), ("export", b"191"), ("gpio56/direction", b"out\0"), ("gpio191/direction", b"out\0"),
            ("gpio191/value", b"1\0"), ("gpio56/value", b"0\0"), ("gpio56/value", b"1\0")]]
        assert bench.sleeps() == [20000, 200000]
    # The lines stay exported: nothing more is written to the export file
    # (which is still opened), so a second export fails nowhere.
    bench.clear_events()
    check(bench, ["-u"], 0, "")
    assert (bench.levels(), bench.xfers()) == ([(56, 0), (191, 0), (191, 0), (56, 0), (56, 1)], [])
    if bench.sees_calls:
        assert bench.gpio_writes()[0][0] == GPIO + "gpio56/direction"
        assert any(e.kind == "open" and e.args[0] == GPIO + "export" for e in bench.events())
    # Only a line that went missing is exported again.
    code = f"import os; os.write(os.open('{GPIO}unexport', os.O_WRONLY), b'191')"
    assert bench.run(["-c", code], argv0="python3", prog="/usr/bin/python3").rc == 0
    bench.clear_events()
    check(bench, ["--managed"], 0, "")
    assert bench.levels() == MANAGED_LEVELS
    if bench.sees_calls:
        assert bench.gpio_writes()[0] == (GPIO + "export", b"191")


# Each failure ends the sequence at its step: the levels driven before it stay.
OPENS = pytest.mark.preload_only("root opens every sysfs file")
@pytest.mark.parametrize("fault,arg,levels", [
    ("export-busy", "56", []),
    ("export-busy", "191", []),
    pytest.param("gpio-open", GPIO + "export", [], marks=OPENS),
    pytest.param("gpio-open", GPIO + "gpio56/direction", [], marks=OPENS),
    pytest.param("gpio-write", GPIO + "gpio191/direction", MANAGED_LEVELS[:1],
                 marks=pytest.mark.preload_only("the kernel's direction file takes \"out\"")),
    pytest.param("gpio-open", GPIO + "gpio191/value", MANAGED_LEVELS[:2], marks=OPENS),
    pytest.param("gpio-open", GPIO + "gpio56/value", MANAGED_LEVELS[:3], marks=OPENS),
    pytest.param("gpio-write", GPIO + "gpio56/value", MANAGED_LEVELS[:3],
                 marks=pytest.mark.preload_only("the kernel's value file takes every number")),
])
def test_management_mode_failure_stops_the_sequence(bench, fault, arg, levels):
    bench.fault(fault, arg)
    check(bench, ["-m"], 0, "error during the management mode change\n")
    assert bench.levels() == levels
    assert bench.xfers() == []


def test_nor_board_is_always_managed(bench_nor):
    check(bench_nor, ["-u"], 0, "the switch is always managed on this hardware \n")
    assert bench_nor.levels() == [] and bench_nor.xfers() == []

