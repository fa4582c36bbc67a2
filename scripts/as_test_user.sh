#!/usr/bin/env bash
# as_test_user.sh PROGRAM [ARGUMENT...]: runs PROGRAM as the unprivileged
# user tovrin-test, for what starts a compositor: compositors refuse to run
# as root. Used by the end-to-end tests (through ctest), the demo and the
# benchmarks.
#
# As root: creates the system user when it is missing and runs PROGRAM as
# that user with a clean environment (PATH, its HOME, LANG, TMPDIR, and the
# GTEST_* and TOVRIN_* settings; nothing else of root's session). As anyone
# else: runs PROGRAM as it is. PROGRAM and everything it reads must be
# readable by that user.
set -euo pipefail
user=tovrin-test

if [ $# -eq 0 ]; then
  echo "usage: $0 PROGRAM [ARGUMENT...]" >&2
  exit 2
fi
if [ "$(id -u)" -ne 0 ]; then
  exec "$@"
fi

id -u "$user" >/dev/null 2>&1 ||
  useradd --system --create-home --home-dir "/var/lib/$user" \
    --shell /usr/sbin/nologin "$user"

program=$(readlink -f "$(command -v "$1")")
shift
if ! runuser -u "$user" -- test -x "$program"; then
  echo "$0: $user cannot run $program: each folder on its path needs" \
    "o+x, the program o+rx" >&2
  exit 1
fi

settings=()
while IFS= read -r entry; do
  settings+=("$entry")
done < <(env | grep -E '^(GTEST|TOVRIN)_' || true)

# Started from a folder the user may not enter (ctest's build folder).
cd /
exec runuser -u "$user" -- env -i \
  PATH=/usr/local/bin:/usr/bin:/bin \
  HOME="$(getent passwd "$user" | cut -d: -f6)" \
  LANG=C.UTF-8 \
  TMPDIR=/tmp \
  "${settings[@]}" \
  "$program" "$@"
