#include "rtf/rtf_to_html.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace tovrin {
namespace {

constexpr std::string_view kBodyOpen = "<body>\n";
constexpr std::string_view kBodyClose = "</body>\n";
constexpr std::string_view kStyleOpen = "<style type=\"text/css\">\n";
constexpr std::string_view kStyleClose = "</style>\n";

std::string between(const std::string& html, std::string_view open,
                    std::string_view close) {
  const size_t start = html.find(open);
  const size_t end = html.find(close, start);
  if (start == std::string::npos || end == std::string::npos) {
    ADD_FAILURE() << "missing " << open << " in:\n" << html;
    return {};
  }
  return html.substr(start + open.size(), end - start - open.size());
}

std::string convertOrFail(std::string_view rtf) {
  std::optional<std::string> html = convertRtfToHtml(rtf);
  if (!html) {
    ADD_FAILURE() << "no HTML for: " << rtf;
    return {};
  }
  return *html;
}

/// Converts a whole RTF document and returns what is inside <body>.
std::string bodyOf(std::string_view rtf) {
  return between(convertOrFail(rtf), kBodyOpen, kBodyClose);
}

/// Converts a whole RTF document and returns the rules of its <style>.
std::string styleOf(std::string_view rtf) {
  return between(convertOrFail(rtf), kStyleOpen, kStyleClose);
}

/// Wraps `content` in a minimal document with Helvetica as font 0.
std::string doc(std::string_view content) {
  return "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl\\f0\\fswiss\\fcharset0 "
         "Helvetica;}\\f0 " +
         std::string(content) + "}";
}

/// Body of a one-paragraph document, without the surrounding <p> tag.
std::string inlineOf(std::string_view content) {
  const std::string body = bodyOf(doc(content));
  constexpr std::string_view kOpen = "<p class=\"p1\">";
  constexpr std::string_view kClose = "</p>\n";
  if (body.substr(0, kOpen.size()) != kOpen ||
      body.size() < kOpen.size() + kClose.size() ||
      body.substr(body.size() - kClose.size()) != kClose ||
      body.find("<p", 1) != std::string::npos) {
    ADD_FAILURE() << "not a single paragraph: " << body;
    return body;
  }
  return body.substr(kOpen.size(), body.size() - kOpen.size() - kClose.size());
}

std::string readSample(std::string_view name) {
  const std::string path = std::string(TOVRIN_SOURCE_DIR) +
                           "/tests/rtf_samples/" + std::string(name);
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << "cannot open " << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

constexpr std::string_view kTab = "<span class=\"Apple-tab-span\">\t</span>";
constexpr std::string_view kReplacement = "\uFFFD";

// ---- Whole documents ------------------------------------------------------

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

TEST(RtfToHtmlDocumentTest, RejectsEmptyAndNonRtfInput) {
  EXPECT_EQ(convertRtfToHtml(""), std::nullopt);
  EXPECT_EQ(convertRtfToHtml(" \r\n\t"), std::nullopt);
  EXPECT_EQ(convertRtfToHtml("plain text"), std::nullopt);
  EXPECT_EQ(convertRtfToHtml("{\\rt"), std::nullopt);
  EXPECT_EQ(convertRtfToHtml("{\\RTF1 x}"), std::nullopt);
  EXPECT_EQ(convertRtfToHtml("x{\\rtf1 x}"), std::nullopt);
  EXPECT_EQ(convertRtfToHtml("<p>{\\rtf1 x}</p>"), std::nullopt);
  // A byte-order mark is not whitespace.
  EXPECT_EQ(convertRtfToHtml("\xEF\xBB\xBF{\\rtf1 x}"), std::nullopt);
}

TEST(RtfToHtmlDocumentTest, AcceptsLeadingWhitespace) {
  EXPECT_EQ(bodyOf(" \r\n\t{\\rtf1 hi}"), "<p class=\"p1\">hi</p>\n");
}

TEST(RtfToHtmlDocumentTest, DocumentWithoutTextHasEmptyBodyAndStyle) {
  const std::string html = convertOrFail("{\\rtf1\\ansi{\\fonttbl\\f0 A;}}");
  EXPECT_EQ(between(html, kStyleOpen, kStyleClose), "");
  EXPECT_EQ(between(html, kBodyOpen, kBodyClose), "");
}

// ---- Text -----------------------------------------------------------------

TEST(RtfToHtmlTextTest, EscapesOnlyMarkupCharacters) {
  EXPECT_EQ(inlineOf("a < b > c & d \"q\" 'x' / = ;"),
            "a &lt; b &gt; c &amp; d \"q\" 'x' / = ;");
  EXPECT_EQ(inlineOf("\\'3c\\'26\\u62?"), "&lt;&amp;&gt;");
}

TEST(RtfToHtmlTextTest, ControlSymbolsAndSpecialCharacters) {
  EXPECT_EQ(inlineOf("a\\~b\\-c\\_d\\{\\}\\\\"), "a\u00a0bc\u2011d{}\\");
  EXPECT_EQ(inlineOf("\\emdash\\endash\\lquote\\rquote\\ldblquote"
                     "\\rdblquote\\bullet"),
            "\u2014\u2013\u2018\u2019\u201C\u201D\u2022");
  // Unknown control words and symbols print nothing.
  EXPECT_EQ(inlineOf("a\\foo12 b\\|c\\:d"), "abcd");
}

TEST(RtfToHtmlTextTest, OneSpaceAfterControlWordIsItsDelimiter) {
  EXPECT_EQ(inlineOf("a\\b  b\\b0 c\\b1x\\b-1y\\b0"), "a<b> b</b>c<b>xy</b>");
}

TEST(RtfToHtmlTextTest, RawLineBreaksAreIgnoredEscapedOnesEndParagraphs) {
  EXPECT_EQ(bodyOf(doc("one\r\ntwo\nthree\\\nfour\\\r\nfive")),
            "<p class=\"p1\">onetwothree</p>\n"
            "<p class=\"p1\">four</p>\n"
            "<p class=\"p1\">five</p>\n");
}

TEST(RtfToHtmlTextTest, OmitsHiddenText) {
  EXPECT_EQ(inlineOf("shown{\\v hidden\\tab\\line}\\v gone\\v0  back"),
            "shown back");
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

// ---- Code pages -----------------------------------------------------------

TEST(RtfToHtmlCodePageTest, DecodesTheDocumentCodePage) {
  EXPECT_EQ(inlineOf("caf\\'e9 \\'80\\'85 caf\xe9"), "café €… café");
  EXPECT_EQ(bodyOf("{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8}"),
            "<p class=\"p1\">При</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\mac \\'8e\\'a5}"), "<p class=\"p1\">é•</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\pc \\'82}"), "<p class=\"p1\">é</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1\\pca \\'9b}"), "<p class=\"p1\">ø</p>\n");
  // 0x81 is unassigned in code page 1252.
  EXPECT_EQ(inlineOf("a\\'81b"), "a" + std::string(kReplacement) + "b");
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

// ---- Unicode --------------------------------------------------------------

TEST(RtfToHtmlUnicodeTest, SkipsFallbackCharacters) {
  EXPECT_EQ(inlineOf("\\u233?x"), "éx");
  EXPECT_EQ(inlineOf("\\u233  x"), "éx");
  EXPECT_EQ(inlineOf("\\uc1\\u233\\'e9x"), "éx");
  EXPECT_EQ(inlineOf("\\uc0\\u233 x"), "éx");
  EXPECT_EQ(inlineOf("\\uc2\\u233\\'65\\'3fx"), "éx");
  // A control word counts as one fallback character.
  EXPECT_EQ(inlineOf("\\uc2\\u233\\emdash ?x"), "éx");
  // Skipping stops at a group boundary.
  EXPECT_EQ(inlineOf("\\uc3\\u233 ab{c}d"), "écd");
  // \uc is scoped to its group.
  EXPECT_EQ(inlineOf("{\\uc0 \\u233 x}\\u233 y"), "éxé");
  // Negative values are code units above 0x7FFF.
  EXPECT_EQ(inlineOf("\\u-1279?"), "\uFB01");
}

TEST(RtfToHtmlUnicodeTest, CombinesSurrogatePairs) {
  EXPECT_EQ(inlineOf("\\uc1\\u-10179?\\u-8704?!"), "\U0001F600!");
  EXPECT_EQ(inlineOf("\\uc0\\u55357 \\u56832 "), "\U0001F600");
  const std::string bad(kReplacement);
  EXPECT_EQ(inlineOf("\\u55357?x"), bad + "x");
  EXPECT_EQ(inlineOf("a\\u56832?b"), "a" + bad + "b");
  EXPECT_EQ(inlineOf("\\u55357?\\u55357?\\u56832?"), bad + "\U0001F600");
  EXPECT_EQ(bodyOf(doc("\\u55357?\\par x")),
            "<p class=\"p1\">" + bad + "</p>\n<p class=\"p1\">x</p>\n");
}

// ---- Fields ---------------------------------------------------------------

std::string link(std::string_view instruction, std::string_view result) {
  return "{\\field{\\*\\fldinst{" + std::string(instruction) + "}}{\\fldrslt " +
         std::string(result) + "}}";
}

TEST(RtfToHtmlFieldTest, HyperlinksBecomeAnchors) {
  EXPECT_EQ(inlineOf(link("HYPERLINK \"https://a.example/x y\"", "a")),
            "<a href=\"https://a.example/x y\">a</a>");
  EXPECT_EQ(inlineOf(link("HYPERLINK http://b.example/?q=\"x\"&y=<2>", "b")),
            "<a href=\"http://b.example/?q=&quot;x&quot;&amp;y=&lt;2&gt;\">"
            "b</a>");
  EXPECT_EQ(inlineOf(link(" hyperlink \\\\l \"sec2\" ", "c")),
            "<a href=\"#sec2\">c</a>");
  EXPECT_EQ(
      inlineOf(link("HYPERLINK \"https://d.example/\" \\\\o \"tip\"", "d")),
      "<a href=\"https://d.example/\">d</a>");
  // Word doubles backslashes inside quoted field arguments.
  EXPECT_EQ(inlineOf(link("HYPERLINK \"C:\\\\\\\\docs\\\\\\\\a.doc\"", "e")),
            "<a href=\"C:\\docs\\a.doc\">e</a>");
  // The instruction may be split over groups and use escapes.
  EXPECT_EQ(inlineOf("{\\field{\\*\\fldinst {HYPER}{LINK \"http://f/"
                     "\\u233?\"}{\\*\\datafield 00ff}}{\\fldrslt {\\b f}}}"),
            "<a href=\"http://f/é\"><b>f</b></a>");
}

TEST(RtfToHtmlFieldTest, OtherFieldsShowOnlyTheirResult) {
  EXPECT_EQ(inlineOf("p" + link(" PAGE ", "3") + "."), "p3.");
  EXPECT_EQ(inlineOf("a{\\field{\\*\\fldinst DATE}}b"), "ab");
  EXPECT_EQ(inlineOf(link("HYPERLINK \"\"", "x")), "x");
}

TEST(RtfToHtmlFieldTest, LinksWrapFormattingAndReopenAfterBreaks) {
  EXPECT_EQ(
      bodyOf(doc(link("HYPERLINK \"u\"", "a{\\b b}\\line c\\par d") + "e" +
                 link("HYPERLINK \"v\"", "f") + link("HYPERLINK \"w\"", "g"))),
      "<p class=\"p1\"><a href=\"u\">a<b>b</b><br>\nc</a></p>\n"
      "<p class=\"p1\"><a href=\"u\">d</a>e<a href=\"v\">f</a>"
      "<a href=\"w\">g</a></p>\n");
}

// ---- Destinations ---------------------------------------------------------

TEST(RtfToHtmlDestinationTest, SkipsNonTextDestinations) {
  EXPECT_EQ(
      bodyOf("{\\rtf1\\ansi{\\fonttbl\\f0 Helvetica;}"
             "{\\stylesheet{\\s1 Heading;}}{\\info{\\title T}{\\author A}}"
             "{\\*\\generator Gen;}{\\*\\unknown stuff {nested}}"
             "{\\header h}{\\headerl h}{\\headerr h}{\\headerf h}{\\footer f}"
             "{\\footerl f}{\\footerr f}{\\footerf f}{\\*\\themedata 504b}"
             "{\\*\\colorschememapping 3c}{\\*\\datastore 01}"
             "{\\*\\latentstyles{\\lsdlockedexcept Normal;}}"
             "{\\*\\listtable{\\list{\\listname ;}}}{\\*\\listoverridetable}"
             "{\\*\\rsidtbl \\rsid1}{\\*\\xmlnstbl {\\xmlns1 x}}"
             "{\\mmathPr\\mmathFont34}\\f0 a{\\footnote note}b"
             "{\\pict\\pngblip 89504e47}c{\\object{\\*\\objdata 01}"
             "{\\result r}}d{\\*\\bkmkstart x}e{\\*\\fldinst stray}f}"),
      "<p class=\"p1\">abcdef</p>\n");
}

TEST(RtfToHtmlDestinationTest, SkipsAttachmentsAndTheirPlaceholder) {
  EXPECT_EQ(inlineOf("a{{\\NeXTGraphic a.png \\width10 \\height10\n}\\'ac}b"
                     "{{\\NeXTGraphic b.png}\\uc0\\u65532 }c\\'ac"),
            "abc¬");
}

TEST(RtfToHtmlDestinationTest, BinaryDataIsSkippedWhereverItAppears) {
  // The picture's binary data holds braces, a backslash and a NUL.
  const std::string data("}{\\\0\x01{", 6);
  const std::string rtf =
      doc("a{\\pict\\bin6 " + data + "}b\\bin3 xyzc\\u233\\bin2 xyd");
  EXPECT_EQ(bodyOf(rtf), "<p class=\"p1\">abcéd</p>\n");
  EXPECT_EQ(bodyOf(doc("a\\bin99999 xyz")), "<p class=\"p1\">a</p>\n");
}

// ---- Robustness -----------------------------------------------------------

TEST(RtfToHtmlRobustnessTest, ToleratesMissingClosingBraces) {
  EXPECT_EQ(bodyOf("{\\rtf1 {\\b bold{\\i both"),
            "<p class=\"p1\"><b>bold<i>both</i></b></p>\n");
}

TEST(RtfToHtmlRobustnessTest, StopsAtTheDocumentsClosingBrace) {
  EXPECT_EQ(bodyOf("{\\rtf1 a}}} b{"), "<p class=\"p1\">a</p>\n");
  EXPECT_EQ(bodyOf(std::string("{\\rtf1 a}\0", 10)), "<p class=\"p1\">a</p>\n");
}

TEST(RtfToHtmlRobustnessTest, ToleratesTruncatedAndOversizedControls) {
  EXPECT_EQ(bodyOf("{\\rtf1 a\\"), "<p class=\"p1\">a</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1 a\\'4"), "<p class=\"p1\">a</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1 a\\u"), "<p class=\"p1\">a</p>\n");
  EXPECT_EQ(bodyOf("{\\rtf1 a\\'zz}"), "<p class=\"p1\">azz</p>\n");
  const std::string rtf =
      "{\\rtf1 \\fs99999999999999999999 x\\u99999999999 y\\cf-5 z}";
  EXPECT_EQ(bodyOf(rtf),
            "<p class=\"p1\">x" + std::string(kReplacement) + "z</p>\n");
  EXPECT_EQ(styleOf(rtf),
            "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 1638.0px "
            "Helvetica}\n");
}

TEST(RtfToHtmlRobustnessTest, DeepNestingDoesNotExhaustTheStack) {
  EXPECT_EQ(bodyOf("{\\rtf1 " + std::string(100000, '{') + "deep"),
            "<p class=\"p1\">deep</p>\n");
  // Formatting outside the deep groups survives them.
  EXPECT_EQ(bodyOf("{\\rtf1 {\\b " + std::string(1000000, '{') + "x" +
                   std::string(1000000, '}') + "y} z}"),
            "<p class=\"p1\"><b>xy</b> z</p>\n");
}

// ---- Application samples -------------------------------------------------

TEST(RtfToHtmlSampleTest, TextEdit) {
  const std::string html = convertOrFail(readSample("textedit.rtf"));
  EXPECT_EQ(
      between(html, kStyleOpen, kStyleClose),
      "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: center; font: 18.0px "
      "Helvetica-Bold}\n"
      "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica; "
      "min-height: 14.0px}\n"
      "p.p3 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px Helvetica}\n"
      "p.p4 {margin: 0.0px 0.0px 0.0px 0.0px; font: 11.0px Menlo-Regular}\n"
      "p.p5 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: right; font: 12.0px "
      "HelveticaNeue}\n"
      "span.s1 {font: 12.0px Helvetica-Bold}\n"
      "span.s2 {text-decoration: underline}\n"
      "span.s3 {text-decoration: line-through}\n"
      "span.s4 {color: #fb0207}\n"
      "span.s5 {text-decoration: underline; color: #0a4dcc}\n"
      "span.Apple-tab-span {white-space:pre}\n");
  EXPECT_EQ(
      between(html, kBodyOpen, kBodyClose),
      "<p class=\"p1\"><b>Trip notes</b></p>\n"
      "<p class=\"p2\"><br></p>\n"
      "<p class=\"p3\">Café crème brûlée – naïve “résumé”.</p>\n"
      "<p class=\"p3\">Plain, <i>italic</i>, <b><span class=\"s1\">bold</span>"
      "</b>, <span class=\"s2\">underlined</span>, <span class=\"s3\">struck"
      "</span> and <span class=\"s4\">red</span> words.</p>\n"
      "<p class=\"p3\">Total:<span class=\"Apple-tab-span\">\t</span>12\u00a0€"
      "<span class=\"Apple-tab-span\">\t</span>(approx.)<br>\n"
      "second line</p>\n"
      "<p class=\"p3\">Emoji 😀 and € sign.</p>\n"
      "<p class=\"p3\">See <a href=\"https://example.com/a?b=1&amp;c=2\"><span "
      "class=\"s5\">the site</span></a> for details.</p>\n"
      "<p class=\"p2\"><br></p>\n"
      "<p class=\"p4\">if (a &lt; b &amp;&amp; c &gt; d) { return; }</p>\n"
      "<p class=\"p5\">こんにちは — Tokyo</p>\n");
}

TEST(RtfToHtmlSampleTest, Word) {
  const std::string html = convertOrFail(readSample("word.rtf"));
  EXPECT_EQ(
      between(html, kStyleOpen, kStyleClose),
      "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; font: 16.0px 'Calibri Light'}\n"
      "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 11.0px Calibri}\n"
      "p.p3 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: justify; font: "
      "11.0px Calibri}\n"
      "p.p4 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: justify; font: "
      "11.0px 'Calibri Cyr'}\n"
      "p.p5 {margin: 0.0px 0.0px 0.0px 0.0px; font: 11.0px Symbol}\n"
      "p.p6 {margin: 0.0px 0.0px 0.0px 0.0px; font: 11.0px Calibri; "
      "min-height: 13.0px}\n"
      "span.s1 {color: #2f5496}\n"
      "span.s2 {text-decoration: underline; color: #0563c1}\n"
      "span.s3 {font: 11.0px Calibri}\n"
      "span.s4 {font: 10.5px 'MS Gothic'}\n"
      "span.s5 {font: 11.0px Calibri; color: #ff0000}\n"
      "span.Apple-tab-span {white-space:pre}\n");
  EXPECT_EQ(
      between(html, kBodyOpen, kBodyClose),
      "<p class=\"p1\"><span class=\"s1\">Quarterly notes</span></p>\n"
      "<p class=\"p2\">Revenue grew <b>12%</b> in Q1 – see <i>the </i><b>"
      "<i>full</i> report</b> at <a "
      "href=\"https://contoso.example/q1?lang=en&amp;view=full\"><span "
      "class=\"s2\">contoso.example</span></a>.</p>\n"
      "<p class=\"p3\">“Smart” quotes, ‘single’, a non\u2011breaking hyphen, "
      "an em—dash, a soft hyphen and tabs:<span class=\"Apple-tab-span\">\t"
      "</span>A<span class=\"Apple-tab-span\">\t</span>B.</p>\n"
      "<p class=\"p4\">Привет<span class=\"s3\"> / καλημέρα / </span><span "
      "class=\"s4\">日本語</span></p>\n"
      "<p class=\"p5\">·<span class=\"Apple-tab-span\">\t</span><span "
      "class=\"s3\">First &lt;item&gt; &amp; more</span></p>\n"
      "<p class=\"p5\">·<span class=\"Apple-tab-span\">\t</span><span "
      "class=\"s5\">Second item</span></p>\n"
      "<p class=\"p6\"><br></p>\n"
      "<p class=\"p2\">Region<span class=\"Apple-tab-span\">\t</span>Sales"
      "</p>\n"
      "<p class=\"p2\">Thanks</p>\n");
}

TEST(RtfToHtmlSampleTest, LibreOffice) {
  const std::string html = convertOrFail(readSample("libreoffice.rtf"));
  EXPECT_EQ(
      between(html, kStyleOpen, kStyleClose),
      "p.p1 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: center; font: 18.0px "
      "'Liberation Sans'}\n"
      "p.p2 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px 'Liberation "
      "Serif'}\n"
      "p.p3 {margin: 0.0px 0.0px 0.0px 0.0px; text-align: right; font: 12.0px "
      "'Liberation Serif'}\n"
      "p.p4 {margin: 0.0px 0.0px 0.0px 0.0px; font: 12.0px 'Liberation Serif'; "
      "min-height: 14.0px}\n"
      "span.s1 {text-decoration: underline}\n"
      "span.s2 {text-decoration: underline; color: #000080}\n"
      "span.s3 {text-decoration: line-through; color: #c9211e}\n"
      "span.s4 {font: 12.0px 'Noto Sans CJK JP'}\n");
  EXPECT_EQ(
      between(html, kBodyOpen, kBodyClose),
      "<p class=\"p1\"><b>Meeting minutes</b></p>\n"
      "<p class=\"p2\">Attendees: Ana, Boš and Chloë – all present.</p>\n"
      "<p class=\"p2\">Decisions are <b>final</b> unless <i><span "
      "class=\"s1\">noted</span></i> otherwise; see <a "
      "href=\"https://www.libreoffice.org/discover/?q=a&amp;b=“c”\"><span "
      "class=\"s2\">the project page</span></a>.</p>\n"
      "<p class=\"p3\"><span class=\"s3\">Cancelled item</span><br>\n"
      "Budget: 1\u202f200 €</p>\n"
      "<p class=\"p4\"><br></p>\n"
      "<p class=\"p2\">Japanese: <span class=\"s4\">日本</span> – Hindi: नमस्ते"
      "</p>\n");
}

}  // namespace
}  // namespace tovrin
