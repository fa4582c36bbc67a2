#include "capture/get_selection.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using testing::PasteboardContents;
using Lines = std::vector<std::string>;

const std::string kLog = "[tovrin] ";
const Lines kCopyStart = {kLog + "Starting CGEvent method...", kLog + "Modifier keys released",
                          kLog + "CGEvent: Sent Cmd+C"};
const Lines kAccessibilityFailed = {
    kLog + "Trying accessibility API...",
    kLog + "Accessibility: Could not get selected text (error: -25212)",
    kLog + "Accessibility failed in 0.002s, trying CGEvent"};
const Lines kNothingCopied = {kLog + "CGEvent: Restored original clipboard (no copy)",
                              kLog + "CGEvent: No text copied", kLog + "CGEvent failed in 0.465s"};
const std::string kFinderLine =
    kLog + "Finder detected, skipping accessibility API and using CGEvent copy for file paths";
const ErrorResponse kNothing{"No text selected or could not copy"};

Lines lines(std::string frontmostLine, std::initializer_list<Lines> parts) {
  Lines all = {kLog + "Starting get-selection", kLog + "AXIsProcessTrusted: true",
               kLog + "Frontmost app: " + frontmostLine};
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const Lines kAccessibilityText = {kLog + "Trying accessibility API...",
                                  kLog + "Accessibility: Got 5 chars",
                                  kLog + "SUCCESS via accessibility in 0.004s"};

TEST(GetSelectionTest, EachEndLogsItsLinesAndWritesOneAnswer) {
  PasteboardContents text{.types = Lines{"public.utf8-plain-text", "public.html"},
                          .string = "Copy", .html = "<b>Copy</b>"};
  PasteboardContents files{
      .string = "r.pdf", .urlObjects = std::vector<PasteboardURLObject>{{true, "/Users/me/r.pdf"}}};
  const struct {
    const char* name;
    bool trusted = true;
    std::optional<std::string> frontmost, accessibilityText;
    std::optional<PasteboardContents> copy;
    Lines lines;
    Response answer;
  } scenarios[] = {
      {"permission missing", false, "com.apple.TextEdit", std::nullopt, std::nullopt,
       {kLog + "Starting get-selection", kLog + "AXIsProcessTrusted: false"},
       ErrorResponse{"Accessibility permission required - please grant in "
                     "System Settings > Privacy & Security > Accessibility"}},
      // Only the exact Finder identifier skips accessibility.
      {"not quite Finder", true, "com.apple.Finder", "Hello", text,
       lines("com.apple.Finder, finder=false", {kAccessibilityText}),
       SuccessResponse{.text = "Hello", .method = "accessibility"}},
      // An application's name cannot forge a log line.
      {"forging name", true, "x\n[tovrin] SUCCESS\x1b[2J", "Hello", std::nullopt,
       lines("x\\u000a[tovrin] SUCCESS\\u001b[2J, finder=false", {kAccessibilityText}),
       SuccessResponse{.text = "Hello", .method = "accessibility"}},
      {"copied text", true, "com.apple.TextEdit", std::nullopt, text,
       lines("com.apple.TextEdit, finder=false",
             {kAccessibilityFailed, kCopyStart,
              {kLog + "CGEvent: Got clipboard on attempt 1: 4 chars",
               kLog + "Attempting HTML capture...",
               kLog + "Available clipboard types: [\"public.utf8-plain-text\", \"public.html\"]",
               kLog + "Checking for direct HTML on clipboard...",
               kLog + "Found HTML content: 11 chars", kLog + "HTML capture took 0.002s",
               kLog + "CGEvent: Restored original clipboard",
               kLog + "SUCCESS via CGEvent in 0.263s (total: 0.267s)"}}),
       SuccessResponse{.text = "Copy", .method = "cgevent", .html = "<b>Copy</b>"}},
      {"nothing anywhere", true, std::nullopt, std::nullopt, std::nullopt,
       lines("unknown, finder=false", {kAccessibilityFailed, kCopyStart, kNothingCopied,
                                       {kLog + "FAILED total time: 0.469s"}}),
       kNothing},
      {"Finder with files", true, "com.apple.finder", "ignored", files,
       lines("com.apple.finder, finder=true",
             {{kFinderLine}, kCopyStart,
              {kLog + "File path strategy #1 (readObjects NSURL): 1",
               kLog + "Combined file path extraction: 1 unique path(s)",
               kLog + "CGEvent: Got 1 file path(s)", kLog + "CGEvent: Restored original clipboard",
               kLog + "SUCCESS via CGEvent in 0.260s (total: 0.262s)"}}),
       SuccessResponse{.method = "cgevent", .file_paths = Lines{"/Users/me/r.pdf"}}},
      {"Finder with nothing", true, "com.apple.finder", "ignored", std::nullopt,
       lines("com.apple.finder, finder=true",
             {{kFinderLine}, kCopyStart, kNothingCopied, {kLog + "FAILED total time: 0.467s"}}),
       kNothing},
  };
  for (const auto& s : scenarios) {
    SCOPED_TRACE(s.name);
    FakeDesktop desktop;
    desktop.trusted = s.trusted;
    desktop.frontmostApplication = s.frontmost;
    if (s.accessibilityText) desktop.selectedText = {kAXErrorSuccess, *s.accessibilityText};
    desktop.pasteboard.string = "saved";
    desktop.copyResult = s.copy;
    desktop.copyDelay = 0.01;
    // Every query takes time, so each duration shows where it starts.
    desktop.operationSeconds = 0.001;

    EXPECT_EQ(getSelection(desktop), s.answer);
    EXPECT_EQ(desktop.logLines, s.lines);
    // The trust call that never prompts comes first; without trust, nothing
    // else is asked.
    EXPECT_EQ(desktop.operations.front(), "AXIsProcessTrusted");
    EXPECT_EQ(std::count(desktop.operations.begin(), desktop.operations.end(),
                         "AXIsProcessTrustedWithOptions"), 0);
    if (!s.trusted) { EXPECT_EQ(desktop.operations.size(), 1u); }
    EXPECT_EQ(desktop.currentPasteboard().string, "saved");
    EXPECT_EQ(desktop.liveHandles(), 0);
  }
}

}  // namespace
}  // namespace tovrin
