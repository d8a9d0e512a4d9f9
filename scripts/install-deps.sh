#!/usr/bin/env bash
# Installs the Debian packages Mindmeter needs to build, run and test. Safe to run again:
# when everything is present it does nothing.
set -euo pipefail

packages=(
    # Build
    build-essential cmake ninja-build pkg-config
    qt6-base-dev libsqlite3-dev liblz4-dev
    # Tests: time-zone rules for the daylight-saving cases; real repositories for the
    # repository monitor
    tzdata git
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    echo "Mindmeter needs these Debian packages: ${missing[*]}" >&2
    echo "Install them with:" >&2
    echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
    exit 1
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
