#!/usr/bin/env bash
# Builds tovrin with g++ and with clang, warnings as errors, and runs every
# test: the unit tests on the fake desktop, the X11 backend and the binary
# against real applications, one scenario table on each desktop of the tests
# (Xvfb, headless sway, headless weston; as the unprivileged user
# tovrin-test, created when missing: compositors refuse to run as root), the
# same unit tests under
# AddressSanitizer with UndefinedBehaviorSanitizer and the concurrent parts
# under ThreadSanitizer, a short fuzzing run of the RTF converter, and the
# type-check of the macOS backend, and the Debian package with its manual
# page. Any failure or finding fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}" \
  clang libclang-rt-14-dev libgtest-dev nlohmann-json3-dev \
  xvfb xauth x11-utils x11-xkb-utils xclip xsel xdotool \
  matchbox-window-manager mousepad chromium pcmanfm abiword xterm \
  xfce4-clipman dbus at-spi2-core gnome-text-editor featherpad \
  sway foot wl-clipboard wtype weston kwin-wayland qtwayland5 \
  mutter python3-gi gir1.2-gtk-4.0 firefox-esr \
  nodejs python3 jq dpkg-dev groff-base mandoc

jobs=$(nproc)
sanitize() {  # sanitize NAME FLAGS: a clang build dir with those sanitizers
  # The C compiler (for wayland-scanner's glue) is clang as well: gcc
  # would bring its own sanitizer runtimes into the link.
  cmake -S . -B "build/$1" -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_C_COMPILER=clang \
    -DCMAKE_BUILD_TYPE=Debug -DTOVRIN_WERROR=ON -DTOVRIN_STATIC_DEPS=OFF \
    -DTOVRIN_E2E=OFF -DCMAKE_CXX_FLAGS="$2 -fno-omit-frame-pointer" \
    -DCMAKE_C_FLAGS="$2 -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS="$2" >/dev/null
  cmake --build "build/$1" -j "$jobs"
}

echo "== g++, warnings as errors: unit, X11 and end-to-end tests"
cmake -S . -B build/gcc -G Ninja -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_C_COMPILER=gcc -DTOVRIN_WERROR=ON >/dev/null
cmake --build build/gcc -j "$jobs"
ctest --test-dir build/gcc --output-on-failure -j "$jobs"

echo "== clang, AddressSanitizer and UndefinedBehaviorSanitizer"
sanitize asan "-fsanitize=address,undefined -fno-sanitize-recover=all"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"

echo "== clang, ThreadSanitizer: the bounded reads and the X11 pasteboard"
sanitize tsan "-fsanitize=thread"
# Left out: the tests that fork the test binary to stand in for a fresh
# tovrin, which opens its display on a thread of its own. TSan cannot follow
# threads started after a fork; those tests are about processes anyway.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build/tsan --output-on-failure -j "$jobs" \
  -R 'BoundedRead|SystemSemaphore|PasteboardX11|ClipboardServerX11|SelectionX11' \
  -E 'ServerProcessStartedAhead|Killed'

echo "== clang, libFuzzer: the RTF converter for 30 s"
cmake -S . -B build/fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_COMPILER=clang \
  -DTOVRIN_TESTS=OFF -DTOVRIN_FUZZ=ON -DTOVRIN_WERROR=ON >/dev/null
cmake --build build/fuzz --target rtf_to_html_fuzz
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
build/fuzz/rtf_to_html_fuzz -max_total_time=30 -max_len=8192 \
  -print_final_stats=1 "$corpus" tests/rtf_samples 2>&1 | tail -n 3

echo "== the macOS backend, type-checked against the declared Apple interfaces"
bash tests/macos/typecheck.sh
bash tests/macos/typecheck.sh --self-test

echo "== the Debian package, the manual page and the install"
bash scripts/package_test.sh
