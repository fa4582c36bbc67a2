// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/desktop.h"
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <optional>

#include "tests/x11/clipboard_fixture.h"

namespace tovrin {
namespace {

TEST(CopyShortcutTest, EitherNameOfTheWindowClassTells) {
  // Which names are terminals' is tested with the lookup by names; here,
  // that the instance and the class each count.
  EXPECT_EQ(copyShortcutFor(WindowClass{"urxvt-unicode", ""}), CopyShortcut::kNone);
  EXPECT_EQ(copyShortcutFor(WindowClass{"main", "kitty"}), CopyShortcut::kControlShiftC);
  EXPECT_EQ(copyShortcutFor(WindowClass{"mousepad", "Mousepad"}), CopyShortcut::kControlC);
  EXPECT_EQ(copyShortcutFor(std::nullopt), CopyShortcut::kControlC);
}

// The pointer and focus requests need no sync: focusedWindow asks on the same connection, which
// the server answers in order.
class DesktopX11Test : public testing::X11Test {};

TEST_F(DesktopX11Test, WithoutWindowManagerTheInputFocusOrThePointerTells) {
  const Window root = DefaultRootWindow(display());
  Window editor = testing::mapTestWindow(display(), root, 0, 0, "editor");
  Window viewer = testing::mapTestWindow(display(), root, 600, 0, "viewer");
  // A toolkit's subwindow, without WM_CLASS of its own.
  Window field = testing::mapTestWindow(display(), editor, 10, 10, nullptr);
  XWarpPointer(display(), None, root, 0, 0, 0, 0, 700, 100);  // over the viewer

  XSetInputFocus(display(), editor, RevertToPointerRoot, CurrentTime);
  EXPECT_EQ(focusedWindow(display()), editor);
  XSetInputFocus(display(), field, RevertToPointerRoot, CurrentTime);
  EXPECT_EQ(focusedWindow(display()), editor);

  // The focus follows the pointer.
  XSetInputFocus(display(), PointerRoot, RevertToPointerRoot, CurrentTime);
  EXPECT_EQ(focusedWindow(display()), viewer);
  XWarpPointer(display(), None, root, 0, 0, 0, 0, 50, 50);
  EXPECT_EQ(focusedWindow(display()), editor);
  XWarpPointer(display(), None, root, 0, 0, 0, 0, 1200, 700);  // over no window
  EXPECT_EQ(focusedWindow(display()), 0u);
}

// Each key is held on top of the ones before. NumLock (Mod2) and
// AltGr (Mod5) have no flag.
TEST_F(DesktopX11Test, EachModifierHeldShowsInTheFlags) {
  const std::pair<KeySym, uint64_t> steps[] = {
      {XK_Num_Lock, 0},
      {XK_ISO_Level3_Shift, 0},
      {XK_Shift_L, 0x20000},
      {XK_Control_L, 0x60000},
      {XK_Alt_L, 0xE0000},
      {XK_Super_L, 0x1E0000},
      {XK_Caps_Lock, 0x1F0000},
  };
  for (const auto& [key, flags] : steps) {
    XTestFakeKeyEvent(display(), XKeysymToKeycode(display(), key), True, CurrentTime);
    XSync(display(), False);
    EXPECT_EQ(currentModifierFlags(display()), flags) << XKeysymToString(key);
  }
}

}  // namespace
}  // namespace tovrin
