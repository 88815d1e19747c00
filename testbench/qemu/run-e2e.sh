#!/bin/sh
# Runs the end-to-end suite against the ARM build (preset arm, build-arm/) under
# qemu-user:  testbench/qemu/run-e2e.sh [PYTEST ARGUMENTS...]
# SWITCH_BUILD_DIR names an ARM tree that is built already, and
# SWITCH_HOST_BUILD_DIR the host tree whose bench library the host programs
# take (default: build/).
#
# ARM programs are started through binfmt_misc, as they would be by a kernel
# that runs them natively: every exec of an ARM executable (the tool, the
# daemon, the bench's benchctl, the ones they start) goes to qemu_binfmt, which
# runs qemu-arm with the program's own argv[0] first on its command line and
# the bench library preloaded into the emulated program. The registration is
# made in a user namespace of this run's own, with its own binfmt_misc
# instance, so nothing of it reaches the host; where the kernel has no such
# instances (before Linux 6.7), it is made on the host and removed at the end.
set -eu
cd "$(dirname "$0")/../.."
repo=$PWD

# Without SWITCH_BUILD_DIR: install what is missing and build the host tree
# (for the bench library of the host programs) and the ARM tree (preset arm).
if [ -z "${SWITCH_BUILD_DIR:-}" ]; then
    tools/install-deps.sh
    for preset in default arm; do
        cmake --preset $preset >/dev/null
        cmake --build --preset $preset -j2
    done
fi
build=${SWITCH_BUILD_DIR:-$repo/build-arm}
build=$(cd "$build" && pwd)
if [ ! -x "$build/switch_config" ] || [ ! -x "$build/testbench/benchctl" ]; then
    echo "run-e2e.sh: $build has no ARM build: cmake --preset arm && cmake --build --preset arm" >&2
    exit 2
fi
qemu=$(command -v qemu-arm || true)
if [ -z "$qemu" ]; then
    echo "run-e2e.sh: qemu-arm not found (Debian package qemu-user)" >&2
    exit 2
fi

# Host programs of the suite (nsenter, the helpers, the shells) take the bench
# library built for the host, the emulated programs the one built for ARM: the
# libraries are named by "$LIB", which each machine's dynamic loader expands to
# its own library directory. Beside the bench library goes qemu_compat, which
# makes up for two calls that qemu-user answers otherwise than the kernel.
host_build=${SWITCH_HOST_BUILD_DIR:-$repo/build}
if [ ! -f "$host_build/testbench/libzorvibench.so" ]; then
    echo "run-e2e.sh: $host_build has no host build of the bench: cmake --preset default && cmake --build --preset default" >&2
    exit 2
fi
preload=$build/qemu/preload
host_lib=$preload/lib/$(gcc -print-multiarch)
arm_lib=$preload/lib/arm-linux-gnueabihf
mkdir -p "$host_lib" "$arm_lib"
ln -sf "$host_build/testbench/libzorvibench.so" "$host_lib/libzorvibench.so"
ln -sf "$build/testbench/libzorvibench.so" "$arm_lib/libzorvibench.so"
flags="-std=c++20 -O2 -shared -fPIC -Wall -Wextra -Werror"
# shellcheck disable=SC2086
c++ $flags -o "$host_lib/libqemu_compat.so" testbench/qemu/qemu_compat.cpp -ldl
# shellcheck disable=SC2086
arm-linux-gnueabihf-g++ $flags -o "$arm_lib/libqemu_compat.so" testbench/qemu/qemu_compat.cpp -ldl
export ZORVI_BENCH_PRELOAD="$preload/\$LIB/libqemu_compat.so $preload/\$LIB/libzorvibench.so"

interpreter=$build/qemu/qemu_binfmt
mkdir -p "$build/qemu"
c++ -std=c++20 -O2 -static -Wall -Wextra -Werror -DQEMU_ARM="\"$qemu\"" \
    -o "$interpreter" testbench/qemu/qemu_binfmt.cpp

# 32-bit little-endian ARM ELF executables and position-independent executables.
magic='\x7f\x45\x4c\x46\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
rule=":zorvi-arm:M::$magic:$mask:$interpreter:PF"

# Runs inside the namespace (or on the host): registers the interpreter and
# runs the suite, on tests/e2e unless the arguments name tests.
# shellcheck disable=SC2016
inner='
set -eu
binfmt=/proc/sys/fs/binfmt_misc
if [ "$1" = userns ]; then
    mount -t binfmt_misc binfmt_misc $binfmt
else
    [ -e $binfmt/register ] || mount -t binfmt_misc binfmt_misc $binfmt
    [ ! -e $binfmt/zorvi-arm ] || echo -1 >$binfmt/zorvi-arm
    trap "echo -1 >$binfmt/zorvi-arm" EXIT
fi
printf "%b" "$2" >$binfmt/register
shift 2
paths=tests/e2e
for arg; do
    [ ! -e "${arg%%::*}" ] || paths=
done
SWITCH_BUILD_DIR=$BUILD /usr/bin/python3 -m pytest -p no:cacheprovider $paths "$@"
'
export BUILD="$build"

# A user namespace in which the first 65536 user and group ids are themselves,
# so that services which hand files to their own users (avahi-daemon) work as
# on the host. unshare maps only root by itself; the maps are written from here
# once the namespace exists.
in_user_namespace() {
    go=$build/qemu/userns.go
    rm -f "$go"
    mkfifo "$go"
    # shellcheck disable=SC2016
    unshare --user --mount sh -c 'read -r _ <"$1"; shift; exec "$@"' sh "$go" "$@" &
    child=$!
    own=$(readlink /proc/$$/ns/user)
    while [ "$(readlink /proc/$child/ns/user)" = "$own" ]; do
        sleep 0.01
    done
    echo "0 0 65536" >/proc/$child/uid_map
    echo "0 0 65536" >/proc/$child/gid_map
    echo go >"$go"
    status=0
    wait $child || status=$?
    rm -f "$go"
    return $status
}

if unshare --user --map-root-user --mount sh -c \
    'mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc' 2>/dev/null; then
    in_user_namespace sh -c "$inner" sh userns "$rule" "$@"
    exit
fi
echo "run-e2e.sh: no binfmt_misc of a user namespace here; registering on the host for this run" >&2
exec sh -c "$inner" sh host "$rule" "$@"
