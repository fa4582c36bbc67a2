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
