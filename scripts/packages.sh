# Sourced by the other scripts: installs the Debian packages they need when
# they are missing. Needs root, or sudo.

# The packages that building tovrin needs.
TOVRIN_BUILD_PACKAGES=(
  build-essential cmake ninja-build pkg-config
  libutf8proc-dev liburiparser-dev libbsd-dev
  libx11-dev libx11-xcb-dev libxcb1-dev libxcb-res0-dev libxtst-dev libxext-dev
  libsystemd-dev libwayland-dev libxkbcommon-dev plasma-wayland-protocols
)

# ensure_packages NAME...: installs those of NAME... that are not installed.
ensure_packages() {
  local missing=()
  local package
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null |
        grep -q 'install ok installed'; then
      missing+=("$package")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=()
  [ "$(id -u)" -ne 0 ] && sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq \
    --no-install-recommends "${missing[@]}"
}

# For the benchmarks on compositors, which refuse to run as root: installs
# PACKAGES with the build's own, builds TARGETS (a list in one word) in
# build/bench, and runs the calling benchmark SCRIPT again with RUNS as the
# unprivileged user tovrin-test; returns only in that second run.
#   bench_as_test_user SCRIPT RUNS "TARGETS" PACKAGES...
bench_as_test_user() {
  [ "${TOVRIN_BENCH_INNER:-}" = "" ] || return 0
  local script=$1 runs=$2 targets=$3
  shift 3
  ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}" "$@"
  cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DTOVRIN_TESTS=OFF -DTOVRIN_BENCH=ON >/dev/null
  # shellcheck disable=SC2086 # the targets are words
  cmake --build build/bench --target $targets >/dev/null
  TOVRIN_BENCH_INNER=1 exec bash scripts/as_test_user.sh \
    bash "$PWD/$script" "$runs"
}
