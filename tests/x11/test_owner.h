#ifndef TOVRIN_TESTS_X11_TEST_OWNER_H_
#define TOVRIN_TESTS_X11_TEST_OWNER_H_

// Peers of the code under test on a test's X server: a CLIPBOARD owner that
// can be told to hang, and a clipboard manager. Each runs on a thread and a
// connection of its own.

#include <X11/Xlib.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"

namespace tovrin::testing {

/// An application owning CLIPBOARD with the given targets, answering from a
/// thread of its own through the owner side under test.
class TestOwner {
 public:
  struct Target {
    std::string name;
    std::string data;
  };

  /// Owns CLIPBOARD with `targets`; stops answering after its first request
  /// when `freezeAfterFirstRequest`, like an application that hangs.
  TestOwner(const std::string& display, const std::vector<Target>& targets,
            bool freezeAfterFirstRequest = false);
  ~TestOwner();
  TestOwner(const TestOwner&) = delete;
  TestOwner& operator=(const TestOwner&) = delete;

  bool owns() const { return thread_.joinable(); }
  /// The server time at which it took CLIPBOARD.
  Time acquired() const { return acquired_; }
  int requestsSeen() const { return requests_; }
  /// Stops or resumes answering, like SIGSTOP and SIGCONT would.
  void pause(bool paused) { paused_ = paused; }

 private:
  void serve();

  bool freeze_;
  Time acquired_ = CurrentTime;
  std::atomic<bool> paused_{false};
  std::atomic<int> requests_{0};
  std::unique_ptr<SelectionConnection> connection_;
  std::unique_ptr<SelectionServer> server_;
  int stop_[2] = {-1, -1};
  std::thread thread_;
};

/// A clipboard manager as the freedesktop convention has it: owns
/// CLIPBOARD_MANAGER and, asked to convert it to SAVE_TARGETS, copies the
/// targets listed in the requestor's property from CLIPBOARD.
class FakeClipboardManager {
 public:
  explicit FakeClipboardManager(const std::string& display);
  ~FakeClipboardManager();
  FakeClipboardManager(const FakeClipboardManager&) = delete;
  FakeClipboardManager& operator=(const FakeClipboardManager&) = delete;

  bool runs() const { return thread_.joinable(); }
  bool saved() const { return saved_; }
  /// What it was asked to save, and what it copied; read once saved().
  const std::vector<std::string>& requestedTargets() const {
    return requested_;
  }
  const std::string& savedText() const { return text_; }

 private:
  void serve();

  std::unique_ptr<SelectionConnection> connection_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> saved_{false};
  std::vector<std::string> requested_;
  std::string text_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_X11_TEST_OWNER_H_
