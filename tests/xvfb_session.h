#ifndef TOVRIN_TESTS_XVFB_SESSION_H_
#define TOVRIN_TESTS_XVFB_SESSION_H_

// The X11 desktop of the tests: Xvfb on a free display, the keyboard
// through XTest (xdotool) and the selections through xclip.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tests/desktop.h"

namespace tovrin::testing {

/// While it lives, DISPLAY names its display in this process's environment.
/// Create and destroy it on the same thread (the started processes end when
/// that thread does).
class XvfbSession : public Desktop {
 public:
  /// Starts Xvfb on a display it picks (-displayfd), with
  /// matchbox-window-manager when asked (it sets _NET_ACTIVE_WINDOW), and
  /// waits until it is ready; null, with the reason in `error`, when it
  /// cannot.
  static std::unique_ptr<XvfbSession> start(bool windowManager,
                                            std::string* error);
  /// Ends every process started here, then the server, and restores
  /// DISPLAY.
  ~XvfbSession() override;

  /// The display's name, e.g. ":3".
  const std::string& display() const { return display_; }
  pid_t serverPid() const override { return serverPid_; }
  /// Ends the X server now, e.g. to see clients notice it is gone.
  void stopServer();

  std::map<std::string, std::string> clientEnvironment() const override;
  std::optional<pid_t> startApplication(const Application& application) override;
  bool pressKeys(const std::string& combination) override;
  bool setLayout(const std::string& layout) override;
  std::optional<std::string> read(Selection selection) override;
  std::optional<pid_t> own(Selection selection, const std::string& text) override;
  std::optional<std::vector<int>> keysDown() override;

 private:
  XvfbSession() = default;
  /// Runs `argv` to its end; false unless it exited with 0.
  bool succeeds(const std::vector<std::string>& argv);

  std::string display_;
  pid_t serverPid_ = -1;
  std::optional<std::string> previousDisplay_;
  /// The lock file that keeps the display number after stopServer().
  std::string heldLock_;
};

/// A test that runs on its own Xvfb (without a window manager), skipped
/// with a clear message where no X server can be started.
class XvfbTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override { xvfb_.reset(); }
  XvfbSession& xvfb() { return *xvfb_; }

  std::unique_ptr<XvfbSession> xvfb_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_XVFB_SESSION_H_
