#!/usr/bin/env bash
# What the copy path costs on a headless sway, beside the same on X11
# (bench/selection.sh): gnome-text-editor's selection copied through the
# data-control clipboard, beyond the pauses the copy is made of (0.05 s
# before clearing, 0.15 s after the keystroke and 0.05 s before giving the
# clipboard text back). sway does not run as root: as root, the run goes
# through the unprivileged user tovrin-test, made if missing.
#   bench/wayland.sh [RUNS]   (default 50)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-50}
source scripts/packages.sh
bench_as_test_user bench/wayland.sh "$runs" "tovrin time_commands" sway wtype \
  wl-clipboard jq gnome-text-editor
tovrin=$PWD/build/bench/tovrin
time_commands=$PWD/build/bench/time_commands

source scripts/wayland_desktop.sh
start_compositor
echo "== copy path on sway: gnome-text-editor's selection"
printf 'A selection of a few words in an editor.' >"$WAYLAND_DIR/note.txt"
wayland_start gnome-text-editor --standalone "$WAYLAND_DIR/note.txt"
wait_for_app gnome-text-editor
sleep 1
press_ctrl a
sleep 0.3
printf 'saved text' | timeout 5 wl-copy
"$tovrin" get-selection 2>/dev/null | grep -q '"success":true' ||
  { echo "the copy did not work" >&2; exit 1; }
"$time_commands" "$runs" "/bin/true" "$tovrin get-selection" |
  awk '{ print }
       /get-selection/ { printf "  above the 250 ms of pauses: %.1f ms\n", $(NF-4) - 250 }'
