#!/usr/bin/env bash
# Memory and CPU of the tray app beside Workrave (another tray app that watches input all
# day), both on one private X server with a window manager and a system tray, on a private
# session bus, for a fresh user.
#
#   bench/tray_footprint.sh [BUILD_DIR] [IDLE_MINUTES]
#
# Prints the time from launch to the tray icon (three runs), resident memory after start-up
# (dashboard never opened), after opening and closing the dashboard (two clicks on the tray
# icon), and the CPU seconds each process used over IDLE_MINUTES (default 10) of real
# idleness: the count starts once the X server has seen no input for longer than the idle
# timeout (one minute here), and the tokens earned meanwhile are printed (0: idle throughout).
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
minutes=${2:-10}
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$work"' EXIT

export HOME=$work/home XDG_DATA_HOME=$work/home/.local/share XDG_CONFIG_HOME=$work/home/.config
export XDG_CACHE_HOME=$work/home/.cache XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
"$build/src/mindmeter" defaults write mindmeter.hasLaunchedBefore -bool true
"$build/src/mindmeter" defaults write mindmeter.idleTimeoutMinutes -int 1

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
for _ in $(seq 50); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(cat "$work/display")"

rss() { awk '/^VmRSS/ {printf "%.1f", $2 / 1024}' "/proc/$1/status"; }
cpu() { awk -v hz="$(getconf CLK_TCK)" '{printf "%.2f", ($14 + $15) / hz}' "/proc/$1/stat"; }

# Resident memory by mapping, largest first (set SMAPS=1 to print it after start-up).
breakdown() {
    awk '/^[0-9a-f]/ {name = $6} /^Rss/ {rss[name] += $2}
         END {for (n in rss) if (rss[n] > 500) printf "%6d KiB %s\n", rss[n], n}' \
        "/proc/$1/smaps" | sort -rn | head -20
}

export -f rss cpu breakdown
export build minutes work SMAPS
dbus-run-session -- bash -c '
    openbox --sm-disable >/dev/null 2>&1 &
    sleep 1
    trayer --edge top --align right --widthtype pixel --width 200 --height 24 >/dev/null 2>&1 &
    sleep 1
    # Start-up: from launching to the tray icon being there, three times.
    for run in 1 2 3; do
        t0=$(date +%s%N)
        "$build/src/mindmeter" >/dev/null 2>&1 &
        first=$!
        xdotool search --sync --classname "^mindmeter$" >/dev/null
        echo "start-up to the tray icon: $(( ($(date +%s%N) - t0) / 1000000 )) ms"
        kill $first; wait $first 2>/dev/null; sleep 1
    done
    workrave >/dev/null 2>&1 &
    workrave=$!
    "$build/src/mindmeter" >"$work/mindmeter.log" 2>&1 &
    mindmeter=$!
    sleep 20
    echo "start-up, dashboard never opened: mindmeter $(rss $mindmeter) MiB, workrave $(rss $workrave) MiB"
    if [ -n "${SMAPS:-}" ]; then breakdown $mindmeter; fi
    # The dashboard as a user opens and closes it: two clicks on the tray icon. The
    # dashboard is the only visible window of that title at its size.
    dashboard() {
        for w in $(xdotool search --onlyvisible --name "^Mindmeter$" 2>/dev/null); do
            xdotool getwindowgeometry "$w" | grep -q "Geometry: 380x460" && echo "$w"
        done
    }
    icon=$(xdotool search --sync --onlyvisible --classname "^mindmeter$" | head -n1)
    xdotool mousemove --window "$icon" 4 4 click 1
    for _ in $(seq 100); do [ -n "$(dashboard)" ] && break; sleep 0.1; done
    [ -n "$(dashboard)" ] || echo "the dashboard did not open"
    sleep 2
    xdotool mousemove --window "$icon" 4 4 click 1
    for _ in $(seq 50); do [ -z "$(dashboard)" ] && break; sleep 0.1; done
    if [ -n "$(dashboard)" ]; then
        echo "the second click did not close the dashboard: its window is unmapped instead"
        for w in $(dashboard); do xdotool windowunmap "$w"; done
    fi
    sleep 3
    echo "after opening and closing the dashboard: mindmeter $(rss $mindmeter) MiB"
    # Xvfb counts idleness from its own start, and the clicks were input: wait until the
    # idle timeout has passed since the last input, so every measured minute is idle.
    while [ "$(xprintidle)" -lt 65000 ]; do sleep 1; done
    t0=$("$build/src/mindmeter" status --json | sed -n "s/.*\"totalWeighted\": *\([0-9]*\).*/\1/p")
    m0=$(cpu $mindmeter); w0=$(cpu $workrave)
    sleep $((minutes * 60))
    m1=$(cpu $mindmeter); w1=$(cpu $workrave)
    t1=$("$build/src/mindmeter" status --json | sed -n "s/.*\"totalWeighted\": *\([0-9]*\).*/\1/p")
    echo "CPU over $minutes idle minutes: mindmeter $(echo "$m1 - $m0" | bc) s, workrave $(echo "$w1 - $w0" | bc) s"
    echo "tokens earned while measuring: $((t1 - t0))"
    echo "mindmeter $(rss $mindmeter) MiB, workrave $(rss $workrave) MiB at the end"
    grep -v "^$" "$work/mindmeter.log" | head -5
'
