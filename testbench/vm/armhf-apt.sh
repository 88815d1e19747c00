#!/bin/sh
# apt-get for Debian's armhf archive, with a configuration of its own:
#   testbench/vm/armhf-apt.sh APT-GET-ARGUMENTS...
#   testbench/vm/armhf-apt.sh cache APT-CACHE-ARGUMENTS...
# Its sources, package lists, cache and (empty) package status lie under
# $ZORVI_VM_CACHE/armhf-apt (default /var/cache/zorvi-vm/armhf-apt), and its
# architecture is armhf alone, so that the ARM virtual machine's kernel and
# root can be resolved and fetched (apt-get download, apt-get install
# --download-only) without armhf becoming an architecture of the host's dpkg:
# nothing of it is ever installed on the host, and the host's apt does not
# see it. The lists are fetched on first use; "update" fetches them again.
set -eu

dir=${ZORVI_VM_CACHE:-/var/cache/zorvi-vm}/armhf-apt
mirror=${ZORVI_VM_MIRROR:-http://deb.debian.org/debian}
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
mkdir -p "$dir/lists/partial" "$dir/archives/partial" "$dir/etc/apt.conf.d" "$dir/etc/preferences.d" \
    "$dir/etc/sources.list.d"
[ -f "$dir/status" ] || : >"$dir/status"
# bookworm-security is left out: the mirror's armhf index there has failed
# with "unexpected size"; the kernel's updates come through bookworm-updates
# and the point releases.
cat >"$dir/etc/sources.list" <<EOF
deb [arch=armhf signed-by=$keyring] $mirror bookworm main
deb [arch=armhf signed-by=$keyring] $mirror bookworm-updates main
EOF

tool=apt-get
if [ "${1:-}" = cache ]; then
    tool=apt-cache
    shift
fi
# apt TOOL ARGUMENTS...
apt() {
    t=$1
    shift
    "$t" -q -o APT::Architecture=armhf -o APT::Architectures::=armhf \
        -o Dir::Etc="$dir/etc" -o Dir::Etc::SourceList="$dir/etc/sources.list" \
        -o Dir::Etc::SourceParts="$dir/etc/sources.list.d" -o Dir::Etc::Parts="$dir/etc/apt.conf.d" \
        -o Dir::Etc::PreferencesParts="$dir/etc/preferences.d" -o Dir::Etc::Preferences="$dir/etc/preferences" \
        -o Dir::State="$dir" -o Dir::State::Lists="$dir/lists" -o Dir::State::status="$dir/status" \
        -o Dir::Cache="$dir" -o Dir::Cache::Archives="$dir/archives" \
        -o APT::Sandbox::User=root -o Debug::NoLocking=1 "$@"
}

if [ "${1:-}" = update ] || ! ls "$dir/lists/"*_Packages* >/dev/null 2>&1; then
    apt apt-get update -qq >&2
    [ "${1:-}" != update ] || exit 0
fi
apt "$tool" "$@"
