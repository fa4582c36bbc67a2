#!/usr/bin/env bash
# Builds tovrin and shows it at work on a private X desktop with real
# applications: an editor's selection read directly, a browser page copied
# with its HTML, files copied from a file manager. The user's clipboard
# text is given back after every copy.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}" xvfb xauth x11-utils xclip \
  xdotool matchbox-window-manager mousepad chromium pcmanfm \
  sway wtype wl-clipboard jq gnome-text-editor

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DTOVRIN_TESTS=OFF >/dev/null
cmake --build build/release --target tovrin
tovrin=$PWD/build/release/tovrin

source scripts/desktop.sh
start_desktop
echo "A private desktop on DISPLAY=$DISPLAY"

# get_selection: runs tovrin as a host would and shows what it said.
get_selection() {
  echo
  echo "\$ tovrin get-selection"
  "$tovrin" get-selection 2> >(sed 's/^/  stderr: /' >&2)
  sleep 0.1
  echo "  (the clipboard holds again: \"$(timeout 5 xclip -o -selection clipboard)\")"
}

own_selection clipboard "the user's clipboard text"

echo
echo "== 1. An editor: the selection is read directly"
printf 'Hello from a real editor.\nSecond line, caf\xc3\xa9.' \
  >"$DESKTOP_DIR/note.txt"
desktop_start mousepad "$DESKTOP_DIR/note.txt"
editor=$(visible_window mousepad)
select_all "$editor"
sleep 0.3
get_selection

echo
echo "== 2. A browser page: copied, with its HTML"
cat >"$DESKTOP_DIR/page.html" <<'HTML'
<html><body><h1>tovrin</h1><p>Selected <b>bold</b> and <i>italic</i> words.</p></body></html>
HTML
desktop_start chromium --no-sandbox --no-first-run --disable-gpu \
  --disable-background-networking --disable-component-update --disable-sync \
  --password-store=basic --user-data-dir="$DESKTOP_DIR/chromium" \
  "file://$DESKTOP_DIR/page.html"
browser=$(visible_window chromium)
sleep 2
select_all "$browser"
sleep 0.5
# Another program takes PRIMARY: the browser keeps its selection, which only
# a copy brings now.
own_selection primary "another program's selection"
get_selection

echo
echo "== 3. A file manager: copied files give their paths"
mkdir -p "$DESKTOP_DIR/files"
echo one >"$DESKTOP_DIR/files/report.txt"
echo two >"$DESKTOP_DIR/files/photo list.txt"
desktop_start pcmanfm --new-win "$DESKTOP_DIR/files"
files=$(visible_window pcmanfm)
select_all "$files"
sleep 0.5
get_selection

echo
echo "== The same tovrin on Wayland: a headless sway"
# sway refuses to run as root: as root, the Wayland part runs as an
# unprivileged user of its own (made if missing), with the same binary.
desktop_cleanup
trap - EXIT
bash scripts/as_test_user.sh bash "$PWD/scripts/wayland_demo.sh" "$tovrin"
