#include "cli/dispatch.h"

#include "accessibility/permission.h"
#include "capture/get_selection.h"
#include "cli/output.h"

namespace tovrin {
namespace {

struct Command {
  const char* name;
  Response (*handler)(Platform&);
};

// Compared in this order, whole text and case-sensitive.
constexpr Command kCommands[] = {
    {"check-accessibility", checkAccessibility},
    {"request-accessibility", requestAccessibility},
    {"get-selection", getSelection},
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
      outputResponse(platform, candidate.handler(platform));
      return 0;
    }
  }
  outputError(platform, ErrorResponse{"Unknown command: " + command});
  return 1;
}

}  // namespace tovrin
