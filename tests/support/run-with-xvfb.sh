#!/usr/bin/env bash
# Runs a command inside a private X server (Xvfb) with a window manager (openbox), so
# desktop tests never touch the display of the person running them.
set -uo pipefail

work=$(mktemp -d)
trap 'kill ${wm:-} ${xvfb:-} 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

# Starts the X server and the window manager; fails if either does not come up in time.
start_display() {
    # -displayfd picks a free display number and writes it once the server accepts clients.
    : >"$work/display"
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
    xvfb=$!
    for _ in $(seq 100); do
        [ -s "$work/display" ] && break
        sleep 0.1
    done
    if [ ! -s "$work/display" ]; then
        echo "run-with-xvfb: Xvfb did not start" >&2
        cat "$work/xvfb.log" >&2
        return 1
    fi
    export DISPLAY=":$(head -n1 "$work/display")"
    openbox --sm-disable >"$work/openbox.log" 2>&1 &
    wm=$!
    # The window manager is ready once it announces itself on the root window. On a busy
    # machine that can take several seconds; without it no test can see an active window.
    for _ in $(seq 300); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && return 0
        kill -0 "$wm" 2>/dev/null || break # it gave up
        sleep 0.1
    done
    echo "run-with-xvfb: the window manager did not start" >&2
    cat "$work/openbox.log" "$work/xvfb.log" >&2
    return 1
}

unset WAYLAND_DISPLAY XDG_SESSION_TYPE
# Nor their session bus: a bus address nobody listens on fails at once. Without any address,
# D-Bus would start a bus for the private display (autolaunch), forking inside the program
# under test; tests that need a bus run a private one.
export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-session-bus"

# A server that comes up but cannot be reached (seen once on a loaded machine) is started
# again rather than failing the tests behind it.
for attempt in 1 2 3; do
    start_display && break
    kill "$wm" "$xvfb" 2>/dev/null
    wait "$wm" "$xvfb" 2>/dev/null
    wm= xvfb=
    [ "$attempt" = 3 ] && exit 1
    echo "run-with-xvfb: starting the display again" >&2
done

"$@"
