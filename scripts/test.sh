#!/usr/bin/env bash
# Installs what Mindmeter needs, builds it and runs every test: once in a normal build and
# once under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"

echo "== Build and test"
"$root/scripts/build.sh" "$root/build"
ctest --test-dir "$root/build" --output-on-failure

echo "== Build and test under AddressSanitizer and UBSan"
"$root/scripts/build.sh" "$root/build-sanitize" -DMINDMETER_SANITIZE=ON -DMINDMETER_BUILD_BENCH=OFF
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    LSAN_OPTIONS="suppressions=$root/tests/support/lsan-suppressions.txt" \
    ctest --test-dir "$root/build-sanitize" --output-on-failure
