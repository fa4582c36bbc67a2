#include "capture/get_selection.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeAttribute;
using testing::FakeDesktop;
using testing::PasteboardContents;
using Lines = std::vector<std::string>;

PasteboardContents copiedText(std::string text, std::optional<std::string> html) {
  PasteboardContents contents;
  contents.types = Lines{"public.utf8-plain-text", "public.html"};
  contents.string = std::move(text);
  contents.html = std::move(html);
  return contents;
}

PasteboardContents copiedFiles() {
  PasteboardContents contents;
  contents.string = "report.pdf";
  contents.urlObjects = std::vector<PasteboardURLObject>{{true, "/Users/me/report.pdf"}};
  return contents;
}

struct Scenario {
  const char* name;
  bool trusted = true;
  std::optional<std::string> frontmost = "com.apple.TextEdit";
  std::optional<std::string> accessibilityText;
  std::optional<PasteboardContents> copy;
  Lines lines;
  Response answer;
};

const Lines kCopyStart = {
    "[tovrin] Starting CGEvent method...",
    "[tovrin] Modifier keys released",
    "[tovrin] CGEvent: Sent Cmd+C",
};
const Lines kAccessibilityFailed = {
    "[tovrin] Trying accessibility API...",
    "[tovrin] Accessibility: Could not get selected text (error: -25212)",
    "[tovrin] Accessibility failed in 0.002s, trying CGEvent",
};
const Lines kTextCopied = {
    "[tovrin] CGEvent: Got clipboard on attempt 1: 4 chars",
    "[tovrin] Attempting HTML capture...",
    "[tovrin] Available clipboard types: [\"public.utf8-plain-text\", "
    "\"public.html\"]",
    "[tovrin] Checking for direct HTML on clipboard...",
    "[tovrin] Found HTML content: 11 chars",
    "[tovrin] HTML capture took 0.002s",
    "[tovrin] CGEvent: Restored original clipboard",
};
const Lines kNothingCopied = {
    "[tovrin] CGEvent: Restored original clipboard (no copy)",
    "[tovrin] CGEvent: No text copied",
    "[tovrin] CGEvent failed in 0.465s",
};

Lines concat(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Lines header(const std::string& frontmost, bool finder) {
  return {"[tovrin] Starting get-selection", "[tovrin] AXIsProcessTrusted: true",
          "[tovrin] Frontmost app: " + frontmost +
              ", finder=" + (finder ? "true" : "false")};
}

const ErrorResponse kNothing{"No text selected or could not copy"};

TEST(GetSelectionTest, EachEndLogsItsLinesAndWritesOneAnswer) {
  const char* kFinderLine =
      "[tovrin] Finder detected, skipping accessibility API and using CGEvent "
      "copy for file paths";
  const Scenario scenarios[] = {
      {"permission missing", false, "com.apple.TextEdit", std::nullopt,
       std::nullopt,
       {"[tovrin] Starting get-selection", "[tovrin] AXIsProcessTrusted: false"},
       ErrorResponse{"Accessibility permission required - please grant in "
                     "System Settings > Privacy & Security > Accessibility"}},
      {"accessibility text", true, "com.apple.TextEdit", "Hello", std::nullopt,
       concat({header("com.apple.TextEdit", false),
               {"[tovrin] Trying accessibility API...",
                "[tovrin] Accessibility: Got 5 chars",
                "[tovrin] SUCCESS via accessibility in 0.004s"}}),
       SuccessResponse{.text = "Hello", .method = "accessibility"}},
      {"copied text", true, "com.apple.TextEdit", std::nullopt,
       copiedText("Copy", "<b>Copy</b>"),
       concat({header("com.apple.TextEdit", false), kAccessibilityFailed,
               kCopyStart, kTextCopied,
               {"[tovrin] SUCCESS via CGEvent in 0.263s (total: 0.267s)"}}),
       SuccessResponse{
           .text = "Copy", .method = "cgevent", .html = "<b>Copy</b>"}},
      {"nothing anywhere", true, std::nullopt, std::nullopt, std::nullopt,
       concat({header("unknown", false), kAccessibilityFailed, kCopyStart,
               kNothingCopied, {"[tovrin] FAILED total time: 0.469s"}}),
       kNothing},
      {"Finder with files", true, "com.apple.finder", "ignored", copiedFiles(),
       concat({header("com.apple.finder", true), {kFinderLine}, kCopyStart,
               {"[tovrin] File path strategy #1 (readObjects NSURL): 1",
                "[tovrin] Combined file path extraction: 1 unique path(s)",
                "[tovrin] CGEvent: Got 1 file path(s)",
                "[tovrin] CGEvent: Restored original clipboard",
                "[tovrin] SUCCESS via CGEvent in 0.260s (total: 0.262s)"}}),
       SuccessResponse{.method = "cgevent",
                       .file_paths = Lines{"/Users/me/report.pdf"}}},
      {"Finder with nothing", true, "com.apple.finder", "ignored", std::nullopt,
       concat({header("com.apple.finder", true), {kFinderLine}, kCopyStart,
               kNothingCopied, {"[tovrin] FAILED total time: 0.467s"}}),
       kNothing},
  };
  for (const Scenario& s : scenarios) {
    SCOPED_TRACE(s.name);
    FakeDesktop desktop;
    desktop.trusted = s.trusted;
    desktop.frontmostApplication = s.frontmost;
    if (s.accessibilityText) {
      desktop.selectedText = {kAXErrorSuccess, *s.accessibilityText};
    }
    desktop.pasteboard.string = "saved";
    desktop.copyResult = s.copy;
    desktop.copyDelay = 0.01;
    // Every query takes time, so each duration shows where it starts.
    desktop.operationSeconds = 0.001;

    const Response answer = getSelection(desktop);

    EXPECT_EQ(desktop.logLines, s.lines);
    EXPECT_EQ(answer, s.answer);
    // Only the trust call that never prompts.
    EXPECT_EQ(desktop.trustCalls, Lines{"AXIsProcessTrusted"});
    EXPECT_EQ(desktop.liveHandles(), 0);
    if (!s.trusted) {
      EXPECT_EQ(desktop.frontmostQueries, 0);
      EXPECT_TRUE(desktop.operations.empty());
    } else if (s.copy || s.lines.back().starts_with("[tovrin] FAILED")) {
      EXPECT_EQ(desktop.currentPasteboard().string, "saved");
    }
  }
}

TEST(GetSelectionTest, AnApplicationNameCannotForgeALogLine) {
  FakeDesktop desktop;
  desktop.frontmostApplication = "x\n[tovrin] SUCCESS\x1b[2J";
  desktop.selectedText = {kAXErrorSuccess, std::string("text")};
  getSelection(desktop);
  EXPECT_EQ(desktop.logLines[2],
            "[tovrin] Frontmost app: x\\u000a[tovrin] SUCCESS\\u001b[2J, "
            "finder=false");
}

TEST(GetSelectionTest, OnlyTheExactFinderIdentifierSkipsAccessibility) {
  FakeDesktop desktop;
  desktop.frontmostApplication = "com.apple.Finder";
  desktop.selectedText = {kAXErrorSuccess, std::string("text")};
  const Response answer = getSelection(desktop);
  EXPECT_EQ(desktop.logLines[2],
            "[tovrin] Frontmost app: com.apple.Finder, finder=false");
  ASSERT_TRUE(std::holds_alternative<SuccessResponse>(answer));
  EXPECT_EQ(std::get<SuccessResponse>(answer).method, "accessibility");
}

}  // namespace
}  // namespace tovrin
