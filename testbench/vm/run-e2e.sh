#!/bin/sh
# Runs the end-to-end suite in a virtual machine, against a real Linux kernel:
#   testbench/vm/run-e2e.sh [--arch arm] [--builds "DIR..."] [PYTEST ARGUMENTS...]
# The unmodified executable of each build directory (default: build, the
# dynamic preset, and build-static, the static one) meets the kernel's spidev,
# sysfs GPIO, procfs, sockets and syslog; the chip is the bench's, behind the
# zorvi_chip module (testbench/vm/module) and the chip server. Each build gets
# a VM of its own with one virtual CPU (under TCG one CPU runs the bench's
# many small processes several times faster than two), and the VMs run side
# by side; each one's output follows when it ends. Without SWITCH_VM_NO_SETUP
# it installs what is missing (tools/install-deps.sh vm) and builds the
# presets default and static first. Other options of testbench/vm/boot.sh
# (--accel, --kernel, --root, --timeout) may come before the pytest arguments.
#
# --arch arm: the board's own architecture. Debian's 32-bit ARM kernel boots
# on qemu's virt board (TCG) with an armhf root (testbench/vm/arm-root.sh)
# that gets this tree at its own path; the builds are build-arm (preset arm)
# and build-arm-static (preset arm-static), whose chip server and benchctl
# are ARM programs too, and the module is cross-built for that kernel. The
# run shows the guest's machine and the driver of /dev/spidev0.0 first, and
# fails unless they are an ARM machine and spidev.
set -eu
cd "$(dirname "$0")/../.."
repo=$PWD

arch=x86_64
builds=""
boot_opts=""
release=""
timeout=""
while [ $# -gt 0 ]; do
    case $1 in
        --arch) arch=$2; shift 2 ;;
        --builds) builds=$2; shift 2 ;;
        --kernel) release=$2; shift 2 ;;
        --timeout) timeout=$2; shift 2 ;;
        --accel | --root) boot_opts="$boot_opts $1 $2"; shift 2 ;;
        *) break ;;
    esac
done
case $arch in
    x86_64) dynamic=default static=static dirs="build build-static" size="" deps=vm ;;
    # The suite takes some twelve minutes per build under TCG there, longer
    # on a loaded machine.
    # The static board build has its size check too, whose stripped copy the
    # install test compares.
    arm) dynamic=arm static=arm-static dirs="build-arm build-arm-static" size=switch_config_size deps=vm-arm \
        timeout=${timeout:-7200} ;;
    *) echo "run-e2e.sh: no VM for the architecture $arch" >&2; exit 2 ;;
esac
builds=${builds:-$dirs}
boot_opts="$boot_opts --arch $arch${timeout:+ --timeout $timeout}"

if [ -z "${SWITCH_VM_NO_SETUP:-}" ]; then
    tools/install-deps.sh $deps
    cmake --preset $dynamic >/dev/null
    cmake --build --preset $dynamic -j2
    cmake --preset $static >/dev/null
    cmake --build --preset $static -j2 --target switch_config $size benchctl chip_server
fi
for b in $builds; do
    if [ ! -x "$b/switch_config" ] || [ ! -x "$b/testbench/chip_server" ]; then
        echo "run-e2e.sh: $b has no build with the bench (cmake --preset ... && cmake --build ...)" >&2
        exit 2
    fi
done

# The module, for the very kernel the VM boots.
# shellcheck disable=SC2086
kernel=$(testbench/vm/kernel.sh --arch "$arch" $release)
release=$(basename "$kernel")
boot_opts="$boot_opts --kernel $release"
module=$repo/build-vm/module-$release
bind="" check=""
if [ "$arch" = arm ]; then
    # Cross-built against the armhf headers that kernel.sh unpacked.
    make -s -C testbench/vm/module KREL="$release" KDIR="$kernel/headers/usr/src/linux-headers-$release" \
        ARCH=arm CROSS_COMPILE=arm-linux-gnueabihf- OUT="$module" >&2
    # The armhf root, with this tree (shared at /run/zorvi-tree) bound at
    # its own path, where the build trees' absolute paths lead. The guest
    # makes that path itself when it lies in its scratch space (a checkout
    # under /tmp, say); elsewhere the read-only root must hold it already.
    root=$(testbench/vm/arm-root.sh)
    mkdir -p "$root$repo"
    boot_opts="$boot_opts --root $root"
    bind="mkdir -p $repo && mount --bind /run/zorvi-tree $repo || exit 2
"
    check="machine=\$(uname -m) driver=\$(basename \"\$(readlink /sys/bus/spi/devices/spi0.0/driver)\")
echo \"zorvi-vm: machine \$machine, /dev/spidev0.0 made by \$driver\"
case \$machine in arm*) ;; *) exit 2 ;; esac
[ \"\$driver\" = spidev ] && [ -c /dev/spidev0.0 ] || exit 2
"
else
    make -s -C testbench/vm/module KREL="$release" OUT="$module" >&2
fi

# The guest's command: the suite on one build, with no preload.
paths=tests/e2e
for arg; do
    [ ! -e "${arg%%::*}" ] || paths=
done
args=""
for arg in $paths "$@"; do
    args="$args '$(printf '%s' "$arg" | sed "s/'/'\\\\''/g")'"
done

logs=$repo/build-vm/logs
mkdir -p "$logs"
pids=""
for b in $builds; do
    name=$(basename "$b")
    # The build directory gets a writable copy of itself (cmake --install
    # writes its manifest there); the root stays read-only.
    cmd="${bind}insmod $module/zorvi_chip.ko || exit 2
${check}cp -a $repo/$b /tmp/build && mount --bind /tmp/build $repo/$b || exit 2
cd $repo && export ZORVI_BENCH=vm SWITCH_BUILD_DIR=$repo/$b PYTHONDONTWRITEBYTECODE=1
/usr/bin/python3 -m pytest -o cache_dir=/tmp/pytest-cache $args && exit 0
[ \$? -eq 1 ] || exit 1
echo '== the failed tests once more (the VM sleeps for real on one emulated CPU)'
/usr/bin/python3 -m pytest -o cache_dir=/tmp/pytest-cache --lf $args"
    # shellcheck disable=SC2086
    testbench/vm/boot.sh $boot_opts -- "$cmd" >"$logs/$name.log" 2>&1 &
    pids="$pids $!"
done
status=0
# shellcheck disable=SC2086 # the pids, one word each
set -- $pids
for b in $builds; do
    rc=0
    wait "$1" || rc=$?
    shift
    [ "$rc" -eq 0 ] || status=1
    echo "== the end-to-end suite in the VM on $b/switch_config (exit status $rc)"
    grep -av '^\[ *[0-9.]*\]' "$logs/$(basename "$b").log" || true
done
exit $status
