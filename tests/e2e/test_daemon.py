"""The link monitor daemon on the simulated board: start-up and its early ends,
link changes and their datagrams, notifications and the refresh of the address
services, the guard on register 1."""

import contextlib
import fcntl
import sys
import time
from pathlib import Path

import pytest

from bench import _unescape, wait_for

HELPERS = Path(__file__).resolve().parent / "helpers"
PYTHON = sys.executable

DATAGRAM = b"switch_daemon\0"
DAEMON_PID_FILE = "/var/run/switch_daemon.pid"
AUTOIPD_PID_FILE = "/var/run/avahi-autoipd.eth0.pid"
AVAHI_PID_FILE = "/var/run/avahi-daemon/pid"
SUPPRESSION_FILE = "/tmp/zorvi/control/nfs_up/disable_avahi_refresh"
SPIDEV = "/dev/spidev0.0"

ERR, INFO = 3, 6
BROADCASTING = (INFO, "Broadcasting interface status change message")
RECEIVED = (INFO, "Received remote link change notification")
IGNORING_EVENT = (INFO, "Ignoring event. Avahi Refresh Disabled.")
IGNORING_SIGNAL = (INFO, "Ignoring signal. Avahi Refresh Disabled.")
GUARD_RESET = (ERR, "SWITCH INIT ERROR: PORT 4 IS ALLWAYS RMII. Switch reset to default managed.")
POLL_US, BATCH_US, AFTER_BATCH_US = 200000, 666666, 500

STATUS = {
    "nand": "Zorvi HPB-NAND KSZ8864 MANAGED port1_link UP port2_link UP daemon NONE\n",
    "nor": "Zorvi HPB-NOR KSZ8893 MANAGED port1_link UP port2_link UP daemon NONE\n",
}
STATE_TEXT = {
    (False, False): "port1_link DOWN port2_link DOWN",
    (True, False): "port1_link UP port2_link DOWN",
    (False, True): "port1_link DOWN port2_link UP",
    (True, True): "port1_link UP port2_link UP",
}


def notified(name, pid):
    return (INFO, f"Remote link change notified to {name} on pid {pid}")


def not_notified(name):
    return (ERR, f"Could not notify {name}")


def refreshed(autoipd, avahi):
    """The refresh's two lines when both recorders were reached."""
    return [notified("avahi-autoipd", autoipd.pid), notified("avahi-daemon", avahi.pid)]


NOBODY_REFRESHED = [not_notified("avahi-autoipd"), not_notified("avahi-daemon")]


# -- reading the event log ------------------------------------------------------


def timeline(bench, pid):
    """What one process did, in order: ("sleep", us), ("log", level, text),
    (op, reg, val) of a good transfer, ("gpio", path, bytes), ("close", path);
    and ("mark",) where the test held the bench (held_bench)."""
    out = []
    for e in bench.events():
        if e.pid != pid and e.kind != "mark":
            continue
        if e.kind == "usleep":
            out.append(("sleep", int(e.args[0])))
        elif e.kind == "syslog":
            out.append(("log", int(e.args[0]), _unescape(e.args[1] if len(e.args) > 1 else "")))
        elif e.kind == "xfer" and e.args[-1] == "ok=1":
            out.append((e.args[0], int(e.args[1]), int(e.args[2])))
        elif e.kind == "gpio":
            out.append(("gpio", e.args[0], bytes.fromhex(e.args[1]) if e.args[1] != "-" else b""))
        elif e.kind == "close":
            out.append(("close", e.args[0]))
        elif e.kind == "mark":
            out.append(("mark",))
    return out


def logs(bench, pid):
    return [(t[1], t[2]) for t in timeline(bench, pid) if t[0] == "log"]


def main_thread_logs(bench, pid):
    """The daemon's log without the receive thread's lines."""
    return [line for line in logs(bench, pid) if line != RECEIVED]


def polls(bench, pid):
    return bench.sleeps(pid).count(POLL_US)


def wait_polls(bench, pid, n):
    """Waits until the daemon has slept n more poll periods."""
    start = polls(bench, pid)
    assert wait_for(lambda: polls(bench, pid) >= start + n, timeout=20), "the monitor loop stalls"


def wait_log(bench, pid, line, count=1, timeout=20):
    assert wait_for(lambda: logs(bench, pid).count(line) >= count, timeout=timeout), (
        f"no {line!r} in {logs(bench, pid)!r}"
    )


def polls_between(tl, first, last):
    return sum(1 for t in tl[first + 1 : last] if t == ("sleep", POLL_US))


@contextlib.contextmanager
def held_bench(bench):
    """Holds the lock that every bench call of the board's processes takes,
    so the daemon stops at its next transfer or sleep; marks the event log."""
    with open(bench.sb / "state", "r+b") as state:
        fcntl.flock(state, fcntl.LOCK_EX)
        try:
            with open(bench.sb / "events", "a") as events:
                events.write("mark 0 held\n")
            yield
        finally:
            fcntl.flock(state, fcntl.LOCK_UN)


# -- helper processes -------------------------------------------------------------


def wait_ready(path):
    assert wait_for(lambda: path.exists() and path.read_text().startswith("ready\n"), timeout=10)


class Listener:
    """An independent receiver joined to the notification group."""

    def __init__(self, bench, tmp_path):
        self.path = tmp_path / "datagrams.txt"
        bench.spawn([HELPERS / "mcast_listen.py", self.path], argv0="python3", prog=PYTHON)
        wait_ready(self.path)

    def datagrams(self):
        lines = self.path.read_text().splitlines()[1:]
        return [bytes.fromhex(line.split(" ")[1] if " " in line else "") for line in lines]

    def wait_count(self, n):
        assert wait_for(lambda: len(self.datagrams()) >= n, timeout=20), self.datagrams()


class Recorder:
    """A stand-in for an address service: records the signals it receives."""

    def __init__(self, bench, tmp_path, name):
        self.path = tmp_path / f"{name}.signals"
        self.pid = bench.spawn([HELPERS / "signal_recorder.py", self.path], argv0=name, prog=PYTHON).nspid
        wait_ready(self.path)

    def signals(self):
        return self.path.read_text().splitlines()[1:]


def send(bench, *payloads, gap=0.0):
    res = bench.ns_run([PYTHON, HELPERS / "mcast_send.py", "--gap", str(gap)] + [p.hex() for p in payloads])
    assert res.rc == 0, res.err


def stale_pid(bench):
    """The pid of a process that has ended."""
    proc = bench.spawn([], argv0="true", prog="/bin/true")
    proc.wait()
    return proc.nspid


def start_daemon(bench, scale=100, refresh_line=None):
    """Starts the daemon; returns (parent's result, daemon pid). Waits for the
    refresh that the loop-back of its start-up batch brings, whose last line
    is refresh_line (the avahi-daemon line when not given)."""
    bench.timescale(scale)
    res = bench.run([], argv0="switch_daemon")
    pid_file = bench.path(DAEMON_PID_FILE)
    assert wait_for(lambda: pid_file.exists() and pid_file.read_text().endswith("\n")), res
    pid = int(pid_file.read_text())
    if refresh_line is None:
        def done(line):
            return line == not_notified("avahi-daemon") or line[1].startswith(
                "Remote link change notified to avahi-daemon"
            )
    else:
        def done(line):
            return line == refresh_line
    assert wait_for(lambda: any(done(line) for line in logs(bench, pid)), timeout=20), logs(bench, pid)
    return res, pid


@pytest.fixture
def net(bench):
    bench.net_up()
    return bench


@pytest.fixture
def services(net, tmp_path):
    """Both address services as signal recorders, with their pid files."""
    autoipd = Recorder(net, tmp_path, "avahi-autoipd")
    avahi = Recorder(net, tmp_path, "avahi-daemon")
    net.path(AUTOIPD_PID_FILE).write_text(f"{autoipd.pid}\n")
    net.path(AVAHI_PID_FILE).write_text(f"{avahi.pid}\n")
    return autoipd, avahi


# -- start-up ----------------------------------------------------------------------


def test_start_up_detaches_and_announces_itself(net, tmp_path):
    listener = Listener(net, tmp_path)
    res, pid = start_daemon(net)
    assert (res.rc, res.out, res.err) == (0, "running as daemon\n" + STATUS["nand"], "")
    assert net.path(DAEMON_PID_FILE).read_text() == f"{pid}\n"
    assert net.ns_pids("switch_daemon") == [pid]

    # The parent: the chip id, the status line's reads, then its descriptor.
    parent = next(e.pid for e in net.events() if e.kind == "openlog")
    assert timeline(net, parent) == [
        ("R", 0, 0x95),
        ("R", 0, 0x95),
        ("R", 46, 32),
        ("R", 62, 32),
        ("close", SPIDEV),
    ]

    tl = timeline(net, pid)
    assert tl[:7] == [
        ("R", 0, 0x95),
        ("sleep", 3000000),
        ("log", INFO, "Multicast Rx Server UP"),
        ("log", INFO, "Multicast Tx Client UP"),
        ("R", 46, 32),
        ("R", 62, 32),
        ("log",) + BROADCASTING,
    ]
    # Its own batch comes back: the first reading is no change, and the
    # refresh follows five polls after the batch.
    sleeps = [t[1] for t in tl if t[0] == "sleep"]
    assert sleeps[:5] == [3000000, BATCH_US, BATCH_US, BATCH_US, POLL_US]
    batch_end = max(i for i, t in enumerate(tl) if t == ("sleep", BATCH_US))
    refresh = tl.index(("log",) + not_notified("avahi-autoipd"))
    assert polls_between(tl, batch_end, refresh) == 5
    assert main_thread_logs(net, pid) == [
        (INFO, "Multicast Rx Server UP"),
        (INFO, "Multicast Tx Client UP"),
        BROADCASTING,
        not_notified("avahi-autoipd"),
        not_notified("avahi-daemon"),
    ]
    assert logs(net, pid).count(RECEIVED) == 3
    listener.wait_count(3)
    assert listener.datagrams() == [DATAGRAM] * 3


def test_parent_returns_the_speed_status(net):
    net.fault("wr-speed")
    res, pid = start_daemon(net)
    assert res.rc == 255
    assert net.ns_pids("switch_daemon") == [pid]


def test_second_daemon_refuses_to_start(net):
    _, first = start_daemon(net)
    net.clear_events()
    res = net.run([], argv0="/usr/sbin/switch_daemon")
    assert res.rc == 0
    assert res.out == f"running as daemon\n Oops daemon is already running with PID {first}\n"
    second = next(e.pid for e in net.events() if e.kind == "openlog")
    assert timeline(net, second) == [("close", SPIDEV)]
    assert net.path(DAEMON_PID_FILE).read_text() == f"{first}\n"
    assert net.ns_pids("switch_daemon") == [first]


@pytest.mark.parametrize(
    "faults, rc, managed",
    [
        ([], 0, True),
        (["gpio-stuck"], 0, False),
        (["gpio-stuck", "wr-speed"], 255, False),
    ],
    ids=["comes-back", "stuck", "stuck-no-speed"],
)
def test_unmanaged_chip_gets_one_attempt(net, faults, rc, managed):
    net.managed(0)
    for f in faults:
        net.fault(f)
    net.timescale(1000)
    res = net.run([], argv0="switch_daemon")
    parent = next(e.pid for e in net.events() if e.kind == "openlog")
    tl = timeline(net, parent)
    sequence = [t for t in tl if t[0] == "sleep" or t[:2] == ("R", 0) or t[:2] == ("W", 1)]
    second_read = ("R", 0, 0x95 if managed else 0xFF)
    assert sequence[:6] == [
        ("R", 0, 0xFF),
        ("sleep", 20000),
        ("sleep", 200000),
        ("W", 1, 1),
        ("sleep", 500),
        second_read,
    ]
    # One attempt: a single pulse on line 56.
    pulses = [t[2] for t in tl if t[0] == "gpio" and t[1] == "/sys/class/gpio/gpio56/value"]
    assert pulses == [b"0\0", b"1\0"]
    assert res.rc == rc
    if managed:
        assert res.out == "running as daemon\n" + STATUS["nand"]
        assert wait_for(lambda: net.ns_pids("switch_daemon"))
    else:
        assert res.out == "running as daemon\n Oops could not put switch in managed mode\n"
        assert tl[-1] == ("close", SPIDEV)
        assert not net.path(DAEMON_PID_FILE).exists()
        assert net.ns_pids("switch_daemon") == []


def test_chip_lost_after_detaching(net):
    # The parent makes four transfers (chip id, status line); the child's
    # own chip id read is the fifth.
    net.fault("xfer-from", 5)
    res = net.run([], argv0="switch_daemon")
    pid_file = net.path(DAEMON_PID_FILE)
    assert wait_for(lambda: " Oops switch is not in managed mode\n" in res.refresh().out)
    assert res.out == "running as daemon\n" + STATUS["nand"] + " Oops switch is not in managed mode\n"
    assert res.err.startswith("can't send spi message")
    child = int(pid_file.read_text())
    assert wait_for(lambda: timeline(net, child)[-1:] == [("close", SPIDEV)])
    assert [t for t in timeline(net, child) if t[0] in ("sleep", "log")] == []
    assert wait_for(lambda: net.ns_pids("switch_daemon") == [])


def hold_port(bench, tmp_path):
    """A socket on the notification port without address reuse."""
    ready = tmp_path / "port.ready"
    code = (
        "import socket,sys,time\n"
        "s=socket.socket(socket.AF_INET6,socket.SOCK_DGRAM)\n"
        "s.bind(('::',4873))\n"
        "open(sys.argv[1],'w').write('ready\\n')\n"
        "time.sleep(600)\n"
    )
    bench.spawn(["-c", code, ready], argv0="python3", prog=PYTHON)
    wait_ready(ready)


@pytest.mark.parametrize(
    "network, first_error",
    [
        ("none", "setsockopt() failed\n"),
        ("lo-without-route", "setsockopt() failed\n"),
        ("port-taken", "bind() failed\n"),
    ],
)
def test_multicast_set_up_failure_ends_the_daemon(bench, tmp_path, network, first_error):
    if network == "lo-without-route":
        bench.net_up(route=False)
    elif network == "port-taken":
        bench.net_up()
        hold_port(bench, tmp_path)
    res = bench.run([], argv0="switch_daemon")
    assert (res.rc, res.out) == (0, "running as daemon\n" + STATUS["nand"])
    pid_file = bench.path(DAEMON_PID_FILE)
    assert wait_for(pid_file.exists)
    child = int(pid_file.read_text())
    assert wait_for(lambda: timeline(bench, child)[-1:] == [("close", SPIDEV)])
    assert logs(bench, child) == [
        (ERR, first_error),
        (ERR, "Error while getting server up\n"),
        (ERR, "Could not startup IPv6 multicast daemon."),
    ]
    assert bench.sleeps(child) == [3000000]
    assert wait_for(lambda: bench.ns_pids("switch_daemon") == [])


# -- link changes ------------------------------------------------------------------


@pytest.mark.parametrize("board, port", [("nand", 1), ("nor", 2)])
def test_pulled_and_restored_cable(request, tmp_path, board, port):
    bench = request.getfixturevalue("bench" if board == "nand" else "bench_nor")
    bench.net_up()
    autoipd = Recorder(bench, tmp_path, "avahi-autoipd")
    avahi = Recorder(bench, tmp_path, "avahi-daemon")
    bench.path(AUTOIPD_PID_FILE).write_text(f"{autoipd.pid}\n")
    bench.path(AVAHI_PID_FILE).write_text(f"{avahi.pid}\n")
    listener = Listener(bench, tmp_path)
    res, pid = start_daemon(bench)
    assert res.out == "running as daemon\n" + STATUS[board]
    assert wait_for(lambda: autoipd.signals() == ["SIGHUP"] and avahi.signals() == ["SIGUSR2"])
    bench.timescale(20)

    for round_, up in enumerate((False, True), start=1):
        bench.clear_events()
        bench.link(port, up)
        wait_log(bench, pid, notified("avahi-daemon", avahi.pid))
        links = (up, True) if port == 1 else (True, up)
        assert main_thread_logs(bench, pid) == [(INFO, STATE_TEXT[links]), BROADCASTING] + refreshed(autoipd, avahi)
        assert logs(bench, pid).count(RECEIVED) == 3
        listener.wait_count(3 + 3 * round_)
        assert listener.datagrams() == [DATAGRAM] * (3 + 3 * round_)
        assert wait_for(lambda: autoipd.signals() == ["SIGHUP"] * (1 + round_))
        assert wait_for(lambda: avahi.signals() == ["SIGUSR2"] * (1 + round_))
        # The broadcasting pass sleeps through the batch, then 500 µs, then
        # polls; its own datagrams are consumed in that pass, so the refresh
        # comes five polls later.
        tl = timeline(bench, pid)
        sleeps = [t[1] for t in tl if t[0] == "sleep"]
        first = sleeps.index(BATCH_US)
        assert sleeps[first : first + 5] == [BATCH_US] * 3 + [AFTER_BATCH_US, POLL_US]
        assert set(sleeps[:first]) <= {POLL_US}
        last_batch = max(i for i, t in enumerate(tl) if t == ("sleep", BATCH_US))
        refresh = tl.index(("log",) + notified("avahi-autoipd", autoipd.pid))
        assert polls_between(tl, last_batch, refresh) == 5


# -- notifications from other senders ------------------------------------------------------


def test_notification_refreshes_five_polls_later(net, services):
    autoipd, avahi = services
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(10)
    wait_polls(net, pid, 1)
    # The datagram comes while the loop is held at a known call, so the pass
    # that consumes it is known.
    with held_bench(net):
        time.sleep(0.1)
        send(net, DATAGRAM)
        time.sleep(0.1)
    wait_log(net, pid, notified("avahi-daemon", avahi.pid))
    tl = [t for t in timeline(net, pid) if t != ("log",) + RECEIVED]
    mark = tl.index(("mark",))
    held_at = tl[mark + 1]
    refresh = tl.index(("log",) + notified("avahi-autoipd", autoipd.pid))
    if held_at == ("sleep", POLL_US):
        # held after the pass had looked at the flag: the next one takes it
        assert polls_between(tl, mark, refresh) == 6
    else:
        assert held_at[0] == "R"
        assert polls_between(tl, mark, refresh) == 5
    assert logs(net, pid).count(RECEIVED) == 1
    assert main_thread_logs(net, pid) == refreshed(autoipd, avahi)
    assert wait_for(lambda: autoipd.signals() == ["SIGHUP"] * 2 and avahi.signals() == ["SIGUSR2"] * 2)


def test_one_batch_of_three_gives_one_refresh(net, services):
    autoipd, avahi = services
    _, pid = start_daemon(net)
    net.clear_events()
    scale = 2
    net.timescale(scale)
    send(net, DATAGRAM, DATAGRAM, DATAGRAM, gap=BATCH_US / 1e6 / scale)
    wait_log(net, pid, notified("avahi-daemon", avahi.pid))
    wait_polls(net, pid, 8)
    tl = timeline(net, pid)
    received = [i for i, t in enumerate(tl) if t == ("log",) + RECEIVED]
    assert len(received) == 3
    refresh = tl.index(("log",) + notified("avahi-autoipd", autoipd.pid))
    assert refresh > received[-1]
    assert main_thread_logs(net, pid) == refreshed(autoipd, avahi)


# Each case ends with a notification, so the receive thread is shown to go on;
# `count` is how many of the datagrams are taken as notifications.
@pytest.mark.parametrize(
    "payloads, count",
    [
        ([b"hello"], 1),
        ([b""], 1),
        ([b"switch_daem"], 1),
        ([b"switch_daemoN\0"], 1),
        ([b"switch_daemonXY"], 1),
        ([b"switch_daemon"], 2),
        ([DATAGRAM + b"and more than fifteen"], 2),
        # a short datagram after a long one must not borrow its tail
        ([DATAGRAM, b"swi"], 2),
        ([DATAGRAM + b"X", b"switch_daemo"], 2),
    ],
    ids=[
        "other",
        "empty",
        "prefix",
        "other-last-byte",
        "fifteen-no-nul",
        "no-nul",
        "longer",
        "short-after-long",
        "short-after-longer",
    ],
)
def test_datagram_contents(net, payloads, count):
    _, pid = start_daemon(net)
    net.clear_events()
    # Slow enough that the receive thread takes the whole burst before the
    # refresh comes, even on a busy machine.
    net.timescale(10)
    send(net, *payloads, DATAGRAM)
    wait_log(net, pid, not_notified("avahi-daemon"))
    wait_polls(net, pid, 2)
    assert logs(net, pid).count(RECEIVED) == count
    assert main_thread_logs(net, pid) == NOBODY_REFRESHED


# -- the suppression file ---------------------------------------------------------------


def test_suppressed_link_change_is_not_announced(net, tmp_path):
    listener = Listener(net, tmp_path)
    _, pid = start_daemon(net)
    listener.wait_count(3)
    suppression = net.path(SUPPRESSION_FILE)
    suppression.write_text("")
    net.clear_events()
    net.link(2, False)
    wait_log(net, pid, IGNORING_EVENT)
    wait_polls(net, pid, 10)
    assert logs(net, pid) == [(INFO, STATE_TEXT[(True, False)]), IGNORING_EVENT]
    assert AFTER_BATCH_US not in net.sleeps(pid)
    # The change is taken as seen: it is not announced once the file is gone.
    suppression.unlink()
    wait_polls(net, pid, 10)
    assert len(logs(net, pid)) == 2
    assert listener.datagrams() == [DATAGRAM] * 3
    net.link(2, True)
    wait_log(net, pid, not_notified("avahi-daemon"))
    assert main_thread_logs(net, pid)[2:] == [(INFO, STATE_TEXT[(True, True)]), BROADCASTING] + NOBODY_REFRESHED
    listener.wait_count(6)


def test_suppressed_refresh_is_dropped(net, services, tmp_path):
    autoipd, avahi = services
    listener = Listener(net, tmp_path)
    suppression = net.path(SUPPRESSION_FILE)
    suppression.write_text("")
    # The start-up batch goes out all the same; its refresh is skipped.
    _, pid = start_daemon(net, scale=100, refresh_line=IGNORING_SIGNAL)
    listener.wait_count(3)
    assert main_thread_logs(net, pid)[2:] == [BROADCASTING, IGNORING_SIGNAL]
    # A skipped refresh never comes back.
    suppression.unlink()
    net.clear_events()
    wait_polls(net, pid, 10)
    assert logs(net, pid) == []
    assert autoipd.signals() == [] and avahi.signals() == []
    send(net, DATAGRAM)
    wait_log(net, pid, notified("avahi-daemon", avahi.pid))
    assert wait_for(lambda: autoipd.signals() == ["SIGHUP"] and avahi.signals() == ["SIGUSR2"])


# -- pid files of the address services --------------------------------------------------


@pytest.mark.parametrize(
    "autoipd_file, avahi_file",
    [
        ("live", "live"),
        ("missing", "live"),
        ("empty", "live"),
        ("text", "live"),
        ("zero", "live"),
        ("stale", "live"),
        ("live", "missing"),
        ("live", "stale"),
        ("negative", "empty"),
    ],
)
def test_pid_files(net, tmp_path, autoipd_file, avahi_file):
    recorders = {name: Recorder(net, tmp_path, name) for name in ("avahi-autoipd", "avahi-daemon")}
    expected = []
    for name, path, kind, sig in [
        ("avahi-autoipd", AUTOIPD_PID_FILE, autoipd_file, "SIGHUP"),
        ("avahi-daemon", AVAHI_PID_FILE, avahi_file, "SIGUSR2"),
    ]:
        content = {
            "live": f"{recorders[name].pid}\n",
            "empty": "",
            "text": "avahi\n",
            "zero": "0\n",
            "negative": "-1\n",
            "stale": f"{stale_pid(net)}\n",
        }.get(kind)
        if content is not None:
            net.path(path).write_text(content)
        live = kind == "live"
        line = notified(name, recorders[name].pid) if live else not_notified(name)
        expected.append((line, [sig] if live else []))
    _, pid = start_daemon(net)
    assert main_thread_logs(net, pid)[3:] == [line for line, _ in expected]
    for name, (_, signals) in zip(recorders, expected):
        assert wait_for(lambda: recorders[name].signals() == signals)
    wait_polls(net, pid, 3)
    for name, (_, signals) in zip(recorders, expected):
        assert recorders[name].signals() == signals


# -- the guard on register 1 -----------------------------------------------------------


GUARD_REG, GOOD, BAD = 1, 0x61, 0x51


def guard_reads(bench, pid):
    return [t[2] for t in timeline(bench, pid) if t[:2] == ("R", GUARD_REG)]


def bad_reads(bench, pid):
    return sum(1 for v in guard_reads(bench, pid) if v & 0xF0 != 0x60)


def test_guard_acts_on_the_fifth_bad_read(net):
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(4)
    # Four bad reads, each between good ones: nothing happens.
    while bad_reads(net, pid) < 4:
        net.poke(GUARD_REG, BAD)
        n = bad_reads(net, pid)
        assert wait_for(lambda: bad_reads(net, pid) > n, timeout=10)
        net.poke(GUARD_REG, GOOD)
        g = len(guard_reads(net, pid))
        assert wait_for(lambda: guard_reads(net, pid)[g:].count(GOOD), timeout=10)
    if bad_reads(net, pid) == 4:
        assert logs(net, pid) == [] and net.gpio_writes() == []
    # From now on every read is bad: a reset on every fifth, and a
    # notification still leads to its refresh.
    net.poke(GUARD_REG, BAD)
    send(net, DATAGRAM)
    assert wait_for(lambda: bad_reads(net, pid) >= 11, timeout=20)
    wait_log(net, pid, not_notified("avahi-daemon"))

    tl = [t for t in timeline(net, pid) if t != ("log",) + RECEIVED]
    bad_index = [i for i, t in enumerate(tl) if t[:2] == ("R", GUARD_REG) and t[2] & 0xF0 != 0x60]
    resets = [i for i, t in enumerate(tl) if t == ("log",) + GUARD_RESET]
    assert resets == [bad_index[k] + 1 for k in range(4, len(bad_index), 5) if bad_index[k] + 1 < len(tl)]
    assert len(resets) >= 2
    for n, at in enumerate(resets[:2]):
        end = next((i for i in range(at, len(tl)) if tl[i][:2] == ("R", GUARD_REG)), len(tl))
        steps = [t for t in tl[at + 1 : end] if t[0] not in ("log", "close")]
        gpio = [t[1:] for t in steps if t[0] == "gpio"]
        exports = [("/sys/class/gpio/export", b"56"), ("/sys/class/gpio/export", b"191")] if n == 0 else []
        assert gpio == exports + [
            ("/sys/class/gpio/gpio56/direction", b"out\0"),
            ("/sys/class/gpio/gpio191/direction", b"out\0"),
            ("/sys/class/gpio/gpio191/value", b"1\0"),
            ("/sys/class/gpio/gpio56/value", b"0\0"),
            ("/sys/class/gpio/gpio56/value", b"1\0"),
        ]
        rest = [t for t in steps if t[0] != "gpio"]
        assert rest == [("sleep", 20000), ("sleep", 200000), ("W", GUARD_REG, 1), ("sleep", POLL_US)]
    # A bad guard leaves the link registers alone.
    for i in bad_index:
        nxt = next((t for t in tl[i + 1 :] if t[0] in ("R", "W")), None)
        assert nxt is None or nxt[1] not in (46, 62)
