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

#include "platform/x11/selection.h"
#include "platform/x11/xcb_util.h"
#include "tests/x11/clipboard_fixture.h"
#include "tests/x11/test_window.h"
#include "tests/xvfb_session.h"

namespace tovrin {
namespace {

using std::chrono::seconds;
using tovrin::testing::mapTestWindow;
using tovrin::testing::waitUntil;
using tovrin::testing::WindowPlace;
using tovrin::testing::XvfbTest;

/// A key event as the focused application sees it.
struct KeyEvent {
  bool press = false;
  unsigned int keycode = 0;
  /// The modifier state just before the event.
  unsigned int state = 0;

  bool operator==(const KeyEvent& other) const {
    return press == other.press && keycode == other.keycode;
  }
};

void PrintTo(const KeyEvent& event, std::ostream* out) {
  *out << (event.press ? "press " : "release ") << event.keycode;
}

/// The user's side of the keyboard: an application window with the input
/// focus that records its key events, and keys held through XTest. The copy
/// keystroke gets a connection of its own, as in tovrin.
class KeyboardX11Test : public XvfbTest {
 protected:
  void SetUp() override {
    XvfbTest::SetUp();
    if (IsSkipped()) return;
    application_ = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(application_);
    Display* x = application_->display();
    window_ =
        mapTestWindow(x, DefaultRootWindow(x), WindowPlace{0, 0, 400, 300},
                      "editor", KeyPressMask | KeyReleaseMask);
    XSetInputFocus(x, window_, RevertToPointerRoot, CurrentTime);
    XSync(x, False);
  }

  void TearDown() override {
    // Closed while their server still runs.
    keystrokeConnection_.reset();
    application_.reset();
    XvfbTest::TearDown();
  }

  Display* display() { return application_->display(); }
  KeyCode keycode(KeySym key) { return XKeysymToKeycode(display(), key); }

  /// The connection for the keystroke; opened when asked, so that it sees
  /// the keyboard mapping of that moment.
  Display* keystrokeDisplay() {
    if (!keystrokeConnection_) {
      keystrokeConnection_ = SelectionConnection::open(xvfb().display());
    }
    return keystrokeConnection_->display();
  }

  void holdKey(KeySym key, bool down) {
    XTestFakeKeyEvent(display(), keycode(key), down ? True : False,
                      CurrentTime);
    XSync(display(), False);
  }

  /// The key events the window has received since the last call, once
  /// there are `count` of them (fewer at the deadline).
  std::vector<KeyEvent> keyEvents(size_t count) {
    std::vector<KeyEvent> events;
    waitUntil(
        [&] {
          XSync(display(), False);
          while (XPending(display()) > 0) {
            XEvent event;
            XNextEvent(display(), &event);
            if (event.type == KeyPress || event.type == KeyRelease) {
              events.push_back({event.type == KeyPress, event.xkey.keycode,
                                event.xkey.state});
            }
          }
          return events.size() >= count;
        },
        seconds(3));
    return events;
  }

  /// The whole keyboard mapping, read from the server.
  std::vector<KeySym> keyboardMapping() {
    int minKey = 0, maxKey = 0, perKey = 0;
    XDisplayKeycodes(display(), &minKey, &maxKey);
    XlibPointer<KeySym> map(XGetKeyboardMapping(
        display(), static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
    if (!map) return {};
    return std::vector<KeySym>(map.get(),
                               map.get() + (maxKey - minKey + 1) * perKey);
  }

  /// Loads an XKB layout as a user does, e.g. {"-layout", "ru"}.
  void setLayout(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {"setxkbmap", "-display", xvfb().display()};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    const auto result = xvfb().run(argv, seconds(10));
    ASSERT_TRUE(result && result->exit.code == 0) << "setxkbmap failed";
  }

  /// Makes XKB group `group` of the layout the active one.
  void lockGroup(unsigned int group) {
    ASSERT_TRUE(XkbLockGroup(display(), XkbUseCoreKbd, group));
    XSync(display(), False);
  }

  /// Swaps the XKB names of keys `code` and `other`, as a keyboard that
  /// numbers its keys otherwise would have them.
  void swapKeyNames(KeyCode code, KeyCode other) {
    std::unique_ptr<XkbDescRec, void (*)(XkbDescPtr)> keyboard(
        XkbAllocKeyboard(),
        [](XkbDescPtr keyboard) { XkbFreeKeyboard(keyboard, 0, True); });
    ASSERT_TRUE(keyboard);
    ASSERT_EQ(XkbGetNames(display(), XkbKeyNamesMask, keyboard.get()), Success);
    std::swap(keyboard->names->keys[code], keyboard->names->keys[other]);
    const KeyCode first = std::min(code, other);
    ASSERT_TRUE(XkbSetNames(display(), XkbKeyNamesMask, first,
                            std::max(code, other) - first + 1, keyboard.get()));
    XSync(display(), False);
  }

  /// The key events of one copy keystroke for `shortcut`, pressed and
  /// released, as the window receives them.
  std::vector<KeyEvent> copyKeyEvents(CopyShortcut shortcut, size_t count) {
    auto keystroke = CopyKeystroke::prepare(keystrokeDisplay(), shortcut);
    if (!keystroke) return {};
    keystroke->press();
    keystroke->release();
    return keyEvents(count);
  }

  bool requireSetxkbmap() { return access("/usr/bin/setxkbmap", X_OK) == 0; }

  std::unique_ptr<SelectionConnection> application_;
  Window window_ = 0;
  std::unique_ptr<SelectionConnection> keystrokeConnection_;
};

TEST_F(KeyboardX11Test, ModifiersTheUserHoldsAreLiftedForTheShortcutAlone) {
  const KeyCode shift = keycode(XK_Shift_L);
  const KeyCode control = keycode(XK_Control_L);
  const KeyCode c = keycode(XK_c);
  ASSERT_NE(c, 0);
  holdKey(XK_Shift_L, true);
  {
    auto keystroke =
        CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kControlC);
    ASSERT_TRUE(keystroke);
    keystroke->press();
    keystroke->release();
  }
  std::vector<KeyEvent> events = keyEvents(7);
  EXPECT_EQ(events, (std::vector<KeyEvent>{{true, shift},
                                           {false, shift},
                                           {true, control},
                                           {true, c},
                                           {false, c},
                                           {false, control},
                                           {true, shift}}));
  // The application sees Ctrl+C, not Ctrl+Shift+C.
  auto pressOfC = std::find(events.begin(), events.end(), KeyEvent{true, c});
  ASSERT_NE(pressOfC, events.end());
  EXPECT_EQ(pressOfC->state, static_cast<unsigned int>(ControlMask));
  holdKey(XK_Shift_L, false);
}

TEST_F(KeyboardX11Test, ShortcutKeysAreThoseThePressHoldsDown) {
  // Xvfb's evdev key codes: Control_L 37, Shift_L 50, c 54.
  auto controlC =
      CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kControlC);
  ASSERT_TRUE(controlC);
  EXPECT_EQ(controlC->shortcutKeys(), (std::vector<KeyCode>{37, 54}));

  auto controlShiftC =
      CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kControlShiftC);
  ASSERT_TRUE(controlShiftC);
  EXPECT_EQ(controlShiftC->shortcutKeys(), (std::vector<KeyCode>{37, 50, 54}));
  controlShiftC->press();
  controlShiftC->release();
  EXPECT_EQ(keyEvents(6), (std::vector<KeyEvent>{{true, 37},
                                                 {true, 50},
                                                 {true, 54},
                                                 {false, 54},
                                                 {false, 50},
                                                 {false, 37}}));

  // A terminal that would take Ctrl+C as an interrupt gets no keys at all.
  auto none = CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kNone);
  ASSERT_TRUE(none);
  EXPECT_EQ(none->shortcutKeys(), std::vector<KeyCode>{});
  none->press();
  EXPECT_FALSE(none->pressed());
}

// Under Russian alone no key gives a Latin c; applications copy on Control
// with the key at the US position of C, and the user's keyboard mapping is
// never touched, not even for the moment of the press.
TEST_F(KeyboardX11Test, LayoutWithoutLatinCPressesTheKeyAtTheUsPositionOfC) {
  if (!requireSetxkbmap()) GTEST_SKIP() << "setxkbmap is not installed";
  setLayout({"-layout", "ru"});
  ASSERT_EQ(XKeysymToKeycode(keystrokeDisplay(), XK_c), 0);
  const std::vector<KeySym> mapping = keyboardMapping();
  ASSERT_FALSE(mapping.empty());

  auto keystroke =
      CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kControlC);
  ASSERT_TRUE(keystroke);
  keystroke->press();
  EXPECT_EQ(keyboardMapping(), mapping);
  keystroke->release();
  keystroke.reset();

  // 54 is where evdev puts the key named AB03.
  EXPECT_EQ(keyEvents(4),
            (std::vector<KeyEvent>{
                {true, 37}, {true, 54}, {false, 54}, {false, 37}}));
  EXPECT_EQ(keyboardMapping(), mapping);
}

// Keyboards and drivers number their keys differently; the key's XKB name
// says where it sits.
TEST_F(KeyboardX11Test, TheUsPositionOfCIsFoundByTheKeysName) {
  if (!requireSetxkbmap()) GTEST_SKIP() << "setxkbmap is not installed";
  setLayout({"-layout", "ru"});
  // AB03 on key code 56, AB05 on 54.
  swapKeyNames(54, 56);
  EXPECT_EQ(copyKeyEvents(CopyShortcut::kControlC, 4),
            (std::vector<KeyEvent>{
                {true, 37}, {true, 56}, {false, 56}, {false, 37}}));
}

// With Dvorak and Russian loaded, c sits on another key in each group, and
// only the active group says which one the application reads.
TEST_F(KeyboardX11Test, TheActiveGroupDecidesWhichKeyIsC) {
  if (!requireSetxkbmap()) GTEST_SKIP() << "setxkbmap is not installed";
  setLayout({"-layout", "us,ru", "-variant", "dvorak,"});

  lockGroup(1);
  // Russian: no c, so the key at the US position of C.
  EXPECT_EQ(copyKeyEvents(CopyShortcut::kControlC, 4),
            (std::vector<KeyEvent>{
                {true, 37}, {true, 54}, {false, 54}, {false, 37}}));

  lockGroup(0);
  // Dvorak's c, on the key that is I in QWERTY.
  EXPECT_EQ(copyKeyEvents(CopyShortcut::kControlC, 4),
            (std::vector<KeyEvent>{
                {true, 37}, {true, 31}, {false, 31}, {false, 37}}));
}

}  // namespace
}  // namespace tovrin
