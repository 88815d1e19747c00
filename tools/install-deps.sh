#!/bin/sh
# Installs what building, trying and testing need on Debian 12, and nothing
# that is there already. Run as root.
#   tools/install-deps.sh        the host build, clang-tidy, the tests, the man page
#                                check, the ARM cross compiler, qemu-user for
#                                the end-to-end suite on the ARM executable,
#                                the real services of the daemon's integration
#                                test, nft and ip6tables for the firewall
#                                test, and clang with its libFuzzer and
#                                sanitizer runtimes for the fuzz targets
#   tools/install-deps.sh deb    and the Debian packages' build (native and
#                                cross for armhf), lintian and debootstrap
#   tools/install-deps.sh vm     and qemu-system-x86 and the headers of Debian's
#                                kernel, for the end-to-end suite in a virtual
#                                machine (testbench/vm/run-e2e.sh; the kernel
#                                image itself is fetched by testbench/vm/kernel.sh)
#   tools/install-deps.sh vm-arm and qemu-system-arm and what the cross build of
#                                the bench's module needs, for the suite in a
#                                virtual machine on Debian's 32-bit ARM kernel
#                                (testbench/vm/run-e2e.sh --arch arm; its kernel,
#                                headers and root are fetched from the armhf
#                                archive by testbench/vm/kernel.sh and arm-root.sh)
set -eu

packages="g++ cmake make clang-tidy libgtest-dev binutils python3 python3-pytest iproute2 util-linux \
spi-tools python3-spidev man-db groff-base g++-arm-linux-gnueabihf \
avahi-daemon avahi-autoipd busybox socat qemu-user nftables iptables \
clang libclang-rt-14-dev"
for group in "$@"; do
    case $group in
        deb) packages="$packages git dpkg-dev debhelper lintian debootstrap crossbuild-essential-armhf" ;;
        vm) packages="$packages qemu-system-x86 linux-headers-amd64 kmod" ;;
        vm-arm) packages="$packages qemu-system-arm gcc-arm-linux-gnueabihf make kmod" ;;
        *)
            echo "install-deps.sh: unknown group $group (known: deb, vm, vm-arm)" >&2
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
