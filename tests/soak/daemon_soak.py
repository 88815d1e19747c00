#!/usr/bin/python3
"""Soak run of the link monitor daemon on the test bench.

Runs one daemon for at least --passes monitor passes (scaled time) while the
bench throws random link flaps, bad guard reads, failing SPI transfers and
bursts of datagrams (notifications, other content, empty and oversized ones)
at it. Between rounds of that it heals the board, switches the event log on,
makes one link change that stays and checks that the daemon logs it, and
samples the daemon's resident memory (VmRSS) and open descriptors. It fails
when the daemon dies, when a change goes unlogged, or when memory or
descriptors do not stay flat.

    sudo /usr/bin/python3 tests/soak/daemon_soak.py --passes 100000
    sudo /usr/bin/python3 tests/soak/daemon_soak.py --passes 2000      # briefly

SWITCH_BUILD_DIR picks the build to run; with build-asan the sanitizers watch
the run too (their quarantine makes VmRSS grow there, so only the descriptors
are held flat). Needs root, like the end-to-end tests. Not part of the pytest
run.
"""

import argparse
import random
import struct
import sys
import tempfile
import time
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPO / "testbench"))

from bench import SWITCH_CONFIG, Bench, wait_for  # noqa: E402

HELPERS = REPO / "tests" / "e2e" / "helpers"
PYTHON = "/usr/bin/python3"
DAEMON_PID_FILE = "/var/run/switch_daemon.pid"
AUTOIPD_PID_FILE = "/var/run/avahi-autoipd.eth0.pid"
AVAHI_PID_FILE = "/var/run/avahi-daemon/pid"
POLL_US = 200000
GUARD_REG, GUARD_GOOD, GUARD_BAD = 1, 0x61, 0x51
STATE_TEXT = {
    (False, False): "port1_link DOWN port2_link DOWN",
    (True, False): "port1_link UP port2_link DOWN",
    (False, True): "port1_link DOWN port2_link UP",
    (True, True): "port1_link UP port2_link UP",
}

# Reads "COUNT" lines on stdin and sends COUNT datagrams of mixed content to
# the notification group for each.
BURST_SENDER = r"""
import random, socket, sys
s = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 1)
kinds = [b"switch_daemon\0", b"", b"switch_daemon\0" + b"x" * 40, b"swi", b"junk" * 100,
         b"switch_daemon", b"switch_daemonXY"]
for line in sys.stdin:
    for _ in range(int(line)):
        s.sendto(random.choice(kinds), ("ff01::1", 4873))
"""


class Soak:
    def __init__(self, bench, args, rng):
        self.bench = bench
        self.args = args
        self.rng = rng
        self.links = [True, True]
        self.pid = None
        self.sender = None
        self.samples = []  # (passes, rss_kb, fds)
        self.changes_checked = 0
        self.actions = {"link flaps": 0, "guard failures": 0, "spi faults": 0, "datagrams": 0}
        self.start_xfers = 0

    # -- the board -----------------------------------------------------------

    def transfers(self):
        """The bench's count of SPI transfers since the sandbox was made: the
        last field of the chip state, whose own size is its third field."""
        data = (self.bench.sb / "state").read_bytes()
        magic, _version, size = struct.unpack_from("<III", data, 0)
        if magic != 0x5A42454E or size > len(data):
            raise SystemExit("unknown bench state layout")
        return struct.unpack_from("<Q", data, size - 8)[0]

    def passes(self):
        # A pass makes three transfers at most (one with a bad guard), so
        # this is a lower bound.
        return (self.transfers() - self.start_xfers) // 3

    def set_link(self, port, up):
        self.links[port - 1] = up
        self.bench.link(port, up)

    def heal(self):
        self.bench.clear_faults()
        self.bench.poke(GUARD_REG, GUARD_GOOD)

    # -- the daemon ----------------------------------------------------------

    def start(self):
        b = self.bench
        b.net_up()
        for name, path in (("avahi-autoipd", AUTOIPD_PID_FILE), ("avahi-daemon", AVAHI_PID_FILE)):
            out = Path(self.args.workdir) / f"{name}.signals"
            rec = b.spawn([HELPERS / "signal_recorder.py", out], argv0=name, prog=PYTHON)
            wait_for(lambda: out.exists(), timeout=10)
            b.path(path).write_text(f"{rec.nspid}\n")
        # From a file: a command line with a line break and the daemon's name
        # in it would pass for a running daemon in the process scan.
        sender = Path(self.args.workdir) / "burst_sender.py"
        sender.write_text(BURST_SENDER)
        self.sender = b.spawn([sender], argv0="python3", prog=PYTHON, stdin=-1)
        b.timescale(self.args.scale)
        res = b.run([], argv0="switch_daemon")
        if res.rc != 0 or not res.out.startswith("running as daemon\n"):
            raise SystemExit(f"daemon did not start: {res!r}")
        pid_file = b.path(DAEMON_PID_FILE)
        if not wait_for(lambda: pid_file.exists() and pid_file.read_text().endswith("\n"), timeout=10):
            raise SystemExit(f"no pid file: {res.refresh()!r} {b.syslog()!r}")
        self.pid = int(pid_file.read_text())
        self.start_xfers = self.transfers()

    def alive(self):
        return self.pid in self.bench.ns_pids("switch_daemon")

    def sample(self):
        status = self.bench.ns_run(["cat", f"/proc/{self.pid}/status"])
        fds = self.bench.ns_run(["ls", f"/proc/{self.pid}/fd"])
        if status.rc != 0 or fds.rc != 0:
            raise SystemExit(f"daemon {self.pid} is gone")
        rss = next(int(line.split()[1]) for line in status.out.splitlines() if line.startswith("VmRSS:"))
        self.samples.append((self.passes(), rss, len(fds.out.split())))

    # -- one round of trouble --------------------------------------------------

    def chaos(self, seconds):
        b = self.bench
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            what = self.rng.random()
            if what < 0.35:
                self.set_link(self.rng.choice((1, 2)), self.rng.random() < 0.5)
                self.actions["link flaps"] += 1
            elif what < 0.55:
                b.poke(GUARD_REG, GUARD_BAD)
                time.sleep(self.rng.uniform(0, 0.01))
                b.poke(GUARD_REG, GUARD_GOOD)
                self.actions["guard failures"] += 1
            elif what < 0.70:
                b.fault("xfer")
                time.sleep(self.rng.uniform(0, 0.01))
                b.clear_faults()
                self.actions["spi faults"] += 1
            else:
                count = self.rng.randint(1, 50)
                self.actions["datagrams"] += count
                self.sender.popen.stdin.write(f"{count}\n".encode())
                self.sender.popen.stdin.flush()
            time.sleep(self.rng.uniform(0, 0.005))

    # -- one checked change ------------------------------------------------------

    def states_logged(self):
        return [m for level, m in self.bench.syslog() if level == 6 and m in STATE_TEXT.values()]

    def polls(self):
        return self.bench.sleeps(self.pid).count(POLL_US)

    def check_change(self):
        """After a healed board has made a full pass, a change that stays is
        logged once, and nothing else is."""
        b = self.bench
        self.heal()
        b.clear_events()
        b.log(True)
        try:
            if not wait_for(lambda: self.polls() >= 2, timeout=30):
                raise SystemExit("the monitor loop stalls")
            before = len(self.states_logged())
            port = self.rng.choice((1, 2))
            self.set_link(port, not self.links[port - 1])
            expected = STATE_TEXT[tuple(self.links)]
            start = self.polls()
            if not wait_for(lambda: len(self.states_logged()) > before, timeout=30):
                raise SystemExit(f"change to {expected!r} not logged")
            wait_for(lambda: self.polls() >= start + 3, timeout=30)
            new = self.states_logged()[before:]
            if new != [expected]:
                raise SystemExit(f"logged {new!r} for the change to {expected!r}")
            self.changes_checked += 1
        finally:
            b.log(False)
            b.clear_events()

    # -- the run --------------------------------------------------------------------

    def run(self):
        self.start()
        self.bench.log(False)
        self.bench.clear_events()
        rounds = 0
        while True:
            self.chaos(self.args.round_seconds)
            if not self.alive():
                raise SystemExit("the daemon died")
            for _ in range(self.args.checks):
                self.check_change()
            self.sample()
            rounds += 1
            p = self.samples[-1][0]
            print(f"round {rounds}: {p} passes, VmRSS {self.samples[-1][1]} kB, "
                  f"{self.samples[-1][2]} descriptors", flush=True)
            if p >= self.args.passes and rounds >= 3:
                break
        self.verify(rounds)

    def verify(self, rounds):
        # The first round warms up (stdio buffers, the thread's stack, the
        # resolver); from then on nothing may grow.
        steady = self.samples[1:]
        rss = [s[1] for s in steady]
        fds = {s[2] for s in steady}
        print(f"{rounds} rounds, {self.samples[-1][0]} passes at least, "
              f"{self.changes_checked} changes checked; VmRSS {min(rss)}..{max(rss)} kB, "
              f"descriptors {sorted(fds)}")
        print("trouble made: " + ", ".join(f"{n} {what}" for what, n in self.actions.items()))
        signals = {
            name: len((Path(self.args.workdir) / f"{name}.signals").read_text().splitlines()) - 1
            for name in ("avahi-autoipd", "avahi-daemon")
        }
        print(f"signals received by the services: {signals}")
        if not all(signals.values()):
            raise SystemExit("no refresh reached the services")
        if max(rss) - min(rss) > self.args.rss_slack_kb:
            if b"__asan_init" in SWITCH_CONFIG.read_bytes():
                # AddressSanitizer keeps freed blocks in its quarantine, so
                # its resident memory grows without a leak.
                print(f"VmRSS spread {max(rss) - min(rss)} kB ignored in a sanitizer build")
            else:
                raise SystemExit(f"resident memory grows: {rss}")
        if len(fds) != 1:
            raise SystemExit(f"descriptor count changes: {[s[2] for s in steady]}")
        for path in Path(self.bench.tmp).glob("run-*.err"):
            text = path.read_text(errors="replace")
            if "Sanitizer" in text or "runtime error" in text:
                raise SystemExit(f"sanitizer report in {path}:\n{text[:2000]}")
        print("soak passed")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--passes", type=int, default=100000, help="monitor passes at least")
    parser.add_argument("--scale", type=int, default=1000, help="time scale: usleep(us) sleeps us/scale")
    parser.add_argument("--round-seconds", type=float, default=3.0, help="length of one round of trouble")
    parser.add_argument("--rss-slack-kb", type=int, default=64, help="allowed VmRSS spread after warm-up")
    parser.add_argument("--checks", type=int, default=3, help="checked link changes per round")
    parser.add_argument("--seed", type=int, default=None)
    args = parser.parse_args()
    seed = args.seed if args.seed is not None else random.randrange(1 << 30)
    print(f"seed {seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="daemon-soak-") as workdir:
        args.workdir = workdir
        bench = Bench(workdir)
        try:
            Soak(bench, args, random.Random(seed)).run()
        finally:
            bench.close()


if __name__ == "__main__":
    main()
