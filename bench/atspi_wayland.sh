#!/usr/bin/env bash
# What the AT-SPI read costs on a headless sway: gnome-text-editor (GTK 4,
# which marks no window active there) with its accessibility on, its
# selection read over the accessibility bus, beside `wl-paste --primary`,
# which only reads. sway does not run as root: as root, the run goes
# through the unprivileged user tovrin-test, made if missing.
#   bench/atspi_wayland.sh [RUNS]   (default 50)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-50}
source scripts/packages.sh
bench_as_test_user bench/atspi_wayland.sh "$runs" "tovrin time_commands" sway \
  wtype wl-clipboard jq gnome-text-editor dbus at-spi2-core
tovrin=$PWD/build/bench/tovrin
time_commands=$PWD/build/bench/time_commands

source scripts/wayland_desktop.sh
start_compositor
# An accessibility bus in a session bus of its own, as a session starts it;
# in a process group of its own, which the clean-up ends whole.
setsid dbus-run-session -- sh -c "echo \"\$DBUS_SESSION_BUS_ADDRESS\" \
  >'$WAYLAND_DIR/session-bus' && exec /usr/libexec/at-spi-bus-launcher \
  --launch-immediately" >/dev/null 2>&1 &
WAYLAND_PIDS+=($!)
for _ in $(seq 100); do
  session_bus=$(cat "$WAYLAND_DIR/session-bus" 2>/dev/null || true)
  [ -n "$session_bus" ] && address=$(dbus-send --bus="$session_bus" \
    --print-reply=literal --dest=org.a11y.Bus /org/a11y/bus \
    org.a11y.Bus.GetAddress 2>/dev/null | tr -d ' \n') && [ -n "$address" ] &&
    break
  sleep 0.1
done
export AT_SPI_BUS_ADDRESS=$address

echo "== AT-SPI read on sway: gnome-text-editor's selection"
printf 'A selection of a few words in an editor.' >"$WAYLAND_DIR/note.txt"
HOME="$WAYLAND_DIR/home" GDK_BACKEND=wayland DBUS_SESSION_BUS_ADDRESS=$session_bus \
  setsid gnome-text-editor --standalone "$WAYLAND_DIR/note.txt" >/dev/null 2>&1 &
WAYLAND_PIDS+=($!)
# With a session bus, the editor names its window after its desktop file.
wait_for_app org.gnome.TextEditor
sleep 1
press_ctrl a
sleep 0.5
"$tovrin" get-selection 2>&1 | grep -o 'read through AT-SPI from .*' ||
  { echo "AT-SPI did not answer:" >&2; "$tovrin" get-selection >&2; exit 1; }
"$time_commands" "$runs" "wl-paste --primary" "$tovrin get-selection"
