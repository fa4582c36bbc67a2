#ifndef TOVRIN_PLATFORM_WAYLAND_COPY_KEYS_H_
#define TOVRIN_PLATFORM_WAYLAND_COPY_KEYS_H_

// The keys of the copy shortcut in an XKB keymap: the seat's keymap, as
// the compositor hands it out, or a layout's that XKB makes.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tovrin {

class WaylandConnection;

/// The keys of the copy shortcut in one keymap, as evdev key codes, with
/// the keymap's modifier bits for Control and Shift.
struct CopyKeys {
  std::string keymap;  // XKB text, as the virtual keyboard is given it
  uint32_t control = 0;
  uint32_t shift = 0;
  uint32_t c = 0;
  uint32_t controlMask = 0;
  uint32_t shiftMask = 0;
  /// The layout (XKB group) the keys are pressed in.
  uint32_t layout = 0;
};

/// The copy keys of the XKB keymap `keymapText`: C is the key that gives a
/// Latin `c` in the first layout that has one, pressed in that layout.
/// Nothing when no layout has a Latin `c` (Russian alone, say): GTK 4 then
/// takes Control with the key at the US position of C for no shortcut, so
/// the keystroke goes through a US keymap instead, where that key is C.
/// Nothing also when the keymap does not compile or lacks Control.
std::optional<CopyKeys> copyKeysOf(std::string_view keymapText);
/// The copy keys of the keymap that XKB makes of `layout` (and `variant`)
/// with the default rules and model.
std::optional<CopyKeys> copyKeysOfLayout(const std::string& layout,
                                         const std::string& variant = {});

/// The keymap the compositor gives the seat's keyboard, as XKB text;
/// nothing when the seat has no keyboard or the compositor does not say
/// before `deadline`.
std::optional<std::string> seatKeymap(
    WaylandConnection& connection,
    std::chrono::steady_clock::time_point deadline);

/// The copy keys of the seat's keymap; of the US layout when the seat has
/// no keyboard or its keymap has no Latin `c`.
std::optional<CopyKeys> seatCopyKeys(WaylandConnection& connection);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_COPY_KEYS_H_
