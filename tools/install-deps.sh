#!/bin/sh
# Installs what building, trying and testing need on Debian 12, and nothing
# that is there already. Run as root.
set -eu

packages="g++ cmake make libgtest-dev binutils python3 python3-pytest iproute2 util-linux \
spi-tools python3-spidev tmux"

missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

if [ -n "$missing" ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
fi
