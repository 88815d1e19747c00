#!/bin/sh
# Prepares the kernel that the VM bench boots and prints its cache directory:
#   testbench/vm/kernel.sh [RELEASE]
# RELEASE (e.g. 6.1.0-56-amd64) defaults to the release whose headers
# linux-headers-amd64 installed, so that the bench's module is built for the
# very kernel the VM boots. The image comes from Debian's package, fetched with
# apt-get download and unpacked under $ZORVI_VM_CACHE (default
# /var/cache/zorvi-vm/RELEASE); the host's /boot and /lib/modules are not
# touched. The directory holds vmlinuz, lib/modules/RELEASE with modules.dep,
# and initrd.img: BusyBox with the modules that mounting the host's tree over
# virtio 9p needs, and testbench/vm/initramfs-init as /init.
set -eu
here=$(cd "$(dirname "$0")" && pwd)

release=${1:-}
if [ -z "$release" ]; then
    release=$(dpkg-query -W -f='${Depends}' linux-headers-amd64 2>/dev/null |
        sed -n 's/.*linux-headers-\([^ ,]*-amd64\).*/\1/p')
fi
if [ -z "$release" ]; then
    echo "kernel.sh: no kernel release given and linux-headers-amd64 is not installed" >&2
    exit 2
fi
cache=${ZORVI_VM_CACHE:-/var/cache/zorvi-vm}/$release
mkdir -p "$cache"

if [ ! -f "$cache/vmlinuz" ] || [ ! -f "$cache/lib/modules/$release/modules.dep" ]; then
    dl=$(mktemp -d)
    trap 'rm -rf "$dl"' EXIT
    fetch() { (cd "$dl" && apt-get download -q -o APT::Sandbox::User=root "linux-image-$release" >&2); }
    fetch || { apt-get update -qq >&2 && fetch; }
    rm -rf "$cache/unpack"
    dpkg-deb -x "$dl"/linux-image-"$release"_*.deb "$cache/unpack"
    rm -rf "$cache/lib"
    mkdir -p "$cache/lib"
    mv "$cache/unpack/lib/modules" "$cache/lib/modules"
    depmod -b "$cache" "$release"
    cp "$cache/unpack/boot/config-$release" "$cache/config"
    mv "$cache/unpack/boot/vmlinuz-$release" "$cache/vmlinuz"
    rm -rf "$cache/unpack" "$cache/initrd.img"
fi

# The initramfs is made again when this script or its /init changed.
if [ ! -f "$cache/initrd.img" ] || [ "$here/initramfs-init" -nt "$cache/initrd.img" ] ||
    [ "$0" -nt "$cache/initrd.img" ]; then
    tree=$(mktemp -d)
    mkdir -p "$tree/bin" "$tree/modules" "$tree/proc" "$tree/sys" "$tree/dev" "$tree/root" "$tree/job"
    cp "$here/initramfs-init" "$tree/init"
    chmod 755 "$tree/init"
    # BusyBox with the shared libraries it needs (busybox-static would
    # conflict with the busybox that the real-peer test uses).
    cp /bin/busybox "$tree/bin/busybox"
    for lib in $(ldd /bin/busybox | awk '$2 == "=>" { print $3 } $1 ~ /^\// { print $1 }'); do
        mkdir -p "$tree$(dirname "$lib")"
        cp -L "$lib" "$tree$lib"
    done
    for applet in sh mount umount mkdir chmod insmod switch_root cat echo sleep; do
        ln -s busybox "$tree/bin/$applet"
    done
    # virtio PCI and 9p with their dependencies, in load order.
    : >"$tree/modules/order"
    for m in virtio_pci 9pnet_virtio 9p; do
        path=$(modprobe -d "$cache" -S "$release" --show-depends "$m" | sed -n 's/^insmod \([^ ]*\).*/\1/p')
        for p in $path; do
            name=$(basename "$p")
            if ! grep -qx "$name" "$tree/modules/order"; then
                cp "$p" "$tree/modules/$name"
                echo "$name" >>"$tree/modules/order"
            fi
        done
    done
    (cd "$tree" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$cache/initrd.img.tmp"
    mv "$cache/initrd.img.tmp" "$cache/initrd.img"
    rm -rf "$tree"
fi
echo "$cache"
