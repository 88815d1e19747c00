"""MIB counters: showmib, clearmib and the tool's -M."""
import subprocess

import pytest

from console_util import CONSOLE_END, CONSOLE_PREAMBLE, command_xfers, console_session

# Display order, with the chip counter each row shows: TxLateCollision (22)
# comes after TxUnicastPkts.
ROWS = list(enumerate("""RxLoPriorityByte RxHiPriorityByte RxUndersizePkt RxFragments RxOversize
    RxJabbers RxSymbolError RxCRCError RxAlignmentError RxCtrl8808Pkts RxPausePkts RxBroadcastPkts
    RxMulticastPkts RxUnicastPkts Rx64Octets Rx65to127Octets Rx128to255Octets Rx256to511Octets
    Rx512to1023Octets Rx1024to1522Octets TxLoPriorityByte TxHiPriorityByte""".split()))
ROWS += [(23, "TxPausePkts"), (24, "TxBroadcastPkts"), (25, "TxMulticastPkts"),
         (26, "TxUnicastPkts"), (22, "TxLateCollision"), (27, "TxDeferred"),
         (28, "TxTotalCollision"), (29, "TxExcessiveCollision"), (30, "TxSingleCollision"),
         (31, "TxMultiCollision"), ("rx", "RxDroppedPackets"), ("tx", "TxDroppedPackets")]
ALL = "1           2           3           4           "


def display(heading, columns, messages=""):
    """showmib's output for a heading and one {counter or 'rx'/'tx': value} per
    column; the messages of the reads come before the rows."""
    text = f"\n                 Port:        {heading}\n\n" + messages
    for key, name in ROWS:
        text += "\n" if key == "rx" else ""
        text += f"{name:<21}: " + "".join("%8d    " % col.get(key, 0) for col in columns) + "\n"
    return text


def table_reads(xfers):
    """Table addresses of the read actions (control 110, then address 111)."""
    return [((c & 3) << 8) | a for (_, r1, c), (_, r2, a) in zip(xfers, xfers[1:])
            if (r1, r2) == (110, 111)]


def port_reads(ports):
    return [a for p in ports for a in [p * 32 + i for i in range(32)] + [0x100 + p, 0x105 + p]]


@pytest.mark.parametrize("how", ["-M", "showmib", "showmib 256"])
def test_display_by_columns_shows_port_indices_1_to_4(bench, how):
    for p in range(5):
        for i in range(32):
            bench.mib(p, i, 1000 * p + i)
        bench.dropped(0x100 + p, 10 + p)
        bench.dropped(0x105 + p, 20 + p)
    expected = display(ALL, [dict({i: 1000 * p + i for i in range(32)}, tx=10 + p, rx=20 + p)
                             for p in range(1, 5)])
    if how == "-M":
        res = bench.run(["-M"])
        assert res.out == CONSOLE_PREAMBLE + "The argc is 0\n" + expected + CONSOLE_END
    else:
        arg = how.split()[1:]
        echo = "".join(f"The token 1 is argv[0]={a} \n" for a in arg)
        assert console_session(bench, how).outputs[0] == f"The argc is {len(arg)}\n{echo}{expected}"
    assert table_reads(command_xfers(bench)) == port_reads(range(5))


@pytest.mark.parametrize("arg, shown", [(1, 0), (2, 1), (4, 3)])
def test_single_port_reads_the_ports_below_it(bench, arg, shown):
    for p in range(5):
        bench.mib(p, 5, 10 + p)
        bench.dropped(0x100 + p, 20 + p)
        bench.dropped(0x105 + p, 30 + p)
    out = console_session(bench, f"showmib {arg}").outputs[0]
    assert out == f"The argc is 1\nThe token 1 is argv[0]={arg} \n" + display(
        arg, [{5: 10 + shown, "tx": 20 + shown, "rx": 30 + shown}])
    assert table_reads(command_xfers(bench)) == port_reads(range(shown + 1))


@pytest.mark.parametrize("arg, typed", [("5", 5), ("-1", -1), ("2147483649", -2147483647),
                                        ("3000000000", -1294967296), ("0", None)])
def test_port_out_of_range(bench, arg, typed):
    out = console_session(bench, f"showmib {arg}").outputs[0]
    echo = f"The argc is 1\nThe token 1 is argv[0]={arg} \n"
    if typed is None:  # port 0: heading, labels without values, no read
        assert out == echo + display(0, [])
    else:
        assert out == echo + f"error: incorrect Switch port ({typed}) to set! \n"
    assert command_xfers(bench) == []


class LiveConsole:
    """A console fed one line at a time, so the chip can change between commands."""

    def __init__(self, bench):
        self.proc = bench.spawn(["-C"], stdin=subprocess.PIPE)
        self.prompts = 0
        self._wait()

    def _wait(self):
        self.prompts += 1
        assert self.proc.bench.wait_for(lambda: self.proc.output().count("=>") >= self.prompts)

    def __call__(self, line):
        self.proc.popen.stdin.write(line.encode() + b"\n")
        self.proc.popen.stdin.flush()
        self._wait()
        # output() reads text with universal newlines: the echo ends in "\n".
        return self.proc.output().split("=>")[-2].partition("\n")[2]

    def close(self):
        self.proc.popen.stdin.write(b"exit\n")
        self.proc.popen.stdin.close()
        assert self.proc.wait() == 0


def test_counts_add_up_over_reads(bench):
    con = LiveConsole(bench)
    head = "The argc is 1\nThe token 1 is argv[0]=2 \n"
    bench.mib(1, 0, 100)
    bench.mib(1, 1, 5, overflow=True)
    bench.mib(1, 2, 0x3FFFFFFF)
    bench.dropped(0x101, 0xFFF0)
    bench.dropped(0x106, 7)
    assert con("showmib 2") == head + display(2, [{0: 100, 1: 0x40000005, 2: 0x3FFFFFFF,
                                                    "tx": 0xFFF0, "rx": 7}])
    bench.mib(1, 0, 23)
    bench.mib(1, 1, 0x3FFFFFFB, overflow=True)  # the sum passes bit 31: shown negative
    bench.mib(1, 2, 1)
    bench.dropped(0x101, 1)  # the free-running count wrapped: 17 more
    assert con("showmib 2") == head + display(2, [{0: 123, 1: -0x40000000, 2: 0x40000000,
                                                    "tx": 0x10001, "rx": 7}])
    bench.mib(1, 0, 50)
    assert con("clearmib") == "The argc is 0\n"
    bench.mib(1, 0, 9)
    bench.dropped(0x101, 3)
    assert con("showmib 2") == head + display(2, [{0: 9, "tx": 0x10003, "rx": 7}])
    con.close()


@pytest.mark.parametrize("k, ready", [(99, True), (100, False)])
def test_counter_not_ready(bench, k, ready):
    bench.mib(0, 0, 77)
    bench.mib(0, 31, 5)
    bench.dropped(0x105, 4)
    bench.notready("mib", k)
    out = console_session(bench, "showmib 1").outputs[0]
    missing = "" if ready else "".join(
        f"HardwareReadMIBCounter: This MIB count (0x{i:x}) is not ready for read\n"
        for i in range(32))
    assert out == "The argc is 1\nThe token 1 is argv[0]=1 \n" + display(
        1, [{0: 77, 31: 5, "rx": 4} if ready else {"rx": 4}], missing)
    polls = [x for x in command_xfers(bench) if x[:2] == ("R", 117)]
    assert len(polls) == 32 * 100
