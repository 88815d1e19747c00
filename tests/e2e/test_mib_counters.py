# MIB counters: showmib and clearmib (the tool's -M is a console test).
import pytest

from console_util import LiveConsole, command_xfers, console_session, echo

# Display order, with the chip counter each row shows: TxLateCollision (22)
# comes after TxUnicastPkts.
ROWS = list(zip([*range(22), 23, 24, 25, 26, 22, *range(27, 32), "rx", "tx"], """RxLoPriorityByte
    RxHiPriorityByte RxUndersizePkt RxFragments RxOversize RxJabbers RxSymbolError RxCRCError RxAlignmentError
    RxCtrl8808Pkts RxPausePkts RxBroadcastPkts RxMulticastPkts RxUnicastPkts Rx64Octets Rx65to127Octets
    Rx128to255Octets Rx256to511Octets Rx512to1023Octets Rx1024to1522Octets TxLoPriorityByte TxHiPriorityByte
    TxPausePkts TxBroadcastPkts TxMulticastPkts TxUnicastPkts TxLateCollision TxDeferred TxTotalCollision
    TxExcessiveCollision TxSingleCollision TxMultiCollision RxDroppedPackets TxDroppedPackets""".split()))


# showmib's output for a heading and one {counter or 'rx'/'tx': value} per
# column; the messages of the reads come before the rows.
def display(heading, columns, messages=""):
    text = f"\n                 Port:        {heading}\n\n" + messages
    for key, name in ROWS:
        text += "\n" if key == "rx" else ""
        text += f"{name:<21}: " + "".join("%8d    " % col.get(key, 0) for col in columns) + "\n"
    return text


# Table addresses of the read actions (control 110, then address 111).
def table_reads(xfers):
    return [((c & 3) << 8) | a for (_, r1, c), (_, r2, a) in zip(xfers, xfers[1:]) if (r1, r2) == (110, 111)]


def port_reads(ports):
    return [a for p in ports for a in [p * 32 + i for i in range(32)] + [0x100 + p, 0x105 + p]]


# Every port's counters set: the display by columns shows port indices 1 to 4;
# a port number shows the port below it after reading the ports up to its own
# (0: the heading and the labels alone).
ALL = "1           2           3           4           "


@pytest.mark.parametrize("arg, heading, shown, reads, error", [
    ("", ALL, [1, 2, 3, 4], 5, None), (" 256", ALL, [1, 2, 3, 4], 5, None), (" 4", 4, [3], 4, None),
    (" 0", 0, [], 0, None), (" 5", None, [], 0, 5), (" -1", None, [], 0, -1)])
def test_display(bench, arg, heading, shown, reads, error):
    for p in range(5):
        for i in range(32):
            bench.mib(p, i, 1000 * p + i)
        bench.dropped(0x100 + p, 10 + p)
        bench.dropped(0x105 + p, 20 + p)
    line = "showmib" + arg
    assert console_session(bench, line).outputs[0] == echo(line) + (
        f"error: incorrect Switch port ({error}) to set! \n" if error is not None else display(
            heading, [dict({i: 1000 * p + i for i in range(32)}, tx=10 + p, rx=20 + p) for p in shown]))
    assert table_reads(command_xfers(bench)) == port_reads(range(reads))


def test_counts_add_up_over_reads(bench):
    console = LiveConsole(bench)  # fed one line at a time

    def command(line):
        prompts = console.wait(lambda out: out.endswith("=>")).count("=>")
        console.send(line.encode() + b"\n")
        return console.wait(lambda out: out.count("=>") > prompts).split("=>")[-2].partition("\n")[2]

    console.wait(lambda out: out.endswith("=>"))  # started: its counts are 0
    bench.mib(1, 0, 100)
    bench.mib(1, 1, 5, overflow=True)
    bench.mib(1, 2, 0x3FFFFFFF)
    bench.dropped(0x101, 0xFFF0)
    bench.dropped(0x106, 7)
    assert command("showmib 2") == echo("showmib 2") + display(
        2, [{0: 100, 1: 0x40000005, 2: 0x3FFFFFFF, "tx": 0xFFF0, "rx": 7}])
    bench.mib(1, 0, 23)
    bench.mib(1, 1, 0x3FFFFFFB, overflow=True)  # the sum passes bit 31: shown negative
    bench.mib(1, 2, 1)
    bench.dropped(0x101, 1)  # the free-running count wrapped: 17 more
    assert command("showmib 2") == echo("showmib 2") + display(
        2, [{0: 123, 1: -0x40000000, 2: 0x40000000, "tx": 0x10001, "rx": 7}])
    bench.mib(1, 0, 50)
    bench.clear_events()
    assert command("clearmib") == "The argc is 0\n"
    # The chip clears its counters on reading: the clear reads every port's, index 0 too.
    assert table_reads(bench.xfers()) == port_reads(range(5))
    bench.mib(1, 0, 9)
    bench.dropped(0x101, 3)
    assert command("showmib 2") == echo("showmib 2") + display(2, [{0: 9, "tx": 0x10003, "rx": 7}])
    console.close()


@pytest.mark.parametrize("k, ready", [(99, True), (100, False)])
def test_counter_not_ready(bench, k, ready):
    bench.mib(0, 0, 77)
    bench.mib(0, 31, 5)
    bench.dropped(0x105, 4)
    bench.notready("mib", k)
    missing = "" if ready else "".join(
        f"HardwareReadMIBCounter: This MIB count (0x{i:x}) is not ready for read\n" for i in range(32))
    assert console_session(bench, "showmib 1").outputs[0] == echo("showmib 1") + display(
        1, [{0: 77, 31: 5, "rx": 4} if ready else {"rx": 4}], missing)
    assert len([x for x in command_xfers(bench) if x[:2] == ("R", 117)]) == 32 * 100
