#!/bin/sh
# Builds the tool with warnings as errors and passes every test: the unit
# tests, the end-to-end suite on the simulated board, and the end-to-end suite
# again on a build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -eu
cd "$(dirname "$0")"

tools/install-deps.sh

cmake --preset default
cmake --build --preset default -j2
ctest --preset default
SWITCH_BUILD_DIR="$PWD/build" /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider

cmake --preset asan
cmake --build --preset asan -j2
ctest --preset asan
SWITCH_BUILD_DIR="$PWD/build-asan" /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider
