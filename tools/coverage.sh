#!/bin/sh
# The coverage of the product by the unit tests and the end-to-end suite:
# builds the preset "coverage" (gcov, -O0), runs both suites against it, and
# prints the line and branch figures of each product file (gcovr). The missing
# lines and branches of each file are in build-coverage/coverage/.
#   tools/coverage.sh [PYTEST ARGS...]
# Installs gcovr (Debian) when it is missing. Run as root, like the tests.
set -eu
cd "$(dirname "$0")/.."

if ! command -v gcovr >/dev/null 2>&1; then
    DEBIAN_FRONTEND=noninteractive apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends gcovr
fi

build=$PWD/build-coverage
cmake --preset coverage
cmake --build --preset coverage -j2
# Each run starts from no data: gcov adds to what it finds.
find "$build" -name '*.gcda' -delete

ctest --preset coverage
# The daemon never exits: coverage_on_term lets SIGTERM, which the tests and
# the bench's teardown send, end it by exit() so that its data is written.
ZORVI_BENCH_PRELOAD="$build/testbench/libcoverage_on_term.so $build/testbench/libzorvibench.so" \
    SWITCH_BUILD_DIR="$build" /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider "$@"

out=$build/coverage
mkdir -p "$out"
set -- --root . --object-directory "$build" --filter '(core|daemon|console|chip)/' \
    --exclude-unreachable-branches --exclude-throw-branches
gcovr "$@" --txt "$out/lines.txt" --json-summary "$out/summary.json"
gcovr "$@" --branches --txt "$out/branches.txt"
/usr/bin/python3 - "$out/summary.json" <<'EOF'
import json
import sys

summary = json.load(open(sys.argv[1]))


def figure(d, kind):
    covered, total = d[f"{kind}_covered"], d[f"{kind}_total"]
    percent = f"{100.0 * covered / total:6.1f}%" if total else "      -"
    return f"{covered:5}/{total:<5} {percent}"


def row(name, d):
    return f"{name:34} {figure(d, 'line')}   {figure(d, 'branch')}"


print(f"{'File':34} {'Lines':>11} {'':7}   {'Branches':>11}")
for f in sorted(summary["files"], key=lambda f: f["filename"]):
    print(row(f["filename"], f))
print(row("TOTAL", summary))
EOF
echo "missing lines: $out/lines.txt; missing branches: $out/branches.txt"
