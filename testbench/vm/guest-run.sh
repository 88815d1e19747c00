#!/bin/sh
# PID 1 of the VM bench: sets up the guest and runs the job that
# testbench/vm/boot.sh put into /run/zorvi-job (its working directory in
# "cwd", its shell command in "command"), with its output on the console,
# then writes the exit status to "status" and powers the VM off.
job=/run/zorvi-job
export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LANG=C.UTF-8
hostname zorvi-vm
mkdir -p /dev/pts /dev/shm
mount -t devpts -o ptmxmode=0666 devpts /dev/pts
mount -t tmpfs -o mode=1777 shm /dev/shm
ip link set lo up
stty -F /dev/console -onlcr raw -echo 2>/dev/null
echo "zorvi-vm: guest up" >/dev/console
status=1
if cd "$(cat "$job/cwd")"; then
    sh "$job/command" >/dev/console 2>&1 </dev/null
    status=$?
fi
echo "$status" >"$job/status"
sync
# The power-off takes the root away, so PID 1 waits in the shell itself, with
# nothing left to load: opening a FIFO that no one writes blocks for ever.
mkfifo /dev/shm/zorvi-off
echo o >/proc/sysrq-trigger
read -r _ </dev/shm/zorvi-off
