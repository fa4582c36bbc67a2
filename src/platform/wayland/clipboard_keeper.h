#ifndef TOVRIN_PLATFORM_WAYLAND_CLIPBOARD_KEEPER_H_
#define TOVRIN_PLATFORM_WAYLAND_CLIPBOARD_KEEPER_H_

// The process that serves text written to the Wayland clipboard. A
// selection lives only as long as its source's client, and tovrin exits
// right after writing: a detached process of its own owns the clipboard
// through data-control, with the text under the usual text types, until
// another client takes it or the compositor goes away.

#include <memory>
#include <string>

#include "platform/linux/serving_process.h"

namespace tovrin {

/// Starts the serving process for the compositor at the socket path
/// `socket`; null when it cannot be started. `lockFd` as for
/// ServerProcess::start.
std::unique_ptr<ServerProcess> startWaylandClipboardServer(
    const std::string& socket, int lockFd = -1);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_CLIPBOARD_KEEPER_H_
