// The backend of a Linux desktop: Wayland when WAYLAND_DISPLAY names a
// compositor that answers, else X11 (which also serves XWayland-only
// sessions and machines without a display, where AT-SPI may still answer).

#include <cstdlib>
#include <memory>

#include "platform/platform.h"
#include "platform/gnome/platform.h"
#include "platform/system.h"
#include "platform/wayland/connection.h"
#include "platform/wayland/libraries.h"
#include "platform/wayland/platform.h"
#include "platform/x11/platform.h"

namespace tovrin {

std::unique_ptr<Platform> createPlatform() {
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  if (wayland != nullptr && wayland[0] != '\0') {
    if (!loadWaylandLibraries()) {
      writeLogLine(
          "[tovrin] Wayland: libwayland-client or libxkbcommon is not "
          "installed; trying X11");
    } else if (auto connection = WaylandConnection::open({})) {
      // GNOME's compositor offers its own interface on the session bus.
      if (connection->dataControl() == nullptr) {
        if (auto mutter = createMutterPlatform(connection)) return mutter;
      }
      return createWaylandPlatform(std::move(connection));
    } else {
      writeLogLine(
          "[tovrin] Wayland: no compositor answers at WAYLAND_DISPLAY; "
          "trying X11");
    }
  }
  return createX11Platform();
}

}  // namespace tovrin
