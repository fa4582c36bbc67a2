#!/usr/bin/env bash
# Builds tovrin and runs it as a host program would.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}"

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DTOVRIN_TESTS=OFF >/dev/null
cmake --build build/release --target tovrin

echo "\$ tovrin check-accessibility"
build/release/tovrin check-accessibility
