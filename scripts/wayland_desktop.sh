# Sourced by the demonstration and the benchmarks: a private Wayland
# desktop (a headless sway) and the applications started on it. sway does
# not run as root: source this as an unprivileged user. Every process
# started here is ended, by its pid, when the script exits.

WAYLAND_PIDS=()
WAYLAND_DIR=$(mktemp -d /tmp/tovrin-wayland.XXXXXX)
chmod 700 "$WAYLAND_DIR"

wayland_cleanup() {
  local pid
  for pid in "${WAYLAND_PIDS[@]}"; do
    kill -TERM -- "-$pid" 2>/dev/null || kill -TERM "$pid" 2>/dev/null || true
  done
  sleep 0.3
  for pid in "${WAYLAND_PIDS[@]}"; do
    kill -KILL -- "-$pid" 2>/dev/null || kill -KILL "$pid" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  rm -rf "$WAYLAND_DIR"
}
trap wayland_cleanup EXIT

# wayland_start COMMAND ARGS...: starts a program in a process group of its
# own, with a private home, and notes its pid in WAYLAND_PIDS.
wayland_start() {
  HOME="$WAYLAND_DIR/home" NO_AT_BRIDGE=1 GDK_BACKEND=wayland \
  DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent \
    setsid "$@" >/dev/null 2>&1 &
  WAYLAND_PIDS+=($!)
}

# start_compositor: a headless sway with a runtime directory of its own,
# and one virtual keyboard that stays for the whole session (without a
# keyboard on the seat, applications bind none); sets WAYLAND_DISPLAY,
# XDG_RUNTIME_DIR and SWAYSOCK, and unsets DISPLAY.
start_compositor() {
  mkdir -p "$WAYLAND_DIR/home"
  export XDG_RUNTIME_DIR="$WAYLAND_DIR"
  unset DISPLAY WAYLAND_DISPLAY
  printf 'xwayland disable\n' >"$WAYLAND_DIR/sway.conf"
  WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 \
    setsid sway -c "$WAYLAND_DIR/sway.conf" >"$WAYLAND_DIR/sway.log" 2>&1 &
  WAYLAND_PIDS+=($!)
  local i socket
  for i in $(seq 100); do
    socket=$(find "$WAYLAND_DIR" -maxdepth 1 -name 'wayland-[0-9]*' \
      ! -name '*.lock' -printf '%f\n' | head -n 1)
    [ -n "$socket" ] && break
    sleep 0.1
  done
  if [ -z "$socket" ]; then
    echo "sway did not start:" >&2
    cat "$WAYLAND_DIR/sway.log" >&2
    return 1
  fi
  export WAYLAND_DISPLAY=$socket
  export SWAYSOCK
  SWAYSOCK=$(find "$WAYLAND_DIR" -maxdepth 1 -name 'sway-ipc.*.sock' | head -n 1)
  # wtype holds its keyboard while it sleeps after its one key. The key
  # makes it the seat's current keyboard, whose keymap applications get:
  # Chromium 156 crashes when it starts on a seat without one.
  setsid wtype -k Shift_L -s 3600000 >/dev/null 2>&1 &
  WAYLAND_PIDS+=($!)
  sleep 0.3
}

# wait_for_app APP_ID: waits up to 30 s until a window of APP_ID is mapped.
wait_for_app() {
  local i
  for i in $(seq 300); do
    swaymsg -t get_tree 2>/dev/null | jq -e --arg app "$1" \
      '.. | objects | select(.app_id? == $app)' >/dev/null && return 0
    sleep 0.1
  done
  echo "no window of $1" >&2
  return 1
}

# focus_app APP_ID: gives the keyboard focus to the window of APP_ID.
focus_app() {
  swaymsg "[app_id=\"$1\"] focus" >/dev/null
  sleep 0.3
}

# press_ctrl KEY: Control+KEY on the session's keyboard.
press_ctrl() {
  wtype -M ctrl "$1" -m ctrl
}
