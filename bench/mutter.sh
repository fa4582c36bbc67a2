#!/usr/bin/env bash
# What the copy path costs on a headless GNOME compositor (Mutter), beside
# bench/wayland.sh's sway: gnome-text-editor's selection copied through the
# remote-desktop interface, beyond the pauses the copy is made of (0.05 s
# before clearing, 0.15 s after the keystroke and 0.05 s before giving the
# clipboard text back). Mutter runs in a session bus of its own, which
# tovrin is given; the keys and the user's clipboard go through the tests'
# remote-desktop helper. As root, the run goes through the unprivileged
# user tovrin-test, made if missing.
#   bench/mutter.sh [RUNS]   (default 50)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-50}
source scripts/packages.sh
bench_as_test_user bench/mutter.sh "$runs" \
  "tovrin time_commands remote_desktop" mutter dbus gnome-text-editor
case "${TOVRIN_BENCH_INNER:-}" in
1)
  dir=$(mktemp -d /tmp/tovrin-mutter.XXXXXX)
  chmod 700 "$dir"
  export XDG_RUNTIME_DIR=$dir TOVRIN_BENCH_DIR=$dir TOVRIN_BENCH_INNER=2
  unset DISPLAY WAYLAND_DISPLAY
  status=0
  dbus-run-session -- bash "$0" "$runs" || status=$?
  rm -rf "$dir"
  exit "$status"
  ;;
esac

# Inside the session bus: every process started here is ended by its pid.
tovrin=$PWD/build/bench/tovrin
time_commands=$PWD/build/bench/time_commands
holder=$PWD/build/bench/remote_desktop
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
trap cleanup EXIT

mutter --headless --wayland --no-x11 --virtual-monitor 1280x800 \
  --wayland-display tovrin-bench >"$TOVRIN_BENCH_DIR/mutter.log" 2>&1 &
pids+=($!)
export WAYLAND_DISPLAY=tovrin-bench
for _ in $(seq 100); do
  [ -S "$TOVRIN_BENCH_DIR/tovrin-bench" ] && break
  sleep 0.1
done
coproc KEYS { "$holder" hold; }
pids+=($KEYS_PID)
read -r -t 15 ready <&"${KEYS[0]}"
[ "$ready" = ready ] || { echo "no remote-desktop keyboard" >&2; exit 1; }

echo "== copy path on Mutter: gnome-text-editor's selection"
printf 'A selection of a few words in an editor.' >"$TOVRIN_BENCH_DIR/note.txt"
HOME=$TOVRIN_BENCH_DIR NO_AT_BRIDGE=1 GTK_A11Y=none GDK_BACKEND=wayland \
  gnome-text-editor --standalone "$TOVRIN_BENCH_DIR/note.txt" \
  >/dev/null 2>&1 &
pids+=($!)
sleep 2
echo ctrl+a >&"${KEYS[1]}"
read -r -t 5 _ <&"${KEYS[0]}"
"$holder" own 'saved text' >/dev/null &
pids+=($!)
sleep 0.5
"$tovrin" get-selection 2>/dev/null | grep -q '"success":true' ||
  { echo "the copy did not work" >&2; exit 1; }
"$time_commands" "$runs" "/bin/true" "$tovrin get-selection" |
  awk '{ print }
       /get-selection/ { printf "  above the 250 ms of pauses: %.1f ms\n", $(NF-4) - 250 }'
