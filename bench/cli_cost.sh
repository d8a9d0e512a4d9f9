#!/usr/bin/env bash
# Instructions of one command-line call (callgrind, the whole process from exec to exit) on
# stores holding today only, one year and three years of days (400 sessions a day), each after
# one warm-up call of the same command. Prints a Markdown table, each figure with its ratio to
# the today-only store.
#
#   bench/cli_cost.sh [BUILD_DIR]        (BUILD_DIR defaults to build; it must be built)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
exe=$build/src/mindmeter
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

commands=("status" "status --json" "status --format plain" "status --format waybar"
          "history" "history --json" "summary" "export --csv -")
sizes=(0 365 1095)

for days in "${sizes[@]}"; do
    mkdir -p "$work/$days/mindmeter"
    "$build/bench/make_history_store" "$work/$days/mindmeter/mindmeter.sqlite3" "$days"
done

# Instructions of one call: count ARGS...
count() {
    local out=$work/cg.out
    rm -f "$out"
    XDG_DATA_HOME=$work/$days valgrind --tool=callgrind --callgrind-out-file="$out" \
        "$exe" "$@" >/dev/null 2>&1
    grep -m1 '^summary:' "$out" | awk '{print $2}'
}

echo "| Command | today only | one year | three years |"
echo "|---|---|---|---|"
for c in "${commands[@]}"; do
    read -ra args <<<"$c"
    line="| \`$c\`"
    base=
    for days in "${sizes[@]}"; do
        XDG_DATA_HOME=$work/$days "$exe" "${args[@]}" >/dev/null # the first call after the days were written
        n=$(count "${args[@]}")
        if [ -z "$base" ]; then
            base=$n
            line+=" | $(awk -v n="$n" 'BEGIN { printf "%.1f M", n / 1e6 }')"
        else
            line+=" | $(awk -v n="$n" -v b="$base" 'BEGIN { printf "%.1f M (%.2f×)", n / 1e6, n / b }')"
        fi
    done
    echo "$line |"
done
