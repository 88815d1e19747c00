#!/bin/sh
# Prepares the kernel that the VM bench boots and prints its cache directory:
#   testbench/vm/kernel.sh [--arch x86_64|arm] [RELEASE]
# x86_64 (the default): RELEASE (e.g. 6.1.0-56-amd64) defaults to the release
# whose headers linux-headers-amd64 installed, so that the bench's module is
# built for the very kernel the VM boots. arm: Debian's 32-bit ARM kernel
# (RELEASE e.g. 6.1.0-50-armmp, by default the one linux-image-armmp of the
# armhf archive names, which need not be amd64's), fetched through
# testbench/vm/armhf-apt.sh with its headers (linux-headers-RELEASE and its
# -common) and the amd64 linux-kbuild of the same version, which the module's
# cross build uses; they are unpacked in headers/, never installed.
# The image comes from Debian's package, fetched with apt-get download and
# unpacked under $ZORVI_VM_CACHE (default /var/cache/zorvi-vm/RELEASE); the
# host's /boot and /lib/modules are not touched. The directory holds vmlinuz,
# lib/modules/RELEASE with modules.dep, and initrd-SUM.img: BusyBox with the
# modules that mounting the host's tree over virtio 9p needs, and
# testbench/vm/initramfs-init as /init.
set -eu
here=$(cd "$(dirname "$0")" && pwd)

arch=x86_64
if [ "${1:-}" = --arch ]; then
    arch=$2
    shift 2
fi
release=${1:-}
case $arch in
    x86_64)
        [ -n "$release" ] || release=$(dpkg-query -W -f='${Depends}' linux-headers-amd64 2>/dev/null |
            sed -n 's/.*linux-headers-\([^ ,]*-amd64\).*/\1/p')
        # virtio over PCI, as the pc machine has it
        transport=virtio_pci
        ;;
    arm)
        [ -n "$release" ] || release=$("$here/armhf-apt.sh" cache depends linux-image-armmp |
            sed -n 's/.*Depends: linux-image-\([^ ,]*-armmp\).*/\1/p' | head -n 1)
        # virtio over MMIO, the virt machine's own transport
        transport=virtio_mmio
        ;;
    *)
        echo "kernel.sh: no kernel for the architecture $arch" >&2
        exit 2
        ;;
esac
if [ -z "$release" ]; then
    echo "kernel.sh: no kernel release given and none found for $arch (linux-headers-amd64 not installed?)" >&2
    exit 2
fi
cache=${ZORVI_VM_CACHE:-/var/cache/zorvi-vm}/$release
mkdir -p "$cache"

dl=$(mktemp -d)
trap 'rm -rf "$dl"' EXIT
# fetch_host PACKAGE..., fetch_armhf PACKAGE...: into $dl, from the host's
# archive or the armhf one.
fetch_host() {
    (cd "$dl" && { apt-get download -q -o APT::Sandbox::User=root "$@" ||
        { apt-get update -qq && apt-get download -q -o APT::Sandbox::User=root "$@"; }; } >&2)
}
fetch_armhf() {
    (cd "$dl" && { "$here/armhf-apt.sh" download "$@" ||
        { "$here/armhf-apt.sh" update && "$here/armhf-apt.sh" download "$@"; }; } >&2)
}
fetch=fetch_host
[ "$arch" != arm ] || fetch=fetch_armhf

if [ ! -f "$cache/vmlinuz" ] || [ ! -f "$cache/lib/modules/$release/modules.dep" ]; then
    $fetch "linux-image-$release"
    rm -rf "$cache/unpack"
    dpkg-deb -x "$dl"/linux-image-"$release"_*.deb "$cache/unpack"
    rm -rf "${cache:?}/lib"
    mkdir -p "$cache/lib"
    mv "$cache/unpack/lib/modules" "$cache/lib/modules"
    depmod -b "$cache" "$release"
    cp "$cache/unpack/boot/config-$release" "$cache/config"
    mv "$cache/unpack/boot/vmlinuz-$release" "$cache/vmlinuz"
    rm -rf "$cache/unpack" "$cache"/initrd-*.img
fi

# arm: the headers for the module's cross build (the host has no armhf
# headers package installed): Debian's, with the amd64 build tools of the same
# version (linux-kbuild is Multi-Arch foreign), the top Makefile pointed at
# where they were unpacked. And BusyBox for the initramfs, static.
if [ "$arch" = arm ] && [ ! -f "$cache/headers/usr/src/linux-headers-$release/Makefile" ]; then
    fetch_armhf "linux-headers-$release" "linux-headers-${release%-armmp}-common" busybox-static
    version=$(dpkg-deb -f "$dl"/linux-headers-"$release"_*.deb Version)
    kbuild=$(dpkg-deb -f "$dl"/linux-headers-"${release%-armmp}"-common_*.deb Depends 2>/dev/null |
        sed -n 's/.*\(linux-kbuild-[0-9.]*\).*/\1/p')
    [ -n "$kbuild" ] || kbuild=linux-kbuild-$(echo "$release" | cut -d. -f1,2)
    fetch_host "$kbuild=$version"
    rm -rf "$cache/headers" "$cache/busybox"
    for deb in "$dl"/linux-headers-*.deb "$dl"/linux-kbuild-*.deb; do
        dpkg-deb -x "$deb" "$cache/headers"
    done
    sed -i "s|/usr/src/|$cache/headers/usr/src/|" "$cache/headers/usr/src/linux-headers-$release/Makefile"
    dpkg-deb -x "$dl"/busybox-static_*.deb "$cache/busybox"
fi

# The initramfs is named after the contents of this script and its /init
# (testbench/vm/boot.sh finds it by the same name), so that checkouts of
# different versions sharing the cache never boot each other's.
initrd=$cache/initrd-$(cat "$here/initramfs-init" "$here/kernel.sh" | md5sum | cut -c1-16).img
if [ ! -f "$initrd" ]; then
    tree=$(mktemp -d)
    mkdir -p "$tree/bin" "$tree/modules" "$tree/proc" "$tree/sys" "$tree/dev" "$tree/root" "$tree/job"
    cp "$here/initramfs-init" "$tree/init"
    chmod 755 "$tree/init"
    if [ "$arch" = arm ]; then
        cp "$cache/busybox/bin/busybox" "$tree/bin/busybox"
    else
        # BusyBox with the shared libraries it needs (busybox-static would
        # conflict with the busybox that the real-peer test uses).
        cp /bin/busybox "$tree/bin/busybox"
        for lib in $(ldd /bin/busybox | awk '$2 == "=>" { print $3 } $1 ~ /^\// { print $1 }'); do
            mkdir -p "$tree$(dirname "$lib")"
            cp -L "$lib" "$tree$lib"
        done
    fi
    for applet in sh mount umount mkdir chmod insmod switch_root cat echo sleep; do
        ln -s busybox "$tree/bin/$applet"
    done
    # The virtio transport and 9p with their dependencies, in load order.
    : >"$tree/modules/order"
    for m in $transport 9pnet_virtio 9p; do
        path=$(modprobe -d "$cache" -S "$release" --show-depends "$m" | sed -n 's/^insmod \([^ ]*\).*/\1/p')
        for p in $path; do
            name=$(basename "$p")
            if ! grep -qx "$name" "$tree/modules/order"; then
                cp "$p" "$tree/modules/$name"
                echo "$name" >>"$tree/modules/order"
            fi
        done
    done
    (cd "$tree" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$initrd.$$"
    mv "$initrd.$$" "$initrd"
    rm -rf "$tree"
fi
echo "$cache"
