#include "platform/wayland/keyboard.h"

#include <gtest/gtest.h>

namespace tovrin {
namespace {

// evdev key codes
constexpr uint32_t kKeyLeftCtrl = 29;
constexpr uint32_t kKeyLeftShift = 42;
constexpr uint32_t kKeyC = 46;
constexpr uint32_t kKeyI = 23;

TEST(WaylandCopyKeysTest, CIsTheKeyOfALatinCInTheFirstLayoutThatHasOne) {
  struct Case {
    const char* layout;
    const char* variant;
    uint32_t c;
    uint32_t group;
  };
  for (const Case& test :
       {Case{"us", "", kKeyC, 0}, Case{"fr", "", kKeyC, 0},
        Case{"de", "", kKeyC, 0},
        // Dvorak has its c where QWERTY has i.
        Case{"us", "dvorak", kKeyI, 0},
        // Pressed in the layout that has it, whichever is active.
        Case{"us,ru", "", kKeyC, 0}, Case{"ru,us", "", kKeyC, 1},
        Case{"ru,us", ",dvorak", kKeyI, 1}}) {
    SCOPED_TRACE(std::string(test.layout) + " " + test.variant);
    const std::optional<CopyKeys> keys =
        copyKeysOfLayout(test.layout, test.variant);
    ASSERT_TRUE(keys.has_value());
    EXPECT_EQ(keys->c, test.c);
    EXPECT_EQ(keys->layout, test.group);
    EXPECT_EQ(keys->control, kKeyLeftCtrl);
    EXPECT_EQ(keys->shift, kKeyLeftShift);
    EXPECT_NE(keys->controlMask, 0u);
    EXPECT_NE(keys->shiftMask, 0u);
    EXPECT_NE(keys->controlMask, keys->shiftMask);
  }
}

TEST(WaylandCopyKeysTest, AKeymapWithoutALatinCGivesWayToAUsOne) {
  // GTK 4 takes Control with the key of Cyrillic es for no shortcut.
  EXPECT_FALSE(copyKeysOfLayout("ru").has_value());
  EXPECT_FALSE(copyKeysOfLayout("gr").has_value());
  EXPECT_FALSE(copyKeysOf("not a keymap").has_value());
  EXPECT_FALSE(copyKeysOf("").has_value());
  // The seat's keymap is handed over as text: read back from its own.
  const std::optional<CopyKeys> mixed = copyKeysOfLayout("ru,us");
  ASSERT_TRUE(mixed.has_value());
  const std::optional<CopyKeys> again = copyKeysOf(mixed->keymap);
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(again->c, kKeyC);
  EXPECT_EQ(again->layout, 1u);
  EXPECT_NE(again->keymap.find("Cyrillic_es"), std::string::npos);
}

}  // namespace
}  // namespace tovrin
