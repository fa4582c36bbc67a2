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

/// How XvfbSession starts a program.
struct SpawnOptions {
  /// "NAME=value" entries added to (or replacing) the inherited
  /// environment; DISPLAY is always this session's.
  std::vector<std::string> environment;
  /// Standard input's content; /dev/null when absent.
  std::optional<std::string> input;
  /// Keeps standard output for output(); /dev/null otherwise.
  bool captureOutput = false;
  /// Lets standard error through to the test's; /dev/null otherwise.
  bool showErrors = false;
};

/// The end of a process: its exit code, or 128 + the signal that ended it.
struct ProcessExit {
  int code = 0;
  bool signaled = false;
};

/// What a program run to its end gave.
struct RunResult {
  ProcessExit exit;
  std::string output;
};

/// An Xvfb server and the processes started on it. While it lives, DISPLAY
/// names its display in this process's environment. Create and destroy it on
/// the same thread (the started processes end when that thread does).
class XvfbSession {
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

  /// Starts `argv` (argv[0] looked up in PATH) in a process group of its
  /// own; its pid, or nothing when it could not be started.
  std::optional<pid_t> spawn(const std::vector<std::string>& argv,
                             const SpawnOptions& options = {});
  /// Waits for a process started here to end and reaps it; nothing when it
  /// still runs at the deadline. (Its group is still ended at the end.)
  std::optional<ProcessExit> waitForExit(pid_t pid,
                                         std::chrono::milliseconds timeout);
  /// Reads a process's captured output until it closes it or the deadline
  /// passes, whichever comes first.
  std::string output(pid_t pid, std::chrono::milliseconds timeout);
  /// Runs `argv` to its end with captured output; nothing when it did not
  /// end within `timeout` (it is then ended).
  std::optional<RunResult> run(const std::vector<std::string>& argv,
                               std::chrono::milliseconds timeout,
                               SpawnOptions options = {});
  /// Sends `signalNumber` to a process started here.
  bool signal(pid_t pid, int signalNumber);
  /// Ends a process started here and its group: SIGTERM (and SIGCONT, for a
  /// stopped one), SIGKILL after a grace period; then reaps it.
  void terminate(pid_t pid);
  /// Whether a process started here is still running (not yet reaped).
  bool running(pid_t pid);

  /// The first window whose WM_CLASS instance or class is `wmClass`;
  /// nothing at the deadline.
  std::optional<uint32_t> waitForWindow(std::string_view wmClass,
                                        std::chrono::milliseconds timeout);

  /// Ends the X server now, e.g. to see clients notice it is gone.
  void stopServer();

 private:
  struct Child {
    pid_t pid = -1;
    int outputFd = -1;
    std::optional<ProcessExit> exit;  // once reaped
  };

  XvfbSession() = default;
  Child* find(pid_t pid);
  void endProcess(Child& child);

  std::string display_;
  pid_t serverPid_ = -1;
  std::optional<std::string> previousDisplay_;
  bool displayVariableSet_ = false;
  std::vector<Child> children_;
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

/// Whether the process `pid` (not necessarily our child) has ended: it is
/// gone or only a zombie is left of it.
bool processEnded(pid_t pid);

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_XVFB_SESSION_H_
