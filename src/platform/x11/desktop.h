#ifndef TOVRIN_PLATFORM_X11_DESKTOP_H_
#define TOVRIN_PLATFORM_X11_DESKTOP_H_

// What the X11 backend asks of the desktop besides the clipboard: which
// window has the focus, which application it belongs to, which process owns
// a window, and the state of the modifier keys.
//
// Queries that name another client's window go through XCB with their
// errors collected per request: a window that vanishes meanwhile gives an
// empty answer, never Xlib's process-wide error handler.

#include <X11/Xlib.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/copy_shortcut.h"

namespace tovrin {

/// The application window that has the keyboard focus: the window manager's
/// _NET_ACTIVE_WINDOW, or without a window manager the client window of the
/// input focus (the window under the pointer when the focus follows it).
/// 0 when there is none.
Window focusedWindow(Display* display);

/// Names of an application window.
struct WindowClass {
  std::string instance;
  std::string className;
};

/// WM_CLASS of `window`; nothing when it has none.
std::optional<WindowClass> windowClass(Display* display, Window window);

/// The identifier of the application of `window`: its _GTK_APPLICATION_ID,
/// else the class of its WM_CLASS; nothing when it has neither.
std::optional<std::string> applicationIdentifier(Display* display,
                                                 Window window);

/// The process id of the client that created `window`, through the
/// X-Resource extension; nothing when the server cannot tell.
std::optional<pid_t> windowProcessId(Display* display, Window window);

/// The modifier keys held now, as macOS's modifier flags: Shift 0x20000,
/// Control 0x40000, Alt (Mod1) 0x80000, Super (Mod4) 0x100000 and Lock
/// 0x10000.
uint64_t currentModifierFlags(Display* display);
/// The flags of currentModifierFlags for a core protocol state mask
/// (ShiftMask, ControlMask...). NumLock (Mod2) and the rarely bound Mod3 and
/// Mod5 have no flag.
uint64_t modifierFlagsFromMask(unsigned int mask);

/// The copy shortcut of the application with `windowClass`, by both of its
/// names; kControlC without WM_CLASS.
CopyShortcut copyShortcutFor(const std::optional<WindowClass>& windowClass);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_DESKTOP_H_
