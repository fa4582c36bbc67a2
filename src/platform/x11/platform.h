#ifndef TOVRIN_PLATFORM_X11_PLATFORM_H_
#define TOVRIN_PLATFORM_X11_PLATFORM_H_

#include <memory>

#include "platform/platform.h"

namespace tovrin {

/// The X11 backend on the display named by $DISPLAY, opened on first use.
std::unique_ptr<Platform> createX11Platform();

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_PLATFORM_H_
