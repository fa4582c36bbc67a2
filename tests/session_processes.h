#ifndef TOVRIN_TESTS_SESSION_PROCESSES_H_
#define TOVRIN_TESTS_SESSION_PROCESSES_H_

// The processes that a private display server of the tests (Xvfb, sway)
// starts for a test: each in a process group of its own, with the
// session's environment, and all of them ended and reaped by process id
// when the session goes away.

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tovrin::testing {

/// How a session starts a program.
struct SpawnOptions {
  /// "NAME=value" entries added to (or replacing) the inherited
  /// environment; the session's own entries always win.
  std::vector<std::string> environment;
  /// Standard input's content; /dev/null when absent.
  std::optional<std::string> input;
  /// Keeps standard input open for writeInput() instead (`input` is then
  /// ignored); the program sees its end when it is ended.
  bool keepInput = false;
  /// Keeps standard output for output() and readLine(); /dev/null
  /// otherwise.
  bool captureOutput = false;
  /// Lets standard error through to the test's; /dev/null otherwise.
  bool showErrors = false;
  /// A descriptor the program gets as its fd 3 (Xvfb's -displayfd).
  int keepFd = -1;
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

/// The programs started for one test. Create and destroy it on the same
/// thread (the started processes end when that thread does).
class SessionProcesses {
 public:
  SessionProcesses(const SessionProcesses&) = delete;
  SessionProcesses& operator=(const SessionProcesses&) = delete;

  /// Starts `argv` (argv[0] looked up in PATH) in a process group of its
  /// own; its pid, or nothing when it could not be started.
  std::optional<pid_t> spawn(const std::vector<std::string>& argv,
                             const SpawnOptions& options = {});
  /// The next line of a process's captured output, without its line feed;
  /// nothing when none is complete by the deadline or the output ended.
  std::optional<std::string> readLine(pid_t pid,
                                      std::chrono::milliseconds timeout);
  /// Writes `text` to the standard input of a process started with
  /// `keepInput`; false when it is gone.
  bool writeInput(pid_t pid, const std::string& text);
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

 protected:
  SessionProcesses() = default;
  /// Ends what endAll() has not.
  ~SessionProcesses();

  /// Ends every process started here, the last started first.
  void endAll();

  /// Entries that every program started here gets: "NAME=value", or
  /// "NAME" alone for a variable it must not have.
  std::vector<std::string> environment_;

 private:
  struct Child {
    pid_t pid = -1;
    int inputFd = -1;
    int outputFd = -1;
    std::string pendingOutput;        // read, not yet taken by readLine()
    std::optional<ProcessExit> exit;  // once reaped
  };

  Child* find(pid_t pid);
  void endProcess(Child& child);
  /// Reads what `child` writes into its pending output until `done` holds,
  /// its output ends or the deadline passes; false at the latter two.
  template <typename Done>
  bool readOutput(Child& child, std::chrono::milliseconds timeout, Done done);

  std::vector<Child> children_;
};

/// Whether the process `pid` (not necessarily our child) has ended: it is
/// gone or only a zombie is left of it.
bool processEnded(pid_t pid);

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_SESSION_PROCESSES_H_
