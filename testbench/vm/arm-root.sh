#!/bin/sh
# Prepares the root filesystem of the ARM virtual machine and prints its path:
#   testbench/vm/arm-root.sh
# A Debian armhf root holding what the end-to-end suite uses in the guest: the
# shell and base tools, Python with pytest, cmake and binutils (the install
# test), man, systemd's tools, the avahi services, socat, BusyBox, nft
# and iptables. The packages and their dependencies come from Debian's armhf
# archive through testbench/vm/armhf-apt.sh and are unpacked with dpkg-deb -x
# (no ARM code runs on the host); what their maintainer scripts would have
# done and the suite needs is done here: the merged /usr, /bin/sh, the system
# users, the dynamic loader's cache, the avahi state directories. The root
# lies under $ZORVI_VM_CACHE (default /var/cache/zorvi-vm), named after this
# script's contents, and is made once; the VM mounts it read-only.
set -eu
here=$(cd "$(dirname "$0")" && pwd)

packages="base-files base-passwd bash coreutils dash debianutils diffutils findutils grep gzip hostname \
libc-bin mawk mount procps sed tar util-linux kmod iproute2 busybox python3 python3-pytest python3-spidev \
spi-tools cmake binutils man-db groff-base systemd avahi-daemon avahi-autoipd socat nftables iptables"

cache=${ZORVI_VM_CACHE:-/var/cache/zorvi-vm}
root=$cache/armhf-root-$(md5sum <"$here/arm-root.sh" | cut -c1-16)
if [ -x "$root/usr/bin/python3" ]; then
    echo "$root"
    exit 0
fi

work=$(mktemp -d "$cache/armhf-root.XXXXXX")
trap 'rm -rf "$work"' EXIT
# The packages and everything they depend on, as apt resolves them for an
# empty armhf system, downloaded into a directory of their own.
mkdir -p "$work/debs/partial"
download() {
    # shellcheck disable=SC2086
    "$here/armhf-apt.sh" -o Dir::Cache::Archives="$work/debs" install -qq -y --download-only \
        --no-install-recommends $packages >&2
}
download || { "$here/armhf-apt.sh" update && download; }
new=$work/root
mkdir -p "$new"
for deb in "$work"/debs/*.deb; do
    dpkg-deb -x "$deb" "$new"
done

# Debian 12's merged /usr: /bin, /sbin and /lib are links into /usr.
for d in bin sbin lib; do
    if [ -d "$new/$d" ] && [ ! -L "$new/$d" ]; then
        mkdir -p "$new/usr/$d"
        cp -a "$new/$d/." "$new/usr/$d/"
        rm -rf "${new:?}/$d"
    fi
    ln -sfn "usr/$d" "$new/$d"
done
[ -e "$new/usr/bin/sh" ] || ln -s dash "$new/usr/bin/sh"
# update-alternatives' choices that the suite relies on.
ln -sfn mawk "$new/usr/bin/awk"
for t in iptables ip6tables; do
    for s in "" -restore -save; do
        ln -sfn xtables-nft-multi "$new/usr/sbin/$t$s"
    done
done

# The system's users and groups: base-passwd's, and the services'.
cp "$new/usr/share/base-passwd/passwd.master" "$new/etc/passwd"
cp "$new/usr/share/base-passwd/group.master" "$new/etc/group"
cat >>"$new/etc/passwd" <<'EOF'
messagebus:x:100:102::/nonexistent:/usr/sbin/nologin
avahi-autoipd:x:102:105:Avahi autoip daemon,,,:/var/lib/avahi-autoipd:/usr/sbin/nologin
avahi:x:103:106:Avahi mDNS daemon,,,:/run/avahi-daemon:/usr/sbin/nologin
EOF
cat >>"$new/etc/group" <<'EOF'
messagebus:x:102:
avahi-autoipd:x:105:
avahi:x:106:
netdev:x:107:
EOF
[ -e "$new/etc/nsswitch.conf" ] || cp "$new/usr/share/libc-bin/nsswitch.conf" "$new/etc/nsswitch.conf"
echo zorvi-vm >"$new/etc/hostname"
printf '127.0.0.1\tlocalhost\n::1\tlocalhost ip6-localhost ip6-loopback\n' >"$new/etc/hosts"
mkdir -p "$new/var/lib/avahi-autoipd" "$new/usr/lib/modules" "$new/run" "$new/tmp" "$new/var/tmp" "$new/var/log" "$new/root"
chown 102:105 "$new/var/lib/avahi-autoipd"
chmod 1777 "$new/tmp" "$new/var/tmp"
# The dynamic loader's cache (ldconfig reads the ARM libraries' headers).
ldconfig -r "$new"

rm -rf "$root"
mv "$new" "$root"
echo "$root"
