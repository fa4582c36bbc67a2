#include "clipboard/html.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using Lines = std::vector<std::string>;

const std::string kLog = "[tovrin] ";
const std::string kTypes = kLog + "Available clipboard types: [\"public.html\", \"public.rtf\"]",
                  kHtml = kLog + "Checking for direct HTML on clipboard...",
                  kRtf = kLog + "Checking for RTF on clipboard...",
                  kNone = kLog + "No HTML or RTF content found on clipboard",
                  kConverting = kLog + "Found RTF data: 9 bytes, converting to HTML...",
                  kConverted = kLog + "Converted RTF to HTML: 16 chars";

TEST(HtmlFromClipboardTest, TakesDirectHtmlElseConvertsTheRtf) {
  const std::optional<Lines> both = Lines{"public.html", "public.rtf"};
  const struct {
    std::optional<std::string> html, rtf;
    std::optional<Lines> types;
    double htmlSeconds = 0, rtfSeconds = 0;
    std::optional<std::string> result;
    Lines lines;
    double elapsed = 0;
  } rows[] = {
      // Direct HTML wins, even empty.
      {"<b>caf\xC3\xA9</b>", "{\\rtf1 x}", both, 0, 0, "<b>caf\xC3\xA9</b>",
       {kTypes, kHtml, kLog + "Found HTML content: 11 chars"}},
      {"", "{\\rtf1 x}", both, 0, 0, "", {kTypes, kHtml, kLog + "Found HTML content: 0 chars"}},
      {std::nullopt, "{\\rtf1 x}", both, 0, 0, "<p>{\\rtf1 x}</p>",
       {kTypes, kHtml, kRtf, kConverting, kConverted}},
      // RTF that does not convert, or converts to bytes that are not UTF-8.
      {std::nullopt, "", both, 0, 0, std::nullopt,
       {kTypes, kHtml, kRtf, kLog + "Found RTF data: 0 bytes, converting to HTML...", kNone}},
      {std::nullopt, "{\\rtf1\xC3(}", both, 0, 0, std::nullopt,
       {kTypes, kHtml, kRtf, kConverting, kNone}},
      {std::nullopt, std::nullopt, std::nullopt, 0, 0, std::nullopt, {kHtml, kRtf, kNone}},
      // A slow read is abandoned after two seconds.
      {"<b>slow</b>", "{\\rtf1 x}", both, 30, 0, "<p>{\\rtf1 x}</p>",
       {kTypes, kHtml, kLog + "Clipboard read timed out after 2000ms", kRtf, kConverting,
        kConverted},
       2.0},
      {"<b>slow</b>", "{\\rtf1 x}", both, 30, 30, std::nullopt,
       {kTypes, kHtml, kLog + "Clipboard read timed out after 2000ms", kRtf,
        kLog + "Clipboard read timed out after 2000ms", kNone},
       4.0},
      // Odd type names stay on one log line.
      {std::nullopt, std::nullopt, Lines{"a\"b", "c\nd", "e\\f", "text/html"}, 0, 0, std::nullopt,
       {kLog + "Available clipboard types: [\"a\\\"b\", \"c\\u000ad\", \"e\\\\f\", \"text/html\"]",
        kHtml, kRtf, kNone}},
      {std::nullopt, std::nullopt, Lines{}, 0, 0, std::nullopt,
       {kLog + "Available clipboard types: []", kHtml, kRtf, kNone}},
  };
  for (const auto& row : rows) {
    testing::FakeDesktop desktop;
    desktop.pasteboard = {.types = row.types, .html = row.html, .rtf = row.rtf};
    desktop.extraSeconds = {{"html", row.htmlSeconds}, {"rtf", row.rtfSeconds}};
    desktop.rtfConverter = [](std::string_view rtf) -> std::optional<std::string> {
      if (rtf.empty()) return std::nullopt;
      return "<p>" + std::string(rtf) + "</p>";
    };
    EXPECT_EQ(getHtmlFromClipboard(desktop), row.result);
    EXPECT_EQ(desktop.logLines, row.lines);
    EXPECT_DOUBLE_EQ(desktop.elapsed(), row.elapsed);
    // The RTF is not read when there is HTML.
    EXPECT_EQ(desktop.operations.back(), row.result && row.result == row.html ? "html" : "rtf");
  }
}

}  // namespace
}  // namespace tovrin
