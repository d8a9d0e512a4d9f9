#!/usr/bin/env bash
# Installs what Mindmeter needs, builds it and runs every test: once in a normal build, once
# under AddressSanitizer and UndefinedBehaviorSanitizer, and a short libFuzzer run of every
# fuzz target from its committed inputs (scripts/fuzz.sh runs them for longer).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"

echo "== Build and test"
"$root/scripts/build.sh" "$root/build"
ctest --test-dir "$root/build" --output-on-failure

echo "== Build and test under AddressSanitizer and UBSan"
"$root/scripts/build.sh" "$root/build-sanitize" -DMINDMETER_SANITIZE=ON -DMINDMETER_BUILD_BENCH=OFF
# intercept_tls_get_addr=0: GCC 12's runtime takes any thread-local block of a loaded plugin that
# starts 16 bytes into a page for one with an old glibc header, records a range read from the
# words before it, and the leak check at exit then crashes scanning it ("Tracer caught signal
# 11") now and then. The blocks stay reachable as ordinary heap allocations.
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:intercept_tls_get_addr=0 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    LSAN_OPTIONS="suppressions=$root/tests/support/lsan-suppressions.txt" \
    ctest --test-dir "$root/build-sanitize" --output-on-failure

echo "== Fuzz smoke run (libFuzzer, a few seconds per target)"
"$root/scripts/build.sh" "$root/build-fuzz" -DMINDMETER_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++-14
ctest --test-dir "$root/build-fuzz" --output-on-failure
