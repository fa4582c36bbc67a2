#ifndef TOVRIN_PLATFORM_WAYLAND_KWIN_WINDOWS_H_
#define TOVRIN_PLATFORM_WAYLAND_KWIN_WINDOWS_H_

// Which application has the active window under KWin, from its window list
// (org_kde_plasma_window_management). KWin offers the list only to the
// programs its installed .desktop files authorize, as it does fake input.
// Two exchanges with the compositor, a few milliseconds: KWin's scripting
// over D-Bus would need no authorization, but loads and runs a script for
// every question.

#include <chrono>

#include "platform/wayland/toplevels.h"

namespace tovrin {

class WaylandConnection;

/// Asks KWin, within `deadline`, which window is active; its app id is the
/// window's desktop file name, else its resource class, as KWin names
/// windows in its task manager.
ActivatedToplevel activatedPlasmaWindow(
    WaylandConnection& connection,
    std::chrono::steady_clock::time_point deadline);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_KWIN_WINDOWS_H_
