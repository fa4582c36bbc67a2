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
#include "platform/wayland/copy_keys.h"

struct zwp_virtual_keyboard_v1;

namespace tovrin {

class WaylandConnection;

/// A keyboard whose keys this process presses on the connection's seat.
class SyntheticKeyboard {
 public:
  virtual ~SyntheticKeyboard() = default;
  /// Presses or releases the evdev `key`.
  virtual void key(uint32_t key, bool down) = 0;
  /// Sets the keyboard's held modifiers (bits of the keymap) and its
  /// layout, where the keyboard has modifiers of its own.
  virtual void modifiers(uint32_t depressed, uint32_t layout = 0) = 0;
  /// Sends what is queued.
  virtual bool send() = 0;
  /// Sends what is queued and waits until the compositor has handled it.
  virtual bool sync() = 0;
};

/// A virtual keyboard with the keymap of `keys` where the compositor
/// offers them (wlroots), else KWin's fake input through tovrin-kwin-input
/// (kwin_input.h), which types through the seat's own keymap; null when
/// neither is to be had.
std::unique_ptr<SyntheticKeyboard> createSyntheticKeyboard(
    WaylandConnection& connection, const CopyKeys& keys);

/// A virtual keyboard of the connection's seat with the keymap of `keys`.
class VirtualKeyboard : public SyntheticKeyboard {
 public:
  /// Null when the compositor offers no virtual keyboards.
  static std::unique_ptr<VirtualKeyboard> create(WaylandConnection& connection,
                                                 const CopyKeys& keys);
  ~VirtualKeyboard() override;
  VirtualKeyboard(const VirtualKeyboard&) = delete;
  VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

  void key(uint32_t key, bool down) override;
  void modifiers(uint32_t depressed, uint32_t layout = 0) override;
  bool send() override;
  bool sync() override;

 private:
  VirtualKeyboard(WaylandConnection& connection, zwp_virtual_keyboard_v1* keyboard)
      : connection_(connection), keyboard_(keyboard) {}

  WaylandConnection& connection_;
  zwp_virtual_keyboard_v1* keyboard_;
};

/// One copy shortcut, pressed and then released on a synthetic keyboard.
/// The application sees the virtual keyboard's modifiers, not those the
/// user holds on another keyboard: it gets the shortcut alone.
class WaylandCopyKeystroke {
 public:
  /// The keystroke for `shortcut` in the seat's keymap (US when the seat
  /// has none); null when there is no synthetic keyboard.
  static std::unique_ptr<WaylandCopyKeystroke> prepare(
      WaylandConnection& connection, CopyShortcut shortcut);
  /// The keystroke for `shortcut` with `keys`, pressed on `keyboard`.
  static std::unique_ptr<WaylandCopyKeystroke> create(
      std::unique_ptr<SyntheticKeyboard> keyboard, CopyKeys keys,
      CopyShortcut shortcut) {
    return std::unique_ptr<WaylandCopyKeystroke>(new WaylandCopyKeystroke(
        std::move(keyboard), std::move(keys), shortcut));
  }
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
  WaylandCopyKeystroke(std::unique_ptr<SyntheticKeyboard> keyboard,
                       CopyKeys keys, CopyShortcut shortcut)
      : keyboard_(std::move(keyboard)), keys_(std::move(keys)),
        shortcut_(shortcut) {}

  std::unique_ptr<SyntheticKeyboard> keyboard_;
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
