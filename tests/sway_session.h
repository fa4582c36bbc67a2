#ifndef TOVRIN_TESTS_SWAY_SESSION_H_
#define TOVRIN_TESTS_SWAY_SESSION_H_

// A private Wayland desktop for tests: sway on its headless backend, with a
// runtime directory of its own and a virtual keyboard held on its seat, the
// programs a test needs on it, and everything it started ended and reaped,
// by process id, when it goes away.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/session_processes.h"

namespace tovrin::testing {

/// How a SwaySession starts.
struct SwayOptions {
  /// The keyboard holder program (tests/wayland/keyboard_holder_main.cc).
#ifdef TOVRIN_KEYBOARD_HOLDER
  std::string keyboardHolder = TOVRIN_KEYBOARD_HOLDER;
#else
  std::string keyboardHolder;
#endif
  /// The XKB layout of the held keyboard ("us", "ru", "us,ru").
  std::string keyboardLayout = "us";
  /// How long sway and the keyboard may take to be ready.
  std::chrono::milliseconds startTimeout{15000};
};

/// A headless sway and the processes started on it. The programs it starts
/// get its WAYLAND_DISPLAY, XDG_RUNTIME_DIR and SWAYSOCK, and no DISPLAY;
/// this process's environment is left alone. Create and destroy it on the
/// same thread (the started processes end when that thread does).
///
/// A virtual keyboard that types and goes away (tovrin's) leaves the seat
/// without a current keyboard: a client that binds the keyboard after that
/// gets no keymap until the held keyboard presses a key, and Chromium
/// crashes when it gets the focus without one. Start applications before
/// running tovrin, or press a key first.
class SwaySession : public SessionProcesses {
 public:
  /// Starts sway with a configuration of the session's own and waits until
  /// it answers and the keyboard is held; null, with the reason in `error`,
  /// when it cannot. sway refuses to run as root: so does this.
  static std::unique_ptr<SwaySession> start(const SwayOptions& options,
                                            std::string* error);
  /// Ends every process started here and what is left of its group
  /// (SIGTERM, SIGKILL after a grace period), sway last, and removes the
  /// runtime directory.
  ~SwaySession();

  /// The socket's name in the runtime directory, e.g. "wayland-1".
  const std::string& waylandDisplay() const { return waylandDisplay_; }
  const std::string& runtimeDirectory() const { return runtimeDirectory_; }
  pid_t compositorPid() const { return compositorPid_; }
  /// What a program started outside the session (runProcess) needs to
  /// reach it: the variables above, and DISPLAY and WAYLAND_SOCKET removed
  /// (an empty value).
  std::map<std::string, std::string> clientEnvironment() const;

  /// Presses keys on the held keyboard, e.g. "ctrl+a", "ctrl+shift+Left",
  /// "Return"; true once sway has handled them.
  bool pressKeys(const std::string& combination);
  /// Gives the held keyboard another XKB layout.
  bool setKeyboardLayout(const std::string& layout);

  /// Runs swaymsg with `arguments` against this sway; its output, or
  /// nothing when it failed.
  std::optional<std::string> swaymsg(const std::vector<std::string>& arguments);
  /// Waits until a window of `appId` has the focus; false at the deadline.
  bool waitForFocus(std::string_view appId, std::chrono::milliseconds timeout);

 private:
  SwaySession() = default;
  /// Sends one command to the keyboard holder and waits for its answer.
  bool tellKeyboard(const std::string& command);

  std::string runtimeDirectory_;
  std::string waylandDisplay_;
  std::string swaySocket_;
  pid_t compositorPid_ = -1;
  pid_t keyboardPid_ = -1;
};

/// A test that runs on its own sway, skipped with a clear message where none
/// can be started (as root, or without sway). Set `swayOptions_` in the
/// constructor to change how it starts.
class SwayTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  SwaySession& sway() { return *sway_; }

  SwayOptions swayOptions_;
  std::unique_ptr<SwaySession> sway_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_SWAY_SESSION_H_
