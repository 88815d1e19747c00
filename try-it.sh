#!/bin/sh
# Builds the tool and runs it on a simulated Zorvi HPB-NAND board (KSZ8864).
# Arguments go to the tool: ./try-it.sh -d, ./try-it.sh -r 0x10, ./try-it.sh -C
# The simulated board keeps its state between runs in $ZORVI_TRY_SANDBOX
# (default /tmp/zorvi-try); testbench/README.md tells how to change it.
set -eu
cd "$(dirname "$0")"

tools/install-deps.sh >&2
if [ ! -x build/switch_config ] || [ -n "$(find core daemon console chip testbench CMakeLists.txt -newer build/switch_config 2>/dev/null | head -n 1)" ]; then
    cmake --preset default >/dev/null
    cmake --build --preset default -j2 >/dev/null
fi

sandbox="${ZORVI_TRY_SANDBOX:-/tmp/zorvi-try}"
if [ ! -f "$sandbox/state" ]; then
    build/testbench/benchctl -s "$sandbox" init --board nand --time-scale 1
fi
exec testbench/zorvi-run "$sandbox" -- build/switch_config "$@"
