// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/keyboard.h"
// clang-format on

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/x11/xcb_util.h"
#include "tests/x11/clipboard_fixture.h"

namespace tovrin {
namespace {

/// A key press (true) or release of a key code, as the application sees it.
using KeyEvent = std::pair<bool, unsigned int>;
using KeyEvents = std::vector<KeyEvent>;

/// The user's side of the keyboard: an application window with the input
/// focus that records its key events, and keys held through XTest.
class KeyboardX11Test : public testing::X11Test {
 protected:
  void SetUp() override {
    X11Test::SetUp();
    if (IsSkipped()) return;
    Window window =
        testing::mapTestWindow(display(), DefaultRootWindow(display()), 0, 0,
                               "editor", KeyPressMask | KeyReleaseMask);
    XSetInputFocus(display(), window, RevertToPointerRoot, CurrentTime);
    XSync(display(), False);
  }

  /// The key events the window has received since the last call, once
  /// there are `count` of them (fewer at the deadline), and the modifier
  /// state at each.
  KeyEvents keyEvents(size_t count, std::vector<unsigned int>* states) {
    KeyEvents events;
    testing::waitUntil(
        [&] {
          XSync(display(), False);
          while (XPending(display()) > 0) {
            XEvent event;
            XNextEvent(display(), &event);
            if (event.type != KeyPress && event.type != KeyRelease) continue;
            events.emplace_back(event.type == KeyPress, event.xkey.keycode);
            states->push_back(event.xkey.state);
          }
          return events.size() >= count;
        },
        std::chrono::seconds(3));
    return events;
  }

  /// The whole keyboard mapping, read from the server.
  std::vector<KeySym> keyboardMapping() {
    int minKey = 0, maxKey = 0, perKey = 0;
    XDisplayKeycodes(display(), &minKey, &maxKey);
    XlibPointer<KeySym> map(XGetKeyboardMapping(
        display(), static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
    return std::vector<KeySym>(map.get(),
                               map.get() + (maxKey - minKey + 1) * perKey);
  }

  /// Swaps the XKB names of keys `code` and `other`, as a keyboard that
  /// numbers its keys otherwise would have them.
  void swapKeyNames(KeyCode code, KeyCode other) {
    std::unique_ptr<XkbDescRec, void (*)(XkbDescPtr)> keyboard(
        XkbAllocKeyboard(),
        [](XkbDescPtr keyboard) { XkbFreeKeyboard(keyboard, 0, True); });
    ASSERT_EQ(XkbGetNames(display(), XkbKeyNamesMask, keyboard.get()), Success);
    std::swap(keyboard->names->keys[code], keyboard->names->keys[other]);
    ASSERT_TRUE(XkbSetNames(display(), XkbKeyNamesMask, code, other - code + 1,
                            keyboard.get()));
  }
};

// Xvfb's evdev key codes: Control_L 37, Shift_L 50, c 54 (the key named
// AB03, the US position of C), i 31.
TEST_F(KeyboardX11Test, CopyShortcutPressesTheKeysOfTheLayoutAlone) {
  struct Row {
    const char* name;
    std::vector<std::string> layout;  // setxkbmap's arguments, if any
    unsigned int group;
    CopyShortcut shortcut;
    std::vector<KeyCode> keys;  // pressed in this order, released in reverse
    bool holdShift = false;
    bool swapNames = false;
  };
  const Row rows[] = {
      // The application sees Ctrl+C, not Ctrl+Shift+C.
      {"Shift held", {}, 0, CopyShortcut::kControlC, {37, 54}, true},
      {"Ctrl+Shift+C", {}, 0, CopyShortcut::kControlShiftC, {37, 50, 54}},
      // A terminal that would take Ctrl+C as an interrupt gets no keys.
      {"no shortcut", {}, 0, CopyShortcut::kNone, {}},
      // With Dvorak and Russian loaded, c sits on another key in each
      // group, and only the active group says which one the application
      // reads. Russian has no c: then the key at its US position.
      {"Dvorak",
       {"-layout", "us,ru", "-variant", "dvorak,"},
       0,
       CopyShortcut::kControlC,
       {37, 31}},
      {"Russian group", {}, 1, CopyShortcut::kControlC, {37, 54}},
      {"Russian", {"-layout", "ru"}, 0, CopyShortcut::kControlC, {37, 54}},
      // Keyboards and drivers number their keys differently; the key's XKB
      // name says where it sits: here AB03 on key code 56, AB05 on 54.
      {"keys numbered otherwise",
       {},
       0,
       CopyShortcut::kControlC,
       {37, 56},
       false,
       true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (!row.layout.empty()) {
      if (access("/usr/bin/setxkbmap", X_OK) != 0)
        GTEST_SKIP() << "no setxkbmap";
      std::vector<std::string> argv = {"setxkbmap", "-display",
                                       xvfb().display()};
      argv.insert(argv.end(), row.layout.begin(), row.layout.end());
      const auto result = xvfb().run(argv, std::chrono::seconds(10));
      ASSERT_TRUE(result && result->exit.code == 0) << "setxkbmap failed";
    }
    if (row.swapNames) swapKeyNames(54, 56);
    ASSERT_TRUE(XkbLockGroup(display(), XkbUseCoreKbd, row.group));
    const KeyCode shift = XKeysymToKeycode(display(), XK_Shift_L);
    if (row.holdShift) XTestFakeKeyEvent(display(), shift, True, CurrentTime);
    XSync(display(), False);
    KeyEvents expected;
    if (row.holdShift) expected = {{true, shift}, {false, shift}};
    for (KeyCode key : row.keys) expected.emplace_back(true, key);
    for (auto key = row.keys.rbegin(); key != row.keys.rend(); ++key) {
      expected.emplace_back(false, *key);
    }
    if (row.holdShift) expected.emplace_back(true, shift);
    const std::vector<KeySym> mapping = keyboardMapping();

    // The copy keystroke has a connection of its own, opened now so that it
    // sees the layout of this moment.
    auto connection = SelectionConnection::open(xvfb().display());
    auto keystroke =
        CopyKeystroke::prepare(connection->display(), row.shortcut);
    ASSERT_TRUE(keystroke);
    EXPECT_EQ(keystroke->shortcutKeys(), row.keys);
    keystroke->press();
    EXPECT_EQ(keystroke->pressed(), !row.keys.empty());
    // The user's keyboard mapping is never touched.
    EXPECT_EQ(keyboardMapping(), mapping);
    keystroke->release();
    std::vector<unsigned int> states;
    EXPECT_EQ(keyEvents(expected.size(), &states), expected);
    if (row.holdShift) {
      EXPECT_EQ(states.size() > 3 ? states[3] : 0, unsigned{ControlMask});
      XTestFakeKeyEvent(display(), shift, False, CurrentTime);
      keyEvents(1, &states);
    }
  }
}

}  // namespace
}  // namespace tovrin
