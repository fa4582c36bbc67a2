#ifndef TOVRIN_PLATFORM_WAYLAND_PLATFORM_H_
#define TOVRIN_PLATFORM_WAYLAND_PLATFORM_H_

#include <memory>

#include "platform/platform.h"

namespace tovrin {

class WaylandConnection;

/// The Wayland backend on an open connection to the compositor.
std::unique_ptr<Platform> createWaylandPlatform(
    std::unique_ptr<WaylandConnection> connection);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_PLATFORM_H_
