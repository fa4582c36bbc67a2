#!/usr/bin/env bash
# The Wayland part of the demonstration, run as an unprivileged user (sway
# does not run as root): a headless sway with an editor and a browser, and
# tovrin get-selection for each. The user's clipboard text is given back
# after every copy.
#   scripts/wayland_demo.sh TOVRIN
set -euo pipefail
cd "$(dirname "$0")/.."
tovrin=$1
source scripts/wayland_desktop.sh
start_compositor
echo "A private Wayland desktop: sway on $WAYLAND_DISPLAY"

get_selection() {
  echo
  echo "\$ tovrin get-selection"
  "$tovrin" get-selection 2> >(sed 's/^/  stderr: /' >&2)
  sleep 0.1
  echo "  (the clipboard holds again: \"$(timeout 5 wl-paste --no-newline)\")"
}

printf 'Hello from Wayland.\nSecond line, caf\xc3\xa9.' >"$WAYLAND_DIR/note.txt"
cat >"$WAYLAND_DIR/page.html" <<'HTML'
<html><body><h1>tovrin</h1><p>Selected <b>bold</b> words on Wayland.</p></body></html>
HTML
# Both start before the first copy: once a virtual keyboard (tovrin's) has
# gone, sway 1.7 leaves the seat without a current keyboard until the next
# key, and Chromium 156 crashes when it starts on such a seat.
wayland_start gnome-text-editor --standalone "$WAYLAND_DIR/note.txt"
wait_for_app gnome-text-editor
wayland_start chromium --ozone-platform=wayland --no-sandbox --no-first-run \
  --disable-gpu --disable-background-networking --disable-component-update \
  --disable-sync --password-store=basic \
  --user-data-dir="$WAYLAND_DIR/chromium" "file://$WAYLAND_DIR/page.html"
wait_for_app chromium
sleep 2
printf "the user's clipboard text" | timeout 5 wl-copy

echo
echo "== 4. An editor on Wayland (GTK 4): copied through the clipboard"
focus_app gnome-text-editor
press_ctrl a
sleep 0.3
get_selection

echo
echo "== 5. A browser on Wayland: copied, with its HTML"
focus_app chromium
press_ctrl a
sleep 0.5
get_selection
