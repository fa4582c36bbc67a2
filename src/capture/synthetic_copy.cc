#include "capture/synthetic_copy.h"

#include <chrono>
#include <memory>

#include "capture/modifier_wait.h"
#include "clipboard/file_paths.h"
#include "clipboard/html.h"
#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr double kPauseBeforeClear = 0.05;
constexpr double kPauseAfterPost = 0.15;
constexpr int kTextReadAttempts = 5;
constexpr double kPauseBetweenReads = 0.05;
constexpr double kPauseBeforeRestore = 0.05;
// A copy run takes about 0.3 s; one that waited this long behind others
// answers the failure rather than keep its host waiting.
constexpr std::chrono::milliseconds kCopyRunLockTimeout{2000};

/// Puts the text saved on entry back as the clipboard's plain text.
void writeBack(Pasteboard& pasteboard, const std::string& savedText) {
  pasteboard.clearContents();
  pasteboard.setString(savedText, PasteboardType::kString);
}

/// Posts Command-C, key down then key up. False when an event could not be
/// created (after logging which).
bool postCopyKeystroke(Platform& platform) {
  const EventSourceHandle source =
      platform.createEventSource(kEventSourceStateHIDSystemState);
  const KeyboardEventHandle keyDown =
      platform.createKeyboardEvent(source.get(), kVirtualKeyC, true);
  if (!keyDown) {
    platform.log("[tovrin] CGEvent: Failed to create key down event");
    return false;
  }
  keyDown->setFlags(kEventFlagMaskCommand);
  keyDown->post(kHIDEventTap);

  const KeyboardEventHandle keyUp =
      platform.createKeyboardEvent(source.get(), kVirtualKeyC, false);
  if (!keyUp) {
    platform.log("[tovrin] CGEvent: Failed to create key up event");
    return false;
  }
  keyUp->setFlags(kEventFlagMaskCommand);
  keyUp->post(kHIDEventTap);
  return true;
}

}  // namespace

std::optional<ClipboardCaptureResult> getSelectedTextViaCGEvent(
    Platform& platform) {
  // From the save to the write-back the clipboard is this run's alone: a run
  // that started meanwhile would save the cleared clipboard, or take our
  // saved text for its copy.
  const CopyRunLockHandle lock = platform.lockCopyRun(kCopyRunLockTimeout);
  if (!lock) {
    platform.log("[tovrin] CGEvent: Another copy is still running");
    return std::nullopt;
  }
  const std::shared_ptr<Pasteboard> pasteboard = platform.generalPasteboard();
  // Only the plain text is saved; other types are not written back.
  const std::optional<std::string> saved =
      pasteboard->stringForType(PasteboardType::kString);
  // Killed between the clear and the write-back, the run must still give
  // the user their text back.
  if (saved) pasteboard->guardString(*saved);
  // After a capture, a short pause lets the application finish with the
  // clipboard before the saved text replaces its copy.
  const auto restoreAfterCapture = [&] {
    if (!saved) return;
    platform.sleep(kPauseBeforeRestore);
    writeBack(*pasteboard, *saved);
    platform.log("[tovrin] CGEvent: Restored original clipboard");
  };
  const auto restoreWithoutCopy = [&] {
    if (!saved) return;
    writeBack(*pasteboard, *saved);
    platform.log("[tovrin] CGEvent: Restored original clipboard (no copy)");
  };

  // A modifier still held would turn the keystroke into another shortcut;
  // after a timeout the copy is tried all the same.
  waitForModifierKeysReleased(platform);
  platform.sleep(kPauseBeforeClear);
  pasteboard->clearContents();

  if (!postCopyKeystroke(platform)) {
    // The clipboard is already cleared: never leave the user without the
    // text it held.
    restoreWithoutCopy();
    return std::nullopt;
  }
  platform.log("[tovrin] CGEvent: Sent Cmd+C");
  // The application copies asynchronously, after it has seen the keys.
  platform.sleep(kPauseAfterPost);

  std::vector<std::string> paths =
      getFilePathsFromClipboard(platform, *pasteboard);
  if (!paths.empty()) {
    platform.log("[tovrin] CGEvent: Got " + std::to_string(paths.size()) +
                 " file path(s)");
    restoreAfterCapture();
    return ClipboardCaptureResult{std::nullopt, std::nullopt, std::move(paths)};
  }

  for (int attempt = 1; attempt <= kTextReadAttempts; ++attempt) {
    auto text = pasteboard->stringForType(PasteboardType::kString);
    if (text && !text->empty()) {
      platform.log("[tovrin] CGEvent: Got clipboard on attempt " +
                   std::to_string(attempt) + ": " +
                   std::to_string(countCharacters(*text)) + " chars");
      platform.log("[tovrin] Attempting HTML capture...");
      const auto htmlStart = platform.monotonicNow();
      auto html = getHtmlFromClipboard(platform);
      platform.log("[tovrin] HTML capture took " +
                   formatSeconds(secondsSince(platform, htmlStart)));
      restoreAfterCapture();
      return ClipboardCaptureResult{std::move(text), std::move(html), {}};
    }
    platform.sleep(kPauseBetweenReads);
  }

  restoreWithoutCopy();
  platform.log("[tovrin] CGEvent: No text copied");
  return std::nullopt;
}

}  // namespace tovrin
