# The link monitor daemon on the simulated board: start-up and its early ends,
# link changes and their datagrams, notifications and the refresh of the address
# services, the guard on register 1.
#
# Waits count the monitor's passes (a pass begins with the guard read of
# register 1), never wall time, so that a loaded machine only makes them longer.

import contextlib
import fcntl
import sys
from pathlib import Path

import pytest

from bench import _unescape, wait_for

HELPERS = Path(__file__).resolve().parent / "helpers"
PYTHON = sys.executable
DATAGRAM = b"switch_daemon\0"
DAEMON_PID_FILE = "/var/run/switch_daemon.pid"
SUPPRESSION_FILE = "/tmp/zorvi/control/nfs_up/disable_avahi_refresh"
SPIDEV = "/dev/spidev0.0"
GPIO = "/sys/class/gpio/"

ERR, INFO = 3, 6
BROADCASTING = (INFO, "Broadcasting interface status change message")
RECEIVED = (INFO, "Received remote link change notification")
IGNORING_EVENT = (INFO, "Ignoring event. Avahi Refresh Disabled.")
IGNORING_SIGNAL = (INFO, "Ignoring signal. Avahi Refresh Disabled.")
GUARD_RESET = (ERR, "SWITCH INIT ERROR: PORT 4 IS ALLWAYS RMII. Switch reset to default managed.")
POLL_US, BATCH_US = 200000, 666666
STATUS = {"nand": "Zorvi HPB-NAND KSZ8864 MANAGED port1_link UP port2_link UP daemon NONE\n",
          "nor": "Zorvi HPB-NOR KSZ8893 MANAGED port1_link UP port2_link UP daemon NONE\n"}
BENCH = {"nand": "bench", "nor": "bench_nor"}


def state_text(port1, port2):
    return (INFO, f"port1_link {'UP' if port1 else 'DOWN'} port2_link {'UP' if port2 else 'DOWN'}")


def notified(name, pid):
    return (INFO, f"Remote link change notified to {name} on pid {pid}")


def not_notified(name):
    return (ERR, f"Could not notify {name}")


NOBODY = [not_notified("avahi-autoipd"), not_notified("avahi-daemon")]
CALLS = ("sleep", "gpio", "close")  # what only the preload bench sees (Bench.sees_calls)


def timeline(bench, pid):
    # What one process did, in order: ("sleep", us), ("log", level, text),
    # (op, reg, val) of a good transfer, ("gpio", path, bytes), ("level", line,
    # level), ("close", path); and ("mark",) where the test held the bench.
    out = []
    for e in bench.events():
        if e.kind == "mark":
            out.append(("mark",))
        elif e.pid != pid:
            continue
        elif e.kind == "usleep":
            out.append(("sleep", int(e.args[0])))
        elif e.kind == "syslog":
            out.append(("log", int(e.args[0]), _unescape(e.args[1] if len(e.args) > 1 else "")))
        elif e.kind == "xfer" and e.args[-1] == "ok=1":
            out.append((e.args[0], int(e.args[1]), int(e.args[2])))
        elif e.kind == "gpio":
            out.append(("gpio", e.args[0], bytes.fromhex(e.args[1]) if e.args[1] != "-" else b""))
        elif e.kind in ("level", "close"):
            out.append((e.kind,) + tuple(int(a) if a.isdigit() else a for a in e.args))
    return out


def seen(bench, steps):
    # The steps of a timeline that the bench can see.
    return [t for t in steps if bench.sees_calls or t[0] not in CALLS]


def first_pid(bench):
    # The first process that reached the chip: a daemon's parent.
    return bench.xfer_events()[0].pid


def logs(bench, pid):
    return [t[1:] for t in timeline(bench, pid) if t[0] == "log"]


def main_thread_logs(bench, pid):
    # The daemon's log without the receive thread's lines.
    return [line for line in logs(bench, pid) if line != RECEIVED]


def is_poll(t):
    return t[:2] == ("R", 1)


def wait_polls(bench, pid, n):
    # Waits until the daemon has made n more passes.
    def polls():
        return sum(map(is_poll, timeline(bench, pid)))
    start = polls()
    assert wait_for(lambda: polls() >= start + n, timeout=60), "the loop stalls"


def wait_log(bench, pid, line):
    assert wait_for(lambda: line in logs(bench, pid), timeout=60), f"no {line!r} in {timeline(bench, pid)[-40:]!r}"


def polls_between(tl, first, last):
    return tl[first + 1:last].count(("sleep", POLL_US))


def batch_then_five_polls(tl, refresh, before_age):
    # Checks that a batch's datagrams are consumed in the pass that sent them
    # and the refresh comes five polls after the batch. Only when the receive
    # thread logged the last of them after that pass's step before_age (the one
    # before it looks at the flag) may the flag have waited for the next pass,
    # and six polls are right.
    batch_end = max(i for i, t in enumerate(tl) if t == ("sleep", BATCH_US))
    last_received = max(i for i, t in enumerate(tl[:refresh]) if t == ("log",) + RECEIVED)
    polls = polls_between(tl, batch_end, refresh)
    assert polls == 5 or (polls == 6 and last_received > tl.index(before_age, batch_end)), tl[batch_end:refresh]


def daemon_ended(bench, pid):
    # Waits for the daemon's end; its last act is closing the device.
    if bench.sees_calls:
        assert wait_for(lambda: timeline(bench, pid)[-1:] == [("close", SPIDEV)])
    assert wait_for(lambda: bench.ns_pids("switch_daemon") == [])


@contextlib.contextmanager
def held_bench(bench):
    # Holds the lock that every bench call of the board's processes takes,
    # so the daemon stops at its next transfer (or, on the preload bench, its
    # next sleep or log line); marks the event log.
    with open(bench.sb / "state", "r+b") as state:
        fcntl.flock(state, fcntl.LOCK_EX)
        try:
            with open(bench.sb / "events", "a") as events:
                events.write("mark 0 held\n")
            yield
        finally:
            fcntl.flock(state, fcntl.LOCK_UN)


def threads(bench, pid):
    # (datagrams read by the sockets of the daemon's network, its main
    # thread's state, the states of its other threads).
    out = bench.ns_run(["sh", "-c", f"cd /proc/{pid} && grep Udp6InDatagrams net/snmp6 && "
                        r"for t in task/*; do echo ${t#task/} $(sed 's/.*) \(.\).*/\1/' $t/stat); done"]).out.split()
    states = dict(zip(out[2::2], out[3::2]))
    return int(out[1]), states.pop(str(pid)), states.values()


def send_held(bench, pid, payloads, taken):
    # Sends the datagrams while the monitor loop waits at its next bench
    # call, and lets it go on once the receive thread has read `taken` of them
    # and sleeps again (having set the flag: on the preload bench it then waits
    # for the lock to log its line). The first pass after the mark consumes
    # them, wherever the loop was held.
    with held_bench(bench):
        assert wait_for(lambda: threads(bench, pid)[1] != "R", timeout=60)
        before = threads(bench, pid)[0]
        send(bench, *payloads)
        assert wait_for(lambda: (lambda n, _, rx: n >= before + taken and set(rx) == {"S"})(*threads(bench, pid)),
                        timeout=60)


def start_helper(bench, path, argv0, *args):
    proc = bench.spawn(list(args) + [path], argv0=argv0, prog=PYTHON)
    assert wait_for(lambda: path.exists() and path.read_text().startswith("ready\n"), timeout=10)
    return proc


class Listener:
    # An independent receiver joined to the notification group.

    def __init__(self, bench, tmp_path):
        self.path = tmp_path / "datagrams.txt"
        start_helper(bench, self.path, "python3", HELPERS / "mcast_listen.py")

    def wait_count(self, n):
        # Waits for n datagrams, all of them the notification sent with hop limit 1.
        def got():
            return [(int(hops), bytes.fromhex(data))
                    for hops, _, data in (line.partition(" ") for line in self.path.read_text().splitlines()[1:])]
        assert wait_for(lambda: len(got()) >= n, timeout=60) and got() == [(1, DATAGRAM)] * n, got()


class Recorder:
    # A stand-in for an address service: records the signals it receives.

    def __init__(self, bench, tmp_path, name):
        self.path = tmp_path / f"{name}.signals"
        self.pid = start_helper(bench, self.path, name, HELPERS / "signal_recorder.py").nspid

    def got(self, sig, n):
        return wait_for(lambda: self.path.read_text().splitlines()[1:] == [sig] * n, timeout=20)


def start_services(bench, tmp_path):
    # Both address services as signal recorders, with their pid files.
    autoipd = Recorder(bench, tmp_path, "avahi-autoipd")
    avahi = Recorder(bench, tmp_path, "avahi-daemon")
    bench.path("/var/run/avahi-autoipd.eth0.pid").write_text(f"{autoipd.pid}\n")
    bench.path("/var/run/avahi-daemon/pid").write_text(f"{avahi.pid}\n")
    return autoipd, avahi


def refreshed(autoipd, avahi):
    return [notified("avahi-autoipd", autoipd.pid), notified("avahi-daemon", avahi.pid)]


def send(bench, *payloads):
    res = bench.ns_run([PYTHON, HELPERS / "mcast_send.py"] + [p.hex() for p in payloads])
    assert res.rc == 0, res.err


def start_daemon(bench, scale=20):
    # Starts the daemon; returns (parent's result, daemon pid) once the
    # refresh that the loop-back of its start-up batch brings is over. The
    # batch's sleeps leave the receive thread time to read each datagram.
    bench.timescale(scale)
    res = bench.run([], argv0="switch_daemon")
    pid_file = bench.path(DAEMON_PID_FILE)
    assert wait_for(lambda: pid_file.exists() and pid_file.read_text().endswith("\n")), res
    pid = int(pid_file.read_text())
    assert wait_for(lambda: any("avahi-daemon" in text or (level, text) == IGNORING_SIGNAL
                                for level, text in logs(bench, pid)), timeout=60), logs(bench, pid)
    return res, pid


@pytest.fixture
def net(bench):
    bench.net_up()
    return bench


@pytest.fixture
def services(net, tmp_path):
    return start_services(net, tmp_path)


# -- start-up ----------------------------------------------------------------------


def test_start_up_detaches_and_announces_itself(net, tmp_path):
    listener = Listener(net, tmp_path)
    res, pid = start_daemon(net)
    assert (res.rc, res.out, res.err) == (0, "running as daemon\n" + STATUS["nand"], "")
    # The parent: the chip id, the status line's reads, then its descriptor.
    assert timeline(net, first_pid(net)) == seen(net, [("R", 0, 0x95), ("R", 0, 0x95), ("R", 46, 32),
                                                       ("R", 62, 32), ("close", SPIDEV)])
    tl = timeline(net, pid)
    start = seen(net, [("R", 0, 0x95), ("sleep", 3000000), ("log", INFO, "Multicast Rx Server UP"),
                       ("log", INFO, "Multicast Tx Client UP"), ("R", 46, 32), ("R", 62, 32),
                       ("log",) + BROADCASTING])
    assert tl[:len(start)] == start
    if net.sees_calls:
        # Its own batch comes back: the first reading is no change, and the
        # refresh follows five polls after the batch.
        assert [t[1] for t in tl if t[0] == "sleep"][:5] == [3000000] + [BATCH_US] * 3 + [POLL_US]
        batch_then_five_polls(tl, tl.index(("log",) + NOBODY[0]), ("R", 62, 32))
    assert main_thread_logs(net, pid) == [(INFO, "Multicast Rx Server UP"), (INFO, "Multicast Tx Client UP"),
                                          BROADCASTING] + NOBODY
    assert logs(net, pid).count(RECEIVED) == 3
    listener.wait_count(3)
    # A second daemon refuses to start.
    net.clear_events()
    res = net.run([], argv0="/usr/sbin/switch_daemon")
    assert (res.rc, res.out) == (0, f"running as daemon\n Oops daemon is already running with PID {pid}\n")
    if net.sees_calls:  # it only closes the device, which the kernel does not tell
        second = next(e.pid for e in net.events() if e.kind == "openlog")
        assert timeline(net, second) == [("close", SPIDEV)]
    assert net.path(DAEMON_PID_FILE).read_text() == f"{pid}\n"
    assert net.ns_pids("switch_daemon") == [pid]


# One attempt at managed mode: on the NAND board a single pulse on line 56,
# after "out" drove it low; the NOR board's chip takes no pulse. The parent's
# exit status is that of the SPI speed set-up, on every way out.
@pytest.mark.parametrize("board, faults, rc, managed", [
    ("nand", ["wr-speed"], 255, True), ("nand", ["gpio-stuck"], 0, False),
    ("nand", ["gpio-stuck", "wr-speed"], 255, False), ("nor", [], 0, False)])
def test_unmanaged_chip_gets_one_attempt(request, board, faults, rc, managed):
    bench = request.getfixturevalue(BENCH[board])
    bench.net_up()
    bench.managed(0)
    for f in faults:
        bench.fault(f)
    bench.timescale(1000)
    res = bench.run([], argv0="switch_daemon")
    tl = timeline(bench, first_pid(bench))
    pulse = [("sleep", 20000), ("sleep", 200000), ("W", 1, 1)] if board == "nand" else []
    expected = [("R", 0, 0xFF)] + pulse + [("sleep", 500)] + [("R", 0, 0x95 if managed else 0xFF)] * (1 + managed)
    assert [t for t in tl if t[0] == "sleep" or t[:2] in (("R", 0), ("W", 1))] == seen(bench, expected)
    assert [t[1:] for t in tl if t[0] == "level"] == ([(56, 0), (191, 0), (191, 1), (56, 0), (56, 1)] if pulse else [])
    assert res.rc == rc
    if managed:
        assert res.out == "running as daemon\n" + STATUS[board]
        assert wait_for(lambda: bench.ns_pids("switch_daemon"))
    else:
        assert res.out == "running as daemon\n Oops could not put switch in managed mode\n"
        assert tl[-1] == seen(bench, [("close", SPIDEV), ("R", 0, 0xFF)])[0]
        assert not bench.path(DAEMON_PID_FILE).exists()
        assert bench.ns_pids("switch_daemon") == []


@pytest.mark.parametrize("network, first_error", [
    ("chip-lost", None), ("none", "setsockopt() failed\n"), ("lo-without-route", "setsockopt() failed\n"),
    ("port-taken", "bind() failed\n")])
def test_daemon_ends_after_detaching(bench, tmp_path, network, first_error):
    if network == "chip-lost":
        # The parent makes four transfers (chip id, status line); the child's
        # own chip id read is the fifth.
        bench.fault("xfer-from", 5)
    elif network != "none":
        bench.net_up(route=network == "port-taken")
    if network == "port-taken":  # a socket on the port without address reuse
        code = "import socket,sys,time\ns=socket.socket(socket.AF_INET6,socket.SOCK_DGRAM)\n" \
               "s.bind(('::',4873))\nopen(sys.argv[1],'w').write('ready\\n')\ntime.sleep(600)\n"
        start_helper(bench, tmp_path / "port.ready", "python3", "-c", code)
    res = bench.run([], argv0="switch_daemon")
    out = "running as daemon\n" + STATUS["nand"]
    out += " Oops switch is not in managed mode\n" if network == "chip-lost" else ""
    assert res.rc == 0 and wait_for(lambda: res.refresh().out == out), res
    pid_file = bench.path(DAEMON_PID_FILE)
    assert wait_for(lambda: pid_file.exists() and pid_file.read_text().endswith("\n"))
    child = int(pid_file.read_text())
    daemon_ended(bench, child)
    # In the VM the syslog receiver may still hold the last lines.
    expected = [] if first_error is None else [(ERR, first_error), (ERR, "Error while getting server up\n"),
                                                (ERR, "Could not startup IPv6 multicast daemon.")]
    assert wait_for(lambda: logs(bench, child) == expected), logs(bench, child)
    assert bench.sleeps(child) == ([] if first_error is None or not bench.sees_calls else [3000000])


# -- link changes and notifications ----------------------------------------------------


@pytest.mark.parametrize("board, port", [("nand", 1), ("nor", 2)])
def test_pulled_and_restored_cable(request, tmp_path, board, port):
    bench = request.getfixturevalue(BENCH[board])
    bench.net_up()
    autoipd, avahi = start_services(bench, tmp_path)
    listener = Listener(bench, tmp_path)
    res, pid = start_daemon(bench)
    assert res.out == "running as daemon\n" + STATUS[board]
    assert autoipd.got("SIGHUP", 1) and avahi.got("SIGUSR2", 1)
    bench.timescale(4)
    for round_, up in enumerate((False, True), start=1):
        bench.clear_events()
        bench.link(port, up)
        wait_log(bench, pid, notified("avahi-daemon", avahi.pid))
        links = (up, True) if port == 1 else (True, up)
        assert main_thread_logs(bench, pid) == [state_text(*links), BROADCASTING] + refreshed(autoipd, avahi)
        assert logs(bench, pid).count(RECEIVED) == 3
        listener.wait_count(3 + 3 * round_)
        assert autoipd.got("SIGHUP", 1 + round_) and avahi.got("SIGUSR2", 1 + round_)
        if bench.sees_calls:
            # The broadcasting pass sleeps through the batch, then 500 µs, then
            # polls; its own datagrams are consumed in that pass.
            tl = timeline(bench, pid)
            sleeps = [t[1] for t in tl if t[0] == "sleep"]
            first = sleeps.index(BATCH_US)
            assert sleeps[first:first + 5] == [BATCH_US] * 3 + [500, POLL_US]
            assert set(sleeps[:first]) <= {POLL_US}
            batch_then_five_polls(tl, tl.index(("log",) + refreshed(autoipd, avahi)[0]), ("sleep", 500))


# Each case ends with a notification, so the receive thread is shown to go on;
# `count` is how many of the datagrams are taken as notifications, which give
# one refresh, in the fifth pass after the one that consumed the last. Sent
# while the loop is held, the pass that consumes them is known: held after
# the pass had looked at the flag (in its sleep, or before the next pass's
# guard read), the refresh comes in the sixth pass after the mark, else in
# the fifth. `spaced`: the datagrams come a few passes apart, as another
# daemon's batch does.
@pytest.mark.parametrize("payloads, count, spaced", [
    ([], 1, False), ([b"hello"], 1, False), ([b""], 1, False), ([b"switch_daemoN\0"], 1, False),
    ([b"switch_daemonXY"], 1, False), ([b"switch_daemon"], 2, False), ([DATAGRAM + b"and more than fifteen"], 2, False),
    ([DATAGRAM, b"swi"], 2, False),  # a short datagram after a long one must not borrow its tail
    ([DATAGRAM, DATAGRAM], 3, True),
])
def test_notification_refreshes_five_polls_later(net, payloads, count, spaced):
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(4)
    for payload in payloads if spaced else []:
        send_held(net, pid, [payload], 1)
        wait_polls(net, pid, 2)
    burst = ([] if spaced else payloads) + [DATAGRAM]
    # On the preload bench the receive thread waits for the lock after the
    # first notification; the others it reads once the loop goes on.
    exact = len(burst) == 1 or count == 1 or not net.sees_calls
    send_held(net, pid, burst, len(burst) if exact else 1)
    wait_log(net, pid, NOBODY[1])
    wait_polls(net, pid, 2)
    assert main_thread_logs(net, pid) == NOBODY
    tl = timeline(net, pid)
    refresh = tl.index(("log",) + NOBODY[0])
    assert refresh > max(i for i, t in enumerate(tl) if t == ("log",) + RECEIVED)
    assert logs(net, pid).count(RECEIVED) == count
    if exact:
        tl = [t for t in tl[:refresh] if t != ("log",) + RECEIVED]
        mark = len(tl) - 1 - tl[::-1].index(("mark",))
        polls = sum(map(is_poll, tl[mark + 1:]))
        assert polls == (6 if tl[mark + 1] == ("sleep", POLL_US) or is_poll(tl[mark + 1]) else 5), tl[mark:]


def test_failed_send_ends_the_batch_and_the_loop_goes_on(net):
    _, pid = start_daemon(net)
    assert net.ns_run(["ip", "-6", "route", "del", "ff01::/16", "dev", "lo"]).rc == 0
    net.clear_events()
    net.link(1, False)
    wait_polls(net, pid, 10)
    assert main_thread_logs(net, pid) == [state_text(False, True), BROADCASTING,
                                          (ERR, "sendto() sent a different number of bytes than expected\n")]
    if net.sees_calls:
        assert BATCH_US not in net.sleeps(pid) and 500 in net.sleeps(pid)


# -- the suppression file ---------------------------------------------------------------


def test_suppression_file(net, services, tmp_path):
    autoipd, avahi = services
    listener = Listener(net, tmp_path)
    suppression = net.path(SUPPRESSION_FILE)
    suppression.write_text("")
    # The start-up batch goes out all the same; its refresh is skipped.
    _, pid = start_daemon(net)
    listener.wait_count(3)
    assert main_thread_logs(net, pid)[2:] == [BROADCASTING, IGNORING_SIGNAL]
    # A link change is logged, not announced.
    net.clear_events()
    net.link(2, False)
    wait_log(net, pid, IGNORING_EVENT)
    wait_polls(net, pid, 10)
    assert logs(net, pid) == [state_text(True, False), IGNORING_EVENT]
    assert 500 not in net.sleeps(pid)
    # Neither the skipped refresh nor the change, which counts as seen, comes
    # back once the file is gone.
    suppression.unlink()
    wait_polls(net, pid, 10)
    assert len(logs(net, pid)) == 2
    assert autoipd.got("SIGHUP", 0) and avahi.got("SIGUSR2", 0)
    net.link(2, True)
    wait_log(net, pid, notified("avahi-daemon", avahi.pid))
    assert main_thread_logs(net, pid)[2:] == [state_text(True, True), BROADCASTING] + refreshed(autoipd, avahi)
    listener.wait_count(6)
    assert autoipd.got("SIGHUP", 1) and avahi.got("SIGUSR2", 1)


# -- pid files of the address services --------------------------------------------------

PID_TEXT = {"empty": "", "text": "avahi\n", "zero": "0\n", "negative": "-1\n", "past-int": "2147483648\n"}


@pytest.mark.parametrize("autoipd_file, avahi_file", [
    ("missing", "live"), ("empty", "live"), ("text", "live"), ("zero", "live"), ("stale", "live"),
    ("live", "missing"), ("negative", "stale"), ("past-int", "live")])
def test_pid_files(net, tmp_path, autoipd_file, avahi_file):
    stale = net.spawn([], argv0="true", prog="/bin/true")
    stale.wait()
    recorders = start_services(net, tmp_path)
    expected = []
    for recorder, name, path, kind, sig in [
            (recorders[0], "avahi-autoipd", "/var/run/avahi-autoipd.eth0.pid", autoipd_file, "SIGHUP"),
            (recorders[1], "avahi-daemon", "/var/run/avahi-daemon/pid", avahi_file, "SIGUSR2")]:
        if kind == "missing":
            net.path(path).unlink()
        elif kind != "live":
            net.path(path).write_text(PID_TEXT.get(kind, f"{stale.nspid}\n"))
        live = kind == "live"
        expected.append((recorder, sig, int(live), notified(name, recorder.pid) if live else not_notified(name)))
    _, pid = start_daemon(net)
    assert main_thread_logs(net, pid)[3:] == [line for *_, line in expected]
    wait_polls(net, pid, 3)
    for recorder, sig, n, _ in expected:
        assert recorder.got(sig, n)


# -- the guard on register 1 -----------------------------------------------------------


def test_guard_acts_on_the_fifth_bad_read(net):
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(4)

    def guard_reads():
        return [t[2] for t in timeline(net, pid) if is_poll(t)]

    def bad_reads():
        return sum(v & 0xF0 != 0x60 for v in guard_reads())

    # Four bad reads, each between good ones: nothing happens.
    while bad_reads() < 4:
        for value in (0x51, 0x61):
            net.poke(1, value)
            n = len(guard_reads())
            assert wait_for(lambda: value in guard_reads()[n:], timeout=60)
    if bad_reads() == 4:
        assert logs(net, pid) == [] and net.levels() == []
    # From now on every read is bad: a reset on every fifth, and a
    # notification still leads to its refresh.
    net.poke(1, 0x51)
    send(net, DATAGRAM)
    wait_log(net, pid, not_notified("avahi-daemon"))
    assert wait_for(lambda: bad_reads() >= 11, timeout=120)
    tl = [t for t in timeline(net, pid) if t != ("log",) + RECEIVED]
    bad = [i for i, t in enumerate(tl) if is_poll(t) and t[2] & 0xF0 != 0x60]
    resets = [i for i, t in enumerate(tl) if t == ("log",) + GUARD_RESET]
    assert resets == [bad[k] + 1 for k in range(4, len(bad), 5) if bad[k] + 1 < len(tl)] and len(resets) >= 2
    # Up to the next guard read, which is a good one when the first reset came
    # while the test still alternated the values.
    after = resets[0] + 1
    end = next(i for i in range(after, len(tl)) if is_poll(tl[i]))
    assert [t for t in tl[after:end] if t[0] not in ("log", "close")] == seen(net, [
        ("gpio", GPIO + "export", b"56"), ("gpio", GPIO + "export", b"191"),
        ("level", 56, 0), ("gpio", GPIO + "gpio56/direction", b"out\0"),
        ("level", 191, 0), ("gpio", GPIO + "gpio191/direction", b"out\0"),
        ("level", 191, 1), ("gpio", GPIO + "gpio191/value", b"1\0"),
        ("level", 56, 0), ("gpio", GPIO + "gpio56/value", b"0\0"), ("sleep", 20000),
        ("level", 56, 1), ("gpio", GPIO + "gpio56/value", b"1\0"), ("sleep", 200000),
        ("W", 1, 1), ("sleep", POLL_US)])
    # A bad guard leaves the link registers alone.
    for i in bad:
        nxt = next((t for t in tl[i + 1:] if t[0] in ("R", "W")), None)
        assert nxt is None or nxt[1] not in (46, 62)
