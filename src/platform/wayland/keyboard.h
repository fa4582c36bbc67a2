#ifndef TOVRIN_PLATFORM_WAYLAND_KEYBOARD_H_
#define TOVRIN_PLATFORM_WAYLAND_KEYBOARD_H_

// The synthetic copy shortcut on Wayland, pressed on a virtual keyboard of
// our own. The keyboard carries the seat's keymap, so the application reads
// the keys in the user's layouts, as it would a person's; a keymap without
// a Latin c gives way to a US one.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/copy_shortcut.h"

struct zwp_virtual_keyboard_v1;

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

/// A virtual keyboard of the connection's seat with the keymap of `keys`.
class VirtualKeyboard {
 public:
  /// Null when the compositor offers no virtual keyboards.
  static std::unique_ptr<VirtualKeyboard> create(WaylandConnection& connection,
                                                 const CopyKeys& keys);
  ~VirtualKeyboard();
  VirtualKeyboard(const VirtualKeyboard&) = delete;
  VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

  /// Presses or releases the evdev `key`.
  void key(uint32_t key, bool down);
  /// Sets the keyboard's held modifiers (bits of the keymap) and its
  /// layout.
  void modifiers(uint32_t depressed, uint32_t layout = 0);
  /// Sends what is queued.
  bool send();
  /// Sends what is queued and waits until the compositor has handled it.
  bool sync();

 private:
  VirtualKeyboard(WaylandConnection& connection, zwp_virtual_keyboard_v1* keyboard)
      : connection_(connection), keyboard_(keyboard) {}

  WaylandConnection& connection_;
  zwp_virtual_keyboard_v1* keyboard_;
};

/// One copy shortcut, pressed and then released on a virtual keyboard.
/// The application sees the virtual keyboard's modifiers, not those the
/// user holds on another keyboard: it gets the shortcut alone.
class WaylandCopyKeystroke {
 public:
  /// The keystroke for `shortcut` in the seat's keymap (US when the seat
  /// has none); null when there are no virtual keyboards.
  static std::unique_ptr<WaylandCopyKeystroke> prepare(
      WaylandConnection& connection, CopyShortcut shortcut);
  /// Releases what is still pressed.
  ~WaylandCopyKeystroke();
  WaylandCopyKeystroke(const WaylandCopyKeystroke&) = delete;
  WaylandCopyKeystroke& operator=(const WaylandCopyKeystroke&) = delete;

  /// Presses the shortcut's modifiers, then C.
  void press();
  /// Releases C, then the modifiers. Does nothing unless pressed.
  void release();
  /// The evdev keys press() presses, in order.
  std::vector<uint8_t> shortcutKeys() const;

 private:
  WaylandCopyKeystroke(std::unique_ptr<VirtualKeyboard> keyboard,
                       CopyKeys keys, CopyShortcut shortcut)
      : keyboard_(std::move(keyboard)), keys_(std::move(keys)),
        shortcut_(shortcut) {}

  std::unique_ptr<VirtualKeyboard> keyboard_;
  CopyKeys keys_;
  CopyShortcut shortcut_;
  bool pressed_ = false;
};

/// A keystroke with the connection it was made on.
struct ReadyKeystroke {
  std::unique_ptr<WaylandConnection> connection;
  std::unique_ptr<WaylandCopyKeystroke> keystroke;  // goes first
  ~ReadyKeystroke();
};

/// A copy keystroke made ready on a thread and a connection of its own
/// while the copy run saves the clipboard and pauses: fetching and compiling
/// the seat's keymap, and the compositor compiling the virtual keyboard's,
/// take tens of milliseconds that the run would otherwise wait for.
class KeystrokePreparation {
 public:
  /// Starts preparing the keystroke for `shortcut` on the compositor at the
  /// socket path `socket`.
  static std::unique_ptr<KeystrokePreparation> start(const std::string& socket,
                                                     CopyShortcut shortcut);
  /// The keystroke once it is ready; null when it could not be made, or was
  /// not ready at `deadline` (it is then dropped when it is).
  std::unique_ptr<ReadyKeystroke> take(
      std::chrono::steady_clock::time_point deadline);

  struct State;

 private:
  explicit KeystrokePreparation(std::shared_ptr<State> state)
      : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_KEYBOARD_H_
