#!/usr/bin/env bash
# Runs a command inside a private X server (Xvfb) with a window manager (openbox), so
# desktop tests never touch the display of the person running them.
set -uo pipefail

work=$(mktemp -d)
trap 'kill ${wm:-} ${xvfb:-} 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

# -displayfd picks a free display number and writes it once the server accepts clients.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
xvfb=$!
for _ in $(seq 100); do
    [ -s "$work/display" ] && break
    sleep 0.1
done
if [ ! -s "$work/display" ]; then
    echo "run-with-xvfb: Xvfb did not start" >&2
    cat "$work/xvfb.log" >&2
    exit 1
fi
export DISPLAY=":$(head -n1 "$work/display")"
unset WAYLAND_DISPLAY XDG_SESSION_TYPE
# Nor their session bus: a bus address nobody listens on fails at once. Without any address,
# D-Bus would start a bus for the private display (autolaunch), forking inside the program
# under test; tests that need a bus run a private one.
export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-session-bus"

openbox --sm-disable >"$work/openbox.log" 2>&1 &
wm=$!
# The window manager is ready once it announces itself on the root window. On a busy
# machine that can take several seconds; without it no test can see an active window.
for _ in $(seq 300); do
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && ready=1 && break
    sleep 0.1
done
if [ -z "${ready:-}" ]; then
    echo "run-with-xvfb: the window manager did not start" >&2
    cat "$work/openbox.log" >&2
    exit 1
fi

"$@"
