#!/usr/bin/env bash
# Configures and builds one build folder: scripts/build.sh DIR [CMAKE OPTIONS...]
set -euo pipefail
dir=$1
shift
cmake -S "$(dirname "$0")/.." -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" --parallel "$(nproc)"
