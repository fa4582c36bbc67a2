#ifndef TOVRIN_TESTS_PROCESS_H_
#define TOVRIN_TESTS_PROCESS_H_

// The processes of the tests: tovrin run as a host runs it, and the
// programs that a private display server of the tests (Xvfb, sway) starts
// for a test, each in a process group of its own, with the session's
// environment, all of them ended and reaped by process id when the session
// goes away. Every read and every wait has a deadline.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovrin::testing {

/// How a finished program ended and what it printed.
struct ProcessResult {
  /// The exit status; nothing when it was killed (by a signal or for
  /// running past its deadline).
  std::optional<int> exitStatus;
  /// The signal that ended it, when one did.
  std::optional<int> signal;
  bool timedOut = false;
  std::string standardOutput;
  std::string standardError;
  std::chrono::duration<double> wallTime{};
};

/// A program started with pipes on its output streams, not yet waited for.
struct StartedProcess {
  pid_t pid = -1;
  int standardOutput = -1;
  int standardError = -1;
  std::chrono::steady_clock::time_point start;
};

/// Starts `program` with `arguments` (argument 0 included) as a host would,
/// and returns at once: no standard input, both output streams on pipes.
/// The environment is this process's, with `environment` set on top (an
/// empty value removes a variable). Pid -1 when it could not be started.
StartedProcess startProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment = {});
/// Runs `work` in a child process forked from this one, its output streams
/// on pipes as startProcess gives them; it exits with what `work` returns.
StartedProcess startForked(const std::function<int()>& work);
/// Reads a started program's streams to their end and waits for it, killing
/// it at `timeout` after its start.
ProcessResult finishProcess(StartedProcess& process,
                            std::chrono::milliseconds timeout);
/// startProcess, then finishProcess.
ProcessResult runProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment = {},
    std::chrono::milliseconds timeout = std::chrono::seconds(20));

/// Each line of `text`, without its line feed.
std::vector<std::string> splitLines(const std::string& text);

/// Runs `work` in a child process forked from this one and kills that with
/// SIGKILL, as a host's timeout kills a run in the middle of its work, once
/// it calls the function it is given: there the child waits to be killed.
/// False when the child did not get there within `timeout`; it is killed
/// all the same.
bool killOnceReached(
    const std::function<void(const std::function<void()>& killHere)>& work,
    std::chrono::milliseconds timeout);

/// Polls `condition` every `period` until it holds; false when it still
/// does not at `timeout`.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout,
               std::chrono::milliseconds period = std::chrono::milliseconds(5));

/// Whether the process `pid` (not necessarily our child) has ended: it is
/// gone or only a zombie is left of it.
bool processEnded(pid_t pid);

/// How a session starts a program.
struct SpawnOptions {
  /// "NAME=value" entries added to (or replacing) the inherited
  /// environment; the session's own entries always win.
  std::vector<std::string> environment = {};
  /// Standard input's content; /dev/null when absent.
  std::optional<std::string> input = {};
  /// Keeps standard input open for writeInput() instead (`input` is then
  /// ignored); the program sees its end when it is ended.
  bool keepInput = false;
  /// Keeps standard output for readLine(); /dev/null otherwise.
  bool captureOutput = false;
  /// Lets standard error through to the test's; /dev/null otherwise.
  bool showErrors = false;
};

/// What a program run to its end gave: its exit code, or 128 + the signal
/// that ended it, and its standard output.
struct RunResult {
  struct {
    int code = 0;
  } exit;
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
    std::string pendingOutput;   // read, not yet taken by readLine()
    std::optional<int> status;   // once reaped
  };

  Child* find(pid_t pid);
  void endProcess(Child& child);

  std::vector<Child> children_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_PROCESS_H_
