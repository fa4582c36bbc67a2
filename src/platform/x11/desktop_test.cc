// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/desktop.h"
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "platform/x11/selection.h"
#include "tests/x11/test_window.h"
#include "tests/xvfb_session.h"

namespace tovrin {
namespace {

using tovrin::testing::mapTestWindow;
using tovrin::testing::WindowPlace;
using tovrin::testing::XvfbTest;

TEST(CopyShortcutTest, EitherNameOfTheWindowClassTells) {
  // Which names are terminals' is tested with the lookup by names; here,
  // that the instance and the class each count.
  EXPECT_TRUE(copyShortcutFor(WindowClass{"urxvt-unicode", ""}) ==
              CopyShortcut::kNone);
  EXPECT_TRUE(copyShortcutFor(WindowClass{"main", "kitty"}) ==
              CopyShortcut::kControlShiftC);
  EXPECT_TRUE(copyShortcutFor(WindowClass{"mousepad", "Mousepad"}) ==
              CopyShortcut::kControlC);
  EXPECT_TRUE(copyShortcutFor(std::nullopt) == CopyShortcut::kControlC);
}

TEST(ModifierFlagsTest, EachX11ModifierHasItsFlag) {
  struct Case {
    unsigned int mask;
    uint64_t flags;
  };
  const Case cases[] = {
      {0, 0},
      {ShiftMask, 0x20000},
      {LockMask, 0x10000},
      {ControlMask, 0x40000},
      {Mod1Mask, 0x80000},
      {Mod4Mask, 0x100000},
      // NumLock, and modifiers that no flag stands for.
      {Mod2Mask, 0},
      {Mod3Mask, 0},
      {Mod5Mask, 0},
      {Button1Mask | Button3Mask, 0},
      {ShiftMask | ControlMask | Mod2Mask, 0x60000},
      {ShiftMask | LockMask | ControlMask | Mod1Mask | Mod2Mask | Mod3Mask |
           Mod4Mask | Mod5Mask,
       0x1F0000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "mask 0x" << std::hex << c.mask);
    EXPECT_EQ(modifierFlagsFromMask(c.mask), c.flags);
  }
}

class DesktopX11Test : public XvfbTest {
 protected:
  void SetUp() override {
    XvfbTest::SetUp();
    if (IsSkipped()) return;
    connection_ = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(connection_);
  }
  void TearDown() override {
    connection_.reset();
    XvfbTest::TearDown();
  }

  Display* display() { return connection_->display(); }
  Window root() { return DefaultRootWindow(display()); }
  void movePointerTo(int x, int y) {
    XWarpPointer(display(), None, root(), 0, 0, 0, 0, x, y);
    XSync(display(), False);
  }
  void focus(Window window) {
    XSetInputFocus(display(), window, RevertToPointerRoot, CurrentTime);
    XSync(display(), False);
  }
  void fakeKey(KeySym key, bool down) {
    XTestFakeKeyEvent(display(), XKeysymToKeycode(display(), key),
                      down ? True : False, CurrentTime);
    XSync(display(), False);
  }

  std::unique_ptr<SelectionConnection> connection_;
};

TEST_F(DesktopX11Test, WithoutWindowManagerTheInputFocusOrThePointerTells) {
  Window editor =
      mapTestWindow(display(), root(), WindowPlace{0, 0, 400, 300}, "editor");
  Window viewer =
      mapTestWindow(display(), root(), WindowPlace{600, 0, 400, 300}, "viewer");
  // A toolkit's subwindow, without WM_CLASS of its own.
  Window field =
      mapTestWindow(display(), editor, WindowPlace{10, 10, 100, 30}, nullptr);
  movePointerTo(700, 100);  // over the viewer

  focus(editor);
  EXPECT_EQ(focusedWindow(display()), editor);
  focus(field);
  EXPECT_EQ(focusedWindow(display()), editor);

  // The focus follows the pointer.
  focus(PointerRoot);
  EXPECT_EQ(focusedWindow(display()), viewer);
  movePointerTo(50, 50);
  EXPECT_EQ(focusedWindow(display()), editor);
  movePointerTo(1200, 700);  // over no window
  EXPECT_EQ(focusedWindow(display()), 0u);
}

TEST_F(DesktopX11Test, ModifierHeldThroughXTestShowsInTheFlags) {
  EXPECT_EQ(currentModifierFlags(display()), 0u);
  fakeKey(XK_Shift_L, true);
  EXPECT_EQ(currentModifierFlags(display()), 0x20000u);
  fakeKey(XK_Control_L, true);
  EXPECT_EQ(currentModifierFlags(display()), 0x60000u);
  fakeKey(XK_Control_L, false);
  fakeKey(XK_Shift_L, false);
  EXPECT_EQ(currentModifierFlags(display()), 0u);
}

}  // namespace
}  // namespace tovrin
