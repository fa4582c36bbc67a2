#ifndef TOVRIN_PLATFORM_MAC_PASTEBOARD_H_
#define TOVRIN_PLATFORM_MAC_PASTEBOARD_H_

#include <memory>

#include "platform/platform.h"

namespace tovrin {

/// AppKit's general pasteboard behind the seam's Pasteboard.
std::shared_ptr<Pasteboard> createGeneralPasteboard();

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_MAC_PASTEBOARD_H_
