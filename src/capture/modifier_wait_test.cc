#include "capture/modifier_wait.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;

constexpr char kReleased[] = "[tovrin] Modifier keys released";
constexpr char kTimeout[] =
    "[tovrin] Timeout waiting for modifier keys to release";

TEST(ModifierWaitTest, KeysThatDoNotMakeShortcutsDoNotHoldItUp) {
  for (const uint64_t flags :
       {uint64_t{0}, kModifierFlagCapsLock, uint64_t{1} << 21,
        uint64_t{1} << 23, uint64_t{0xff}}) {
    FakeDesktop desktop;
    desktop.modifierTimeline = {{0.0, flags}};
    EXPECT_TRUE(waitForModifierKeysReleased(desktop));
    EXPECT_EQ(desktop.logLines, std::vector<std::string>{kReleased});
    EXPECT_EQ(desktop.modifierReads, 1);
    EXPECT_EQ(desktop.elapsed(), 0.0);
  }
}

TEST(ModifierWaitTest, AKeyHeldThroughoutTimesOutAfterAboutFiftyReads) {
  for (const uint64_t flags : {kModifierFlagShift, kModifierFlagControl,
                               kModifierFlagOption, kModifierFlagCommand}) {
    FakeDesktop desktop;
    desktop.modifierTimeline = {{0.0, flags | kModifierFlagCapsLock}};
    EXPECT_FALSE(waitForModifierKeysReleased(desktop));
    EXPECT_EQ(desktop.logLines, std::vector<std::string>{kTimeout});
    EXPECT_NEAR(desktop.modifierReads, 50, 1);
    EXPECT_NEAR(desktop.elapsed(), 0.5, 0.011);
  }
}

TEST(ModifierWaitTest, AReleaseIsSeenAtTheNextRead) {
  FakeDesktop desktop;
  desktop.modifierTimeline = {{0.0, kModifierFlagCommand}, {0.123, 0}};
  EXPECT_TRUE(waitForModifierKeysReleased(desktop));
  EXPECT_EQ(desktop.logLines, std::vector<std::string>{kReleased});
  EXPECT_NEAR(desktop.elapsed(), 0.13, 1e-9);
}

TEST(ModifierWaitTest, NoTimeLeftMeansNoRead) {
  for (const int64_t timeout : {int64_t{0}, int64_t{-5}}) {
    FakeDesktop desktop;
    EXPECT_FALSE(waitForModifierKeysReleased(desktop, timeout));
    EXPECT_EQ(desktop.modifierReads, 0);
    EXPECT_EQ(desktop.logLines, std::vector<std::string>{kTimeout});
  }
}

}  // namespace
}  // namespace tovrin
