#!/usr/bin/env bash
# as_test_user.sh PROGRAM [ARGUMENT...]: runs PROGRAM as an unprivileged
# user, for the tests that start sway, which refuses to run as root.
#
# As root: creates the system user tovrin-test when it is missing and runs
# PROGRAM as that user with a clean environment (PATH, its HOME, LANG and
# TMPDIR; nothing of root's session). As anyone else: runs PROGRAM as it is.
# PROGRAM and everything it reads must be readable by that user.
set -euo pipefail

source "$(dirname "$0")/../scripts/test_user.sh"
user=$TOVRIN_TEST_USER

if [ $# -eq 0 ]; then
  echo "usage: $0 PROGRAM [ARGUMENT...]" >&2
  exit 2
fi
if [ "$(id -u)" -ne 0 ]; then
  exec "$@"
fi

ensure_test_user

program=$(readlink -f "$1")
shift
if ! runuser -u "$user" -- test -x "$program"; then
  echo "$0: $user cannot run $program: each folder on its path needs" \
    "o+x, the program o+rx" >&2
  exit 1
fi

# GoogleTest's own settings (GTEST_FILTER, ...) still choose what runs.
gtest=()
while IFS= read -r entry; do
  gtest+=("$entry")
done < <(env | grep '^GTEST_' || true)

# ctest starts it in the build folder, which the user may not enter.
cd /
exec runuser -u "$user" -- env -i \
  PATH=/usr/local/bin:/usr/bin:/bin \
  HOME="$(getent passwd "$user" | cut -d: -f6)" \
  LANG=C.UTF-8 \
  TMPDIR=/tmp \
  "${gtest[@]}" \
  "$program" "$@"
