// Decoding of \'hh bytes and font names in the document's or a font's code
// page.

#include <gtest/gtest.h>

#include <string>

#include "rtf/rtf_test_support.h"

namespace tovrin::rtf {
namespace {

TEST(RtfToHtmlCodePageTest, DecodesTheDocumentCodePage) {
  EXPECT_EQ(inlineOf("caf\\'e9 \\'80\\'85 caf\xe9"), "café €… café");
  EXPECT_EQ(bodyOf("{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8}"),
            "<p class=\"p1\">При</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\mac \\'8e\\'a5}"), "<p class=\"p1\">é•</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\pc \\'82}"), "<p class=\"p1\">é</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\pca \\'9b}"), "<p class=\"p1\">ø</p>\n");
  // 0x81 is unassigned in code page 1252. ('a' is a char because for a
  // one-letter string in front of a temporary, g++ 12 -O3 warns of an
  // overlapping copy that cannot happen.)
  EXPECT_EQ(inlineOf("a\\'81b"), 'a' + std::string(kReplacement) + "b");
}

TEST(RtfToHtmlCodePageTest, FontCharsetOverridesTheDocumentCodePage) {
  // All fonts share a name so that no font spans appear.
  const std::string fonts =
      "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fcharset0 X;}"
      "{\\f1\\fcharset204 X;}{\\f2\\fcharset128 X;}{\\f3\\fcharset1 X;}"
      "{\\f4\\cpg1253 X;}}\\f0 ";
  EXPECT_EQ(bodyOf(fonts + "\\'e9 {\\f1 \\'cf\\'f0\\'e8\\'e2\\'e5\\'f2} "
                           "{\\f3\\'e9} {\\f4\\'e1}}"),
            "<p class=\"p1\">é Привет é α</p>\n");
  // Shift_JIS: bytes are decoded in pairs, also across raw line breaks, and a
  // trail byte may be a plain character or even a brace-free symbol.
  EXPECT_EQ(bodyOf(fonts + "\\f2 \\'93\\'fa\\'96\\'7b\\'8c\r\n\\'ea "
                           "\\'83\\'5c\\'82a}"),
            "<p class=\"p1\">日本語 ソＢ</p>\n");
  // A lead byte without its trail byte is invalid.
  EXPECT_EQ(bodyOf(fonts + "\\f2 \\'93}"),
            "<p class=\"p1\">" + std::string(kReplacement) + "</p>\n");
}

TEST(RtfToHtmlCodePageTest, FontNamesAreDecodedInTheirCharset) {
  EXPECT_EQ(styleOf("{\\rtf1\\ansi{\\fonttbl{\\f0\\fnil\\fcharset128 "
                    "\\'82\\'6c\\'82\\'72 \\'83\\'53\\'83\\'56\\'83\\'62\\'83"
                    "\\'4e;}}\\f0 x}"),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px "
            "'ＭＳ ゴシック'}\n");
}

}  // namespace
}  // namespace tovrin::rtf
