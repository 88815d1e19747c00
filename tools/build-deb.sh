#!/bin/sh
# Builds the Debian package zorvi-switch for the build machine (with the unit
# tests; DEB_BUILD_OPTIONS=nocheck skips them) and cross-built for armhf, each
# from a clean copy of this tree (the files git tracks or would add, as they
# are now), and checks both with lintian. Run as root.
#   tools/build-deb.sh [OUTDIR]      (default: build-deb)
# OUTDIR receives zorvi-switch_VERSION_ARCH.deb with its .changes and
# .buildinfo for both architectures, and source/, the tree they were built
# from.
set -eu
cd "$(dirname "$0")/.."
tools/install-deps.sh deb

out=$(realpath -m "${1:-build-deb}")
version=$(dpkg-parsechangelog -SVersion)
rm -rf "$out"
mkdir -p "$out/source"
git ls-files -z --cached --others --exclude-standard |
    tar --null --files-from=- --ignore-failed-read --warning=no-failed-read -cf - |
    tar -xf - -C "$out/source"

# build NAME [dpkg-buildpackage options]: builds in a copy of source/ and
# moves the results to OUTDIR.
build() {
    work=$out/work-$1
    shift
    mkdir "$work"
    cp -a "$out/source" "$work/zorvi-switch-$version"
    (cd "$work/zorvi-switch-$version" && dpkg-buildpackage -us -uc -b "$@")
    mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out"
    rm -rf "$work"
}

options="parallel=2${DEB_BUILD_OPTIONS:+ $DEB_BUILD_OPTIONS}"
DEB_BUILD_OPTIONS=$options build native
DEB_BUILD_OPTIONS="$options nocheck" build armhf -a armhf -Pcross,nocheck

lintian --fail-on error,warning --display-info "$out"/*.changes
echo "build-deb.sh: $(cd "$out" && ls ./*.deb | tr '\n' ' ')lintian clean"
