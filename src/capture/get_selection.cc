#include "capture/get_selection.h"

#include <string>

#include "accessibility/focused_text.h"
#include "capture/synthetic_copy.h"
#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr char kPermissionMessage[] =
    "Accessibility permission required - please grant in System Settings > "
    "Privacy & Security > Accessibility";
constexpr char kFinderBundleIdentifier[] = "com.apple.finder";

}  // namespace

Response getSelection(Platform& platform) {
  const auto commandStart = platform.monotonicNow();
  platform.log("[tovrin] Starting get-selection");

  const bool trusted = platform.isProcessTrusted();
  platform.log(std::string("[tovrin] AXIsProcessTrusted: ") +
               boolText(trusted));
  if (!trusted) {
    return ErrorResponse{kPermissionMessage};
  }

  const std::string bundleIdentifier =
      platform.frontmostApplicationBundleIdentifier().value_or("unknown");
  const bool finder = bundleIdentifier == kFinderBundleIdentifier;
  platform.log("[tovrin] Frontmost app: " + escapeForLog(bundleIdentifier) +
               ", finder=" + boolText(finder));

  if (finder) {
    // Finder's focused element reports no selected text for files; only a
    // copy brings their paths.
    platform.log(
        "[tovrin] Finder detected, skipping accessibility API and using "
        "CGEvent copy for file paths");
  } else {
    platform.log("[tovrin] Trying accessibility API...");
    const auto accessibilityStart = platform.monotonicNow();
    auto text = getSelectedTextViaAccessibility(platform);
    if (text) {
      platform.log("[tovrin] SUCCESS via accessibility in " +
                   formatSeconds(secondsSince(platform, commandStart)));
      return SuccessResponse{.text = std::move(text),
                             .method = "accessibility"};
    }
    platform.log("[tovrin] Accessibility failed in " +
                 formatSeconds(secondsSince(platform, accessibilityStart)) +
                 ", trying CGEvent");
  }

  platform.log("[tovrin] Starting CGEvent method...");
  const auto copyStart = platform.monotonicNow();
  auto result = getSelectedTextViaCGEvent(platform);
  if (result) {
    const double copySeconds = secondsSince(platform, copyStart);
    const double totalSeconds = secondsSince(platform, commandStart);
    platform.log("[tovrin] SUCCESS via CGEvent in " +
                 formatSeconds(copySeconds) +
                 " (total: " + formatSeconds(totalSeconds) + ")");
    std::optional<std::vector<std::string>> filePaths;
    if (!result->filePaths.empty()) filePaths = std::move(result->filePaths);
    return SuccessResponse{.text = std::move(result->text),
                           .method = "cgevent",
                           .html = std::move(result->html),
                           .file_paths = std::move(filePaths)};
  }

  platform.log("[tovrin] CGEvent failed in " +
               formatSeconds(secondsSince(platform, copyStart)));
  platform.log("[tovrin] FAILED total time: " +
               formatSeconds(secondsSince(platform, commandStart)));
  return ErrorResponse{kNothingSelectedMessage};
}

}  // namespace tovrin
