# The firewall rules shipped for the daemon's notification port, in front of
# the daemon on the simulated board. The board's network namespace has eth0 on a
# veth pair; the other end lies in a namespace of its own, a host on the wire.

import re
import shutil

import pytest

from test_daemon import (BROADCASTING, DATAGRAM, HELPERS, PYTHON, RECEIVED, logs, main_thread_logs, notified,
                         refreshed, start_daemon, start_services, state_text, wait_log, wait_polls)

from bench import REPO

RULES = REPO / "packaging/firewall"

# The board's eth0 and the peer's end of the wire, each with an IPv6 and an
# IPv4 address; /run is the sandbox's, for `ip netns` and the xtables lock.
WIRE = r"""
set -e
mount --bind "$1" /run
ip link add eth0 type veth peer name peer0
ip netns add peer
ip link set peer0 netns peer
ip addr add fd5a::1/64 dev eth0 nodad
ip addr add 192.0.2.1/24 dev eth0
ip link set eth0 up
ip -n peer addr add fd5a::2/64 dev peer0 nodad
ip -n peer addr add 192.0.2.2/24 dev peer0
ip -n peer link set peer0 up
"""

# What a host on the wire can send the board's port: IPv6 and IPv4 unicast,
# and the link's all-nodes group, which the board has joined.
REMOTE = ["fd5a::1", "192.0.2.1", "ff02::1%peer0"]


# name: (commands that load the rules, commands that list them with their
# counters). The xtables backends load and list the ip6tables and the
# iptables rules.
FIREWALLS = {
    "nft": ([["nft", "-f", RULES / "switch_daemon.nft"]], [["nft", "list", "table", "inet", "switch_daemon"]]),
    **{f"iptables-{backend}": ([[f"{ip}tables-{backend}-restore", "--noflush", RULES / f"switch_daemon.{ip}tables"]
                                for ip in ["ip6", "ip"]],
                               [[f"{ip}tables-{backend}", "-L", "INPUT", "-v", "-x", "-n"] for ip in ["ip6", "ip"]])
       for backend in ["nft", "legacy"]},
}


@pytest.mark.parametrize("firewall", [None, "nft", "iptables-nft", "iptables-legacy"])
def test_firewall_keeps_out_all_but_the_boards_own_notifications(bench, tmp_path, firewall):
    if firewall and shutil.which(FIREWALLS[firewall][0][0][0]) is None:
        pytest.skip(f"{firewall} is not installed: tools/install-deps.sh")
    bench.net_up(route=False)  # eth0 carries the group, as on the board
    res = bench.ns_run(["sh", "-c", WIRE, "sh", bench.path("/var/run")])
    assert res.rc == 0, res.err
    for cmd in FIREWALLS[firewall][0] if firewall else []:
        res = bench.ns_run(cmd)
        assert (res.rc, res.err) == (0, ""), cmd
    autoipd, avahi = start_services(bench, tmp_path)
    _, pid = start_daemon(bench)

    for target in REMOTE:
        bench.clear_events()
        res = bench.ns_run(["ip", "netns", "exec", "peer", PYTHON, HELPERS / "mcast_send.py", "--to", target,
                            DATAGRAM.hex()])
        assert res.rc == 0, res.err
        if firewall is None:
            wait_log(bench, pid, notified("avahi-daemon", avahi.pid))
            assert logs(bench, pid) == [RECEIVED] + refreshed(autoipd, avahi), target
        else:
            wait_polls(bench, pid, 10)
            assert logs(bench, pid) == [], target
    if firewall is not None:
        # How many datagrams each drop rule took, IPv6 first.
        out = "".join(bench.ns_run(cmd).out for cmd in FIREWALLS[firewall][1])
        counts = [int(n) for n in re.findall(r"counter packets (\d+) bytes \d+ drop", out)]
        assert counts + [int(line.split()[0]) for line in out.splitlines() if " DROP " in line] == [2, 1]

    # The board's own announcement of a link change is received and refreshes.
    bench.clear_events()
    bench.link(1, False)
    wait_log(bench, pid, notified("avahi-daemon", avahi.pid))
    assert main_thread_logs(bench, pid) == [state_text(False, True), BROADCASTING] + refreshed(autoipd, avahi)
    assert logs(bench, pid).count(RECEIVED) == 3
    # Refreshed at the start-up, by each datagram let in and by the link change.
    refreshes = 2 if firewall else 2 + len(REMOTE)
    assert autoipd.got("SIGHUP", refreshes) and avahi.got("SIGUSR2", refreshes)
