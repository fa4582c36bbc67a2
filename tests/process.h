#ifndef TOVRIN_TESTS_PROCESS_H_
#define TOVRIN_TESTS_PROCESS_H_

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

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

/// How launch() starts a program.
struct Launch {
  /// Looked up in PATH; argv[0] when empty.
  std::string program;
  std::vector<std::string> argv;
  /// "NAME=value" entries set on top of this process's environment; "NAME"
  /// alone removes that variable.
  std::vector<std::string> environment;
  /// Its standard streams (-1: /dev/null), and a descriptor it gets as fd 3.
  int input = -1, output = -1, errors = -1, keep = -1;
};

/// Starts a program in a process group of its own, which dies with the
/// thread that started it; its pid, or -1.
pid_t launch(const Launch& how);

/// Starts `program` as runProcess does, and returns at once; pid -1 when it
/// could not be started.
StartedProcess startProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment = {});
/// Reads a started program's streams to their end and waits for it, killing
/// it at `timeout` after its start.
ProcessResult finishProcess(StartedProcess& process,
                            std::chrono::milliseconds timeout);

/// Runs `program` with `arguments` (argument 0 included) as a host would: no
/// standard input, both output streams read through pipes to their end. The
/// environment is this process's, with `environment` set on top (an empty
/// value removes a variable). A program still running at `timeout` is killed.
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

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_PROCESS_H_
