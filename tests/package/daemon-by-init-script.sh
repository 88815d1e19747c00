#!/bin/sh
# The guest's part of the package test in the VM bench (tests/package/
# test_deb.py boots a Debian root with the package installed): the simulated
# chip behind the kernel's spidev and GPIO, then the package's init script
# starts the daemon, a link change is made, and the init script stops the
# daemon (the script's other actions are the install tests'). It prints what
# it saw; the test compares.
#   daemon-by-init-script.sh BENCH_DIR MODULE
set -u
bench=$1
sb=/tmp/sandbox
# until_true SECONDS SCRIPT: runs the shell script every tenth of a second
# until it succeeds, for at most SECONDS.
until_true() { timeout "$1" sh -c "until $2; do sleep 0.1; done"; }

"$bench/benchctl" -s "$sb" init --board nand >/dev/null || exit 2
insmod "$2" || exit 2
"$bench/chip_server" "$sb" /tmp/ready &
until_true 20 "test -e /tmp/ready" || exit 2
# The board's cpuinfo over the VM's own, and the chip server's syslog socket
# at /dev/log; the multicast group's route on the loopback interface.
mount --bind "$sb/proc/cpuinfo" /proc/cpuinfo || exit 2
: >/dev/log && mount --bind "$sb/log" /dev/log || exit 2
ip -6 route add ff01::/16 dev lo || exit 2

echo "== start"
/etc/init.d/switch_daemon start
echo "exit $?"
pid=$(cat /var/run/switch_daemon.pid) || exit 1
echo "pid file $(stat -c '%a %U:%G' /var/run/switch_daemon.pid), exe $(readlink "/proc/$pid/exe")"
# The monitor loop starts three seconds after the detach, with the start-up
# announcement; a cable pulled after that is a change it logs.
logged() { until_true 30 "grep -q '^syslog $pid 6 $1\$' $sb/events"; }
logged "Broadcasting interface status change message" || echo "no start-up announcement"
"$bench/benchctl" -s "$sb" link 1 down
logged "port1_link DOWN port2_link UP" || echo "no link change logged"
echo "== stop"
/etc/init.d/switch_daemon stop
echo "exit $?"
! kill -0 "$pid" 2>/dev/null || echo "pid $pid still there"
