#!/usr/bin/env bash
# A short libFuzzer run of one target from its committed inputs: smoke.sh TARGET SECONDS DIR...
# A file named "dictionary" beside the first folder is handed to libFuzzer as its -dict.
# New inputs go to a scratch folder, never into the source tree; an input that finds a fault
# is kept beside the build as TARGET-crash-… (or -leak-, -timeout-).
set -euo pipefail
target=$1
seconds=$2
shift 2
dict=()
[ -f "$1/../dictionary" ] && dict=(-dict="$1/../dictionary")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="$PWD/$(basename "$target")-" "${dict[@]}" "$work" "$@"
