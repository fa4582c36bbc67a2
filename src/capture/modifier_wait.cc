#include "capture/modifier_wait.h"

#include <chrono>

#include "platform/platform.h"

namespace tovrin {

bool waitForModifierKeysReleased(Platform& platform, int64_t timeoutMs) {
  constexpr double kPollInterval = 0.01;
  const auto start = platform.monotonicNow();
  const std::chrono::nanoseconds timeout = std::chrono::milliseconds(timeoutMs);
  // The elapsed time is tested before every read, the first included, so a
  // timeout of 0 or less never reads the flags.
  while (platform.monotonicNow() - start < timeout) {
    if ((platform.modifierFlags() & kHeldModifierMask) == 0) {
      platform.log("[tovrin] Modifier keys released");
      return true;
    }
    platform.sleep(kPollInterval);
  }
  platform.log("[tovrin] Timeout waiting for modifier keys to release");
  return false;
}

}  // namespace tovrin
