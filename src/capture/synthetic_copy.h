#ifndef TOVRIN_CAPTURE_SYNTHETIC_COPY_H_
#define TOVRIN_CAPTURE_SYNTHETIC_COPY_H_

#include <optional>
#include <string>
#include <vector>

namespace tovrin {

class Platform;

/// What the synthetic copy captured. One of two shapes: file paths (`text`
/// and `html` absent, `filePaths` non-empty), or text (`text` present and
/// non-empty, `html` present or absent, `filePaths` empty).
struct ClipboardCaptureResult {
  std::optional<std::string> text;
  std::optional<std::string> html;
  std::vector<std::string> filePaths;
};

/// Makes the frontmost application copy its selection: saves the clipboard's
/// plain text, waits for the modifier keys, clears the clipboard, posts the
/// copy keystroke, reads file paths or else text and HTML, and writes the
/// saved text back. Nothing when no copy arrived or the key events could not
/// be made.
std::optional<ClipboardCaptureResult> getSelectedTextViaCGEvent(
    Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_CAPTURE_SYNTHETIC_COPY_H_
