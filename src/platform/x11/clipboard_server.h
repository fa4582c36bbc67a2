#ifndef TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_
#define TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_

// Text written to CLIPBOARD, served on X11 by a detached process of its own
// (see platform/linux/serving_process.h for why, and for how it watches
// over a copy run): it owns CLIPBOARD with the text (UTF8_STRING,
// text/plain;charset=utf-8 and STRING) until another client takes it or the
// display goes away, and asks a running clipboard manager to save it. Keys
// that a killed copy run left pressed it releases through XTest.

#include <memory>
#include <string>

#include "platform/linux/serving_process.h"

namespace tovrin {

/// Starts a ServerProcess that will serve CLIPBOARD on `displayName`, its
/// keys being X key codes; null when it cannot be started. `lockFd` as for
/// ServerProcess::start.
std::unique_ptr<ServerProcess> startX11ClipboardServer(
    const std::string& displayName, int lockFd = -1);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_
