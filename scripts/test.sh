#!/usr/bin/env bash
# Builds tovrin with g++ and with clang, warnings as errors, and runs every
# test: the unit tests on the fake desktop, the binary as a host runs it,
# and the same tests again under AddressSanitizer and
# UndefinedBehaviorSanitizer. Any failure or sanitizer finding fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}" \
  clang libclang-rt-14-dev libgtest-dev nlohmann-json3-dev \
  xvfb xauth x11-utils xclip xsel xdotool matchbox-window-manager

jobs=$(nproc)

echo "== g++, warnings as errors"
cmake -S . -B build/gcc -G Ninja -DCMAKE_CXX_COMPILER=g++ \
  -DTOVRIN_WERROR=ON >/dev/null
cmake --build build/gcc -j "$jobs"
ctest --test-dir build/gcc --output-on-failure -j "$jobs"

echo "== clang, AddressSanitizer and UndefinedBehaviorSanitizer"
sanitizers="-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
cmake -S . -B build/asan -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Debug -DTOVRIN_WERROR=ON -DTOVRIN_STATIC_DEPS=OFF \
  -DCMAKE_CXX_FLAGS="$sanitizers" \
  -DCMAKE_EXE_LINKER_FLAGS="$sanitizers" >/dev/null
cmake --build build/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"
