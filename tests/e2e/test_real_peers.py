# The daemon among the real services it talks to, from Debian's packages: a
# syslog receiver at /dev/log (BusyBox syslogd), avahi-autoipd on the board's
# eth0 and avahi-daemon without D-Bus. The chip is the bench's; everything runs in the test's own PID, mount
# and network namespaces, with a /dev and a /run of their own, so that nothing
# reaches the host.

import re
import shutil
import signal

import pytest

from test_daemon import BROADCASTING, ERR, INFO, RECEIVED, RUNNING, daemon_pid, notified, state_text

from bench import VM, wait_for

MISSING = [p for p in ["avahi-daemon", "avahi-autoipd", "busybox"] if shutil.which(p) is None]
pytestmark = pytest.mark.skipif(bool(MISSING), reason=f"not installed: {' '.join(MISSING)}: tools/install-deps.sh")

# A /dev of the namespace's own (a tmpfs with the host's basic devices, and
# in the VM the SPI device, bound into it), so that the syslog receiver's
# /dev/log is the test's; /run is the board's /var/run, where the product's
# pid files go and where the avahi services write theirs; eth0 is one end of
# a veth pair.
NAMESPACE_SETUP = r"""
set -e
tmp=$1 run=$2 nodes=$3
mkdir "$tmp/dev"
mount -t tmpfs -o mode=0755 boarddev "$tmp/dev"
for node in $nodes; do
    touch "$tmp/dev/$node"
    mount --bind "/dev/$node" "$tmp/dev/$node"
done
mount --move "$tmp/dev" /dev
mount --bind "$run" /run
ip link add eth0 type veth peer name eth0-peer
ip link set eth0 up
ip link set eth0-peer up
"""

# BusyBox syslogd's line: date, host, facility.level, tag[pid]: message
SYSLOG_LINE = re.compile(r"^\w{3} [ \d]\d \d\d:\d\d:\d\d \S+ (\w+)\.(\w+) (\S+?)\[(\d+)\]: (.*)$")
LEVELS = {"err": ERR, "info": INFO}


class Board:
    # The simulated board with the real peers running beside the daemon: the
    # syslog receiver, avahi-autoipd (some ten seconds, in which eth0's IPv6
    # address becomes usable too) and avahi-daemon.

    def __init__(self, bench, tmp_path):
        self.bench = bench
        # No route for the group on lo: eth0 carries it, as on the board.
        bench.net_up(route=False)
        # In the VM the chip is the kernel's spidev node, which the new /dev gets too.
        nodes = "null zero full random urandom tty" + (" spidev0.0" if VM else "")
        self.sh(NAMESPACE_SETUP, str(tmp_path), str(bench.path("/var/run")), nodes)
        self.syslog_path = tmp_path / "syslog"
        self.sh('busybox syslogd -n -O "$1" </dev/null >"$1.out" 2>&1 &', str(self.syslog_path))
        assert wait_for(lambda: bench.ns_run(["test", "-S", "/dev/log"]).rc == 0, timeout=10)
        # -w: back once it holds an address (probing takes some ten seconds).
        self.sh('avahi-autoipd -D -w --no-drop-root --no-chroot --force-bind eth0 '
                '</dev/null >"$1/autoipd.out" 2>&1', str(tmp_path), timeout=60)
        self.autoipd_pid = int(bench.path("/var/run/avahi-autoipd.eth0.pid").read_text())
        assert wait_for(self.autoipd_bound, timeout=10)
        (tmp_path / "avahi-daemon.conf").write_text("[server]\nenable-dbus=no\n")
        self.avahi_status = tmp_path / "avahi-daemon.status"
        # In the foreground under a shell that records how it ended.
        self.sh('(avahi-daemon -s --no-drop-root --no-chroot --no-rlimits -f "$1/avahi-daemon.conf"; '
                'echo $? >"$1/avahi-daemon.status") </dev/null >"$1/avahi-daemon.out" 2>&1 &', str(tmp_path))
        assert wait_for(lambda: re.search(r" avahi-daemon\[\d+\]: Server startup complete\.",
                                          self.syslog_path.read_text()), timeout=20)
        [self.avahi_pid] = bench.ns_pids("avahi-daemon")

    def sh(self, script, *args, timeout=30):
        # A plain shell script inside the test's namespaces.
        res = self.bench.ns_run(["sh", "-c", script, "sh", *args], timeout=timeout)
        assert res.rc == 0, res.err

    def messages(self, tag, pid):
        # (level, message) of each line received from the process, which logs
        # as a daemon.
        text = self.syslog_path.read_text(errors="replace") if self.syslog_path.exists() else ""
        lines = [m for m in map(SYSLOG_LINE.match, text.splitlines()) if m and (m[3], int(m[4])) == (tag, pid)]
        assert {m[1] for m in lines} <= {"daemon"}
        return [(LEVELS.get(m[2]), m[5]) for m in lines]

    def autoipd_bound(self):
        # avahi-autoipd holds its address and announces nothing (its process
        # title says "bound"): only then does SIGHUP make it announce again.
        return " bound " in self.bench.ns_run(["cat", f"/proc/{self.autoipd_pid}/cmdline"]).out

    def reannouncements(self):
        return [t for _, t in self.messages("avahi-autoipd(eth0)", self.autoipd_pid)].count("Reannouncing address.")


def test_daemon_with_real_syslog_multicast_and_avahi(bench, tmp_path, monkeypatch):
    # The product's syslog goes to the real /dev/log as well as to the bench's log.
    monkeypatch.setenv("ZORVI_REAL_SYSLOG", "1")
    board = Board(bench, tmp_path)
    # Not the daemon tests' start: in the VM its syslog reaches this /dev/log only.
    bench.timescale(20)
    res = bench.run([], argv0="switch_daemon")
    assert (res.rc, res.out, res.err) == (0, RUNNING, "")
    pid = daemon_pid(bench)

    def daemon_log():
        return board.messages("switch_daemon", pid)

    notified_autoipd = notified("avahi-autoipd", board.autoipd_pid)
    notified_avahi = notified("avahi-daemon", board.avahi_pid)

    # Start-up: the first announcement, looped back, ends in a refresh.
    assert wait_for(lambda: notified_avahi in daemon_log(), timeout=30), daemon_log()
    assert [m for m in daemon_log() if m != RECEIVED] == [
        (INFO, "Multicast Rx Server UP"), (INFO, "Multicast Tx Client UP"), BROADCASTING, notified_autoipd, notified_avahi]
    assert daemon_log().count(RECEIVED) == 3
    # avahi-autoipd announced its address again; stock avahi-daemon has no
    # handler for SIGUSR2, which ended it.
    assert wait_for(lambda: board.reannouncements() == 1, timeout=10)
    # The shell creates the file before it writes the status into it.
    assert wait_for(lambda: board.avahi_status.exists() and board.avahi_status.read_text().endswith("\n"), timeout=10)
    assert int(board.avahi_status.read_text()) == 128 + signal.SIGUSR2

    # A pulled cable: logged, announced, and refreshed again; avahi-daemon is
    # gone by now.
    assert wait_for(board.autoipd_bound, timeout=10)
    bench.link(1, False)
    not_notified = (ERR, "Could not notify avahi-daemon")
    assert wait_for(lambda: not_notified in daemon_log(), timeout=30), daemon_log()
    assert [m for m in daemon_log() if m != RECEIVED][5:] == [
        state_text(False, True), BROADCASTING, notified_autoipd, not_notified]
    assert wait_for(lambda: board.reannouncements() == 2, timeout=10)
