#ifndef TOVRIN_CLI_DISPATCH_H_
#define TOVRIN_CLI_DISPATCH_H_

#include <optional>
#include <string>
#include <vector>

namespace tovrin {

class Platform;

/// The usage message of a run without a command.
inline constexpr char kUsageMessage[] =
    "Usage: tovrin <check-accessibility|request-accessibility|get-selection>";

/// Runs the command named by `arguments[1]` (`arguments[0]` is the program
/// and later ones are ignored) and returns the exit status: 0 once a handler
/// has run, whatever it answered; 1 for a missing or unknown command, after
/// answering it with an ErrorResponse.
int dispatchCommand(Platform& platform,
                    const std::vector<std::string>& arguments);

/// The line (with its line feed) that the command of `arguments` answers
/// when interrupted; nothing for a command that answers no such line.
std::optional<std::string> interruptedAnswerFor(
    const std::vector<std::string>& arguments);

}  // namespace tovrin

#endif  // TOVRIN_CLI_DISPATCH_H_
