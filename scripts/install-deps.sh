#!/usr/bin/env bash
# Installs the Debian packages Mindmeter needs to build, run and test. Safe to run again:
# when everything is present it does nothing.
set -euo pipefail

packages=(
    # Build
    build-essential cmake ninja-build pkg-config
    qt6-base-dev libsqlite3-dev libxcb1-dev libxcb-screensaver0-dev libxcb-sync-dev
    liblz4-dev
    # Build: the Wayland client library and the protocol definitions it is generated from
    libwayland-dev libwayland-bin wayland-protocols plasma-wayland-protocols
    qt6-declarative-dev qt6-declarative-dev-tools
    # Run time: Qt Quick modules and platform plugins, the icon font, a text font
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
    qml6-module-qtquick-templates qml6-module-qtquick-window qml6-module-qtqml-workerscript
    qt6-qpa-plugins qt6-wayland fonts-material-design-icons-iconfont fonts-dejavu-core
    # Run time: the process check for the command-line AI assistant
    procps
    # Tests: time-zone rules for the daylight-saving cases; an X server, a window manager,
    # windows and input for the desktop tests
    tzdata xvfb openbox xdotool xterm x11-utils qml6-module-qttest
    # Tests: a real Chromium writing its session log
    chromium
    # Tests: a private session bus for the notification and status-item tests; real
    # repositories for the repository monitor; QtSvg to render the status item's icon files;
    # an XEmbed system tray for the tray-icon fallback
    dbus-daemon git qt6-svg-dev trayer
    # Tests: a real panel whose tray hosts status-notifier items (Xfce's, with its settings
    # daemon)
    xfce4-panel xfconf
    # Tests: a headless GNOME Shell on Wayland (gsettings, gdbus and gnome-extensions come
    # with it) and native GTK windows for it to show
    gnome-shell mutter gjs libglib2.0-bin python3-gi gir1.2-gtk-3.0
    # The Debian package (dpkg-shlibdeps), and the validators the packaging tests run on the
    # installed files: menu entry, metainfo, man page, user unit
    dpkg-dev desktop-file-utils appstream groff-base systemd
    # Tests: real Wayland compositors without a screen (sway; KWin), their windows (foot,
    # weston-terminal) and typed input (wtype)
    sway foot wtype kwin-wayland weston
    # Tests: the fuzz targets (clang with libFuzzer and the sanitizers); benchmarks: callgrind
    clang-14 libclang-rt-14-dev valgrind
    # Benchmarks: the tray app beside another tray app, and the X server's idle time; CPU
    # and context switches of idle processes
    workrave xprintidle linux-perf
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
