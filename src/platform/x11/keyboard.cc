#include "platform/x11/keyboard.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <memory>

#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

/// A key code that the layout leaves unused, to borrow for `c`; 0 when all
/// are taken.
KeyCode spareKeyCode(Display* display) {
  int minKey = 0, maxKey = 0;
  XDisplayKeycodes(display, &minKey, &maxKey);
  int perKey = 0;
  const XlibPointer<KeySym> map(XGetKeyboardMapping(
      display, static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
  if (!map) return 0;
  // From the top: the low codes belong to real keys of most keyboards.
  for (int key = maxKey; key >= minKey; --key) {
    const KeySym* syms = map.get() + (key - minKey) * perKey;
    if (std::all_of(syms, syms + perKey,
                    [](KeySym sym) { return sym == NoSymbol; })) {
      return static_cast<KeyCode>(key);
    }
  }
  return 0;
}

/// The modifier keys held down now, Lock left out: Caps Lock does not turn
/// Ctrl+C into another shortcut.
std::vector<KeyCode> heldModifierKeys(Display* display) {
  char keys[32] = {};
  XQueryKeymap(display, keys);
  const std::unique_ptr<XModifierKeymap, decltype(&XFreeModifiermap)> map(
      XGetModifierMapping(display), &XFreeModifiermap);
  std::vector<KeyCode> held;
  if (!map) return held;
  for (int modifier = 0; modifier < 8; ++modifier) {
    if (modifier == LockMapIndex) continue;
    for (int i = 0; i < map->max_keypermod; ++i) {
      const KeyCode key = map->modifiermap[modifier * map->max_keypermod + i];
      if (key != 0 && (keys[key / 8] & (1 << (key % 8))) &&
          std::find(held.begin(), held.end(), key) == held.end()) {
        held.push_back(key);
      }
    }
  }
  return held;
}

}  // namespace

std::unique_ptr<CopyKeystroke> CopyKeystroke::prepare(Display* display,
                                                      CopyShortcut shortcut) {
  std::unique_ptr<CopyKeystroke> keystroke(
      new CopyKeystroke(display, shortcut));
  keystroke->control_ = XKeysymToKeycode(display, XK_Control_L);
  keystroke->shift_ = XKeysymToKeycode(display, XK_Shift_L);
  keystroke->c_ = XKeysymToKeycode(display, XK_c);
  if (keystroke->control_ == 0) return nullptr;
  if (shortcut == CopyShortcut::kControlShiftC && keystroke->shift_ == 0) {
    return nullptr;
  }
  return keystroke;
}

CopyKeystroke::~CopyKeystroke() {
  release();
  unbindSpareKey();
}

void CopyKeystroke::fakeKey(KeyCode key, bool down) {
  XTestFakeKeyEvent(display_, key, down ? True : False, CurrentTime);
}

void CopyKeystroke::press() {
  if (pressed_ || shortcut_ == CopyShortcut::kNone) return;
  if (c_ == 0) {
    // A layout without a Latin c (Russian alone, say): bind it to a spare
    // key code for the moment of the press, as xdotool does. Applications
    // read the new mapping before the key event, which comes after it.
    c_ = spareKeyCode(display_);
    if (c_ == 0) return;
    KeySym syms[2] = {XK_c, XK_C};
    XChangeKeyboardMapping(display_, c_, 2, syms, 1);
    XSync(display_, False);
    boundSpareKey_ = true;
  }
  heldModifiers_ = heldModifierKeys(display_);
  for (const KeyCode key : heldModifiers_) fakeKey(key, false);
  fakeKey(control_, true);
  if (shortcut_ == CopyShortcut::kControlShiftC) fakeKey(shift_, true);
  fakeKey(c_, true);
  XFlush(display_);
  pressed_ = true;
}

std::vector<KeyCode> CopyKeystroke::shortcutKeys() const {
  if (shortcut_ == CopyShortcut::kNone) return {};
  std::vector<KeyCode> keys = {control_};
  if (shortcut_ == CopyShortcut::kControlShiftC) keys.push_back(shift_);
  if (c_ != 0) keys.push_back(c_);
  return keys;
}

void CopyKeystroke::release() {
  if (!pressed_) return;
  fakeKey(c_, false);
  if (shortcut_ == CopyShortcut::kControlShiftC) fakeKey(shift_, false);
  fakeKey(control_, false);
  for (const KeyCode key : heldModifiers_) fakeKey(key, true);
  XSync(display_, False);
  // A borrowed key code stays bound until the end of the run: the
  // application may still be looking the key up.
  pressed_ = false;
}

void CopyKeystroke::unbindSpareKey() {
  if (!boundSpareKey_) return;
  KeySym none[1] = {NoSymbol};
  XChangeKeyboardMapping(display_, c_, 1, none, 1);
  XSync(display_, False);
  boundSpareKey_ = false;
  c_ = 0;
}

}  // namespace tovrin
