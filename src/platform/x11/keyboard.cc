#include "platform/x11/keyboard.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace tovrin {
namespace {

/// The key code that evdev gives the key at the US position of C, for a
/// server that does not name its keys.
constexpr KeyCode kUsPositionOfCEvdev = 54;

/// Frees an XKB keyboard description with everything hanging off it.
struct XkbKeyboardFree {
  void operator()(XkbDescPtr keyboard) const {
    XkbFreeKeyboard(keyboard, 0, True);
  }
};

/// The key at the US position of C, whatever the layout puts on it: the
/// key XKB names "AB03" (row B, third key), since key codes differ between
/// keyboards and drivers.
KeyCode usPositionOfC(Display* display) {
  const std::unique_ptr<XkbDescRec, XkbKeyboardFree> keyboard(
      XkbAllocKeyboard());
  if (!keyboard ||
      XkbGetNames(display, XkbKeyNamesMask, keyboard.get()) != Success ||
      keyboard->names == nullptr || keyboard->names->keys == nullptr) {
    return kUsPositionOfCEvdev;
  }
  constexpr std::string_view kName = "AB03";
  for (int key = keyboard->min_key_code; key <= keyboard->max_key_code; ++key) {
    const char* name = keyboard->names->keys[key].name;
    if (std::string_view(name, strnlen(name, XkbKeyNameLength)) == kName) {
      return static_cast<KeyCode>(key);
    }
  }
  return kUsPositionOfCEvdev;
}

/// The key to press as C. A layout with several groups (us,ru) has a `c`
/// in one and not in another, and the application reads the key in the
/// group active now; a `c` of an inactive group would come out Cyrillic.
KeyCode copyKeyOf(Display* display) {
  XkbStateRec state = {};
  const unsigned int group =
      XkbGetState(display, XkbUseCoreKbd, &state) == Success ? state.group : 0;
  int minKey = 0, maxKey = 0;
  XDisplayKeycodes(display, &minKey, &maxKey);
  for (int key = minKey; key <= maxKey; ++key) {
    if (XkbKeycodeToKeysym(display, static_cast<KeyCode>(key), group, 0) ==
        XK_c) {
      return static_cast<KeyCode>(key);
    }
  }
  // Without a Latin c (Russian alone, or its group active), applications
  // take Control with the key at the US position of C as Ctrl+C, as for a
  // person. A spare key code bound to `c` is not: Chromium ignores it.
  return usPositionOfC(display);
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
  keystroke->c_ = copyKeyOf(display);
  if (keystroke->control_ == 0) return nullptr;
  if (shortcut == CopyShortcut::kControlShiftC && keystroke->shift_ == 0) {
    return nullptr;
  }
  return keystroke;
}

CopyKeystroke::~CopyKeystroke() { release(); }

void CopyKeystroke::fakeKey(KeyCode key, bool down) {
  XTestFakeKeyEvent(display_, key, down ? True : False, CurrentTime);
}

void CopyKeystroke::press() {
  const std::vector<KeyCode> keys = shortcutKeys();
  if (pressed_ || keys.empty()) return;
  heldModifiers_ = heldModifierKeys(display_);
  for (const KeyCode key : heldModifiers_) fakeKey(key, false);
  for (const KeyCode key : keys) fakeKey(key, true);
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
  const std::vector<KeyCode> keys = shortcutKeys();
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    fakeKey(*key, false);
  }
  for (const KeyCode key : heldModifiers_) fakeKey(key, true);
  XSync(display_, False);
  pressed_ = false;
}

}  // namespace tovrin
