#ifndef TOVRIN_CAPTURE_GET_SELECTION_H_
#define TOVRIN_CAPTURE_GET_SELECTION_H_

namespace tovrin {

class Platform;

/// The get-selection command: checks the accessibility permission, reads the
/// focused element's selected text, and falls back to the synthetic copy
/// (at once when Finder is frontmost). Writes one answer line and returns on
/// every path.
void getSelection(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_CAPTURE_GET_SELECTION_H_
