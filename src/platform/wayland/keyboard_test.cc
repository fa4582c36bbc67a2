#include "platform/wayland/keyboard.h"

#include <gtest/gtest.h>

#include <cstring>

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
    uint32_t c;  // 0: no keys, a US keymap takes their place
    uint32_t group;
  };
  const Case cases[] = {
      {"fr", "", kKeyC, 0},
      // Dvorak has its c where QWERTY has i.
      {"us", "dvorak", kKeyI, 0},
      // Pressed in the layout that has it, whichever is active.
      {"us,ru", "", kKeyC, 0},
      {"ru,us", "", kKeyC, 1},
      {"ru,us", ",dvorak", kKeyI, 1},
      // GTK 4 takes Control with the key of Cyrillic es for no shortcut.
      {"ru", "", 0, 0},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.layout) + " " + test.variant);
    const std::optional<CopyKeys> keys =
        copyKeysOfLayout(test.layout, test.variant);
    ASSERT_EQ(keys.has_value(), test.c != 0);
    if (!keys) continue;
    // The seat's keymap is handed over as text: read back from its own.
    for (const auto& read : {keys, copyKeysOf(keys->keymap)}) {
      ASSERT_TRUE(read.has_value());
      EXPECT_EQ(read->c, test.c);
      EXPECT_EQ(read->layout, test.group);
      EXPECT_EQ(read->keymap.find("Cyrillic_es") != std::string::npos,
                std::strstr(test.layout, "ru") != nullptr);
      EXPECT_EQ(read->control, kKeyLeftCtrl);
      EXPECT_EQ(read->shift, kKeyLeftShift);
      EXPECT_EQ(read->controlMask, 4u);
      EXPECT_EQ(read->shiftMask, 1u);
    }
  }
  EXPECT_FALSE(copyKeysOf("not a keymap").has_value());
}

}  // namespace
}  // namespace tovrin
