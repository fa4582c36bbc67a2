# Sourced by the scripts that run a compositor: sway refuses to run as
# root, so as root they run it as an unprivileged user of their own.

TOVRIN_TEST_USER=tovrin-test

# ensure_test_user: makes the system user TOVRIN_TEST_USER when missing.
ensure_test_user() {
  id -u "$TOVRIN_TEST_USER" >/dev/null 2>&1 && return 0
  useradd --system --create-home --home-dir "/var/lib/$TOVRIN_TEST_USER" \
    --shell /usr/sbin/nologin "$TOVRIN_TEST_USER"
}
