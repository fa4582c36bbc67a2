#!/usr/bin/env bash
# What the copy path costs under a headless KWin, beside the same on sway
# (bench/wayland.sh): gnome-text-editor's selection copied through KWin's
# fake input and the data-control clipboard, beyond the pauses the copy is
# made of (250 ms in all). tovrin runs as its package installs it: stripped,
# with its helper tovrin-kwin-input beside it, which a .desktop file
# authorizes (KWin reads the whole file of each client that may use fake
# input as it connects: the helper is small). KWin does not run
# as root here: as root, the run goes through the unprivileged user
# tovrin-test, made if missing. Also times the frontmost-application lookup
# (KWin's window list) alone.
#   bench/kwin.sh [RUNS]   (default 50)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-50}
source scripts/packages.sh
bench_as_test_user bench/kwin.sh "$runs" "tovrin tovrin-kwin-input time_commands" \
  kwin-wayland wl-clipboard gnome-text-editor
time_commands=$PWD/build/bench/time_commands
dir=$(mktemp -d /tmp/tovrin-kwin-bench.XXXXXX)
chmod 700 "$dir"
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill -TERM -- "-$pid" 2>/dev/null || true; done
  sleep 0.3
  for pid in "${pids[@]}"; do kill -KILL -- "-$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT

strip -o "$dir/tovrin" build/bench/tovrin
strip -o "$dir/tovrin-kwin-input" build/bench/tovrin-kwin-input
# kwin_wayland's file capability cannot be taken up here; a copy runs.
cp /usr/bin/kwin_wayland "$dir/kwin_wayland"
mkdir -p "$dir/share/applications" "$dir/home"
sed "s|@TOVRIN_KWIN_INPUT@|$dir/tovrin-kwin-input|" data/tovrin.desktop.in \
  >"$dir/share/applications/tovrin.desktop"
export XDG_RUNTIME_DIR=$dir XDG_DATA_DIRS=$dir/share:/usr/share \
  XDG_CONFIG_HOME=$dir/config XDG_CACHE_HOME=$dir/cache HOME=$dir/home
unset DISPLAY WAYLAND_DISPLAY
setsid dbus-run-session -- "$dir/kwin_wayland" --virtual --width 1280 \
  --height 800 --no-lockscreen --socket tovrin-kwin >"$dir/kwin.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do [ -S "$dir/tovrin-kwin" ] && break; sleep 0.1; done
export WAYLAND_DISPLAY=tovrin-kwin

# The bench types through tovrin's helper too: one for the keys, and one a
# question for the active window (each lists the windows once).
helper() { "$dir/tovrin-kwin-input" "$dir/tovrin-kwin"; }
active() { printf 'active\n' | helper | sed -n 's/^active //p'; }
coproc KEYS { helper; }
read -r -t 15 ready <&"${KEYS[0]}" && [ "$ready" = "ready 1 1" ] ||
  { echo "KWin did not offer its fake input" >&2; exit 1; }

echo "== copy path on KWin: gnome-text-editor's selection"
printf 'A selection of a few words in an editor.' >"$dir/note.txt"
NO_AT_BRIDGE=1 GTK_A11Y=none GDK_BACKEND=wayland \
  DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent \
  setsid gnome-text-editor --standalone "$dir/note.txt" >/dev/null 2>&1 &
pids+=($!)
editor=$(printf %s gnome-text-editor | od -An -tx1 | tr -d ' \n')
for _ in $(seq 300); do
  [ "$(active)" = "$editor" ] && break
  sleep 0.1
done
# Ctrl+A: left Ctrl and A, as evdev codes.
printf 'key 29 1\nkey 30 1\nkey 30 0\nkey 29 0\nsync\n' >&"${KEYS[1]}"
read -r -t 5 _ <&"${KEYS[0]}"
printf 'saved text' | timeout 5 wl-copy
"$dir/tovrin" get-selection 2>/dev/null | grep -q '"success":true' ||
  { echo "the copy did not work" >&2; exit 1; }
"$time_commands" "$runs" "/bin/true" "$dir/tovrin get-selection" |
  awk '{ print }
       /get-selection/ { printf "  above the 250 ms of pauses: %.1f ms\n", $(NF-4) - 250 }'
echo "== the frontmost application: from the run's first log line to the line"
echo "   that names it (KWin's window list; the log counts whole milliseconds)"
for _ in $(seq 20); do
  "$dir/tovrin" get-selection 2>&1 >/dev/null |
    awk -F'[ :]' '/Starting get-selection/ { s = $4 } /Frontmost app/ { print ($4 - s) * 1000 }'
done | sort -n | awk '{ a[NR] = $1 } END { printf "  median %.1f ms (%d runs)\n", a[int((NR + 1) / 2)], NR }'
