# Static and dynamic MAC tables: macstatic, macadd, macdel, macdyn and the
# tool's -y.
import pytest

from console_util import CONSOLE_END, CONSOLE_PREAMBLE, check_command, command_xfers, console_session, echo

ZERO = dict(valid=0, override=0, use_fid=0, ports=0, fid=0, mac="00:00:00:00:00:00")
MAC = "0a:0b:0c:0d:0e:0f"
DYN_HEAD = "Entry  MAC                 FID  Port(1 2 3 4 ) AgingTime \n"


# Transfers of reading static rows: control, row, registers 113 to 120.
def row_reads(rows):
    return [x for r in rows for x in [("W", 110, 0x10), ("W", 111, r)] + [("R", g) for g in range(113, 121)]]


def entry(**fields):
    return dict(ZERO, valid=1, mac=MAC, **fields)


@pytest.mark.parametrize("lines, rows", [
    # ports add up for one address and FID; the flags take the last command's values
    ([f"macadd {MAC} 2 0 7", f"macadd {MAC} 3 1 7"], {0: entry(ports=6, override=1, use_fid=1, fid=7)}),
    ([f"macadd {MAC} 2 1 7", f"macadd {MAC} 2 0 8"],
     {0: entry(ports=2, override=1, use_fid=1, fid=7), 1: entry(ports=2, use_fid=1, fid=8)}),
    ([f"macadd {MAC} 1 a"], {0: entry(ports=1, override=1)}),  # no fid: FID 0, UseFID 0
    ([f"macadd {MAC} 9 0 300"], {0: entry(use_fid=1, fid=44)}),
    # an invalid row of this address and FID is taken before a free row
    ([f"macadd {MAC} 5 0 4"], {0: ZERO, 3: entry(ports=0x11, use_fid=1, fid=4)}),
])
def test_macadd_rows(bench, lines, rows):
    bench.static_set(3, MAC, 0x01, 4, valid=0)
    console_session(bench, *lines)
    assert {row: bench.static_get(row) for row in rows} == rows


def test_full_table_refuses_a_new_address_only(bench):
    for r in range(32):
        bench.static_set(r, f"00:00:00:00:00:{r:02x}", 0, 1)
    res = console_session(bench, "macadd 02:00:00:00:00:01 2 0 1", "macadd 0:0:0:0:0:5 3 0 1")
    assert res.outputs[0] == echo("macadd 02:00:00:00:00:01 2 0 1") + (
        "error: can't add new entry, MAC table is full! \n")
    xfers = [x[:2] if x[0] == "R" else x for x in command_xfers(bench)]  # read values left out
    assert xfers == row_reads(range(32)) * 2 + [("W", 113, 1), ("W", 114, 0xA4)] + [
        ("W", g, 0) for g in range(115, 120)] + [("W", 120, 5), ("W", 110, 0), ("W", 111, 5)]


@pytest.mark.parametrize("line, gone", [
    (f"macdel {MAC}", [0, 2]), (f"macdel {MAC} 2", [2]), (f"macdel {MAC} 9", []), ("macdel all 5", range(32))])
def test_macdel(bench, line, gone):
    for r, (mac, fid) in enumerate([(MAC, 1), ("0a:0b:0c:0d:0e:01", 1), (MAC, 2)]):
        bench.static_set(r, mac, 0x1F, fid, 1, 1)
    assert console_session(bench, line).outputs[0] == echo(line)
    assert [bench.static_get(r) == ZERO for r in range(3)] == [r in gone for r in range(3)]
    if line.startswith("macdel all"):  # 32 zero rows, nothing read
        assert command_xfers(bench) == [x for r in range(32) for x in [("W", g, 0) for g in range(113, 121)]
                                        + [("W", 110, 0), ("W", 111, r)]]


def test_macstatic_shows_every_row(bench):
    bench.static_set(0, "08:00:70:22:44:01", 0x1F, 127, 1, 1)
    # The FID byte holds the FID above the UseFID bit: rows 1 and 31 set
    # only one of its two low bits.
    bench.static_set(1, "ab:cd:ef:01:02:03", 0x02, 2, 0, 1, valid=0)
    bench.static_set(31, "00:00:00:00:00:1f", 0x11, 1)
    rows = ["   0      V     08:00:70:22:44:01   127       M M M M   Yes     Yes   ",
            "   1            ab:cd:ef:01:02:03     2       M - - -   Yes     No    "]
    rows += [f"{r:4d}            00:00:00:00:00:00     0       - - - -   No      No    " for r in range(2, 31)]
    rows += ["  31      V     00:00:00:00:00:1f     1       - - - M   No      No    "]
    assert console_session(bench, "macstatic").outputs[0] == echo("macstatic") + (
        "Entry  Status   MAC                 FID  Port(1 2 3 4 ) UseFID  Override \n"
        + "".join(r + "\n" for r in rows))


@pytest.mark.parametrize("line, usage", [
    ("macadd 1:2:3:4:5:6 2", "macadd <MAC> <Port> <override> <fid>  -- add MAC with its forward port, override to the"
                             " static MAC table.\n"),
    ("macdel", "macdel      <MAC> <fid>            -- remove exist MAC entry from the static MAC table.\n")])
def test_too_few_arguments(bench, line, usage):
    check_command(bench, line, f"Usage: {usage}\n", [])


# The tool's -y runs the command once, without a prompt: the input is not
# read. An entry is asked for up to 100 times until the chip has it ready.
@pytest.mark.parametrize("k, reads, option", [(0, 5, "-y"), (99, 500, "--mac-dyn-table"), (100, 500, "-y")])
def test_macdyn_by_tool_option(bench, k, reads, option):
    for n, port in enumerate([0, 1, 3, 4, 7]):
        bench.dynmac_add(f"00:11:22:33:44:{n:02x}", 10 * n + 1, port, n % 4)
    bench.notready("dyn", k)
    res = bench.run([option], stdin="rwb 10 5\n")
    shown = "".join(f"SwitchReadDynMacTable: This MAC entry ({n}) is not ready for read\n" for n in range(5))
    if k < 100:
        shown = ("   0   00:11:22:33:44:00     1       - - - -    0 \n"
                 "   1   00:11:22:33:44:01    11       M - - -    1 \n"
                 "   2   00:11:22:33:44:02    21       - - M -    2 \n"
                 "   3   00:11:22:33:44:03    31       - - - M    3 \n"
                 "   4   00:11:22:33:44:04    41       - - - -    0 \n")
    assert (res.out, res.err, res.rc) == (
        CONSOLE_PREAMBLE + "The argc is 0\n" + DYN_HEAD + shown + CONSOLE_END, "valid device ID!\n", 0)
    # Each entry's FID register is read until it is ready, 100 times at most.
    assert sum(x[:2] == ("R", 114) for x in bench.xfers()) == reads


# The walk's last table address (control 110 and address 111) and the reads after it.
@pytest.mark.parametrize("count, shown, last, reads", [
    (None, 0, [0x18, 0], [112]),  # empty table: register 112 bit 7
    (1024, 1024, [0x1B, 0xFF], list(range(112, 121))),  # the walk ends after entry 1023
])
def test_dynamic_walk_stops(bench, count, shown, last, reads):
    if count is not None:
        bench.dynmac_count(count)
    lines = console_session(bench, "macdyn").outputs[0].splitlines()
    assert lines[1] == DYN_HEAD[:-1] and len(lines) == 2 + shown
    xfers = command_xfers(bench)
    start = max(i for i, x in enumerate(xfers) if x[:2] == ("W", 110))
    assert [x[2] for x in xfers[start:start + 2]] == last and [x[1] for x in xfers[start + 2:]] == reads
