#ifndef TOVRIN_CAPTURE_MODIFIER_WAIT_H_
#define TOVRIN_CAPTURE_MODIFIER_WAIT_H_

#include <cstdint>

namespace tovrin {

class Platform;

/// Shift, Control, Option and Command: the modifiers that would turn the
/// synthetic copy keystroke into another shortcut.
inline constexpr uint64_t kHeldModifierMask = 0x1e0000;

/// Waits until none of Shift, Control, Option and Command is held, polling
/// every 10 ms, at most `timeoutMs` milliseconds. True when they were
/// released, false when the time ran out first.
bool waitForModifierKeysReleased(Platform& platform, int64_t timeoutMs = 500);

}  // namespace tovrin

#endif  // TOVRIN_CAPTURE_MODIFIER_WAIT_H_
