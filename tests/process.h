#ifndef TOVRIN_TESTS_PROCESS_H_
#define TOVRIN_TESTS_PROCESS_H_

#include <chrono>
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
  bool timedOut = false;
  std::string standardOutput;
  std::string standardError;
  std::chrono::duration<double> wallTime{};
};

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

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_PROCESS_H_
