#include "capture/modifier_wait.h"

#include "platform/platform.h"

namespace tovrin {

bool waitForModifierKeysReleased(Platform& platform, int64_t timeoutMs) {
  constexpr double kPollInterval = 0.01;
  const double start = platform.now();
  const double timeout = static_cast<double>(timeoutMs) / 1000.0;
  // The elapsed time is tested before every read, the first included, so a
  // timeout of 0 or less never reads the flags.
  while (platform.now() - start < timeout) {
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
