#ifndef TOVRIN_PLATFORM_WAYLAND_KWIN_FAKE_INPUT_H_
#define TOVRIN_PLATFORM_WAYLAND_KWIN_FAKE_INPUT_H_

// KWin's fake input (org_kde_kwin_fake_input, version 4): KWin offers no
// virtual keyboards, and this is how a client types there. KWin offers it
// only to a program that an installed .desktop file names by absolute path
// in its Exec and whose X-KDE-Wayland-Interfaces lists it (tovrin's
// package installs one). The keys are evdev codes that KWin reads through
// the seat's keymap and its current layout; KWin tracks the modifiers from
// the keys themselves.

#include <memory>

namespace tovrin {

class SyntheticKeyboard;
class WaylandConnection;

/// A keyboard on KWin's fake input, authenticated; null when the
/// compositor does not offer fake input to this program.
std::unique_ptr<SyntheticKeyboard> createFakeInputKeyboard(
    WaylandConnection& connection);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_KWIN_FAKE_INPUT_H_
