#include "accessibility/permission.h"

#include <string>

#include "cli/json.h"
#include "cli/response.h"
#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

void writePermissionAnswer(Platform& platform, bool granted) {
  JsonObjectWriter writer;
  writer.addBool("success", true).addBool("granted", granted);
  writeAnswerLine(platform, std::move(writer).finish());
}

}  // namespace

void checkAccessibility(Platform& platform) {
  const bool trusted = platform.isProcessTrusted();
  platform.log(std::string("[tovrin] check-accessibility: ") +
               boolText(trusted));
  writePermissionAnswer(platform, trusted);
}

void requestAccessibility(Platform& platform) {
  platform.log("[tovrin] request-accessibility");
  const bool granted = platform.isProcessTrustedWithPrompt();
  platform.log(std::string("[tovrin] AXIsProcessTrustedWithOptions: ") +
               boolText(granted));
  writePermissionAnswer(platform, granted);
}

}  // namespace tovrin
