#!/usr/bin/env bash
# Checks what a user installs: the Release build's Debian package (its
# control data, its files, the binary run from a throw-away root), the
# manual page (no warnings from groff or mandoc) and `cmake --install`.
# Called by test.sh; needs the packages that test.sh installs.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
build=build/package
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DTOVRIN_TESTS=OFF >/dev/null
cmake --build "$build" -j "$jobs"

fail() { echo "package test: $*" >&2; exit 1; }

warnings=$(groff -ww -man -z "$build/tovrin.1" 2>&1)
[ -z "$warnings" ] || fail "groff: $warnings"
mandoc -T lint -W warning "$build/tovrin.1" || fail "mandoc found the above"
version=$(sed -n 's/^project(tovrin VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
grep -q "\"tovrin $version\"" "$build/tovrin.1" ||
  fail "the manual page does not carry version $version"

rm -f "$build"/tovrin_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb="$build/tovrin_${version}_$(dpkg --print-architecture).deb"
[ -f "$deb" ] || fail "no $deb"
info=$(dpkg-deb --info "$deb")
for field in "Package: tovrin" "Version: $version" "Depends: libc6" \
    "Section: utils" "Maintainer: "; do
  grep -q "^ $field" <<<"$info" || fail "no '$field' in the control data"
done
contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
for file in ./usr/bin/tovrin ./usr/libexec/tovrin/tovrin-kwin-input \
    ./usr/share/man/man1/tovrin.1 ./usr/share/doc/tovrin/copyright \
    ./usr/share/applications/tovrin.desktop; do
  grep -qx "$file" <<<"$contents" || fail "$file is not in the package"
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
dpkg -x "$deb" "$scratch/root"
# No display and no bus: nothing to read selections with.
answer=$(env -i PATH=/usr/bin:/bin "$scratch/root/usr/bin/tovrin" \
  check-accessibility 2>/dev/null)
[ "$answer" = '{"success":true,"granted":false}' ] ||
  fail "the packaged tovrin answered: $answer"
# KWin lets a program use its fake input and window list when an installed
# .desktop file names it by absolute path and lists those interfaces: the
# small helper that types for tovrin.
helper=/usr/libexec/tovrin/tovrin-kwin-input
grep -qx "Exec=$helper" "$scratch/root/usr/share/applications/tovrin.desktop" ||
  fail "the .desktop file does not name $helper"

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
for file in bin/tovrin libexec/tovrin/tovrin-kwin-input \
    share/man/man1/tovrin.1 share/doc/tovrin/copyright \
    share/applications/tovrin.desktop; do
  [ -f "$scratch/prefix/$file" ] || fail "cmake --install left out $file"
done
echo "package test: $(basename "$deb") and cmake --install are complete"
