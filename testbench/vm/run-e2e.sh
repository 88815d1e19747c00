#!/bin/sh
# Runs the end-to-end suite in a virtual machine, against a real Linux kernel:
#   testbench/vm/run-e2e.sh [--builds "DIR..."] [PYTEST ARGUMENTS...]
# The unmodified executable of each build directory (default: build, the
# dynamic preset, and build-static, the static one) meets the kernel's spidev,
# sysfs GPIO, procfs, sockets and syslog; the chip is the bench's, behind the
# zorvi_chip module (testbench/vm/module) and the chip server. Without
# SWITCH_VM_NO_SETUP it installs what is missing (tools/install-deps.sh vm)
# and builds both presets first. Other options of testbench/vm/boot.sh
# (--accel, --kernel) may come before the pytest arguments.
set -eu
cd "$(dirname "$0")/../.."
repo=$PWD

builds="build build-static"
boot_opts=""
while [ $# -gt 0 ]; do
    case $1 in
        --builds) builds=$2; shift 2 ;;
        --accel | --kernel | --timeout) boot_opts="$boot_opts $1 $2"; shift 2 ;;
        *) break ;;
    esac
done

if [ -z "${SWITCH_VM_NO_SETUP:-}" ]; then
    tools/install-deps.sh vm
    for preset in default static; do
        cmake --preset $preset >/dev/null
        cmake --build --preset $preset -j2
    done
fi
for b in $builds; do
    if [ ! -x "$b/switch_config" ] || [ ! -x "$b/testbench/chip_server" ]; then
        echo "run-e2e.sh: $b has no build with the bench (cmake --preset ... && cmake --build ...)" >&2
        exit 2
    fi
done

# The module, for the very kernel the VM boots.
kernel=$(testbench/vm/kernel.sh)
release=$(basename "$kernel")
module=$repo/build-vm/module-$release
make -s -C testbench/vm/module KREL="$release" OUT="$module" >&2

# The guest's command: the suite once per build, all with no preload.
paths=tests/e2e
for arg; do
    [ ! -e "${arg%%::*}" ] || paths=
done
args=""
for arg in $paths "$@"; do
    args="$args '$(printf '%s' "$arg" | sed "s/'/'\\\\''/g")'"
done
cmd="insmod $module/zorvi_chip.ko || exit 2
status=0
for b in $builds; do
    echo \"== the end-to-end suite in the VM on \$b/switch_config\"
    ZORVI_BENCH=vm SWITCH_BUILD_DIR=$repo/\$b PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -m pytest -p no:cacheprovider $args || status=1
done
exit \$status"
# shellcheck disable=SC2086
exec testbench/vm/boot.sh $boot_opts -- "$cmd"
