#!/usr/bin/env bash
# Regenerates the table of docs/benchmarks.md: builds the benchmarks, runs each, and prints
# the table in Markdown. With --update it also writes the table into docs/benchmarks.md,
# between the "table" markers.
#
#   bench/run.sh [--update] [BUILD_DIR]        (BUILD_DIR defaults to build)
#
# Wall-clock figures are the middle of three runs; instruction counts come from one run under
# callgrind, which does not depend on how busy the machine is. The whole run takes a few
# minutes (most of it the file-watch benchmark's tree of 200,000 files), plus the idle
# benchmark's IDLE_ROUNDS (default 3) counts of IDLE_MINUTES (default 10) of measured idleness
# and about two minutes around them (IDLE_KERNEL_MONITOR=off: see bench/idle_footprint.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
update=
if [ "${1:-}" = --update ]; then
    update=1
    shift
fi
# Absolute: the callgrind run below starts from a folder of its own.
build=$(realpath -m "${1:-$root/build}")
"$root/scripts/build.sh" "$build"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The middle of three numbers.
middle() { printf '%s\n' "$@" | sort -g | sed -n 2p; }

for i in 1 2 3; do
    "$build/bench/bench_loop" >"$work/loop$i"
    "$build/bench/bench_history" >"$work/history$i"
done
(cd "$work" && valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file=cg.%p \
    "$build/bench/bench_loop" >/dev/null 2>&1)
# Instructions of one callgrind phase, divided by its repetitions.
per() {
    local total
    total=$(grep -l "Client Request: $1\$" "$work"/cg.* | xargs grep -m1 '^summary:' | awk '{print $2}')
    awk -v t="$total" -v n="$2" 'BEGIN { printf "%\047.0f", t / n }'
}
"$build/bench/bench_file_watch" >"$work/watch"

m() { # middle of three runs of one figure: m FILEBASE LINE-PATTERN NUMBER-LABEL
    middle "$(grep "$2" "$work/${1}1" | grep -oE "$3 [0-9.]+" | grep -oE '[0-9.]+$')" \
        "$(grep "$2" "$work/${1}2" | grep -oE "$3 [0-9.]+" | grep -oE '[0-9.]+$')" \
        "$(grep "$2" "$work/${1}3" | grep -oE "$3 [0-9.]+" | grep -oE '[0-9.]+$')"
}

table=$(cat <<TABLE
| What | Figure | Measured by |
|---|---|---|
| Tick in an application that earns nothing (no session stored) | $(per tick-no-session 6000) instructions, $(m loop 'no session' 'session:') µs | \`bench_loop\` |
| Tick over an eight-hour day in an editor (every sixth stores a session and writes the day, 0 → 480 sessions) | $(per tick-working-day 2880) instructions, $(m loop 'working day' 'stored\):') µs | \`bench_loop\` |
| Working-mode engine tick | $(per engine-tick 6000) instructions, $(m loop 'engine tick' 'tick:') µs | \`bench_loop\` |
| Activation to stored session (the stay closed, its session recorded, a day of ~600 sessions written) | $(per switch 200) instructions; median $(m loop 'switch' 'median') µs, p95 $(m loop 'switch' 'p95') µs | \`bench_loop\` |
| History refresh at one year, cold (365 days × 400 sessions, nothing decoded yet) | median $(m history 'cold' 'median') ms | \`bench_history\` |
| History refresh at one year, warm (one more session today) | median $(m history 'warm' 'median') ms, p95 $(m history 'warm' 'p95') ms | \`bench_history\` |
| Persist: \`addSession\` with the write of the whole day (400 → 600 sessions) | median $(m history 'addSession' 'median') ms, p95 $(m history 'addSession' 'p95') ms | \`bench_history\` |
| File watcher start-up: walk and watches of 20,000 folders | $(grep -oE '[0-9]+ ms wall' "$work/watch" | head -1), $(grep -oE '[0-9]+ ms CPU' "$work/watch" | head -1) | \`bench_file_watch\` |
| File watcher: CPU per save seen | $(grep -oE '[0-9.]+ us per save' "$work/watch" | head -1) | \`bench_file_watch\` |
| File watcher: \`modifiedWithin(45)\` over 10,000 remembered changes | $(grep -oE 'median [0-9.]+ ms' "$work/watch" | head -1) | \`bench_file_watch\` |
TABLE
)
echo "$table"

# Idle cost and memory of the tray app and `track` beside the floor program, over
# IDLE_ROUNDS counts of IDLE_MINUTES each.
"$root/bench/idle_footprint.sh" "$build" "${IDLE_MINUTES:-10}" "${IDLE_ROUNDS:-3}" >"$work/idle"
figure() { grep "^$1" "$work/idle" | awk -v n="$2" '{print $n}'; }
median() { sort -g | awk '{a[NR] = $1} END {print NR % 2 ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'; }
# One process's figure over the rounds (column 3 is the floor, 4 the tray app, 5 `track`, 6
# the bare Qt tray icon):
# the median, and its ratio to the floor counted in the same round, the median and the range.
rounds() { # rounds PATTERN COLUMN FORMAT
    local value ratios
    value=$(figure "$1" "$2" | median)
    ratios=$(grep "^$1" "$work/idle" | awk -v n="$2" '{printf "%.1f\n", $n / $3}' | sort -g)
    printf "$3" "$value"
    if [ "$2" != 3 ]; then
        printf ' (%s× the floor' "$(echo "$ratios" | median)"
        [ "$(echo "$ratios" | head -1)" = "$(echo "$ratios" | tail -1)" ] ||
            printf '; rounds %s–%s×' "$(echo "$ratios" | head -1)" "$(echo "$ratios" | tail -1)"
        printf ')'
    fi
}
mem() { echo "$(figure "memory $1" 4) MiB (PSS $(figure "memory $1" 6) MiB)"; }
idle_table=$(cat <<TABLE
| What | Figure | Target |
|---|---|---|
| Floor program: CPU, wake-ups per idle hour | $(rounds "idle cpu" 3 "%.3f s"), $(rounds "idle wakeups" 3 %.0f) | |
| Tray app: CPU per idle hour | $(rounds "idle cpu" 4 "%.3f s") | at most 2× the floor |
| Tray app: wake-ups per idle hour | $(rounds "idle wakeups" 4 %.0f) | at most 2× the floor |
| \`mindmeter track\`: CPU per idle hour | $(rounds "idle cpu" 5 "%.3f s") | at most 2× the floor |
| \`mindmeter track\`: wake-ups per idle hour | $(rounds "idle wakeups" 5 %.0f) | at most 2× the floor |
| Bare Qt tray icon (\`idle_qt_tray\`): CPU, wake-ups per idle hour | $(rounds "idle cpu" 6 "%.3f s"), $(rounds "idle wakeups" 6 %.0f) | |
| Tray app resident, dashboard never opened | $(mem start-up) | at most 32 MiB |
| Tray app resident, dashboard open | $(mem dashboard-open) | at most 56 MiB |
| Tray app resident, 5 s after closing the dashboard | $(mem closed-5s) | |
| Tray app resident, about 70 s after closing it | $(mem closed-70s) | near the first figure |
| Tray app resident after the idle count | $(mem end) | |
TABLE
)
idle_table+=$'\n\n'"(Counted by $(grep "^idle counted-by" "$work/idle" | cut -d' ' -f3-); medians; the \
kernel's data-access monitor $(grep "^idle kernel-monitor" "$work/idle" | cut -d' ' -f3-).)"
echo
echo "$idle_table"

if [ -n "$update" ]; then
    doc="$root/docs/benchmarks.md"
    awk -v table="$idle_table" '
        /<!-- idle table: begin -->/ { print; print table; skip = 1; next }
        /<!-- idle table: end -->/ { skip = 0 }
        !skip { print }' "$doc" >"$work/idle-doc"
    cp "$work/idle-doc" "$doc"
    awk -v table="$table" '
        /<!-- table: begin -->/ { print; print table; skip = 1; next }
        /<!-- table: end -->/ { skip = 0 }
        !skip { print }' "$doc" >"$work/doc"
    cp "$work/doc" "$doc"
    echo "docs/benchmarks.md updated"
fi

# --- The command line at any history: instructions per call on stores of a day, one year and
# three years (bench/cli_cost.sh), between the "cli table" markers of docs/benchmarks.md.
cli_table=$("$root/bench/cli_cost.sh" "$build")
echo
echo "$cli_table"
if [ -n "$update" ]; then
    doc="$root/docs/benchmarks.md"
    awk -v table="$cli_table" '
        /<!-- cli table: begin -->/ { print; print table; skip = 1; next }
        /<!-- cli table: end -->/ { skip = 0 }
        !skip { print }' "$doc" >"$work/cli-doc"
    cp "$work/cli-doc" "$doc"
    echo "docs/benchmarks.md: command-line table updated"
fi
