# Sourced by the demonstration and the benchmarks: a private X desktop
# (Xvfb with matchbox-window-manager) and the applications started on it.
# Every process started here is ended, by its pid, when the script exits.

DESKTOP_PIDS=()
DESKTOP_DIR=$(mktemp -d /tmp/tovrin-desktop.XXXXXX)

desktop_cleanup() {
  local pid
  for pid in "${DESKTOP_PIDS[@]}"; do
    # Each program runs in a group of its own: end it with what it started.
    kill -TERM -- "-$pid" 2>/dev/null || kill -TERM "$pid" 2>/dev/null || true
  done
  sleep 0.3
  for pid in "${DESKTOP_PIDS[@]}"; do
    kill -KILL -- "-$pid" 2>/dev/null || kill -KILL "$pid" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  rm -rf "$DESKTOP_DIR"
}
trap desktop_cleanup EXIT

# desktop_start COMMAND ARGS...: starts a program in a process group of its
# own, with a private home, and notes its pid in DESKTOP_PIDS.
desktop_start() {
  HOME="$DESKTOP_DIR" NO_AT_BRIDGE=1 \
  DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent \
    setsid "$@" >/dev/null 2>&1 &
  DESKTOP_PIDS+=($!)
}

# start_desktop: Xvfb on a free display, then the window manager; sets
# DISPLAY.
start_desktop() {
  local fifo="$DESKTOP_DIR/displayfd"
  mkfifo "$fifo"
  setsid Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp \
    3>"$fifo" >/dev/null 2>&1 &
  DESKTOP_PIDS+=($!)
  local number
  if ! read -r -t 15 number <"$fifo"; then
    echo "Xvfb did not start" >&2
    return 1
  fi
  export DISPLAY=":$number"
  desktop_start matchbox-window-manager -use_titlebar no
  local i
  for i in $(seq 100); do
    xprop -root _NET_ACTIVE_WINDOW >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  echo "the window manager did not start" >&2
  return 1
}

# visible_window CLASS: the id of the first mapped window of CLASS (waits up
# to 30 s).
visible_window() {
  timeout 30 xdotool search --sync --onlyvisible --class "$1" 2>/dev/null |
    head -n 1
}

# select_all WINDOW: activates WINDOW and selects everything in it.
select_all() {
  xdotool windowactivate --sync "$1" key --clearmodifiers ctrl+a
}

# own_selection SELECTION TEXT: xclip owns SELECTION with TEXT.
own_selection() {
  printf '%s' "$2" | setsid xclip -selection "$1" -i >/dev/null 2>&1
}
