# The VLAN table: vlan, vlancreate, vlandel, vlanaddport and vlandelport.
import pytest

from console_util import command_xfers, console_session, echo

HEAD = "Entry  Status    VID    FID  Port(1 2 3 4 )  \n"
ROW_REGS = {0: [120, 119], 1: [119, 118, 117], 2: [117, 116], 3: [116, 115, 114]}


# The 18 transfers of one row write, read values left out, written data
# values too.
def row_write(vid):
    ctl, addr = (vid >> 10) & 3, (vid >> 2) & 0xFF
    return [("W", 110, 0x14 | ctl), ("W", 111, addr)] + [("R", r) for r in range(114, 121)] + [
        ("W", r) for r in range(114, 121)] + [("W", 110, 0x04 | ctl), ("W", 111, addr)]


def shape(xfers):
    return [x if x[0] == "W" and x[1] < 114 else x[:2] for x in xfers]


@pytest.mark.parametrize("vid", [4, 5, 6, 7, 1024, 4095])
def test_row_write_leaves_the_other_bits(bench, vid):
    # Registers 114 to 120 written as all ones at the row's table address.
    ctl, addr = vid >> 10, (vid >> 2) & 0xFF
    console_session(bench, *[f"rwb {r:x} ff" for r in range(114, 121)], f"rwb 6e {4 | ctl:x}", f"rwb 6f {addr:x}")
    bench.clear_events()
    console_session(bench, f"vlandel {vid}")
    word = ((1 << 56) - 1 & ~(0x1FFF << 13 * (vid & 3))).to_bytes(7, "big")
    assert bench.vlan_raw(vid >> 2) == word
    xfers = command_xfers(bench)
    # The lookup reads the row's own registers at the same table address first.
    assert shape(xfers) == row_write(vid)[:2] + [("R", r) for r in ROW_REGS[vid & 3]] + row_write(vid)
    assert bytes(x[2] for x in xfers if x[0] == "W" and x[1] >= 114) == word


def test_vlandel_all_writes_every_row_once(bench):
    console_session(bench, *[f"rwb {r:x} ff" for r in range(114, 121)], "rwb 6e 4", "rwb 6f 1")
    bench.vlan_set(4095, 127, 31, 1)
    bench.clear_events()
    console_session(bench, "vlandel all 7")
    assert shape(command_xfers(bench)) == [x for v in range(4096) for x in row_write(v)]
    assert bench.vlan_raw(1).hex() == "f0000000000000"  # bits 55-52 belong to no row
    assert bench.vlan_get(4095) == dict(valid=0, fid=0, ports=0)


def show(index, valid, fid, _, ports):
    return f"{index:4d}   {'    V   ' if valid else '        '} {index:4d}   {fid:4d}       {ports}\n"


@pytest.mark.parametrize("args, rows", [
    (" 4 3", range(4, 7)), ("", range(0, 16)), (" 4090 100", range(4090, 4096)), (" 5 4294967295", []),
    (" 4096", None), (" 4294967295", None)])
def test_vlan_display(bench, args, rows):
    marks = {5: (1, 3, 0x1F, "M M M M "), 6: (0, 9, 0x02, "M - - - "), 4095: (1, 127, 0x03, "M - - - ")}
    for vid, (valid, fid, ports, _) in marks.items():
        bench.vlan_set(vid, fid, ports, valid)
    shown = ("error: invalid entry number or count to display VLAN table! \n" if rows is None
             else HEAD + "".join(show(i, *marks.get(i, (0, 0, 0, "- - - - "))) for i in rows))
    assert console_session(bench, "vlan" + args).outputs[0] == echo("vlan" + args) + shown
    assert rows is not None or command_xfers(bench) == []  # a refusal reads nothing


NOT_FOUND = "error: can't find this vid(%d) and fid(%d) entry to "


@pytest.mark.parametrize("line, message, access", [
    ("vlancreate 0", "error: incorrect vid (0) to create in the VLAN table! \n", False),
    ("vlancreate 4096 1", "error: incorrect vid (4096) to create in the VLAN table! \n", False),
    ("vlancreate 10 128", "error: incorrect fid (128) to create in the VLAN table! \n", False),
    ("vlancreate 8 3", "this VLAN entry (8) is already exist! \n", True),
    ("vlandel 8 3", NOT_FOUND % (8, 3) + "remove! \n", True),
    ("vlandel 5000", NOT_FOUND % (5000, 0) + "remove! \n", False),
    ("vlanaddport 8 2", NOT_FOUND % (8, 0) + "update forwarding port! \n", True),
    ("vlandelport 9 2 2", NOT_FOUND % (9, 2) + "update forwarding port! \n", True),
    ("vlanaddport 4096 2", NOT_FOUND % (4096, 0) + "update forwarding port! \n", False),
    ("vlancreate", "Usage: vlancreate  <vid> <fid>            -- create a new VLAN entry to the VLAN table.\n\n",
     False),
    ("vlandel", "Usage: vlandel     <vid> <fid>            -- delete a VLAN entry from the VLAN table.\n\n", False),
    ("vlanaddport 5", "Usage: vlanaddport <vid> <Port> <fid>     -- add one port to this vid table.\n\n", False),
])
def test_refusals(bench, line, message, access):
    bench.vlan_set(8, 2, 0x04, 1)
    bench.vlan_set(9, 2, 0x04, 0)
    assert console_session(bench, line).outputs[0] == echo(line) + message
    xfers = command_xfers(bench)
    assert not any(x[0] == "W" and x[1] >= 114 for x in xfers)
    assert bool(xfers) == access


@pytest.mark.parametrize("lines, vid, row", [
    (["vlancreate 10 256"], 10, dict(valid=1, fid=0, ports=0)),
    (["vlancreate 4095 1"], 4095, dict(valid=1, fid=1, ports=0)),  # the last row
    (["vlancreate 10 7", "vlanaddport 10 1 7", "vlanaddport 10 5 7"], 10, dict(valid=1, fid=7, ports=0x11)),
    (["vlanaddport 8 2 2", "vlanaddport 8 9 2"], 8, dict(valid=1, fid=2, ports=0x06)),
    (["vlandelport 8 3 2", "vlandelport 8 2 2"], 8, dict(valid=1, fid=2, ports=0x00)),
    (["vlandel 9"], 9, dict(valid=0, fid=0, ports=0)),  # an invalid row is found too
    (["vlandel 9 2"], 9, dict(valid=0, fid=0, ports=0)),
    (["vlanaddport 0 4", "vlan 0 1"], 0, dict(valid=1, fid=0, ports=0x08)),
])
def test_row_edits(bench, lines, vid, row):
    bench.vlan_set(0, 0, 0, 1)
    bench.vlan_set(8, 2, 0x04, 1)
    bench.vlan_set(9, 2, 0x04, 0)
    res = console_session(bench, *lines)
    assert [o for o in res.outputs[:-1] if "error" in o] == []
    assert bench.vlan_get(vid) == row
