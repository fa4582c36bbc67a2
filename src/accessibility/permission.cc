#include "accessibility/permission.h"

#include <string>

#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {

Response checkAccessibility(Platform& platform) {
  const bool trusted = platform.isProcessTrusted();
  platform.log(std::string("[tovrin] check-accessibility: ") +
               boolText(trusted));
  return PermissionResponse{.granted = trusted};
}

Response requestAccessibility(Platform& platform) {
  platform.log("[tovrin] request-accessibility");
  const bool granted = platform.isProcessTrustedWithPrompt();
  platform.log(std::string("[tovrin] AXIsProcessTrustedWithOptions: ") +
               boolText(granted));
  return PermissionResponse{.granted = granted};
}

}  // namespace tovrin
