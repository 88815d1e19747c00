#!/usr/bin/python3
# Soak run of the link monitor daemon on the test bench.
#
# Runs one daemon for at least --passes monitor passes (scaled time) while the
# bench throws random link flaps, bad guard reads, failing SPI transfers and
# bursts of datagrams (notifications, other content, empty and oversized ones)
# at it. Between rounds of that it heals the board, switches the event log on,
# makes link changes that stay and checks that the daemon logs each once, and
# samples the daemon's resident memory (VmRSS) and open descriptors. It fails
# when the daemon dies, when a change goes unlogged, or when memory or
# descriptors do not stay flat.
#
#     sudo /usr/bin/python3 tests/soak/daemon_soak.py --passes 100000
#     sudo /usr/bin/python3 tests/soak/daemon_soak.py --passes 2000      # briefly
#
# SWITCH_BUILD_DIR picks the build to run; with build-asan the sanitizers watch
# the run too (their quarantine makes VmRSS grow there, so only the descriptors
# are held flat; a sanitizer report ends the daemon, which the next sample or
# check finds). Needs root, like the end-to-end tests. Not part of the pytest
# run.

import argparse
import random
import struct
import sys
import tempfile
import time
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPO / "testbench"), str(REPO / "tests/e2e")]

from bench import SWITCH_CONFIG, Bench  # noqa: E402
from test_daemon import (DATAGRAM, HELPERS, PYTHON, SERVICES, logs, start_daemon, start_services,  # noqa: E402
                         state_text, wait_polls)

CHECKS = 3  # link changes checked per round
RSS_SLACK_KB = 64  # VmRSS spread allowed after the first round
# What goes wrong for a moment: the bench commands that break it and heal it
# (a bad guard read of register 1, then a good one again).
MOMENTS = {"guard failures": (("poke", 1, 0x51), ("poke", 1, 0x61)),
           "spi faults": (("fault", "xfer"), ("fault", "clear"))}
# The datagrams of the bursts: notifications, other content, empty and
# oversized ones.
KINDS = [DATAGRAM, b"", DATAGRAM + b"x" * 40, b"swi", b"junk" * 100, b"switch_daemon", b"switch_daemonXY"]


# The bench's count of SPI transfers since the sandbox was made, from its chip
# state (layout version 5: the count, then the frame held selected, 12 bytes
# padded to 16, at the end).
def transfers(bench):
    data = (bench.sb / "state").read_bytes()
    magic, version, size = struct.unpack_from("<III", data, 0)
    if (magic, version) != (0x5A42454E, 5) or size > len(data):
        sys.exit("unknown bench state layout")
    return struct.unpack_from("<Q", data, size - 24)[0]


# One round of trouble: link flaps, a bad guard read or failing transfers for
# a moment, bursts of datagrams.
def chaos(bench, rng, links, sender, actions, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        what = rng.random()
        if what < 0.35:
            port = rng.choice((1, 2))
            links[port - 1] = rng.random() < 0.5
            bench.link(port, links[port - 1])
            actions["link flaps"] += 1
        elif what < 0.70:
            kind = "guard failures" if what < 0.55 else "spi faults"
            bench.ctl(*MOMENTS[kind][0])
            time.sleep(rng.uniform(0, 0.01))
            bench.ctl(*MOMENTS[kind][1])
            actions[kind] += 1
        else:
            count = rng.randint(1, 50)
            actions["datagrams"] += count
            sender.popen.stdin.write("".join(rng.choice(KINDS).hex() + "\n" for _ in range(count)).encode())
            sender.popen.stdin.flush()
        time.sleep(rng.uniform(0, 0.005))


# Each round of trouble ends with the board healed. After two passes, a change
# that stays is logged once, and nothing else is.
def check_change(bench, rng, links, pid):
    bench.log(True)
    wait_polls(bench, pid, 2)
    bench.clear_events()
    port = rng.choice((1, 2))
    links[port - 1] = not links[port - 1]
    bench.link(port, links[port - 1])
    # The first pass that begins after the change logs it.
    wait_polls(bench, pid, 3)
    changes = [line for line in logs(bench, pid) if line[1].startswith("port1_link ")]
    assert changes == [state_text(*links)], f"logged {changes!r} for the change to {links}"
    bench.log(False)


def soak(bench, args, rng, workdir):
    # The address services as signal recorders, the burst sender (which sends
    # a datagram for each line of hex on its stdin) and the daemon.
    bench.net_up()
    start_services(bench, workdir)
    sender = bench.spawn([HELPERS / "mcast_send.py"], argv0="python3", prog=PYTHON, stdin=-1)
    _, pid = start_daemon(bench, args.scale)
    start_xfers = transfers(bench)
    links = [True, True]
    actions = dict.fromkeys(["link flaps", *MOMENTS, "datagrams"], 0)
    bench.log(False)
    samples = []  # (passes, rss_kb, fds)
    while len(samples) < 3 or samples[-1][0] < args.passes:
        chaos(bench, rng, links, sender, actions, args.round_seconds)
        # The daemon's resident memory in kB and its open descriptors.
        res = bench.ns_run(["sh", "-c", f"grep VmRSS: /proc/{pid}/status && ls /proc/{pid}/fd | wc -l"])
        if res.rc != 0:
            sys.exit(f"daemon {pid} is gone")
        _, rss, _, fds = res.out.split()
        # A pass makes three transfers at most (one with a bad guard), so
        # this is a lower bound.
        samples.append(((transfers(bench) - start_xfers) // 3, int(rss), int(fds)))
        print("round {}: {} passes, VmRSS {} kB, {} descriptors".format(len(samples), *samples[-1]), flush=True)
        for _ in range(CHECKS):
            check_change(bench, rng, links, pid)

    # The first round warms up (stdio buffers, the thread's stack, the
    # resolver); from then on nothing may grow.
    _, rss, fds = zip(*samples[1:])
    print(f"{len(samples)} rounds, {samples[-1][0]} passes at least, {len(samples) * CHECKS} changes "
          f"checked; VmRSS {min(rss)}..{max(rss)} kB, descriptors {sorted(set(fds))}")
    print("trouble made: " + ", ".join(f"{n} {what}" for what, n in actions.items()))
    signals = {name: len((workdir / f"{name}.signals").read_text().splitlines()) - 1 for name in SERVICES}
    print(f"signals received by the services: {signals}")
    if not all(signals.values()):
        sys.exit("no refresh reached the services")
    # AddressSanitizer keeps freed blocks in its quarantine, so its resident
    # memory grows without a leak.
    if max(rss) - min(rss) > RSS_SLACK_KB and b"__asan_init" not in SWITCH_CONFIG.read_bytes():
        sys.exit(f"resident memory grows: {rss}")
    if len(set(fds)) != 1:
        sys.exit(f"descriptor count changes: {fds}")
    print("soak passed")


def main():
    parser = argparse.ArgumentParser(description="Soak run of the link monitor daemon on the test bench.")
    parser.add_argument("--passes", type=int, default=100000, help="monitor passes at least")
    parser.add_argument("--scale", type=int, default=1000, help="time scale: usleep(us) sleeps us/scale")
    parser.add_argument("--round-seconds", type=float, default=3.0, help="length of one round of trouble")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    args = parser.parse_args()
    print(f"seed {args.seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="daemon-soak-") as workdir:
        bench = Bench(workdir)
        try:
            soak(bench, args, random.Random(args.seed), Path(workdir))
        finally:
            bench.close()


if __name__ == "__main__":
    main()
