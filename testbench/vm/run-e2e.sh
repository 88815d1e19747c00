#!/bin/sh
# Runs the end-to-end suite in a virtual machine, against a real Linux kernel:
#   testbench/vm/run-e2e.sh [--builds "DIR..."] [PYTEST ARGUMENTS...]
# The unmodified executable of each build directory (default: build, the
# dynamic preset, and build-static, the static one) meets the kernel's spidev,
# sysfs GPIO, procfs, sockets and syslog; the chip is the bench's, behind the
# zorvi_chip module (testbench/vm/module) and the chip server. Each build gets
# a VM of its own with one virtual CPU (under TCG one CPU runs the bench's
# many small processes several times faster than two), and the VMs run side
# by side; each one's output follows when it ends. Without SWITCH_VM_NO_SETUP
# it installs what is missing (tools/install-deps.sh vm) and builds the
# presets default and static first. Other options of testbench/vm/boot.sh
# (--arch, --accel, --kernel, --root, --timeout) may come before the pytest
# arguments.
set -eu
cd "$(dirname "$0")/../.."
repo=$PWD

builds="build build-static"
boot_opts=""
release=""
while [ $# -gt 0 ]; do
    case $1 in
        --builds) builds=$2; shift 2 ;;
        --kernel) release=$2; boot_opts="$boot_opts $1 $2"; shift 2 ;;
        --arch | --accel | --root | --timeout) boot_opts="$boot_opts $1 $2"; shift 2 ;;
        *) break ;;
    esac
done

if [ -z "${SWITCH_VM_NO_SETUP:-}" ]; then
    tools/install-deps.sh vm
    cmake --preset default >/dev/null
    cmake --build --preset default -j2
    cmake --preset static >/dev/null
    cmake --build --preset static -j2 --target switch_config benchctl chip_server
fi
for b in $builds; do
    if [ ! -x "$b/switch_config" ] || [ ! -x "$b/testbench/chip_server" ]; then
        echo "run-e2e.sh: $b has no build with the bench (cmake --preset ... && cmake --build ...)" >&2
        exit 2
    fi
done

# The module, for the very kernel the VM boots.
# shellcheck disable=SC2086
kernel=$(testbench/vm/kernel.sh $release)
release=$(basename "$kernel")
module=$repo/build-vm/module-$release
make -s -C testbench/vm/module KREL="$release" OUT="$module" >&2

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
    cmd="insmod $module/zorvi_chip.ko || exit 2
cp -a $repo/$b /tmp/build && mount --bind /tmp/build $repo/$b || exit 2
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
