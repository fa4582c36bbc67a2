#!/usr/bin/env bash
# Start-up time of commands that need no desktop, beside /bin/true.
#   bench/startup.sh [RUNS]   (at least 30; default 200)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}"
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DTOVRIN_TESTS=OFF -DTOVRIN_BENCH=ON >/dev/null
cmake --build build/bench --target tovrin time_commands >/dev/null
runs=$(( ${1:-200} < 30 ? 30 : ${1:-200} ))
env -u DISPLAY build/bench/time_commands "$runs" /bin/true \
  "build/bench/tovrin check-accessibility" "build/bench/tovrin frobnicate"
