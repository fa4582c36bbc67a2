#include "capture/get_selection.h"

#include <string>

#include "accessibility/focused_text.h"
#include "capture/synthetic_copy.h"
#include "cli/response.h"
#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr char kPermissionMessage[] =
    "Accessibility permission required - please grant in System Settings > "
    "Privacy & Security > Accessibility";
constexpr char kNothingMessage[] = "No text selected or could not copy";
constexpr char kFinderBundleIdentifier[] = "com.apple.finder";

}  // namespace

void getSelection(Platform& platform) {
  const double commandStart = platform.now();
  platform.log("[tovrin] Starting get-selection");

  const bool trusted = platform.isProcessTrusted();
  platform.log(std::string("[tovrin] AXIsProcessTrusted: ") +
               boolText(trusted));
  if (!trusted) {
    outputError(platform, kPermissionMessage);
    return;
  }

  const std::string bundleIdentifier =
      platform.frontmostApplicationBundleIdentifier().value_or("unknown");
  const bool finder = bundleIdentifier == kFinderBundleIdentifier;
  platform.log("[tovrin] Frontmost app: " + bundleIdentifier +
               ", finder=" + boolText(finder));

  if (finder) {
    // Finder's focused element reports no selected text for files; only a
    // copy brings their paths.
    platform.log(
        "[tovrin] Finder detected, skipping accessibility API and using "
        "CGEvent copy for file paths");
  } else {
    platform.log("[tovrin] Trying accessibility API...");
    const double accessibilityStart = platform.now();
    auto text = getSelectedTextViaAccessibility(platform);
    if (text) {
      platform.log("[tovrin] SUCCESS via accessibility in " +
                   formatSeconds(platform.now() - commandStart));
      outputSuccess(platform, std::move(text), "accessibility", std::nullopt,
                    std::nullopt);
      return;
    }
    platform.log("[tovrin] Accessibility failed in " +
                 formatSeconds(platform.now() - accessibilityStart) +
                 ", trying CGEvent");
  }

  platform.log("[tovrin] Starting CGEvent method...");
  const double copyStart = platform.now();
  auto result = getSelectedTextViaCGEvent(platform);
  if (result) {
    const double copySeconds = platform.now() - copyStart;
    const double totalSeconds = platform.now() - commandStart;
    platform.log("[tovrin] SUCCESS via CGEvent in " +
                 formatSeconds(copySeconds) +
                 " (total: " + formatSeconds(totalSeconds) + ")");
    std::optional<std::vector<std::string>> filePaths;
    if (!result->filePaths.empty()) filePaths = std::move(result->filePaths);
    outputSuccess(platform, std::move(result->text), "cgevent",
                  std::move(result->html), std::move(filePaths));
    return;
  }

  platform.log("[tovrin] CGEvent failed in " +
               formatSeconds(platform.now() - copyStart));
  platform.log("[tovrin] FAILED total time: " +
               formatSeconds(platform.now() - commandStart));
  outputError(platform, kNothingMessage);
}

}  // namespace tovrin
