#ifndef TOVRIN_ACCESSIBILITY_PERMISSION_H_
#define TOVRIN_ACCESSIBILITY_PERMISSION_H_

#include "response/response.h"

namespace tovrin {

class Platform;

/// The check-accessibility command: whether tovrin holds the accessibility
/// permission. Never prompts.
Response checkAccessibility(Platform& platform);

/// The request-accessibility command: the same answer, and the system shows
/// its permission prompt when the permission is missing. Does not wait for
/// the user.
Response requestAccessibility(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_ACCESSIBILITY_PERMISSION_H_
