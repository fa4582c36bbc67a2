#include "clipboard/html.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using Lines = std::vector<std::string>;

constexpr char kTypesLine[] =
    "[tovrin] Available clipboard types: [\"public.html\", \"public.rtf\"]";

FakeDesktop desktopWith(std::optional<std::string> html,
                        std::optional<std::string> rtf) {
  FakeDesktop desktop;
  desktop.pasteboard.types = Lines{"public.html", "public.rtf"};
  desktop.pasteboard.html = std::move(html);
  desktop.pasteboard.rtf = std::move(rtf);
  desktop.rtfConverter = [](std::string_view rtf) -> std::optional<std::string> {
    if (rtf.empty()) return std::nullopt;
    return "<p>" + std::string(rtf) + "</p>";
  };
  return desktop;
}

TEST(HtmlFromClipboardTest, DirectHtmlWinsAndTheRtfIsNotRead) {
  FakeDesktop desktop = desktopWith("<b>caf\xC3\xA9</b>", "{\\rtf1 x}");
  EXPECT_EQ(getHtmlFromClipboard(desktop), "<b>caf\xC3\xA9</b>");
  EXPECT_EQ(desktop.logLines,
            (Lines{kTypesLine, "[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Found HTML content: 11 chars"}));
  EXPECT_EQ(desktop.operations, (Lines{"types", "html"}));
}

TEST(HtmlFromClipboardTest, EmptyHtmlIsStillAnAnswer) {
  FakeDesktop desktop = desktopWith("", "{\\rtf1 x}");
  EXPECT_EQ(getHtmlFromClipboard(desktop), "");
  EXPECT_EQ(desktop.logLines.back(), "[tovrin] Found HTML content: 0 chars");
}

TEST(HtmlFromClipboardTest, RtfAloneIsConverted) {
  FakeDesktop desktop = desktopWith(std::nullopt, "{\\rtf1 x}");
  EXPECT_EQ(getHtmlFromClipboard(desktop), "<p>{\\rtf1 x}</p>");
  EXPECT_EQ(desktop.logLines,
            (Lines{kTypesLine, "[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Checking for RTF on clipboard...",
                   "[tovrin] Found RTF data: 9 bytes, converting to HTML...",
                   "[tovrin] Converted RTF to HTML: 16 chars"}));
}

TEST(HtmlFromClipboardTest, UnreadableOrMissingRtfGivesNothing) {
  FakeDesktop empty = desktopWith(std::nullopt, "");
  EXPECT_EQ(getHtmlFromClipboard(empty), std::nullopt);
  EXPECT_EQ(empty.logLines,
            (Lines{kTypesLine, "[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Checking for RTF on clipboard...",
                   "[tovrin] Found RTF data: 0 bytes, converting to HTML...",
                   "[tovrin] No HTML or RTF content found on clipboard"}));

  // A converter that gives bytes which are not UTF-8 gave no HTML.
  FakeDesktop broken = desktopWith(std::nullopt, "{\\rtf1 x}");
  broken.rtfConverter = [](std::string_view) {
    return std::optional<std::string>("<p>\xC3(</p>");
  };
  EXPECT_EQ(getHtmlFromClipboard(broken), std::nullopt);
  EXPECT_EQ(broken.logLines,
            (Lines{kTypesLine, "[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Checking for RTF on clipboard...",
                   "[tovrin] Found RTF data: 9 bytes, converting to HTML...",
                   "[tovrin] No HTML or RTF content found on clipboard"}));

  FakeDesktop neither = desktopWith(std::nullopt, std::nullopt);
  neither.pasteboard.types.reset();
  EXPECT_EQ(getHtmlFromClipboard(neither), std::nullopt);
  EXPECT_EQ(neither.logLines,
            (Lines{"[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Checking for RTF on clipboard...",
                   "[tovrin] No HTML or RTF content found on clipboard"}));
}

TEST(HtmlFromClipboardTest, ASlowHtmlReadFallsBackToRtfAfterTwoSeconds) {
  FakeDesktop desktop = desktopWith("<b>slow</b>", "{\\rtf1 x}");
  desktop.htmlReadSeconds = 30;
  EXPECT_EQ(getHtmlFromClipboard(desktop), "<p>{\\rtf1 x}</p>");
  EXPECT_DOUBLE_EQ(desktop.elapsed(), 2.0);
  EXPECT_EQ(desktop.logLines,
            (Lines{kTypesLine, "[tovrin] Checking for direct HTML on clipboard...",
                   "[tovrin] Clipboard read timed out after 2000ms",
                   "[tovrin] Checking for RTF on clipboard...",
                   "[tovrin] Found RTF data: 9 bytes, converting to HTML...",
                   "[tovrin] Converted RTF to HTML: 16 chars"}));

  FakeDesktop bothSlow = desktopWith("<b>slow</b>", "{\\rtf1 x}");
  bothSlow.htmlReadSeconds = 30;
  bothSlow.rtfReadSeconds = 30;
  EXPECT_EQ(getHtmlFromClipboard(bothSlow), std::nullopt);
  EXPECT_DOUBLE_EQ(bothSlow.elapsed(), 4.0);
  EXPECT_EQ(bothSlow.logLines.back(),
            "[tovrin] No HTML or RTF content found on clipboard");
}

TEST(HtmlFromClipboardTest, OddTypeNamesStayOnOneLogLine) {
  FakeDesktop desktop;
  desktop.pasteboard.types = Lines{"a\"b", "c\nd", "e\\f", "text/html"};
  getHtmlFromClipboard(desktop);
  EXPECT_EQ(desktop.logLines.front(),
            "[tovrin] Available clipboard types: [\"a\\\"b\", \"c\\u000ad\", "
            "\"e\\\\f\", \"text/html\"]");
  FakeDesktop none;
  none.pasteboard.types = Lines{};
  getHtmlFromClipboard(none);
  EXPECT_EQ(none.logLines.front(), "[tovrin] Available clipboard types: []");
}

}  // namespace
}  // namespace tovrin
