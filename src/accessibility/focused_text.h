#ifndef TOVRIN_ACCESSIBILITY_FOCUSED_TEXT_H_
#define TOVRIN_ACCESSIBILITY_FOCUSED_TEXT_H_

#include <optional>
#include <string>

namespace tovrin {

class Platform;

/// The selected text of the focused user-interface element, read through the
/// accessibility interface without touching the clipboard. Nothing when
/// there is no focused element, it has no selected text, or the text is
/// empty. Logs exactly one line saying which.
std::optional<std::string> getSelectedTextViaAccessibility(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_ACCESSIBILITY_FOCUSED_TEXT_H_
