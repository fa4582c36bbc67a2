#include "capture/synthetic_copy.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using testing::PasteboardContents;
using Lines = std::vector<std::string>;

const std::string kLog = "[tovrin] ";
const std::string kReleased = kLog + "Modifier keys released", kSent = kLog + "CGEvent: Sent Cmd+C",
                  kRestored = kLog + "CGEvent: Restored original clipboard",
                  kNoCopy = kLog + "CGEvent: Restored original clipboard (no copy)",
                  kNoText = kLog + "CGEvent: No text copied";
// Command-C at the HID tap, down then up, Command alone.
const std::string kDown = "keyDown 8 flags 1048576 tap 0", kUp = "keyUp 8 flags 1048576 tap 0";

std::string describe(const std::optional<ClipboardCaptureResult>& result) {
  if (!result) return "nothing";
  std::string paths;
  for (const std::string& path : result->filePaths) paths += " " + path;
  return result->text.value_or("(no text)") + " " + result->html.value_or("(no html)") + paths;
}

/// The lines of a text capture: found on `attempt`, then the HTML lookup,
/// which finds either `html` or nothing.
Lines captured(const std::string& first, int attempt, size_t chars, std::string html = "") {
  Lines lines = {first, kSent,
                 kLog + "CGEvent: Got clipboard on attempt " + std::to_string(attempt) + ": " +
                     std::to_string(chars) + " chars",
                 kLog + "Attempting HTML capture...",
                 kLog + "Checking for direct HTML on clipboard..."};
  if (html.empty()) {
    lines.insert(lines.end(), {kLog + "Checking for RTF on clipboard...",
                               kLog + "No HTML or RTF content found on clipboard"});
  } else {
    lines.push_back(kLog + "Found HTML content: " + html);
  }
  lines.push_back(kLog + "HTML capture took 0.000s");
  return lines;
}

Lines operator+(Lines lines, const std::string& line) {
  lines.push_back(line);
  return lines;
}

TEST(SyntheticCopyTest, CopiesWithCommandCAndPutsTheSavedTextBackOnEveryPath) {
  const PasteboardContents b{.string = "B"}, files{
      .string = "a.pdf\nb.pdf",
      .urlObjects = std::vector<PasteboardURLObject>{{true, "/d/a.pdf"}, {true, "/d/b.pdf"}}};
  const Lines written = {"clear", kDown, kUp, "clear", "setString A"}, kept = {"clear", kDown, kUp};
  const struct {
    const char* name;
    std::optional<std::string> saved;
    std::optional<PasteboardContents> copy;
    double copyDelay, otherCopyRun;
    uint64_t modifiers;
    bool failKeyDown, failKeyUp;
    std::string result;
    Lines lines;
    double elapsed;
    std::optional<std::string> after;  // the clipboard's text afterwards
    Lines writes;  // what changed the clipboard or the keyboard
  } rows[] = {
      {"text and HTML", "A", PasteboardContents{.string = "B", .html = "<p>B</p>"}, 0, 0, 0, false,
       false, "B <p>B</p>", captured(kReleased, 1, 1, "8 chars") + kRestored, 0.25, "A", written},
      // Reads happen 0.15, 0.20, 0.25 s after the keys: the third sees it.
      // Without saved text the copy stays on the clipboard.
      {"late text", std::nullopt, PasteboardContents{.string = "late"}, 0.24, 0, 0, false, false,
       "late (no html)", captured(kReleased, 3, 4), 0.3, "late", kept},
      {"behind another copy run", "A", b, 0, 1.5, 0, false, false, "B (no html)",
       captured(kReleased, 1, 1) + kRestored, 1.75, "A", written},
      // Never the clipboard as the answer: the run gives up untouched.
      {"another copy run too long", "A", b, 0, 30, 0, false, false, "nothing",
       {kLog + "CGEvent: Another copy is still running"}, 2.0, "A", {}},
      // An empty saved string is saved text and goes back.
      {"empty copy", "", PasteboardContents{.string = ""}, 0, 0, 0, false, false, "nothing",
       {kReleased, kSent, kNoCopy, kNoText}, 0.45, "",
       {"clear", kDown, kUp, "clear", "setString "}},
      {"no saved text, no copy", std::nullopt, std::nullopt, 0, 0, 0, false, false, "nothing",
       {kReleased, kSent, kNoText}, 0.45, std::nullopt, kept},
      // File paths win over text, and no HTML is read.
      {"files", "A", files, 0, 0, 0, false, false, "(no text) (no html) /d/a.pdf /d/b.pdf",
       {kReleased, kSent, kLog + "File path strategy #1 (readObjects NSURL): 2",
        kLog + "Combined file path extraction: 2 unique path(s)",
        kLog + "CGEvent: Got 2 file path(s)", kRestored},
       0.25, "A", written},
      // A held modifier delays the copy but does not stop it.
      {"modifier held", std::nullopt, PasteboardContents{.string = "x"}, 0, 0,
       kModifierFlagCommand | kModifierFlagShift, false, false, "x (no html)",
       captured(kLog + "Timeout waiting for modifier keys to release", 1, 1), 0.7, "x", kept},
      {"key down cannot be made", "A", b, 0, 0, 0, true, false, "nothing",
       {kReleased, kLog + "CGEvent: Failed to create key down event", kNoCopy}, 0.05, "A",
       {"clear", "clear", "setString A"}},
      {"key up cannot be made", "A", b, 0, 0, 0, false, true, "nothing",
       {kReleased, kLog + "CGEvent: Failed to create key up event", kNoCopy}, 0.05, "A",
       {"clear", kDown, "clear", "setString A"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    FakeDesktop desktop;
    desktop.pasteboard.string = row.saved;
    desktop.copyResult = row.copy;
    desktop.copyDelay = row.copyDelay;
    desktop.otherCopyRunSeconds = row.otherCopyRun;
    desktop.modifierTimeline = {{0.0, row.modifiers}};
    desktop.failKeyDownCreation = row.failKeyDown;
    desktop.failKeyUpCreation = row.failKeyUp;

    EXPECT_EQ(describe(getSelectedTextViaCGEvent(desktop)), row.result);
    EXPECT_EQ(desktop.logLines, row.lines);
    EXPECT_NEAR(desktop.elapsed(), row.elapsed, 1e-9);
    EXPECT_EQ(desktop.currentPasteboard().string, row.after);
    EXPECT_EQ(desktop.liveHandles(), 0);
    Lines writes;
    for (const std::string& op : desktop.operations) {
      if (op == "clear" || op.starts_with("setString") || op.starts_with("key")) {
        writes.push_back(op);
      }
    }
    EXPECT_EQ(writes, row.writes);
    // The first row's reads and writes in order, all under the lock.
    if (&row != rows) continue;
    EXPECT_EQ(desktop.operations,
              (Lines{"lock", "string", "guard A", "modifierFlags", "clear", "eventSource 1", kDown,
                     kUp, "urlObjects", "items", "propertyList NSFilenamesPboardType", "string",
                     "types", "html", "clear", "setString A", "unlock"}));
  }
}

}  // namespace
}  // namespace tovrin
