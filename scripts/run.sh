#!/usr/bin/env bash
# Installs what Mindmeter needs, builds it and runs it; arguments go to mindmeter.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build" -DMINDMETER_BUILD_TESTS=OFF -DMINDMETER_BUILD_BENCH=OFF
exec "$root/build/src/mindmeter" "$@"
