#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, AddressSanitizer, UBSan) and runs each one for a
# while from its committed inputs: scripts/fuzz.sh [SECONDS [TARGET...]] (300 s and every
# target by default; JOBS=N runs N targets at once). New inputs go to build-fuzz/corpus/TARGET
# (emptied first, so every run starts from the committed inputs alone); an input that finds a
# fault is kept as build-fuzz/TARGET-crash-… and the run of that target stops there. Ends with
# one line per target: executions, executions per second, edges covered (cov), features (ft)
# and the size of the corpus it grew.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-300}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(storedday updatemanifest firefoxsession gitshortstat
                                     desktopentry defaultswrite settings)
jobs=${JOBS:-1}

"$root/scripts/build.sh" "$root/build-fuzz" -DMINDMETER_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++-14

run() {
    local name=$1
    local corpus="$root/build-fuzz/corpus/$name"
    local inputs=("$root/tests/fuzz/$name/seeds")
    [ -d "$root/tests/fuzz/$name/regressions" ] && inputs+=("$root/tests/fuzz/$name/regressions")
    local dict=()
    [ -f "$root/tests/fuzz/$name/dictionary" ] && dict=(-dict="$root/tests/fuzz/$name/dictionary")
    rm -rf "$corpus"
    mkdir -p "$corpus"
    "$root/build-fuzz/tests/fuzz/fuzz_$name" "${dict[@]}" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$root/build-fuzz/fuzz_$name-" \
        "$corpus" "${inputs[@]}" >"$root/build-fuzz/fuzz_$name.log" 2>&1 || true
}

running=0
for name in "${targets[@]}"; do
    run "$name" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n
        running=$((running - 1))
    fi
done
wait

printf '%-16s %12s %8s %6s %7s %7s  %s\n' target executions exec/s cov ft corpus outcome
for name in "${targets[@]}"; do
    log="$root/build-fuzz/fuzz_$name.log"
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    last=$(grep -E '^#[0-9]+' "$log" | tail -n1)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
    corp=$(sed -n 's/.* corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p' <<<"$last")
    outcome=$(grep -qE 'ERROR: libFuzzer|SUMMARY: (Address|Undefined)' "$log" &&
              grep -m1 -oE 'ERROR: libFuzzer: [a-z -]+|SUMMARY: [A-Za-z]+Sanitizer: [a-z-]+' "$log" ||
              echo "no fault")
    printf '%-16s %12s %8s %6s %7s %7s  %s\n' "$name" "$execs" "$rate" "$cov" "$ft" "$corp" "$outcome"
done
