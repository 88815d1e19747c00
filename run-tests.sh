#!/bin/sh
# Builds the tool with warnings as errors, runs clang-tidy on the product and
# the bench, and passes every test: the unit tests, the end-to-end suite on the
# simulated board (with the staged install, the man pages, the init script and
# the daemon among real avahi services), the end-to-end suite again on a build
# with AddressSanitizer and UndefinedBehaviorSanitizer, a short run of every
# fuzz target, the ARM build for the board with its size check, and the
# end-to-end suite on the ARM executable under qemu-user; the end-to-end suite
# in a virtual machine against a real Linux kernel, on the dynamic and the
# static executable, on amd64 and on the board's 32-bit ARM; the Debian
# packages (native and armhf) with lintian, and their install, upgrade and
# purge in a minimal Debian root, and that root booted in the VM, where the
# init script starts and stops the daemon.
set -eu
cd "$(dirname "$0")"

tools/install-deps.sh vm

cmake --preset default
cmake --build --preset default -j2
# The checks of .clang-tidy on core/, daemon/, console/, chip/ and the bench's
# C++ (testbench/, tuned by its own .clang-tidy files) over the default build's
# compile commands, and on the two qemu helpers, which testbench/qemu/run-e2e.sh
# builds by itself; any warning fails the run.
if ! { run-clang-tidy -p build -j 2 -quiet "^$PWD/(core|daemon|console|chip|testbench)/" &&
    clang-tidy -quiet testbench/qemu/qemu_binfmt.cpp testbench/qemu/qemu_compat.cpp -- \
        -std=c++20 -DQEMU_ARM='"qemu-arm"'; } >build/clang-tidy.log 2>&1; then
    cat build/clang-tidy.log
    exit 1
fi
ctest --preset default
SWITCH_BUILD_DIR="$PWD/build" /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider

cmake --preset asan
cmake --build --preset asan -j2
ctest --preset asan
SWITCH_BUILD_DIR="$PWD/build-asan" /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider

# Every libFuzzer target for 20 seconds (about 2.5 minutes with the build);
# any finding fails the run.
tools/fuzz.sh 20

# The board: 32-bit ARM; the build fails when the stripped executable grows
# past 160 KiB.
cmake --preset arm
cmake --build --preset arm -j2

SWITCH_BUILD_DIR="$PWD/build-arm" SWITCH_HOST_BUILD_DIR="$PWD/build" testbench/qemu/run-e2e.sh -q

# The VM bench: a real kernel's spidev, sysfs GPIO and procfs, no preload.
cmake --preset static
cmake --build --preset static -j2 --target switch_config benchctl chip_server
SWITCH_VM_NO_SETUP=1 testbench/vm/run-e2e.sh -q

# The board's own architecture in the VM bench: Debian's 32-bit ARM kernel on
# qemu-system-arm, the ARM executable and its static variant (installs
# qemu-system-arm and the cross compiler, builds the preset arm-static).
testbench/vm/run-e2e.sh --arch arm -q

tools/build-deb.sh
SWITCH_BUILD_DIR="$PWD/build" /usr/bin/python3 -m pytest tests/package -q -p no:cacheprovider
