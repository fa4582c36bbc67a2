#include "cli/dispatch.h"

#include "accessibility/permission.h"
#include "capture/get_selection.h"
#include "cli/output.h"
#include "platform/platform.h"

namespace tovrin {
namespace {

struct Command {
  const char* name;
  Response (*handler)(Platform&);
  /// What a run of the command answers when its host interrupts it; none
  /// for the permission commands, which have no answer that is not true.
  const char* interrupted;
};

// Compared in this order, whole text and case-sensitive.
constexpr Command kCommands[] = {
    {"check-accessibility", checkAccessibility, nullptr},
    {"request-accessibility", requestAccessibility, nullptr},
    {"get-selection", getSelection, kNothingSelectedMessage},
};

}  // namespace

int dispatchCommand(Platform& platform,
                    const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) {
    outputError(platform, ErrorResponse{kUsageMessage});
    return 1;
  }
  const std::string& command = arguments[1];
  for (const Command& candidate : kCommands) {
    if (command == candidate.name) {
      if (auto line = interruptedAnswerFor(arguments)) {
        platform.setInterruptedAnswer(*line);
      }
      outputResponse(platform, candidate.handler(platform));
      return 0;
    }
  }
  outputError(platform, ErrorResponse{"Unknown command: " + command});
  return 1;
}

std::optional<std::string> interruptedAnswerFor(
    const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) return std::nullopt;
  for (const Command& candidate : kCommands) {
    if (arguments[1] != candidate.name || candidate.interrupted == nullptr) {
      continue;
    }
    if (auto line = encodeResponse(ErrorResponse{candidate.interrupted})) {
      return *line + "\n";
    }
  }
  return std::nullopt;
}

}  // namespace tovrin
