#ifndef TOVRIN_PLATFORM_X11_DISPLAY_H_
#define TOVRIN_PLATFORM_X11_DISPLAY_H_

#include <X11/Xlib.h>

#include <chrono>
#include <string>
#include <vector>

namespace tovrin {

/// How long opening a display may take, connection and handshake included.
/// A display that takes longer (a stale forwarded display whose socket
/// accepts and never answers) counts as no display.
inline constexpr std::chrono::milliseconds kX11OpenTimeout{1000};

/// Opens `displayName` (empty: $DISPLAY) and makes one round trip to the
/// server, all within `timeout`; null when it fails or takes longer. The
/// round trip interns `atomNames`, so that later XInternAtom calls for them
/// are answered from Xlib's cache.
/// XOpenDisplay itself never gives up, so the opening runs on a thread of
/// its own that is abandoned at the deadline: it blocks, holding nothing
/// of ours, until the process ends.
Display* openDisplayWithin(const std::string& displayName,
                           std::chrono::milliseconds timeout = kX11OpenTimeout,
                           const std::vector<const char*>& atomNames = {});

/// The atom named `name`. Xlib answers names this connection has seen
/// (see internAtoms) from its cache, without a round trip.
inline Atom internAtom(Display* display, const char* name) {
  return XInternAtom(display, name, False);
}

/// Interns `atomNames` in one round trip.
void internAtoms(Display* display, const std::vector<const char*>& atomNames);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_DISPLAY_H_
