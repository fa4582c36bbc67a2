#include "rtf/rtf_to_html.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace tovrin::rtf {
namespace {

const std::string kBad = "\uFFFD", kT = "<span class=\"Apple-tab-span\">\t</span>",
                  kP = "<p class=\"p1\">";

/// What lies between `open` and `close` in the HTML of `rtf`.
std::string between(std::string_view rtf, std::string_view open,
                    std::string_view close) {
  const std::string html = convertRtfToHtml(rtf).value_or("");
  const size_t start = html.find(open);
  const size_t end = html.find(close, start);
  if (start == std::string::npos || end == std::string::npos) {
    ADD_FAILURE() << "missing " << open << " in the HTML of " << rtf << ":\n" << html;
    return {};
  }
  return html.substr(start + open.size(), end - start - open.size());
}

/// Converts a whole RTF document and returns what is inside <body>.
std::string bodyOf(std::string_view rtf) { return between(rtf, "<body>\n", "</body>\n"); }

/// Converts a whole RTF document and returns the rules of its <style>.
std::string styleOf(std::string_view rtf) {
  return between(rtf, "<style type=\"text/css\">\n", "</style>\n");
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
  const std::string kClose = "</p>\n";
  if (!body.starts_with(kP) || !body.ends_with(kClose) ||
      body.size() < kP.size() + kClose.size() || body.find("<p", 1) != std::string::npos) {
    ADD_FAILURE() << "not a single paragraph: " << body;
    return body;
  }
  return body.substr(kP.size(), body.size() - kP.size() - kClose.size());
}

std::string readSample(const std::string& name) {
  std::ifstream file(std::string(TOVRIN_SOURCE_DIR) + "/tests/rtf_samples/" + name,
                     std::ios::binary);
  EXPECT_TRUE(file.good()) << "cannot open " << name;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string link(std::string_view instruction, std::string_view result) {
  return "{\\field{\\*\\fldinst{" + std::string(instruction) + "}}{\\fldrslt " +
         std::string(result) + "}}";
}

std::string para(std::string_view style) {
  return "p." + std::string(style) + " {margin: 0.0px 0.0px 0.0px 0.0px; ";
}

struct Row {
  std::string rtf;
  std::string html;
};

// One paragraph of a minimal Helvetica document: the paragraph's content.
TEST(RtfToHtmlTextTest, ConvertsTheContentOfOneParagraph) {
  const Row rows[] = {
      // Control symbols, named characters; unknown controls print nothing.
      {"a\\~b\\-c\\_d\\{\\}\\\\", "a\u00a0bc\u2011d{}\\"},
      {"\\emdash\\endash\\lquote\\rquote\\ldblquote\\rdblquote\\bullet",
       "\u2014\u2013\u2018\u2019\u201C\u201D\u2022"},
      {"a\\foo12 b\\|c\\:d", "abcd"},
      // One space after a control word is its delimiter.
      {"a\\b  b\\b0 c\\b1x\\b-1y\\b0", "a<b> b</b>c<b>xy</b>"},
      {"shown{\\v hidden\\tab\\line}\\v gone\\v0  back", "shown back"},
      // Only markup characters are escaped.
      {"a < b > c & d \"q\" 'x' / = ;", "a &lt; b &gt; c &amp; d \"q\" 'x' / = ;"},
      {"\\'3c\\'26\\u62?", "&lt;&amp;&gt;"},
      // \u and its fallback characters, counted by \uc in its group; a
      // control word counts as one and skipping stops at a group boundary.
      {"\\u233?x", "éx"},
      {"\\u233  x", "éx"},
      {"\\uc0\\u233 x", "éx"},
      {"\\uc2\\u233\\'65\\'3fx", "éx"},
      {"\\uc2\\u233\\emdash ?x", "éx"},
      {"\\uc3\\u233 ab{c}d", "écd"},
      {"{\\uc0 \\u233 x}\\u233 y", "éxé"},
      {"\\u-1279?", "\uFB01"},
      {"\\uc1\\u-10179?\\u-8704?!", "\U0001F600!"},
      {"\\u55357?x", kBad + "x"},
      {"a\\u56832?b", "a" + kBad + "b"},
      {"\\u55357?\\u55357?\\u56832?", kBad + "\U0001F600"},
      // Fields: hyperlinks become anchors, other fields show their result.
      {link("HYPERLINK \"https://a.example/x y\"", "a"),
       "<a href=\"https://a.example/x y\">a</a>"},
      {link("HYPERLINK http://b.example/?q=\"x\"&y=<2>", "b"),
       "<a href=\"http://b.example/?q=&quot;x&quot;&amp;y=&lt;2&gt;\">b</a>"},
      {link(" hyperlink \\\\l \"sec2\" ", "c"), "<a href=\"#sec2\">c</a>"},
      {link("HYPERLINK \"https://d.example/\" \\\\o \"tip\"", "d"),
       "<a href=\"https://d.example/\">d</a>"},
      // Word doubles backslashes inside quoted field arguments.
      {link("HYPERLINK \"C:\\\\\\\\docs\\\\\\\\a.doc\"", "e"),
       "<a href=\"C:\\docs\\a.doc\">e</a>"},
      {"{\\field{\\*\\fldinst {HYPER}{LINK \"http://f/\\u233?\"}{\\*\\datafield 00ff}}"
       "{\\fldrslt {\\b f}}}",
       "<a href=\"http://f/é\"><b>f</b></a>"},
      {'p' + link(" PAGE ", "3") + ".", "p3."},
      {"a{\\field{\\*\\fldinst DATE}}b", "ab"},
      {link("HYPERLINK \"\"", "x"), "x"},
      // Attachments and their placeholder character are skipped.
      {"a{{\\NeXTGraphic a.png \\width10 \\height10\n}\\'ac}b"
       "{{\\NeXTGraphic b.png}\\uc0\\u65532 }c\\'ac",
       "abc¬"},
      // Tabs, line breaks (Cocoa's LINE SEPARATOR too), table cells.
      {"a\\tab b\\line c\td", "a" + kT + "b<br>\nc" + kT + "d"},
      {"{\\b x\\tab y\\line z}", "<b>x" + kT + "y<br>\nz</b>"},
      {"a\\uc0\\u8232 b", "a<br>\nb"},
      // Bold and italic nest properly across groups.
      {"{\\b a{\\i b}c}d", "<b>a<i>b</i>c</b>d"},
      {"{\\i a{\\b b}c}", "<i>a</i><b><i>b</i></b><i>c</i>"},
      {"\\b a\\i b\\b0 c\\i0 d", "<b>a<i>b</i></b><i>c</i>d"},
      {"{\\b}{\\i}x{\\b }", "x"},
      {"\\b\\i\\ul a\\plain b", "<b><i><span class=\"s1\">a</span></i></b>b"},
      // The document's code page, 1252 here; 0x81 is unassigned in it.
      {"caf\\'e9 \\'80\\'85 caf\xe9", "café €… café"},
      {"a\\'81b", "a" + kBad + "b"},
  };
  for (const Row& row : rows) EXPECT_EQ(inlineOf(row.rtf), row.html) << row.rtf;
}

// Whole documents (a minimal Helvetica one around content that does not
// start one): the paragraphs of the body.
TEST(RtfToHtmlDocumentTest, ConvertsTheParagraphsOfTheBody) {
  const std::string fonts =  // All share a name so that no font spans appear.
      "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fcharset0 X;}{\\f1\\fcharset204 X;}"
      "{\\f2\\fcharset128 X;}{\\f3\\fcharset1 X;}{\\f4\\cpg1253 X;}}\\f0 ";
  const Row rows[] = {
      {" \r\n\t{\\rtf1 hi}", kP + "hi</p>\n"},
      // Raw line breaks are ignored, escaped ones end paragraphs.
      {"one\r\ntwo\nthree\\\nfour\\\r\nfive",
       kP + "onetwothree</p>\n" + kP + "four</p>\n" + kP + "five</p>\n"},
      {"\\u55357?\\par x", kP + kBad + "</p>\n" + kP + "x</p>\n"},
      // Links wrap formatting and reopen after breaks.
      {link("HYPERLINK \"u\"", "a{\\b b}\\line c\\par d") + "e" +
           link("HYPERLINK \"v\"", "f") + link("HYPERLINK \"w\"", "g"),
       kP + "<a href=\"u\">a<b>b</b><br>\nc</a></p>\n" + kP +
           "<a href=\"u\">d</a>e<a href=\"v\">f</a><a href=\"w\">g</a></p>\n"},
      // Destinations that hold no text are skipped.
      {"{\\rtf1\\ansi{\\fonttbl\\f0 Helvetica;}{\\stylesheet{\\s1 Heading;}}"
       "{\\info{\\title T}{\\author A}}{\\*\\generator Gen;}{\\*\\unknown stuff {nested}}"
       "{\\header h}{\\headerl h}{\\headerr h}{\\headerf h}{\\footer f}{\\footerl f}"
       "{\\footerr f}{\\footerf f}{\\*\\themedata 504b}{\\*\\colorschememapping 3c}"
       "{\\*\\datastore 01}{\\*\\latentstyles{\\lsdlockedexcept Normal;}}"
       "{\\*\\listtable{\\list{\\listname ;}}}{\\*\\listoverridetable}"
       "{\\*\\rsidtbl \\rsid1}{\\*\\xmlnstbl {\\xmlns1 x}}{\\mmathPr\\mmathFont34}"
       "\\f0 a{\\footnote note}b{\\pict\\pngblip 89504e47}c{\\object{\\*\\objdata 01}"
       "{\\result r}}d{\\*\\bkmkstart x}e{\\*\\fldinst stray}f}",
       kP + "abcdef</p>\n"},
      // Binary data (here with braces, a backslash and a NUL) is skipped.
      {std::string("a{\\pict\\bin6 ") + std::string("}{\\\0\x01{", 6) +
           "}b\\bin3 xyzc\\u233\\bin2 xyd",
       kP + "abcéd</p>\n"},
      {"a\\bin99999 xyz", kP + "a</p>\n"},
      // Missing closing braces, text after the document's end, truncated
      // and oversized controls.
      {"{\\rtf1 {\\b bold{\\i both", kP + "<b>bold<i>both</i></b></p>\n"},
      {"{\\rtf1 a}}} b{", kP + "a</p>\n"},
      {std::string("{\\rtf1 a}\0", 10), kP + "a</p>\n"},
      {"{\\rtf1 a\\", kP + "a</p>\n"},
      {"{\\rtf1 a\\'4", kP + "a</p>\n"},
      {"{\\rtf1 a\\u", kP + "a</p>\n"},
      {"{\\rtf1 a\\'zz}", kP + "azz</p>\n"},
      // Deep nesting does not exhaust the stack, and formatting outside the
      // deep groups survives them.
      {"{\\rtf1 " + std::string(100000, '{') + "deep", kP + "deep</p>\n"},
      {"{\\rtf1 {\\b " + std::string(1000000, '{') + "x" + std::string(1000000, '}') +
           "y} z}",
       kP + "<b>xy</b> z</p>\n"},
      // Beyond the depth cap, groups no longer scope formatting.
      {"{\\rtf1 " + std::string(1100, '{') + "{\\b x}y", kP + "<b>xy</b></p>\n"},
      // The final paragraph is written only with content.
      {"a\\par", kP + "a</p>\n"},
      {"a\\par b", kP + "a</p>\n" + kP + "b</p>\n"},
      {"a\\par {\\v hidden}", kP + "a</p>\n"},
      {"a\\page b\\sect\\page c", kP + "a</p>\n" + kP + "b</p>\n" + kP + "c</p>\n"},
      {"\\trowd\\cellx100\\cellx200\\intbl A\\cell B\\cell\\row after",
       kP + "A" + kT + "B</p>\n" + kP + "after</p>\n"},
      // Code pages: the document's, and a font's charset or code page.
      {"{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8}", kP + "При</p>\n"},
      {"{\\rtf1\\mac \\'8e\\'a5}", kP + "é•</p>\n"},
      {"{\\rtf1\\pc \\'82}", kP + "é</p>\n"},
      {"{\\rtf1\\pca \\'9b}", kP + "ø</p>\n"},
      {fonts + "\\'e9 {\\f1 \\'cf\\'f0\\'e8\\'e2\\'e5\\'f2} {\\f3\\'e9} {\\f4\\'e1}}",
       kP + "é Привет é α</p>\n"},
      // Shift_JIS: bytes are decoded in pairs, also across raw line breaks,
      // and a trail byte may be a plain character or even a brace-free
      // symbol; a lead byte without its trail byte is invalid.
      {fonts + "\\f2 \\'93\\'fa\\'96\\'7b\\'8c\r\n\\'ea \\'83\\'5c\\'82a}",
       kP + "日本語 ソＢ</p>\n"},
      {fonts + "\\f2 \\'93}", kP + kBad + "</p>\n"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(bodyOf(row.rtf.starts_with("{\\rtf1") || row.rtf.starts_with(" ")
                         ? row.rtf
                         : doc(row.rtf)),
              row.html)
        << row.rtf.substr(0, 200);
  }
}

TEST(RtfToHtmlDocumentTest, RejectsWhatIsNoRtfDocument) {
  // A byte-order mark is not white space.
  for (const char* text : {"", " \r\n\t", "plain text", "{\\rt", "{\\RTF1 x}", "x{\\rtf1 x}",
                           "<p>{\\rtf1 x}</p>", "\xEF\xBB\xBF{\\rtf1 x}"}) {
    EXPECT_EQ(convertRtfToHtml(text), std::nullopt) << text;
  }
  const std::string empty = "{\\rtf1\\ansi{\\fonttbl\\f0 A;}}";
  EXPECT_EQ(styleOf(empty), "");
  EXPECT_EQ(bodyOf(empty), "");
}

// The style rules: paragraph classes in order of use, span classes for
// decoration, colour and font.
TEST(RtfToHtmlStyleTest, ParagraphAndSpanClasses) {
  const std::string font = "font: 12.0px Helvetica";
  const Row rows[] = {
      // Empty paragraphs keep their line height.
      {doc("\\par\\fs36 \\par one\\par\\par\\fs20 two"),
       para("p1") + font + "; min-height: 14.0px}\n" + para("p2") +
           "font: 18.0px Helvetica; min-height: 22.0px}\n" + para("p3") +
           "font: 18.0px Helvetica}\n" + para("p4") + "font: 10.0px Helvetica}\n"},
      {doc("\\qc c\\par\\pard l\\par\\qr r\\par\\qj j\\par\\ql l2\\par{\\qc c2\\par}l3\\qr\\par"),
       para("p1") + "text-align: center; " + font + "}\n" + para("p2") + font + "}\n" +
           para("p3") + "text-align: right; " + font + "}\n" + para("p4") +
           "text-align: justify; " + font + "}\n"},
      {"{\\rtf1\\ansi{\\fonttbl{\\f0\\fswiss Helvetica;}{\\f1\\froman Times New Roman;}}"
       "{\\colortbl;\\red255\\green0\\blue0;\\red0\\green128\\blue255;}"
       "\\f0\\fs24 {\\ul u}{\\strike s}{\\ul\\strike us}{\\uldb d}{\\ulw w\\ulnone n}"
       "{\\striked1 x\\striked0 y}{\\cf1 red}{\\cf2\\ul blue}{\\cf9 none}{\\cf0 auto}"
       "{\\f1 times}{\\fs30 big}{\\ul u2}}",
       para("p1") + font + "}\nspan.s1 {text-decoration: underline}\n"
           "span.s2 {text-decoration: line-through}\n"
           "span.s3 {text-decoration: underline line-through}\nspan.s4 {color: #ff0000}\n"
           "span.s5 {text-decoration: underline; color: #0080ff}\n"
           "span.s6 {font: 12.0px 'Times New Roman'}\nspan.s7 {font: 15.0px Helvetica}\n"},
      // Font names are sanitised for CSS and decoded in their charset;
      // unknown fonts and empty names fall back to Helvetica.
      {"{\\rtf1{\\fonttbl{\\f0 Bad'\\}</style>\\{Name;}}\\f0 x}",
       para("p1") + "font: 12.0px 'Bad/styleName'}\n"},
      {"{\\rtf1{\\fonttbl{\\f0 ;}}\\f0 x\\par\\f7 y}", para("p1") + font + "}\n"},
      {"{\\rtf1\\ansi{\\fonttbl{\\f0\\fnil\\fcharset128 \\'82\\'6c\\'82\\'72 "
       "\\'83\\'53\\'83\\'56\\'83\\'62\\'83\\'4e;}}\\f0 x}",
       para("p1") + "font: 12.0px 'ＭＳ ゴシック'}\n"},
      {"{\\rtf1 \\fs99999999999999999999 x\\u99999999999 y\\cf-5 z}",
       para("p1") + "font: 1638.0px Helvetica}\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(styleOf(row.rtf), row.html) << row.rtf;
  EXPECT_EQ(bodyOf(rows[6].rtf), kP + "x" + kBad + "z</p>\n");
  const std::string spans = bodyOf(rows[2].rtf);
  EXPECT_EQ(spans,
            kP + "<span class=\"s1\">u</span><span class=\"s2\">s</span>"
                 "<span class=\"s3\">us</span><span class=\"s1\">dw</span>n"
                 "<span class=\"s2\">x</span>y<span class=\"s4\">red</span>"
                 "<span class=\"s5\">blue</span>noneauto<span class=\"s6\">times</span>"
                 "<span class=\"s7\">big</span><span class=\"s1\">u2</span></p>\n");
  EXPECT_EQ(bodyOf(rows[0].rtf), "<p class=\"p1\"><br></p>\n<p class=\"p2\"><br></p>\n"
                                 "<p class=\"p3\">one</p>\n<p class=\"p2\"><br></p>\n"
                                 "<p class=\"p4\">two</p>\n");
  EXPECT_EQ(bodyOf(rows[1].rtf),
            "<p class=\"p1\">c</p>\n<p class=\"p2\">l</p>\n<p class=\"p3\">r</p>\n"
            "<p class=\"p4\">j</p>\n<p class=\"p2\">l2</p>\n<p class=\"p1\">c2</p>\n"
            "<p class=\"p3\">l3</p>\n");
}

// Whole documents, frame and all: what TextEdit, Word and LibreOffice put
// on the clipboard, each beside the HTML it converts to.
TEST(RtfToHtmlSampleTest, ConvertsWholeDocuments) {
  for (const char* name : {"textedit", "word", "libreoffice"}) {
    EXPECT_EQ(convertRtfToHtml(readSample(std::string(name) + ".rtf")),
              readSample(std::string(name) + ".html"))
        << name;
  }
}

}  // namespace
}  // namespace tovrin::rtf
