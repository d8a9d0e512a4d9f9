#!/usr/bin/env bash
# CPU and wake-ups per idle hour of the tray app and of `mindmeter track`, measured in the
# same run beside the floor program (bench/idle_floor: one idle-time question to the X
# server every ten seconds and nothing else) and beside the least a Qt tray icon costs
# (bench/idle_qt_tray: QApplication, a QSystemTrayIcon with a menu, a ten-second timer that
# does nothing), and the tray app's memory before, while and after its dashboard is open.
#
#   bench/idle_footprint.sh [BUILD_DIR] [IDLE_MINUTES] [ROUNDS]
#
# IDLE_MINUTES defaults to 10, ROUNDS (counts of IDLE_MINUTES each, one after the other, by the
# same processes) to 1. One machine's figures move from run to run far more than processes
# counted side by side differ, so a ratio to the floor is best read over several rounds.
#
# Everything runs on one private X server (Xvfb, openbox, the trayer system tray) and a
# private session bus, each Mindmeter process for a fresh user of its own (the tray app and
# `track` would otherwise share one store and one tracking lock). The idle timeout is one
# minute; the count starts once the X server has seen no input for 105 s (`xprintidle`), so
# every counted minute is idle and the break has settled, and lasts IDLE_MINUTES; figures are
# scaled to an hour.
#
# The kernel's data-access monitor (DAMON), where it runs, makes every process pay at each
# wake-up for the memory it keeps mapped (docs/benchmarks.md); the output says whether it runs.
# With IDLE_KERNEL_MONITOR=off (as root) the script switches a running monitor off for the
# run and on again when it ends, to count what a machine without it pays.
#
# Counted with `perf stat -e task-clock,context-switches -p PID` over all the process's
# threads, threads started during the count included. CPU: task-clock, the time on a CPU.
# Wake-ups: context switches, voluntary (the thread went to sleep: each is followed by a
# wake-up) and involuntary. Without a working perf: CPU from /proc/PID/stat (user + system,
# in clock ticks, too coarse for the floor) and the sum of voluntary_ctxt_switches and
# nonvoluntary_ctxt_switches over /proc/PID/task/*/status (threads that end are missed).
# Memory: VmRSS and Pss (/proc/PID/smaps_rollup) of the tray app.
#
# Output, one figure a line, for bench/run.sh:
#   idle cpu-seconds-per-hour <floor> <tray> <track> <qt-tray>    (one line a round)
#   idle wakeups-per-hour <floor> <tray> <track> <qt-tray>        (one line a round)
#   idle counted-by <perf|proc> over <minutes> minutes, <rounds> rounds
#   idle kernel-monitor <on|off|off (switched off for this run)>
#   memory <when> rss <MiB> pss <MiB>
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
minutes=${2:-10}
rounds=${3:-1}
work=$(mktemp -d)
monitors=() # the monitors this run switched off, switched on again at its end
restore_monitors() { for state in "${monitors[@]}"; do echo on >"$state" || true; done; }
trap 'kill $(jobs -p) 2>/dev/null; wait 2>/dev/null; restore_monitors; rm -rf "$work"' EXIT
if [ "${IDLE_KERNEL_MONITOR:-}" = off ]; then
    for state in /sys/kernel/mm/damon/admin/kdamonds/*/state; do
        grep -qx on "$state" 2>/dev/null || continue
        echo off >"$state" || { echo "cannot switch the kernel's data-access monitor off" >&2; exit 1; }
        monitors+=("$state")
    done
fi

# A fresh user: HOME and the XDG folders under $1.
user_env() {
    export HOME=$1 XDG_DATA_HOME=$1/.local/share XDG_CONFIG_HOME=$1/.config
    export XDG_CACHE_HOME=$1/.cache
    mkdir -p "$1"
    "$build/src/mindmeter" defaults write mindmeter.hasLaunchedBefore -bool true
    "$build/src/mindmeter" defaults write mindmeter.idleTimeoutMinutes -int 1
}
export XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
(user_env "$work/tray") && (user_env "$work/track")

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(cat "$work/display")"

switched_off=${monitors[*]:-}
export build minutes rounds work switched_off
export -f user_env
dbus-run-session -- bash -euo pipefail -c '
    cpu() { awk -v hz="$(getconf CLK_TCK)" "{printf \"%.3f\", (\$14 + \$15) / hz}" "/proc/$1/stat"; }
    switches() {
        cat /proc/$1/task/*/status 2>/dev/null |
            awk "/^(non)?voluntary_ctxt_switches/ {n += \$2} END {print n}"
    }
    memory() {
        awk -v when="$2" "/^VmRSS/ {rss = \$2} END {printf \"memory %s rss %.1f\", when, rss / 1024}" \
            "/proc/$1/status"
        awk "/^Pss:/ {printf \" pss %.1f\n\", \$2 / 1024}" "/proc/$1/smaps_rollup"
    }
    openbox --sm-disable >/dev/null 2>&1 &
    for _ in $(seq 100); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q "window id" && break
        sleep 0.1
    done
    trayer --edge top --align right --widthtype pixel --width 200 --height 24 >/dev/null 2>&1 &
    sleep 1

    "$build/bench/idle_floor" &
    floor=$!
    (export HOME="$work/tray"; user_env "$HOME" >/dev/null
     exec "$build/src/mindmeter" >"$work/tray.log" 2>&1) &
    tray=$!
    (export HOME="$work/track"; user_env "$HOME" >/dev/null
     exec "$build/src/mindmeter" track >"$work/track.log" 2>&1) &
    track=$!
    "$build/bench/idle_qt_tray" &
    qttray=$!
    icon=$(xdotool search --sync --onlyvisible --classname "^mindmeter$" | head -n1)
    sleep 35
    memory $tray "start-up"

    # The dashboard as a user opens and closes it: two clicks on the tray icon. It is the
    # only visible window of that title at its size.
    dashboard() {
        for w in $(xdotool search --onlyvisible --name "^Mindmeter$" 2>/dev/null); do
            xdotool getwindowgeometry "$w" | grep -q "Geometry: 380x460" && echo "$w"
        done
    }
    xdotool mousemove --window "$icon" 4 4 click 1
    for _ in $(seq 200); do [ -n "$(dashboard)" ] && break; sleep 0.1; done
    [ -n "$(dashboard)" ] || echo "the dashboard did not open" >&2
    sleep 5
    memory $tray "dashboard-open"
    xdotool mousemove --window "$icon" 4 4 click 1
    for _ in $(seq 100); do [ -z "$(dashboard)" ] && break; sleep 0.1; done
    [ -z "$(dashboard)" ] || echo "the second click did not close the dashboard" >&2
    sleep 5
    memory $tray "closed-5s"

    # Idle from the last input on: the count starts once the idle timeout has passed.
    while [ "$(xprintidle)" -lt 65000 ]; do sleep 1; done
    memory $tray "closed-70s"
    # The first idle tick after the timeout starts the break; 30 s later each process hands
    # memory back once. The count begins after that, in the steady idle state.
    while [ "$(xprintidle)" -lt 105000 ]; do sleep 1; done
    seconds=$((minutes * 60))
    use_perf=
    if perf stat -e task-clock,context-switches -p $floor -- sleep 0.1 >/dev/null 2>&1; then
        use_perf=1
    fi
    for round in $(seq "$rounds"); do
        counters=()
        for name in floor tray track qttray; do
            pid=${!name}
            echo "$(cpu $pid) $(switches $pid)" >"$work/$name.before"
            if [ -n "$use_perf" ]; then
                perf stat -x, -e task-clock,context-switches -p $pid -o "$work/$name.perf" \
                    -- sleep $seconds &
                counters+=($!)
            fi
        done
        sleep $seconds
        [ ${#counters[@]} -eq 0 ] || wait "${counters[@]}"
        cpus=() wakes=()
        for name in floor tray track qttray; do
            pid=${!name}
            read -r c0 s0 <"$work/$name.before"
            if [ -n "$use_perf" ]; then
                c=$(awk -F, "/task-clock/ {printf \"%.4f\", \$1 / 1000}" "$work/$name.perf")
                s=$(awk -F, "/context-switches/ {print \$1}" "$work/$name.perf")
            else
                c=$(awk -v a="$c0" -v b="$(cpu $pid)" "BEGIN {print b - a}")
                s=$(( $(switches $pid) - s0 ))
            fi
            cpus+=("$(awk -v c="$c" -v m="$minutes" "BEGIN {printf \"%.3f\", c * 60 / m}")")
            wakes+=("$(awk -v s="$s" -v m="$minutes" "BEGIN {printf \"%.0f\", s * 60 / m}")")
        done
        echo "idle cpu-seconds-per-hour ${cpus[*]}"
        echo "idle wakeups-per-hour ${wakes[*]}"
    done
    echo "idle counted-by $([ -n "$use_perf" ] && echo perf || echo proc) over $minutes minutes, $rounds rounds"
    monitor=off
    grep -qx on /sys/kernel/mm/damon/admin/kdamonds/*/state 2>/dev/null && monitor=on
    [ -z "$switched_off" ] || monitor="off (switched off for this run)"
    echo "idle kernel-monitor $monitor"
    memory $tray "end"
    kill $floor $tray $track $qttray
    wait $floor $tray $track $qttray 2>/dev/null || true
    for name in tray track; do
        grep -v "^$" "$work/$name.log" | grep -iv "following\|tracking;" | head -3 |
            sed "s/^/$name: /" >&2 || true
    done
'
