#include "accessibility/focused_text.h"

#include <string>

#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

void logError(Platform& platform, const char* stage, AXError error) {
  platform.log(std::string("[tovrin] Accessibility: Could not get ") + stage +
               " (error: " + std::to_string(error) + ")");
}

}  // namespace

std::optional<std::string> getSelectedTextViaAccessibility(Platform& platform) {
  // Every handle below is released when it goes out of scope, on each of
  // the four ends.
  const AXObjectHandle systemWide = platform.createSystemWideElement();
  if (!systemWide) {
    logError(platform, "focused element", kAXErrorFailure);
    return std::nullopt;
  }

  const AXAttributeResult focused =
      platform.copyAttributeValue(*systemWide, "AXFocusedUIElement");
  if (focused.error != kAXErrorSuccess || !focused.value) {
    logError(platform, "focused element", focused.error);
    return std::nullopt;
  }

  const AXAttributeResult selected =
      platform.copyAttributeValue(*focused.value, "AXSelectedText");
  std::optional<std::string> text;
  if (selected.error == kAXErrorSuccess && selected.value) {
    text = selected.value->stringValue();
  }
  if (!text) {
    // A query that succeeded without a string value reports its code, 0.
    logError(platform, "selected text", selected.error);
    return std::nullopt;
  }

  if (text->empty()) {
    platform.log("[tovrin] Accessibility: Selected text is empty");
    return std::nullopt;
  }
  platform.log("[tovrin] Accessibility: Got " +
               std::to_string(countCharacters(*text)) + " chars");
  return text;
}

}  // namespace tovrin
