#!/bin/sh
# Installs what building, trying and testing need on Debian 12, and nothing
# that is there already. Run as root.
#   tools/install-deps.sh        the host build and its tests, the man page
#                                check, the ARM cross compiler, the real
#                                services of the daemon's integration test,
#                                and clang with its libFuzzer and sanitizer
#                                runtimes for the fuzz targets
#   tools/install-deps.sh qemu   also qemu-user, for the end-to-end suite on
#                                the ARM executable (testbench/qemu/run-e2e.sh)
set -eu

packages="g++ cmake make libgtest-dev binutils python3 python3-pytest iproute2 util-linux \
spi-tools python3-spidev tmux man-db groff-base g++-arm-linux-gnueabihf \
avahi-daemon avahi-autoipd busybox socat \
clang libclang-rt-14-dev"
for group in "$@"; do
    case $group in
        qemu) packages="$packages qemu-user" ;;
        *)
            echo "install-deps.sh: unknown group $group (known: qemu)" >&2
            exit 2
            ;;
    esac
done

missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

if [ -n "$missing" ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    # The services that come with these packages (avahi-daemon, dbus) are not
    # started: the tests start what they need in namespaces of their own.
    policy=/usr/sbin/policy-rc.d
    if [ ! -e "$policy" ]; then
        printf '#!/bin/sh\nexit 101\n' >"$policy"
        chmod 755 "$policy"
        trap 'rm -f "$policy"' EXIT
    fi
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
fi
