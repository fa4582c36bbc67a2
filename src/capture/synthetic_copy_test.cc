#include "capture/synthetic_copy.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using testing::PasteboardContents;
using testing::PostedKeyEvent;
using Lines = std::vector<std::string>;

PasteboardContents text(std::string value) {
  PasteboardContents contents;
  contents.string = std::move(value);
  return contents;
}

TEST(SyntheticCopyTest, CapturesTextAndPutsTheSavedTextBack) {
  FakeDesktop desktop;
  desktop.pasteboard = text("A");
  desktop.copyResult = text("B");
  desktop.copyResult->html = "<p>B</p>";
  const auto result = getSelectedTextViaCGEvent(desktop);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "B");
  EXPECT_EQ(result->html, "<p>B</p>");
  EXPECT_TRUE(result->filePaths.empty());
  EXPECT_EQ(desktop.currentPasteboard().string, "A");
  EXPECT_EQ(desktop.operations,
            (Lines{"lock", "string", "guard A", "modifierFlags", "clear",
                   "keyDown",
                   "keyUp", "urlObjects", "items",
                   "propertyList NSFilenamesPboardType", "string", "types",
                   "html", "clear", "setString A", "unlock"}));
  // Command-C, down then up, Command alone, at the HID tap, from a source
  // of the HID system state.
  EXPECT_EQ(desktop.eventSourceStates, std::vector<int>{1});
  ASSERT_EQ(desktop.postedEvents.size(), 2u);
  for (const PostedKeyEvent& event : desktop.postedEvents) {
    EXPECT_EQ(event.virtualKey, 8);
    EXPECT_EQ(event.flags, 0x100000u);
    EXPECT_EQ(event.tap, 0);
  }
  EXPECT_TRUE(desktop.postedEvents[0].keyDown);
  EXPECT_FALSE(desktop.postedEvents[1].keyDown);
  EXPECT_EQ(desktop.liveHandles(), 0);
}

TEST(SyntheticCopyTest, WaitsForAnotherCopyRunAndGivesUpAfterTwoSeconds) {
  FakeDesktop waiting;
  waiting.pasteboard = text("A");
  waiting.copyResult = text("B");
  waiting.otherCopyRunSeconds = 1.5;
  ASSERT_TRUE(getSelectedTextViaCGEvent(waiting));
  EXPECT_EQ(waiting.operations.front(), "lock");
  EXPECT_DOUBLE_EQ(waiting.elapsed(), 1.5 + 0.05 + 0.15 + 0.05);

  // Never the clipboard as the answer: the run gives up untouched.
  FakeDesktop late;
  late.pasteboard = text("A");
  late.copyResult = text("B");
  late.otherCopyRunSeconds = 30;
  EXPECT_FALSE(getSelectedTextViaCGEvent(late));
  EXPECT_EQ(late.logLines,
            Lines{"[tovrin] CGEvent: Another copy is still running"});
  EXPECT_TRUE(late.operations.empty());
  EXPECT_TRUE(late.postedEvents.empty());
  EXPECT_DOUBLE_EQ(late.elapsed(), 2.0);
}

TEST(SyntheticCopyTest, TextArrivingLateIsFoundOnALaterAttempt) {
  FakeDesktop desktop;
  desktop.copyResult = text("late");
  // Reads happen 0.15, 0.20, 0.25 s after the keys: the third one sees it.
  desktop.copyDelay = 0.24;
  const auto result = getSelectedTextViaCGEvent(desktop);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "late");
  EXPECT_EQ(desktop.logLines[2],
            "[tovrin] CGEvent: Got clipboard on attempt 3: 4 chars");
  // Without saved text the copy stays on the clipboard.
  EXPECT_EQ(desktop.currentPasteboard().string, "late");
  EXPECT_DOUBLE_EQ(desktop.elapsed(), 0.05 + 0.15 + 2 * 0.05);
}

TEST(SyntheticCopyTest, AnEmptyCopyIsNoCopy) {
  FakeDesktop desktop;
  desktop.pasteboard = text("");
  desktop.copyResult = text("");
  EXPECT_FALSE(getSelectedTextViaCGEvent(desktop));
  EXPECT_EQ(desktop.logLines,
            (Lines{"[tovrin] Modifier keys released", "[tovrin] CGEvent: Sent Cmd+C",
                   "[tovrin] CGEvent: Restored original clipboard (no copy)",
                   "[tovrin] CGEvent: No text copied"}));
  // An empty string counts as saved and goes back.
  EXPECT_EQ(desktop.currentPasteboard().string, "");
  EXPECT_EQ(desktop.operations.end()[-2], "setString ");
  EXPECT_DOUBLE_EQ(desktop.elapsed(), 0.05 + 0.15 + 5 * 0.05);
}

TEST(SyntheticCopyTest, WithoutSavedTextNothingIsWrittenBack) {
  FakeDesktop desktop;
  desktop.pasteboard.types = Lines{"public.png"};
  EXPECT_FALSE(getSelectedTextViaCGEvent(desktop));
  EXPECT_EQ(desktop.logLines.back(), "[tovrin] CGEvent: No text copied");
  for (const std::string& operation : desktop.operations) {
    EXPECT_FALSE(operation.starts_with("setString"));
  }
}

TEST(SyntheticCopyTest, FilePathsWinOverTextAndSkipTheHtml) {
  FakeDesktop desktop;
  desktop.pasteboard = text("A");
  PasteboardContents files = text("a.pdf\nb.pdf");
  files.urlObjects =
      std::vector<PasteboardURLObject>{{true, "/d/a.pdf"}, {true, "/d/b.pdf"}};
  desktop.copyResult = files;
  const auto result = getSelectedTextViaCGEvent(desktop);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, std::nullopt);
  EXPECT_EQ(result->html, std::nullopt);
  EXPECT_EQ(result->filePaths, (Lines{"/d/a.pdf", "/d/b.pdf"}));
  for (const std::string& line : desktop.logLines) {
    EXPECT_EQ(line.find("HTML"), std::string::npos) << line;
  }
  EXPECT_EQ(desktop.logLines.back(), "[tovrin] CGEvent: Restored original clipboard");
  EXPECT_EQ(desktop.currentPasteboard().string, "A");
}

TEST(SyntheticCopyTest, AHeldModifierDelaysButDoesNotStopTheCopy) {
  FakeDesktop desktop;
  desktop.modifierTimeline = {{0.0, kModifierFlagCommand | kModifierFlagShift}};
  desktop.copyResult = text("x");
  ASSERT_TRUE(getSelectedTextViaCGEvent(desktop));
  EXPECT_EQ(desktop.logLines.front(),
            "[tovrin] Timeout waiting for modifier keys to release");
  for (const PostedKeyEvent& event : desktop.postedEvents) {
    EXPECT_EQ(event.flags, kEventFlagMaskCommand);
  }
}

TEST(SyntheticCopyTest, AKeyEventThatCannotBeMadeStillRestoresTheText) {
  for (const bool downFails : {true, false}) {
    SCOPED_TRACE(downFails ? "key down" : "key up");
    FakeDesktop desktop;
    desktop.pasteboard = text("A");
    desktop.failKeyDownCreation = downFails;
    desktop.failKeyUpCreation = !downFails;
    EXPECT_FALSE(getSelectedTextViaCGEvent(desktop));
    EXPECT_EQ(desktop.logLines,
              (Lines{"[tovrin] Modifier keys released",
                     downFails ? "[tovrin] CGEvent: Failed to create key down event"
                               : "[tovrin] CGEvent: Failed to create key up event",
                     "[tovrin] CGEvent: Restored original clipboard (no copy)"}));
    EXPECT_EQ(desktop.postedEvents.size(), downFails ? 0u : 1u);
    EXPECT_EQ(desktop.currentPasteboard().string, "A");
    EXPECT_EQ(desktop.liveHandles(), 0);
  }
}

}  // namespace
}  // namespace tovrin
