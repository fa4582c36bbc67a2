#!/usr/bin/env bash
# get-selection against CLIPBOARD owners that a reader must not trust: one
# that never answers, INCR transfers without end (slow chunks; a flood of
# chunks that never waits for the reader) and 128 MiB, announced as such or
# as one chunk; xclip, which answers, for comparison. An xterm is focused: it owns no PRIMARY, so
# the copy path runs and reads CLIPBOARD, the first time to save its text.
# Prints, per owner and run, the wall time and peak RSS of get-selection and
# whether it answered one valid JSON line.
#   bench/hostile_owners.sh [RUNS]   (default 3)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
ensure_packages "${TOVRIN_BUILD_PACKAGES[@]}" xvfb xauth x11-utils xclip \
  xdotool matchbox-window-manager xterm time jq
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DTOVRIN_TESTS=OFF -DTOVRIN_BENCH=ON >/dev/null
cmake --build build/bench --target tovrin hostile_owner >/dev/null
runs=${1:-3}
tovrin=$PWD/build/bench/tovrin
hostile_owner=$PWD/build/bench/hostile_owner

source scripts/desktop.sh
start_desktop
desktop_start xterm -e sleep 100000
xdotool windowactivate --sync "$(visible_window xterm)"

# start_owner KIND: starts a hostile owner of KIND (or xclip for "xclip") and
# sets OWNER_PID once it owns CLIPBOARD.
start_owner() {
  local fifo="$DESKTOP_DIR/owner.fifo"
  rm -f "$fifo"
  mkfifo "$fifo"
  if [ "$1" = xclip ]; then
    printf 'saved text' |
      setsid xclip -selection clipboard -i -quiet >/dev/null 2>&1 &
    OWNER_PID=$!
    DESKTOP_PIDS+=("$OWNER_PID")
    for _ in $(seq 100); do
      [ "$(timeout 2 xclip -o -selection clipboard 2>/dev/null)" = "saved text" ] &&
        return 0
      sleep 0.05
    done
    echo "xclip did not take CLIPBOARD" >&2
    return 1
  fi
  setsid "$hostile_owner" "$1" >"$fifo" 2>/dev/null &
  OWNER_PID=$!
  DESKTOP_PIDS+=("$OWNER_PID")
  local line=""
  read -r -t 10 line <"$fifo" || true
  if [ "$line" != owns ]; then
    echo "the $1 owner did not take CLIPBOARD" >&2
    return 1
  fi
}

stop_owner() {
  kill -TERM "$OWNER_PID" 2>/dev/null || true
  wait "$OWNER_PID" 2>/dev/null || true
}

printf '%-16s %3s %8s %13s  %s\n' owner run "wall (s)" "peak RSS (MB)" \
  answer
for kind in xclip silent endless-slow endless-fast huge huge-unannounced; do
  for run in $(seq "$runs"); do
    start_owner "$kind"
    out="$DESKTOP_DIR/answer" times="$DESKTOP_DIR/times"
    /usr/bin/time -f '%e %M' -o "$times" "$tovrin" get-selection \
      >"$out" 2>"$DESKTOP_DIR/log" || true
    stop_owner
    read -r wall rss <"$times"
    if [ "$(wc -l <"$out")" -eq 1 ] && jq -e . "$out" >/dev/null 2>&1; then
      answer="valid JSON: $(jq -c . "$out")"
    else
      answer="NOT one JSON line: $(head -c 200 "$out")"
    fi
    awk -v kind="$kind" -v run="$run" -v wall="$wall" -v rss="$rss" \
      -v answer="$answer" \
      'BEGIN { printf "%-16s %3d %8.2f %13.1f  %s\n", kind, run, wall,
               rss / 1024, answer }'
  done
done
