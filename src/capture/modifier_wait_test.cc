#include "capture/modifier_wait.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fake_desktop.h"

namespace tovrin {
namespace {

const std::string kReleased = "[tovrin] Modifier keys released",
                  kTimeout = "[tovrin] Timeout waiting for modifier keys to release";

TEST(ModifierWaitTest, WaitsUntilNoShortcutModifierIsHeldOrTheDeadline) {
  const uint64_t caps = kModifierFlagCapsLock, command = kModifierFlagCommand;
  const struct {
    std::vector<std::pair<double, uint64_t>> timeline;
    std::optional<int64_t> timeoutMs;  // half a second unless told otherwise
    bool released;
    int reads;       // within one
    double elapsed;  // within 0.011 s
  } rows[] = {
      // Keys that make no shortcuts do not hold it up; a key held throughout
      // times out after about fifty reads; a release is seen at the next
      // read, 10 ms apart; no time left means no read.
      {{{0.0, 0}}, 500, true, 1, 0.0},
      {{{0.0, caps | uint64_t{1} << 21 | uint64_t{1} << 23 | 0xff}}, 500, true, 1, 0.0},
      {{{0.0, kModifierFlagShift | caps}}, 500, false, 50, 0.5},
      {{{0.0, kModifierFlagControl}}, 500, false, 50, 0.5},
      {{{0.0, kModifierFlagOption}}, 500, false, 50, 0.5},
      {{{0.0, command}}, std::nullopt, false, 50, 0.5},
      {{{0.0, command}, {0.123, 0}}, 500, true, 14, 0.13},
      {{{0.0, 0}}, 0, false, 0, 0.0},
      {{{0.0, 0}}, -5, false, 0, 0.0},
  };
  for (const auto& row : rows) {
    testing::FakeDesktop desktop;
    desktop.modifierTimeline = row.timeline;
    EXPECT_EQ(row.timeoutMs ? waitForModifierKeysReleased(desktop, *row.timeoutMs)
                            : waitForModifierKeysReleased(desktop),
              row.released);
    EXPECT_EQ(desktop.logLines,
              std::vector<std::string>{row.released ? kReleased : kTimeout});
    const auto& ops = desktop.operations;
    EXPECT_NEAR(std::count(ops.begin(), ops.end(), "modifierFlags"), row.reads, row.reads > 1);
    EXPECT_NEAR(desktop.elapsed(), row.elapsed, row.released ? 1e-9 : 0.011);
  }
}

}  // namespace
}  // namespace tovrin
