// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/keyboard.h"
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <chrono>
#include <memory>
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

  /// The key codes that `key` is bound to now, read from the server.
  std::vector<KeyCode> keycodesOf(KeySym key) {
    int minKey = 0, maxKey = 0, perKey = 0;
    XDisplayKeycodes(display(), &minKey, &maxKey);
    XlibPointer<KeySym> map(XGetKeyboardMapping(
        display(), static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
    std::vector<KeyCode> found;
    for (int code = minKey; map && code <= maxKey; ++code) {
      const KeySym* syms = map.get() + (code - minKey) * perKey;
      if (std::find(syms, syms + perKey, key) != syms + perKey) {
        found.push_back(static_cast<KeyCode>(code));
      }
    }
    return found;
  }

  /// What `code` is bound to now, read from the server.
  std::vector<KeySym> keysymsOf(KeyCode code) {
    int perKey = 0;
    XlibPointer<KeySym> map(XGetKeyboardMapping(display(), code, 1, &perKey));
    if (!map) return {};
    return std::vector<KeySym>(map.get(), map.get() + perKey);
  }

  /// Makes the layout Cyrillic where it had c and C, as `ru` alone is.
  void removeLatinC() {
    int minKey = 0, maxKey = 0, perKey = 0;
    XDisplayKeycodes(display(), &minKey, &maxKey);
    XlibPointer<KeySym> map(XGetKeyboardMapping(
        display(), static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey));
    ASSERT_TRUE(map);
    const int count = (maxKey - minKey + 1) * perKey;
    std::replace(map.get(), map.get() + count, KeySym{XK_c},
                 KeySym{XK_Cyrillic_es});
    std::replace(map.get(), map.get() + count, KeySym{XK_C},
                 KeySym{XK_Cyrillic_ES});
    XChangeKeyboardMapping(display(), minKey, perKey, map.get(),
                           maxKey - minKey + 1);
    XSync(display(), False);
  }

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

TEST_F(KeyboardX11Test, LayoutWithoutCBorrowsASpareKeyForThePress) {
  removeLatinC();
  ASSERT_EQ(keycodesOf(XK_c), std::vector<KeyCode>{});
  const KeyCode control = keycode(XK_Control_L);
  auto keystroke =
      CopyKeystroke::prepare(keystrokeDisplay(), CopyShortcut::kControlC);
  ASSERT_TRUE(keystroke);
  EXPECT_EQ(keycodesOf(XK_c), std::vector<KeyCode>{});

  keystroke->press();
  const std::vector<KeyCode> borrowed = keycodesOf(XK_c);
  ASSERT_EQ(borrowed.size(), 1u);
  EXPECT_EQ(keycodesOf(XK_C), borrowed);
  keystroke->release();
  keystroke.reset();

  EXPECT_EQ(keyEvents(4), (std::vector<KeyEvent>{{true, control},
                                                 {true, borrowed.front()},
                                                 {false, borrowed.front()},
                                                 {false, control}}));
  // Given back: the key code is unbound again.
  EXPECT_EQ(keycodesOf(XK_c), std::vector<KeyCode>{});
  const std::vector<KeySym> syms = keysymsOf(borrowed.front());
  EXPECT_EQ(syms, std::vector<KeySym>(syms.size(), NoSymbol));
}

}  // namespace
}  // namespace tovrin
