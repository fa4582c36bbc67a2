#ifndef TOVRIN_TESTS_XVFB_SESSION_H_
#define TOVRIN_TESTS_XVFB_SESSION_H_

// A private X server for tests: starts Xvfb on a free display (and a window
// manager when asked), runs the programs a test needs on it, and ends and
// reaps everything it started, by process id, when it goes away.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/session_processes.h"

namespace tovrin::testing {

/// How an XvfbSession starts.
struct XvfbOptions {
  /// Also runs matchbox-window-manager, which sets _NET_ACTIVE_WINDOW.
  bool windowManager = false;
  /// The screen's width x height x depth.
  std::string screen = "1280x800x24";
  /// How long the server (and window manager) may take to be ready.
  std::chrono::milliseconds startTimeout{10000};
};

/// An Xvfb server and the processes started on it. While it lives, DISPLAY
/// names its display in this process's environment. Create and destroy it on
/// the same thread (the started processes end when that thread does).
class XvfbSession : public SessionProcesses {
 public:
  /// Starts Xvfb on a display it picks (-displayfd) and waits until it is
  /// ready; null, with the reason in `error`, when it cannot.
  static std::unique_ptr<XvfbSession> start(const XvfbOptions& options,
                                            std::string* error);
  static std::unique_ptr<XvfbSession> start(std::string* error) {
    return start(XvfbOptions(), error);
  }
  /// Ends every process started here and what is left of its group
  /// (SIGTERM, SIGKILL after a grace period), then the server, and restores
  /// DISPLAY.
  ~XvfbSession();
  XvfbSession(const XvfbSession&) = delete;
  XvfbSession& operator=(const XvfbSession&) = delete;

  /// The display's name, e.g. ":3".
  const std::string& display() const { return display_; }
  pid_t serverPid() const { return serverPid_; }

  /// The first window whose WM_CLASS instance or class is `wmClass`;
  /// nothing at the deadline.
  std::optional<uint32_t> waitForWindow(std::string_view wmClass,
                                        std::chrono::milliseconds timeout);

  /// Ends the X server now, e.g. to see clients notice it is gone.
  void stopServer();

 private:
  XvfbSession() = default;

  std::string display_;
  pid_t serverPid_ = -1;
  std::optional<std::string> previousDisplay_;
  bool displayVariableSet_ = false;
  /// The lock file that keeps the display number after stopServer().
  std::string heldLock_;
};

/// A test that runs on its own Xvfb, skipped with a clear message where no
/// X server can be started. Set `xvfbOptions_` in the constructor to change
/// how the server starts.
class XvfbTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  XvfbSession& xvfb() { return *xvfb_; }

  XvfbOptions xvfbOptions_;
  std::unique_ptr<XvfbSession> xvfb_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_XVFB_SESSION_H_
