#ifndef TOVRIN_PLATFORM_GNOME_PLATFORM_H_
#define TOVRIN_PLATFORM_GNOME_PLATFORM_H_

#include <memory>

#include "platform/platform.h"

namespace tovrin {

class WaylandConnection;

/// The backend for GNOME's compositor, on an open Wayland connection to it;
/// null when its remote-desktop interface is not on the session bus in a
/// version tovrin knows (logged when it is another version).
std::unique_ptr<Platform> createMutterPlatform(
    std::unique_ptr<WaylandConnection>& connection);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_GNOME_PLATFORM_H_
