// The markup of the converted document: its frame, escaping, paragraph and
// span classes and how inline tags nest. The cases go through whole RTF
// documents, which say what each is about more plainly than writer calls.

#include <gtest/gtest.h>

#include <string>

#include "rtf/rtf_test_support.h"

namespace tovrin::rtf {
namespace {

TEST(RtfToHtmlDocumentTest, WritesCocoaStyleDocument) {
  const std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl\\f0\\fswiss\\fcharset0 Helvetica;}"
      "{\\colortbl;\\red255\\green0\\blue0;}\\f0\\fs24 "
      "Hello {\\b bold} {\\i it} {\\ul under}\\par\\par"
      "{\\field{\\*\\fldinst{HYPERLINK \"https://example.com/\"}}"
      "{\\fldrslt link}}\\line next line\\tab after {\\cf1 tab}}";
  EXPECT_EQ(convertRtfToHtml(rtf),
            "<!DOCTYPE html PUBLIC \"-//W3C//DTD HTML 4.01//EN\" "
            "\"http://www.w3.org/TR/html4/strict.dtd\">\n"
            "<html>\n"
            "<head>\n"
            "<meta http-equiv=\"Content-Type\" content=\"text/html; "
            "charset=UTF-8\">\n"
            "<meta http-equiv=\"Content-Style-Type\" content=\"text/css\">\n"
            "<title></title>\n"
            "<style type=\"text/css\">\n"
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica}\n"
            "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica; "
            "min-height: 14.0px}\n"
            "span.s1 {text-decoration: underline}\n"
            "span.s2 {color: #ff0000}\n"
            "span.Apple-tab-span {white-space:pre}\n"
            "</style>\n"
            "</head>\n"
            "<body>\n"
            "<p class=\"p1\">Hello <b>bold</b> <i>it</i> "
            "<span class=\"s1\">under</span></p>\n"
            "<p class=\"p2\"><br></p>\n"
            "<p class=\"p1\"><a href=\"https://example.com/\">link</a><br>\n"
            "next line<span class=\"Apple-tab-span\">\t</span>after "
            "<span class=\"s2\">tab</span></p>\n"
            "</body>\n"
            "</html>\n");
}

TEST(RtfToHtmlTextTest, EscapesOnlyMarkupCharacters) {
  EXPECT_EQ(inlineOf("a < b > c & d \"q\" 'x' / = ;"),
            "a &lt; b &gt; c &amp; d \"q\" 'x' / = ;");
  EXPECT_EQ(inlineOf("\\'3c\\'26\\u62?"), "&lt;&amp;&gt;");
}

// ---- Paragraphs -----------------------------------------------------------

TEST(RtfToHtmlParagraphTest, EmptyParagraphsKeepTheirLineHeight) {
  const std::string rtf = doc("\\par\\fs36 \\par one\\par\\par\\fs20 two");
  EXPECT_EQ(bodyOf(rtf),
            "<p class=\"p1\"><br></p>\n"
            "<p class=\"p2\"><br></p>\n"
            "<p class=\"p3\">one</p>\n"
            "<p class=\"p2\"><br></p>\n"
            "<p class=\"p4\">two</p>\n");
  EXPECT_EQ(styleOf(rtf),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica; "
            "min-height: 14.0px}\n"
            "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 18.0px Helvetica; "
            "min-height: 22.0px}\n"
            "p.p3 {margin: 0.0px 0.0px 0.0px 0.0px; font: 18.0px Helvetica}\n"
            "p.p4 {margin: 0.0px 0.0px 0.0px 0.0px; font: 10.0px Helvetica}\n");
}

TEST(RtfToHtmlParagraphTest, FinalParagraphIsWrittenOnlyWithContent) {
  EXPECT_EQ(bodyOf(doc("a\\par")), "<p class=\"p1\">a</p>\n");
  EXPECT_EQ(bodyOf(doc("a\\par b")),
            "<p class=\"p1\">a</p>\n<p class=\"p1\">b</p>\n");
  EXPECT_EQ(bodyOf(doc("a\\par {\\v hidden}")), "<p class=\"p1\">a</p>\n");
}

TEST(RtfToHtmlParagraphTest, TabsAndLineBreaks) {
  EXPECT_EQ(inlineOf("a\\tab b\\line c\td"),
            std::string("a") + std::string(kTab) + "b<br>\nc" +
                std::string(kTab) + "d");
  EXPECT_EQ(inlineOf("{\\b x\\tab y\\line z}"),
            "<b>x" + std::string(kTab) + "y<br>\nz</b>");
  // Cocoa writes a line break inside a paragraph as LINE SEPARATOR.
  EXPECT_EQ(inlineOf("a\\uc0\\u8232 b"), "a<br>\nb");
}

TEST(RtfToHtmlParagraphTest, AlignmentClassesAreSharedInOrderOfUse) {
  const std::string rtf =
      doc("\\qc c\\par\\pard l\\par\\qr r\\par\\qj j\\par\\ql l2\\par"
          "{\\qc c2\\par}l3\\qr\\par");
  EXPECT_EQ(bodyOf(rtf),
            "<p class=\"p1\">c</p>\n"
            "<p class=\"p2\">l</p>\n"
            "<p class=\"p3\">r</p>\n"
            "<p class=\"p4\">j</p>\n"
            "<p class=\"p2\">l2</p>\n"
            "<p class=\"p1\">c2</p>\n"
            "<p class=\"p3\">l3</p>\n");
  EXPECT_EQ(styleOf(rtf),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: center; "
            "font: 12.0px Helvetica}\n"
            "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica}\n"
            "p.p3 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: right; "
            "font: 12.0px Helvetica}\n"
            "p.p4 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: justify; "
            "font: 12.0px Helvetica}\n");
}

TEST(RtfToHtmlParagraphTest, PageSectionAndRowBreaksEndParagraphs) {
  EXPECT_EQ(bodyOf(doc("a\\page b\\sect\\page c")),
            "<p class=\"p1\">a</p>\n<p class=\"p1\">b</p>\n"
            "<p class=\"p1\">c</p>\n");
  EXPECT_EQ(bodyOf(doc("\\trowd\\cellx100\\cellx200\\intbl A\\cell B\\cell"
                       "\\row after")),
            "<p class=\"p1\">A" + std::string(kTab) +
                "B</p>\n"
                "<p class=\"p1\">after</p>\n");
}

// ---- Character formatting -------------------------------------------------

TEST(RtfToHtmlFormattingTest, BoldAndItalicNestProperlyAcrossGroups) {
  EXPECT_EQ(inlineOf("{\\b a{\\i b}c}d"), "<b>a<i>b</i>c</b>d");
  EXPECT_EQ(inlineOf("{\\i a{\\b b}c}"), "<i>a</i><b><i>b</i></b><i>c</i>");
  EXPECT_EQ(inlineOf("\\b a\\i b\\b0 c\\i0 d"), "<b>a<i>b</i></b><i>c</i>d");
  EXPECT_EQ(inlineOf("{\\b}{\\i}x{\\b }"), "x");
  EXPECT_EQ(inlineOf("\\b\\i\\ul a\\plain b"),
            "<b><i><span class=\"s1\">a</span></i></b>b");
}

TEST(RtfToHtmlFormattingTest, SpanClassesForDecorationColourAndFont) {
  const std::string rtf =
      "{\\rtf1\\ansi{\\fonttbl{\\f0\\fswiss Helvetica;}"
      "{\\f1\\froman Times New Roman;}}"
      "{\\colortbl;\\red255\\green0\\blue0;\\red0\\green128\\blue255;}"
      "\\f0\\fs24 {\\ul u}{\\strike s}{\\ul\\strike us}{\\uldb d}"
      "{\\ulw w\\ulnone n}{\\striked1 x\\striked0 y}{\\cf1 red}"
      "{\\cf2\\ul blue}{\\cf9 none}{\\cf0 auto}{\\f1 times}{\\fs30 big}"
      "{\\ul u2}}";
  EXPECT_EQ(bodyOf(rtf),
            "<p class=\"p1\"><span class=\"s1\">u</span>"
            "<span class=\"s2\">s</span><span class=\"s3\">us</span>"
            "<span class=\"s1\">dw</span>n<span class=\"s2\">x</span>y"
            "<span class=\"s4\">red</span><span class=\"s5\">blue</span>"
            "noneauto<span class=\"s6\">times</span>"
            "<span class=\"s7\">big</span><span class=\"s1\">u2</span></p>\n");
  EXPECT_EQ(styleOf(rtf),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica}\n"
            "span.s1 {text-decoration: underline}\n"
            "span.s2 {text-decoration: line-through}\n"
            "span.s3 {text-decoration: underline line-through}\n"
            "span.s4 {color: #ff0000}\n"
            "span.s5 {text-decoration: underline; color: #0080ff}\n"
            "span.s6 {font: 12.0px 'Times New Roman'}\n"
            "span.s7 {font: 15.0px Helvetica}\n");
}

TEST(RtfToHtmlFormattingTest, FontNamesAreSanitisedForCss) {
  EXPECT_EQ(styleOf("{\\rtf1{\\fonttbl{\\f0 Bad'\\}</style>\\{Name;}}\\f0 x}"),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px "
            "'Bad/styleName'}\n");
  // Unknown fonts and empty names fall back to Helvetica.
  EXPECT_EQ(styleOf("{\\rtf1{\\fonttbl{\\f0 ;}}\\f0 x\\par\\f7 y}"),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica}\n");
}

}  // namespace
}  // namespace tovrin::rtf
