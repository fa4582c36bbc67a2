#ifndef TOVRIN_ACCESSIBILITY_PERMISSION_H_
#define TOVRIN_ACCESSIBILITY_PERMISSION_H_

namespace tovrin {

class Platform;

/// The check-accessibility command: reports whether tovrin holds the
/// accessibility permission, as {"success":true,"granted":…}. Never prompts.
void checkAccessibility(Platform& platform);

/// The request-accessibility command: the same answer, and the system shows
/// its permission prompt when the permission is missing. Does not wait for
/// the user.
void requestAccessibility(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_ACCESSIBILITY_PERMISSION_H_
