#ifndef TOVRIN_PLATFORM_WAYLAND_LIBRARIES_H_
#define TOVRIN_PLATFORM_WAYLAND_LIBRARIES_H_

// libwayland-client and libxkbcommon are loaded at run time (dlopen), when
// a Wayland compositor is named, rather than linked: linked, the dynamic
// loader would map them (and libffi) for every command on every desktop,
// X11 and check-accessibility included. This file defines the functions
// of theirs that tovrin calls, each forwarding to the loaded library, and
// the core protocol's interface descriptions come from wayland-scanner.

namespace tovrin {

/// Loads both libraries once; false when either is missing or lacks a
/// function tovrin calls. Nothing of theirs may be called before it said
/// true. Safe to call from any thread.
bool loadWaylandLibraries();

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_LIBRARIES_H_
