#!/bin/sh
# Runs a shell command as root in a virtual machine that boots Debian's kernel
# with the host's root filesystem (read-only, over virtio 9p):
#   testbench/vm/boot.sh [--arch x86_64|arm] [--kernel RELEASE] [--root DIR]
#                        [--accel auto|kvm|tcg] [--timeout SECONDS] [--] COMMAND
# COMMAND runs in the current directory (which must be visible in the root),
# its output comes on this script's standard output, and its exit status is
# this script's. A root other than / (a Debian root with a package installed,
# say) does not hold this tree: the tree comes read-only at /run/zorvi-tree,
# and COMMAND runs there, in the same directory of the tree. The kernel comes
# from testbench/vm/kernel.sh. With --accel auto (the default) KVM is tried
# when /dev/kvm is there, and the run falls back to TCG when the guest does
# not come up under KVM within a few seconds (nested KVM can be present and
# still hang or fail). The line "zorvi-vm: accel ..." on standard error tells
# which one ran. --arch arm boots Debian's 32-bit ARM kernel (armmp) on
# qemu's virt board, always under TCG; its root is an armhf root
# (testbench/vm/arm-root.sh), not the host's.
set -eu
here=$(cd "$(dirname "$0")" && pwd)

arch=x86_64
release=
root=/
accel=auto
timeout=3000
while [ $# -gt 0 ]; do
    case $1 in
        --arch) arch=$2; shift 2 ;;
        --kernel) release=$2; shift 2 ;;
        --root) root=$2; shift 2 ;;
        --accel) accel=$2; shift 2 ;;
        --timeout) timeout=$2; shift 2 ;;
        --) shift; break ;;
        -*) echo "boot.sh: unknown option $1" >&2; exit 2 ;;
        *) break ;;
    esac
done
if [ $# -eq 0 ]; then
    echo "usage: boot.sh [--arch x86_64|arm] [--kernel RELEASE] [--root DIR] [--accel auto|kvm|tcg] [--timeout S] [--] COMMAND" >&2
    exit 2
fi
# The machine of each architecture: qemu, its board, its CPU under TCG, the
# kernel's console, the virtio transport of the 9p shares. The armmp kernel
# has no LPAE: the virt board keeps its devices below 4 GiB.
case $arch in
    x86_64) qemu=qemu-system-x86_64 machine=pc cpu=max console=ttyS0 p9dev=virtio-9p-pci ;;
    arm) qemu=qemu-system-arm machine=virt,highmem=off cpu=cortex-a15 console=ttyAMA0 p9dev=virtio-9p-device ;;
    *) echo "boot.sh: no machine for the architecture $arch" >&2; exit 2 ;;
esac
# shellcheck disable=SC2086
kernel=$("$here/kernel.sh" --arch "$arch" $release)
release=$(basename "$kernel")
initrd=$kernel/initrd-$(cat "$here/initramfs-init" "$here/kernel.sh" | md5sum | cut -c1-16).img

job=$(mktemp -d /tmp/zorvi-vm.XXXXXX)
qemu_pid=
# shellcheck disable=SC2317 # called by the trap
cleanup() {
    [ -z "$qemu_pid" ] || kill "$qemu_pid" 2>/dev/null || true
    rm -rf "$job"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
p9="local,security_model=none,multidevs=remap"
tree=$(cd "$here/../.." && pwd)
guest=$here/guest-run.sh
cwd=$(pwd)
share_tree=
if [ "$root" != / ]; then
    guest=/run/zorvi-tree/testbench/vm/guest-run.sh
    case $cwd/ in
        "$tree"/*) cwd=/run/zorvi-tree${cwd#"$tree"} ;;
        *) cwd=/run/zorvi-tree ;;
    esac
    share_tree="-fsdev $p9,id=tree,path=$tree,readonly=on -device $p9dev,fsdev=tree,mount_tag=tree"
fi
echo "$cwd" >"$job/cwd"
printf '%s\n' "$*" >"$job/command"

# boot ACCEL...: starts qemu in the background, its console in $job/console.
boot() {
    : >"$job/console"
    # shellcheck disable=SC2086 # $share_tree is options, or nothing
    $qemu -machine $machine "$@" -m 2048 -smp 1 -nodefaults -no-user-config -no-reboot \
        -display none -serial "file:$job/console" \
        -kernel "$kernel/vmlinuz" -initrd "$initrd" \
        -append "console=$console loglevel=1 panic=-1 zorvi_guest=$guest${share_tree:+ zorvi_tree=/run/zorvi-tree}" \
        -fsdev "$p9,id=root,path=$root,readonly=on" -device $p9dev,fsdev=root,mount_tag=hostroot \
        -fsdev "$p9,id=mod,path=$kernel/lib/modules,readonly=on" -device $p9dev,fsdev=mod,mount_tag=modules \
        -fsdev "$p9,id=job,path=$job" -device $p9dev,fsdev=job,mount_tag=job $share_tree \
        </dev/null >"$job/qemu.log" 2>&1 &
    qemu_pid=$!
}

# came_up SECONDS: the guest's init reported within that time.
came_up() {
    n=$(($1 * 10))
    while [ $n -gt 0 ]; do
        grep -q "zorvi-vm: kernel up" "$job/console" 2>/dev/null && return 0
        kill -0 "$qemu_pid" 2>/dev/null || return 1
        sleep 0.1
        n=$((n - 1))
    done
    return 1
}

used=
if [ "$accel" != tcg ] && [ "$arch" = x86_64 ] && [ -w /dev/kvm ]; then
    boot -accel kvm -cpu max
    if came_up 8; then
        used=kvm
    else
        kill "$qemu_pid" 2>/dev/null || true
        wait "$qemu_pid" 2>/dev/null || true
        qemu_pid=
        if [ "$accel" = kvm ]; then
            echo "boot.sh: the guest did not come up under KVM" >&2
            cat "$job/qemu.log" >&2
            exit 2
        fi
    fi
fi
if [ -z "$used" ]; then
    boot -accel tcg,thread=multi -cpu $cpu
    used=tcg
fi
echo "zorvi-vm: accel $used, kernel $release" >&2

# Stream the console until qemu ends, or the time runs out.
tail -n +1 -f --pid="$qemu_pid" "$job/console" | sed -u '/^zorvi-vm: \(kernel\|guest\) up\r\?$/d' &
tail_pid=$!
deadline=$(($(date +%s) + timeout))
while kill -0 "$qemu_pid" 2>/dev/null; do
    if [ "$(date +%s)" -ge "$deadline" ]; then
        echo "boot.sh: the VM did not finish within $timeout s" >&2
        kill "$qemu_pid"
        break
    fi
    sleep 1
done
wait "$qemu_pid" 2>/dev/null || true
qemu_pid=
wait "$tail_pid" 2>/dev/null || true
if [ ! -s "$job/status" ]; then
    echo "boot.sh: the command gave no exit status" >&2
    cat "$job/qemu.log" >&2
    exit 2
fi
exit "$(cat "$job/status")"
