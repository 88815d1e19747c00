# The link monitor daemon on the simulated board: start-up and its early ends,
# link changes and their datagrams, notifications and the refresh of the address
# services, the guard on register 1.
#
# Waits count the monitor's passes (a pass begins with the guard read of
# register 1), never wall time, so that a loaded machine only makes them longer.

import fcntl
import sys
from pathlib import Path

import pytest

from bench import _unescape, wait_for

HELPERS = Path(__file__).resolve().parent / "helpers"
PYTHON = sys.executable
DATAGRAM = b"switch_daemon\0"
DAEMON_PID_FILE = "/var/run/switch_daemon.pid"
SPIDEV = "/dev/spidev0.0"
# The address services and their pid files.
SERVICES = {"avahi-autoipd": "/var/run/avahi-autoipd.eth0.pid", "avahi-daemon": "/var/run/avahi-daemon/pid"}

ERR, INFO = 3, 6
BROADCASTING = (INFO, "Broadcasting interface status change message")
RECEIVED = (INFO, "Received remote link change notification")
IGNORING_SIGNAL = (INFO, "Ignoring signal. Avahi Refresh Disabled.")
POLL_US, BATCH_US = 200000, 666666
RUNNING = "running as daemon\nZorvi HPB-NAND KSZ8864 MANAGED port1_link UP port2_link UP daemon NONE\n"


def state_text(port1, port2):
    return (INFO, f"port1_link {'UP' if port1 else 'DOWN'} port2_link {'UP' if port2 else 'DOWN'}")


def notified(name, pid):
    return (INFO, f"Remote link change notified to {name} on pid {pid}")


NOBODY = [(ERR, "Could not notify avahi-autoipd"), (ERR, "Could not notify avahi-daemon")]
# The attempt at managed mode on the NAND board: "out" drives line 56 low,
# then one pulse on it.
MANAGED_MODE = [("level", 56, 0), ("level", 191, 0), ("level", 191, 1), ("level", 56, 0), ("usleep", 20000),
                ("level", 56, 1), ("usleep", 200000), ("W", 1, 1)]


def timeline(bench, pid):
    # What one process did, in order: ("usleep", us), ("log", level, text),
    # (op, reg, val) of a good transfer, ("level", line, level), ("close",
    # path); and ("mark",) where the test held the bench.
    out = []
    for e in bench.events():
        if e.kind == "mark":
            out.append(("mark",))
        elif e.pid != pid:
            continue
        elif e.kind == "syslog":
            out.append(("log", int(e.args[0]), _unescape(e.args[1] if len(e.args) > 1 else "")))
        elif e.kind == "xfer" and e.args[-1] == "ok=1":
            out.append((e.args[0], int(e.args[1]), int(e.args[2])))
        elif e.kind in ("usleep", "level", "close"):
            out.append((e.kind,) + tuple(int(a) if a.isdigit() else a for a in e.args))
    return out


def seen(bench, steps):
    # The steps of a timeline that the bench can see: sleeps and closes only
    # the preload bench sees (Bench.sees_calls).
    return [t for t in steps if bench.sees_calls or t[0] not in ("usleep", "close")]


def logs(bench, pid):
    return [t[1:] for t in timeline(bench, pid) if t[0] == "log"]


def main_thread_logs(bench, pid):
    # The daemon's log without the receive thread's lines.
    return [line for line in logs(bench, pid) if line != RECEIVED]


def is_poll(t):
    return t[:2] == ("R", 1)


def wait_polls(bench, pid, n):
    # Waits until the daemon has made n more passes.
    start = sum(map(is_poll, timeline(bench, pid)))
    assert wait_for(lambda: sum(map(is_poll, timeline(bench, pid))) >= start + n, timeout=60), "the loop stalls"


def wait_log(bench, pid, line):
    assert wait_for(lambda: line in logs(bench, pid), timeout=60), f"no {line!r} in {timeline(bench, pid)[-40:]!r}"


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
    #
    # The lock on the state file is the one every bench call of the board's
    # processes takes: held, the daemon stops at its next transfer (or, on the
    # preload bench, its next sleep or log line). Closing the file releases it.
    with open(bench.sb / "state", "r+b") as state:
        fcntl.flock(state, fcntl.LOCK_EX)
        with open(bench.sb / "events", "a") as events:
            events.write("mark 0 held\n")
        assert wait_for(lambda: threads(bench, pid)[1] != "R", timeout=60)
        before = threads(bench, pid)[0]
        send(bench, *payloads)
        assert wait_for(lambda: (lambda n, _, rx: n >= before + taken and set(rx) == {"S"})(*threads(bench, pid)),
                        timeout=60)


class Helper:
    # A helper program of tests/e2e/helpers that writes "ready" to its file,
    # then a line for each datagram or signal it receives.

    def __init__(self, bench, path, argv0, *args):
        self.path = path
        self.pid = bench.spawn(list(args) + [path], argv0=argv0, prog=PYTHON).nspid
        assert wait_for(lambda: path.exists() and path.read_text().startswith("ready\n"), timeout=10)

    def got(self, line, n):
        return wait_for(lambda: self.path.read_text().splitlines()[1:] == [line] * n, timeout=60)


def start_services(bench, tmp_path):
    # Both address services as signal recorders, with their pid files.
    services = [Helper(bench, tmp_path / f"{name}.signals", name, HELPERS / "signal_recorder.py")
                for name in SERVICES]
    for service, pid_file in zip(services, SERVICES.values()):
        bench.path(pid_file).write_text(f"{service.pid}\n")
    return services


def refreshed(autoipd, avahi):
    return [notified("avahi-autoipd", autoipd.pid), notified("avahi-daemon", avahi.pid)]


def send(bench, *payloads):
    res = bench.ns_run([PYTHON, HELPERS / "mcast_send.py"] + [p.hex() for p in payloads])
    assert res.rc == 0, res.err


def daemon_pid(bench):
    pid_file = bench.path(DAEMON_PID_FILE)
    assert wait_for(lambda: pid_file.exists() and pid_file.read_text().endswith("\n"))
    return int(pid_file.read_text())


def start_daemon(bench, scale=20):
    # Starts the daemon; returns (parent's result, daemon pid) once the
    # refresh that the loop-back of its start-up batch brings is over. The
    # batch's sleeps leave the receive thread time to read each datagram.
    bench.timescale(scale)
    res = bench.run([], argv0="switch_daemon")
    pid = daemon_pid(bench)
    assert wait_for(lambda: any("avahi-daemon" in text or (level, text) == IGNORING_SIGNAL
                                for level, text in logs(bench, pid)), timeout=60), logs(bench, pid)
    return res, pid


@pytest.fixture
def net(bench):
    bench.net_up()
    return bench


# -- start-up, link changes, early ends ----------------------------------------------


def test_start_up_link_changes_and_the_suppression_file(net, tmp_path):
    listener = Helper(net, tmp_path / "datagrams", "python3", HELPERS / "mcast_listen.py")
    autoipd, avahi = start_services(net, tmp_path)
    suppression = net.path("/tmp/zorvi/control/nfs_up/disable_avahi_refresh")
    suppression.write_text("")
    res, pid = start_daemon(net)
    assert (res.rc, res.out, res.err) == (0, RUNNING, "")
    # The parent: the chip id, the status line's reads, then its descriptor.
    assert timeline(net, net.xfer_events()[0].pid) == seen(net, [("R", 0, 0x95), ("R", 0, 0x95), ("R", 46, 32),
                                                                 ("R", 62, 32), ("close", SPIDEV)])
    start = seen(net, [("R", 0, 0x95), ("usleep", 3000000), ("log", INFO, "Multicast Rx Server UP"),
                       ("log", INFO, "Multicast Tx Client UP"), ("R", 46, 32), ("R", 62, 32),
                       ("log",) + BROADCASTING])
    assert timeline(net, pid)[:len(start)] == start
    # The start-up batch goes out all the same and comes back: the first
    # reading is no change, and the refresh is skipped.
    assert main_thread_logs(net, pid)[3:] == [IGNORING_SIGNAL]
    assert listener.got(f"1 {DATAGRAM.hex()}", 3)  # sent with hop limit 1
    # A second daemon refuses to start.
    res = net.run([], argv0="/usr/sbin/switch_daemon")
    assert (res.rc, res.out) == (0, f"running as daemon\n Oops daemon is already running with PID {pid}\n")
    # A change is logged, not announced.
    net.clear_events()
    net.timescale(4)
    net.link(2, False)
    wait_polls(net, pid, 10)
    assert logs(net, pid) == [state_text(True, False), (INFO, "Ignoring event. Avahi Refresh Disabled.")]
    # Neither the skipped refresh nor the change, which counts as seen, comes
    # back once the file is gone.
    suppression.unlink()
    wait_polls(net, pid, 10)
    assert len(logs(net, pid)) == 2 and autoipd.got("SIGHUP", 0) and avahi.got("SIGUSR2", 0)
    net.link(2, True)
    wait_log(net, pid, notified("avahi-daemon", avahi.pid))
    assert autoipd.got("SIGHUP", 1) and avahi.got("SIGUSR2", 1)
    if net.sees_calls:
        # The broadcasting pass sleeps through the batch, then 500 µs, then
        # polls; its own datagrams are consumed in that pass, and the refresh
        # comes five polls after the batch. Only when the receive thread
        # logged the last of them after the 500 µs sleep (the step before the
        # pass looks at the flag) may the flag have waited for the next pass,
        # and six polls are right.
        tl = timeline(net, pid)
        sleeps = [t[1] for t in tl if t[0] == "usleep"]
        first = sleeps.index(BATCH_US)
        assert set(sleeps[:first]) == {POLL_US} and sleeps[first:first + 5] == [BATCH_US] * 3 + [500, POLL_US]
        after = tl.index(("usleep", 500))
        refresh = tl.index(("log",) + notified("avahi-autoipd", autoipd.pid))
        polls = tl[after:refresh].count(("usleep", POLL_US))
        assert polls == 5 or (polls == 6 and ("log",) + RECEIVED in tl[after:refresh]), tl[after:]
    # A failed send ends the batch, with no wait; the loop goes on.
    assert net.ns_run(["ip", "-6", "route", "del", "ff01::/16", "dev", "lo"]).rc == 0
    net.clear_events()
    net.link(2, False)
    wait_polls(net, pid, 10)
    assert main_thread_logs(net, pid) == [state_text(True, False), BROADCASTING,
                                          (ERR, "sendto() sent a different number of bytes than expected\n")]
    assert not net.sees_calls or (BATCH_US not in net.sleeps(pid) and 500 in net.sleeps(pid))


# One attempt at managed mode (the NOR board's chip takes no pulse). The parent's
# exit status is that of the SPI speed set-up, on every way out.
@pytest.mark.parametrize("board, fault, rc, managed", [
    ("nand", "wr-speed", 255, True), ("nand", "gpio-stuck", 0, False), ("nor", None, 0, False)])
def test_unmanaged_chip_gets_one_attempt(request, board, fault, rc, managed):
    bench = request.getfixturevalue({"nand": "bench", "nor": "bench_nor"}[board])
    bench.net_up()
    bench.managed(0)
    if fault:
        bench.fault(fault)
    res = bench.run([], argv0="switch_daemon")
    tl = timeline(bench, bench.xfer_events()[0].pid)
    pulse = MANAGED_MODE if board == "nand" else []
    expected = [("R", 0, 0xFF)] + pulse + [("usleep", 500)] + [("R", 0, 0x95 if managed else 0xFF)] * (1 + managed)
    assert [t for t in tl if t[0] in ("usleep", "level") or t[:2] in (("R", 0), ("W", 1))] == seen(bench, expected)
    assert (res.rc, res.out) == (rc, RUNNING if managed else
                                 "running as daemon\n Oops could not put switch in managed mode\n")


@pytest.mark.parametrize("network, first_error", [
    ("chip-lost", None), ("none", "setsockopt() failed\n"), ("port-taken", "bind() failed\n")])
def test_daemon_ends_after_detaching(bench, tmp_path, network, first_error):
    if network == "chip-lost":
        # The parent makes four transfers (chip id, status line); the child's
        # own chip id read is the fifth.
        bench.fault("xfer-from", 5)
    elif network == "port-taken":  # a socket on the port without address reuse
        bench.net_up()
        code = "import socket,sys,time\ns=socket.socket(socket.AF_INET6,socket.SOCK_DGRAM)\n" \
               "s.bind(('::',4873))\nopen(sys.argv[1],'w').write('ready\\n')\ntime.sleep(600)\n"
        Helper(bench, tmp_path / "port.ready", "python3", "-c", code)
    res = bench.run([], argv0="switch_daemon")
    out = RUNNING + (" Oops switch is not in managed mode\n" if network == "chip-lost" else "")
    assert res.rc == 0 and wait_for(lambda: res.refresh().out == out), res
    child = daemon_pid(bench)
    # Its last act is closing the device.
    assert not bench.sees_calls or wait_for(lambda: timeline(bench, child)[-1:] == [("close", SPIDEV)])
    assert wait_for(lambda: bench.ns_pids("switch_daemon") == [])
    # In the VM the syslog receiver may still hold the last lines.
    expected = [] if first_error is None else [(ERR, first_error), (ERR, "Error while getting server up\n"),
                                                (ERR, "Could not startup IPv6 multicast daemon.")]
    assert wait_for(lambda: logs(bench, child) == expected), logs(bench, child)
    assert bench.sleeps(child) == ([] if first_error is None or not bench.sees_calls else [3000000])


# -- notifications and the refresh of the address services ----------------------------


# Each case ends with a notification, so the receive thread is shown to go on;
# three of the datagrams are taken as notifications, which give one refresh,
# in the fifth pass after the one that consumed the last. Sent while the loop
# is held, the pass that consumes them is known: held after the pass had looked
# at the flag (in its sleep, or before the next pass's guard read), the refresh
# comes in the sixth pass after the mark, else in the fifth. `spaced`: the
# datagrams come a few passes apart, as another daemon's batch does. A short
# datagram after a long one must not borrow its tail. The pid files of the
# services (`texts`) that name no live process (empty so 0, a pid no process
# has, one past the range of pid_t whose low 32 bits name the service) fail for
# their service alone; "{pid}" is the service's own pid. A missing one fails
# when no service runs (the guard's test).
@pytest.mark.parametrize("payloads, spaced, texts", [
    ([DATAGRAM, DATAGRAM], True, ("", "30000\n")),
    ([b"", b"switch_daemonXY", b"switch_daemon", DATAGRAM + b"and more than fifteen", b"swi"], False,
     ("{pid}\n", "{past_int}\n"))])
def test_notification_refreshes_five_polls_later(net, tmp_path, payloads, spaced, texts):
    expected = []
    for service, (name, path), text in zip(start_services(net, tmp_path), SERVICES.items(), texts):
        net.path(path).write_text(text.format(pid=service.pid, past_int=2**32 + service.pid))
        expected.append(notified(name, service.pid) if text == "{pid}\n" else (ERR, f"Could not notify {name}"))
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(4)
    for payload in payloads if spaced else []:
        send_held(net, pid, [payload], 1)
        wait_polls(net, pid, 2)
    burst = ([] if spaced else payloads) + [DATAGRAM]
    # On the preload bench the receive thread waits for the lock after the
    # first notification; the others it reads once the loop goes on.
    exact = len(burst) == 1 or not net.sees_calls
    send_held(net, pid, burst, len(burst) if exact else 1)
    wait_log(net, pid, expected[1])
    wait_polls(net, pid, 2)
    assert main_thread_logs(net, pid) == expected
    tl = timeline(net, pid)
    refresh = tl.index(("log",) + expected[0])
    assert refresh > max(i for i, t in enumerate(tl) if t == ("log",) + RECEIVED)
    assert logs(net, pid).count(RECEIVED) == 3
    if exact:
        tl = [t for t in tl[:refresh] if t != ("log",) + RECEIVED]
        mark = len(tl) - 1 - tl[::-1].index(("mark",))
        polls = sum(map(is_poll, tl[mark + 1:]))
        assert polls == (6 if tl[mark + 1] == ("usleep", POLL_US) or is_poll(tl[mark + 1]) else 5), tl[mark:]


# -- the guard on register 1 -----------------------------------------------------------


def test_guard_acts_on_the_fifth_bad_read(net):
    _, pid = start_daemon(net)
    net.clear_events()
    net.timescale(4)

    # Four bad reads (or more), each between good ones, count towards the
    # fifth. A pass that read before a poke has logged its read by then.
    for value in (0x51, 0x61) * 4:
        net.poke(1, value)
        wait_polls(net, pid, 1)
    # From now on every read is bad: a reset on every fifth, and a
    # notification still leads to its refresh.
    net.poke(1, 0x51)
    send(net, DATAGRAM)
    wait_log(net, pid, NOBODY[1])
    wait_polls(net, pid, 7)
    tl = [t for t in timeline(net, pid) if t != ("log",) + RECEIVED]
    bad = [i for i, t in enumerate(tl) if is_poll(t) and t[2] & 0xF0 != 0x60]
    resets = [i for i, t in enumerate(tl)
              if t == ("log", ERR, "SWITCH INIT ERROR: PORT 4 IS ALLWAYS RMII. Switch reset to default managed.")]
    assert resets == [bad[k] + 1 for k in range(4, len(bad), 5) if bad[k] + 1 < len(tl)] and len(resets) >= 2
    # Managed mode, up to the next guard read (a good one when the first reset
    # came while the test still alternated the values).
    end = next(i for i in range(resets[0] + 1, len(tl)) if is_poll(tl[i]))
    steps = [t for t in tl[resets[0] + 1:end] if t[0] not in ("log", "close")]
    assert steps == seen(net, MANAGED_MODE + [("usleep", POLL_US)])
    # A bad guard leaves the link registers alone: the next transfer is a
    # reset's write or the next guard read.
    assert all(next((t[1] for t in tl[i + 1:] if t[0] in ("R", "W")), 1) == 1 for i in bad)
