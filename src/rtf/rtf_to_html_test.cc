#include "rtf/rtf_to_html.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "rtf/rtf_test_support.h"

namespace tovrin::rtf {
namespace {

std::string readSample(std::string_view name) {
  const std::string path = std::string(TOVRIN_SOURCE_DIR) +
                           "/tests/rtf_samples/" + std::string(name);
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << "cannot open " << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// ---- Whole documents ------------------------------------------------------

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
  // 'p' is a char because for a one-letter string in front of a temporary,
  // g++ 12 -O3 warns of an overlapping copy that cannot happen.
  EXPECT_EQ(inlineOf('p' + link(" PAGE ", "3") + "."), "p3.");
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
}  // namespace tovrin::rtf
