#!/usr/bin/env bash
# Runs a command inside a private X server (Xvfb) with a window manager (openbox), so
# desktop tests never touch the display of the person running them.
set -uo pipefail

work=$(mktemp -d)
trap 'kill ${wm:-} ${xvfb:-} 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
unset WAYLAND_DISPLAY XDG_SESSION_TYPE
# Nor their session bus: a bus address nobody listens on fails at once. Without any address,
# D-Bus would start a bus for the private display (autolaunch), forking inside the program
# under test; tests that need a bus run a private one.
export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-session-bus"

# Three tries: on a loaded machine a server once came up that its window manager could not reach.
for attempt in 1 2 3; do
    kill ${wm:-} ${xvfb:-} 2>/dev/null
    wait 2>/dev/null
    # -displayfd picks a free display number and writes it once the server accepts clients.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
    xvfb=$!
    for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
    export DISPLAY=":$(head -n1 "$work/display")"
    openbox --sm-disable >"$work/openbox.log" 2>&1 &
    wm=$!
    # The window manager is ready once it announces itself on the root window. On a busy
    # machine that can take several seconds; without it no test can see an active window.
    for _ in $(seq 300); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && ready=1 && break 2
        kill -0 $wm 2>/dev/null || break # it gave up
        sleep 0.1
    done
    echo "run-with-xvfb: the X server or its window manager did not start (try $attempt of 3)" >&2
    cat "$work/xvfb.log" "$work/openbox.log" >&2
done
[ -n "${ready:-}" ] || exit 1

"$@"
