#!/usr/bin/env bash
# Installs the Debian package into a fresh Debian 12 made with debootstrap, with apt as a
# user would, and runs it there: the version, a status line, and the snapshot mode, which
# loads the Qt Quick modules and both fonts from the package's dependencies alone.
#
# It needs root and the Debian mirror and takes a minute or two, so scripts/test.sh leaves
# it out. Run it after a build:
#
#     sudo scripts/test-package-chroot.sh [PACKAGE.deb]
#
# Without an argument it builds the package from build/ first. DEBIAN_MIRROR picks another
# mirror.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [ "$(id -u)" -ne 0 ]; then
    echo "Run this as root: debootstrap and chroot need it." >&2
    exit 1
fi
if ! command -v debootstrap >/dev/null; then
    echo "This needs debootstrap: apt-get install debootstrap" >&2
    exit 1
fi
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT

if [ $# -ge 1 ]; then
    deb=$(realpath "$1")
else
    cpack --config "$root/build/CPackConfig.cmake" -G DEB -B "$work/package" >/dev/null
    deb=$(echo "$work"/package/mindmeter_*.deb)
fi
name=$(basename "$deb")

echo "== A fresh Debian 12 (debootstrap, minbase)"
if ! debootstrap --variant=minbase bookworm "$work/system" "$mirror" >"$work/debootstrap.log" 2>&1; then
    tail -20 "$work/debootstrap.log" >&2
    exit 1
fi

echo "== apt-get install ./$name"
cp "$deb" "$work/system/tmp/$name"
if ! chroot "$work/system" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "/tmp/$name" >"$work/apt.log" 2>&1; then
    tail -20 "$work/apt.log" >&2
    exit 1
fi
grep -c '^Setting up' "$work/apt.log" | sed 's/$/ packages set up/'

inside() {
    chroot "$work/system" env -i PATH=/usr/bin:/bin HOME=/root LANG=C.UTF-8 \
        XDG_DATA_HOME=/tmp/data QT_QPA_PLATFORM=offscreen "$@"
}

echo "== mindmeter in the new system"
inside mindmeter --version
inside mindmeter status --format waybar
if ! inside mindmeter --snapshot /tmp/snapshots >"$work/snapshot.log" 2>&1; then
    tail -20 "$work/snapshot.log" >&2
    exit 1
fi
echo "snapshot mode: $(find "$work/system/tmp/snapshots" -name '*.png' | wc -l) pictures"
echo "== Passed"
