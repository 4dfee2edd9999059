#!/usr/bin/env bash
# Builds and runs the settings-file benchmark; prints the median times. Optional argument:
# the number of runs per figure (default 7).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=${BUILD_DIR:-build-bench-settings}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target bench_settings >/dev/null
"$build/bench/bench_settings" "${1:-7}"
