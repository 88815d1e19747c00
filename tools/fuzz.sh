#!/bin/sh
# Builds the libFuzzer targets (preset fuzz, build-fuzz/) and runs each of
# them, or only the one named, for the given number of seconds (default 60)
# or until it has made the given number of executions, one after the other,
# each on a scratch copy of its seed corpus in tests/fuzz/corpus: the run adds
# nothing to the tree. Any finding (a sanitizer report, a leak, a broken
# property, an input that takes more than 10 seconds) fails the run; the input
# that caused it is kept in build-fuzz/findings/<target>/. One summary line
# per target: executions, coverage (cov: and ft: at the end), the corpus grown
# from the seeds.
#   tools/fuzz.sh [seconds] [target|all] [executions]
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
only=${2:-}
[ "$only" != all ] || only=""
runs=${3:--1}
targets="console register_file options mcast_filter board_detect process_lookup"
if [ -n "$only" ] && ! echo " $targets " | grep -q " $only "; then
    echo "fuzz.sh: unknown target $only (known: $targets)" >&2
    exit 2
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
if ! { cmake --preset fuzz && cmake --build --preset fuzz -j2; } >"$scratch/build.log" 2>&1; then
    cat "$scratch/build.log"
    exit 1
fi
export UBSAN_OPTIONS=print_stacktrace=1
status=0
for target in $targets; do
    [ -z "$only" ] || [ "$only" = "$target" ] || continue
    cp -r "tests/fuzz/corpus/$target" "$scratch/$target"
    findings="build-fuzz/findings/$target"
    mkdir -p "$findings"
    dict=""
    [ ! -f "tests/fuzz/$target.dict" ] || dict="-dict=tests/fuzz/$target.dict"
    log="$scratch/$target.log"
    # shellcheck disable=SC2086
    if build-fuzz/tests/fuzz/fuzz_$target $dict -max_total_time="$seconds" -runs="$runs" -timeout=10 \
        -print_final_stats=1 -artifact_prefix="$findings/" "$scratch/$target" >"$log" 2>&1; then
        result="0 findings"
    else
        tail -n 40 "$log"
        result="FINDING, input kept in $findings/"
        status=1
    fi
    done_line=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1 || true)
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    printf '%-15s %12s executions  %s  %s\n' "$target" "${executions:-?}" \
        "$(echo "$done_line" | grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' || true)" "$result"
done
exit $status
