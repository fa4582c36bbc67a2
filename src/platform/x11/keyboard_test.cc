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

/// The user's side of the keyboard: an application window with the input
/// focus that records its key events, and keys held through XTest.
class KeyboardX11Test : public testing::X11Test {
 protected:
  void SetUp() override {
    X11Test::SetUp();
    if (IsSkipped()) return;
    Window window = testing::mapTestWindow(display(), DefaultRootWindow(display()), 0, 0, "editor",
                                           KeyPressMask | KeyReleaseMask);
    XSetInputFocus(display(), window, RevertToPointerRoot, CurrentTime);
  }

  /// The key events the window has received since the last call, each as
  /// " +37" for a press of key code 37 or " -37" for its release, once there
  /// are `count` of them (fewer at the deadline).
  std::string keyEvents(std::ptrdiff_t count) {
    std::string events;
    testing::waitUntil(
        [&] {
          XSync(display(), False);
          for (XEvent event; XPending(display()) > 0;) {
            XNextEvent(display(), &event);
            if (event.type != KeyPress && event.type != KeyRelease) continue;
            events += (event.type == KeyPress ? " +" : " -") + std::to_string(event.xkey.keycode);
          }
          return std::count(events.begin(), events.end(), ' ') >= count;
        },
        std::chrono::seconds(3));
    return events;
  }

  /// The whole keyboard mapping, read from the server.
  std::vector<KeySym> keyboardMapping() {
    int minKey = 0, maxKey = 0, perKey = 0;
    XDisplayKeycodes(display(), &minKey, &maxKey);
    XlibPointer<KeySym> map(
        XGetKeyboardMapping(display(), static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
    return std::vector<KeySym>(map.get(), map.get() + (maxKey - minKey + 1) * perKey);
  }

  /// Swaps the XKB names of key codes 54 and 56, as a keyboard that numbers
  /// its keys otherwise would have them: AB03 on 56, AB05 on 54.
  void swapKeyNames() {
    std::unique_ptr<XkbDescRec, void (*)(XkbDescPtr)> keyboard(
        XkbAllocKeyboard(), [](XkbDescPtr keyboard) { XkbFreeKeyboard(keyboard, 0, True); });
    ASSERT_EQ(XkbGetNames(display(), XkbKeyNamesMask, keyboard.get()), Success);
    std::swap(keyboard->names->keys[54], keyboard->names->keys[56]);
    ASSERT_TRUE(XkbSetNames(display(), XkbKeyNamesMask, 54, 3, keyboard.get()));
  }
};

// Xvfb's evdev key codes: Control_L 37, Shift_L 50, c 54 (the key named
// AB03, the US position of C), i 31.
TEST_F(KeyboardX11Test, CopyShortcutPressesTheKeysOfTheLayoutAlone) {
  struct Row {
    const char* name;
    const char* layout;  // the XKB layouts to load first, if any
    unsigned int group;
    CopyShortcut shortcut;
    std::vector<KeyCode> keys;  // pressed in this order, released in reverse
  };
  const Row rows[] = {
      // The application sees Ctrl+C alone: the Shift the user holds is let
      // go of for it, and pressed again.
      {"Shift held", "", 0, CopyShortcut::kControlC, {37, 54}},
      {"Ctrl+Shift+C", "", 0, CopyShortcut::kControlShiftC, {37, 50, 54}},
      // A terminal that would take Ctrl+C as an interrupt gets no keys.
      {"no shortcut", "", 0, CopyShortcut::kNone, {}},
      // With Dvorak and Russian loaded, c sits on another key in each
      // group, and only the active group says which one the application
      // reads. Russian has no c: then the key at its US position.
      {"Dvorak", "us(dvorak),ru", 0, CopyShortcut::kControlC, {37, 31}},
      {"Russian group", "", 1, CopyShortcut::kControlC, {37, 54}},
      {"Russian", "ru", 0, CopyShortcut::kControlC, {37, 54}},
      // Keyboards and drivers number their keys differently; the key's XKB
      // name says where it sits.
      {"keys numbered otherwise", "", 0, CopyShortcut::kControlC, {37, 56}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (*row.layout != '\0') {
      if (access("/usr/bin/setxkbmap", X_OK) != 0) GTEST_SKIP();
      ASSERT_TRUE(xvfb().setLayout(row.layout)) << "setxkbmap failed";
    }
    if (row.keys == std::vector<KeyCode>{37, 56}) swapKeyNames();
    ASSERT_TRUE(XkbLockGroup(display(), XkbUseCoreKbd, row.group));
    const bool holdShift = &row == rows;
    XTestFakeKeyEvent(display(), 50, holdShift, CurrentTime);
    XSync(display(), False);
    const std::vector<KeySym> mapping = keyboardMapping();
    // The copy keystroke has a connection of its own, opened now so that it
    // sees the layout of this moment.
    auto connection = SelectionConnection::open(xvfb().display());
    auto keystroke = CopyKeystroke::prepare(connection->display(), row.shortcut);
    ASSERT_TRUE(keystroke);
    EXPECT_EQ(keystroke->shortcutKeys(), row.keys);
    keystroke->press();
    EXPECT_EQ(keystroke->pressed(), !row.keys.empty());
    // The user's keyboard mapping is never touched.
    EXPECT_EQ(keyboardMapping(), mapping);
    keystroke->release();
    std::string events = holdShift ? " +50 -50" : "";
    for (KeyCode key : row.keys) events += " +" + std::to_string(key);
    for (auto key = row.keys.rbegin(); key != row.keys.rend(); ++key) {
      events += " -" + std::to_string(*key);
    }
    if (holdShift) events += " +50";
    EXPECT_EQ(keyEvents(std::count(events.begin(), events.end(), ' ')), events);
    XTestFakeKeyEvent(display(), 50, False, CurrentTime);
    keyEvents(holdShift);
  }
}

}  // namespace
}  // namespace tovrin
