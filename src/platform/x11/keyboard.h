#ifndef TOVRIN_PLATFORM_X11_KEYBOARD_H_
#define TOVRIN_PLATFORM_X11_KEYBOARD_H_

// The synthetic copy shortcut on X11, sent through XTest to the window with
// the input focus.

#include <X11/Xlib.h>

#include <memory>
#include <vector>

#include "platform/linux/copy_shortcut.h"

namespace tovrin {

/// One copy shortcut, pressed and then released. The application must see
/// the shortcut alone: modifiers the user still holds are released for it
/// and pressed again afterwards, as macOS's Command-only event flags do.
class CopyKeystroke {
 public:
  /// The keystroke for `shortcut` in the active group of the keyboard
  /// layout: C is the key that gives a Latin `c` there, or, where the group
  /// has none (Russian, say), the key at the US position of C, which
  /// applications take as C with Control held, as they do for a person.
  /// Nothing when the modifier keys cannot be had.
  static std::unique_ptr<CopyKeystroke> prepare(Display* display,
                                                CopyShortcut shortcut);
  /// Releases what is still pressed.
  ~CopyKeystroke();
  CopyKeystroke(const CopyKeystroke&) = delete;
  CopyKeystroke& operator=(const CopyKeystroke&) = delete;

  /// Releases held modifiers, presses the shortcut's modifiers, then C.
  void press();
  /// Releases C and the shortcut's modifiers and presses the user's held
  /// modifiers again. Does nothing unless pressed.
  void release();
  bool pressed() const { return pressed_; }
  /// The keys press() presses, in order: Control, Shift for terminals, then
  /// C; what a process watching over this one must release should it die
  /// between press() and release().
  std::vector<KeyCode> shortcutKeys() const;

 private:
  CopyKeystroke(Display* display, CopyShortcut shortcut)
      : display_(display), shortcut_(shortcut) {}

  void fakeKey(KeyCode key, bool down);

  Display* display_;
  CopyShortcut shortcut_;
  KeyCode control_ = 0;
  KeyCode shift_ = 0;
  KeyCode c_ = 0;
  bool pressed_ = false;
  std::vector<KeyCode> heldModifiers_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_KEYBOARD_H_
