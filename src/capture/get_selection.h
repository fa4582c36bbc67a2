#ifndef TOVRIN_CAPTURE_GET_SELECTION_H_
#define TOVRIN_CAPTURE_GET_SELECTION_H_

#include "response/response.h"

namespace tovrin {

class Platform;

/// The answer of a get-selection run that captured nothing.
inline constexpr char kNothingSelectedMessage[] =
    "No text selected or could not copy";

/// The get-selection command: checks the accessibility permission, reads the
/// focused element's selected text, and falls back to the synthetic copy
/// (at once when Finder is frontmost). Returns the run's answer on every
/// path; its log lines are written by then.
Response getSelection(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_CAPTURE_GET_SELECTION_H_
