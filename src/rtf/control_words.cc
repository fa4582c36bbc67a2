#include "rtf/control_words.h"

#include <algorithm>
#include <array>

#include "rtf/html_writer.h"

namespace tovrin::rtf {
namespace {

constexpr auto kKeywords = [] {
  auto k = std::to_array<Keyword>({
      // Destinations whose content never reaches the output.
      {"aftncn", Kw::kSkipDestination, 0},
      {"aftnsep", Kw::kSkipDestination, 0},
      {"aftnsepc", Kw::kSkipDestination, 0},
      {"annotation", Kw::kSkipDestination, 0},
      {"atnauthor", Kw::kSkipDestination, 0},
      {"atndate", Kw::kSkipDestination, 0},
      {"atnicn", Kw::kSkipDestination, 0},
      {"atnid", Kw::kSkipDestination, 0},
      {"atnref", Kw::kSkipDestination, 0},
      {"atntime", Kw::kSkipDestination, 0},
      {"atrfend", Kw::kSkipDestination, 0},
      {"atrfstart", Kw::kSkipDestination, 0},
      {"author", Kw::kSkipDestination, 0},
      {"bkmkend", Kw::kSkipDestination, 0},
      {"bkmkstart", Kw::kSkipDestination, 0},
      {"category", Kw::kSkipDestination, 0},
      {"colorschememapping", Kw::kSkipDestination, 0},
      {"comment", Kw::kSkipDestination, 0},
      {"company", Kw::kSkipDestination, 0},
      {"datastore", Kw::kSkipDestination, 0},
      {"do", Kw::kSkipDestination, 0},
      {"doccomm", Kw::kSkipDestination, 0},
      {"docvar", Kw::kSkipDestination, 0},
      {"falt", Kw::kSkipDestination, 0},
      {"fchars", Kw::kSkipDestination, 0},
      {"filetbl", Kw::kSkipDestination, 0},
      {"footer", Kw::kSkipDestination, 0},
      {"footerf", Kw::kSkipDestination, 0},
      {"footerl", Kw::kSkipDestination, 0},
      {"footerr", Kw::kSkipDestination, 0},
      {"footnote", Kw::kSkipDestination, 0},
      {"ftncn", Kw::kSkipDestination, 0},
      {"ftnsep", Kw::kSkipDestination, 0},
      {"ftnsepc", Kw::kSkipDestination, 0},
      {"generator", Kw::kSkipDestination, 0},
      {"header", Kw::kSkipDestination, 0},
      {"headerf", Kw::kSkipDestination, 0},
      {"headerl", Kw::kSkipDestination, 0},
      {"headerr", Kw::kSkipDestination, 0},
      {"info", Kw::kSkipDestination, 0},
      {"keywords", Kw::kSkipDestination, 0},
      {"latentstyles", Kw::kSkipDestination, 0},
      {"lchars", Kw::kSkipDestination, 0},
      {"listoverridetable", Kw::kSkipDestination, 0},
      {"listpicture", Kw::kSkipDestination, 0},
      {"listtable", Kw::kSkipDestination, 0},
      {"manager", Kw::kSkipDestination, 0},
      {"mmathPr", Kw::kSkipDestination, 0},
      {"nonshppict", Kw::kSkipDestination, 0},
      {"objdata", Kw::kSkipDestination, 0},
      {"object", Kw::kSkipDestination, 0},
      {"operator", Kw::kSkipDestination, 0},
      {"panose", Kw::kSkipDestination, 0},
      {"pgdsctbl", Kw::kSkipDestination, 0},
      {"pict", Kw::kSkipDestination, 0},
      {"pn", Kw::kSkipDestination, 0},
      {"pnseclvl", Kw::kSkipDestination, 0},
      {"protusertbl", Kw::kSkipDestination, 0},
      {"revtbl", Kw::kSkipDestination, 0},
      {"rsidtbl", Kw::kSkipDestination, 0},
      {"shp", Kw::kSkipDestination, 0},
      {"shpinst", Kw::kSkipDestination, 0},
      {"stylesheet", Kw::kSkipDestination, 0},
      {"subject", Kw::kSkipDestination, 0},
      {"tc", Kw::kSkipDestination, 0},
      {"tcn", Kw::kSkipDestination, 0},
      {"template", Kw::kSkipDestination, 0},
      {"themedata", Kw::kSkipDestination, 0},
      {"title", Kw::kSkipDestination, 0},
      {"userprops", Kw::kSkipDestination, 0},
      {"wgrffmtfilter", Kw::kSkipDestination, 0},
      {"xe", Kw::kSkipDestination, 0},
      {"xmlnstbl", Kw::kSkipDestination, 0},
      // Tables and document settings.
      {"fonttbl", Kw::kFontTable, 0},
      {"colortbl", Kw::kColorTable, 0},
      {"ansi", Kw::kAnsi, 0},
      {"mac", Kw::kMac, 0},
      {"pc", Kw::kPc, 0},
      {"pca", Kw::kPca, 0},
      {"ansicpg", Kw::kAnsiCodePage, 0},
      {"deff", Kw::kDefaultFont, 0},
      {"f", Kw::kFont, 0},
      {"fcharset", Kw::kFontCharset, 0},
      {"cpg", Kw::kFontCodePage, 0},
      {"red", Kw::kRed, 0},
      {"green", Kw::kGreen, 0},
      {"blue", Kw::kBlue, 0},
      // Fields and attachments.
      {"field", Kw::kField, 0},
      {"fldinst", Kw::kFieldInstruction, 0},
      {"fldrslt", Kw::kFieldResult, 0},
      {"NeXTGraphic", Kw::kAttachment, 0},
      // Paragraphs.
      {"par", Kw::kPar, 0},
      {"line", Kw::kLine, 0},
      {"tab", Kw::kTab, 0},
      {"page", Kw::kSoftBreak, 0},
      {"sect", Kw::kSoftBreak, 0},
      {"row", Kw::kSoftBreak, 0},
      {"nestrow", Kw::kSoftBreak, 0},
      {"cell", Kw::kCell, 0},
      {"nestcell", Kw::kCell, 0},
      {"pard", Kw::kPard, 0},
      {"ql", Kw::kAlign, static_cast<int>(Align::kLeft)},
      {"qc", Kw::kAlign, static_cast<int>(Align::kCenter)},
      {"qr", Kw::kAlign, static_cast<int>(Align::kRight)},
      {"qj", Kw::kAlign, static_cast<int>(Align::kJustify)},
      {"qd", Kw::kAlign, static_cast<int>(Align::kJustify)},
      // Character formatting.
      {"plain", Kw::kPlain, 0},
      {"b", Kw::kBold, 0},
      {"i", Kw::kItalic, 0},
      {"ul", Kw::kUnderline, 0},
      {"uld", Kw::kUnderline, 0},
      {"uldash", Kw::kUnderline, 0},
      {"uldashd", Kw::kUnderline, 0},
      {"uldashdd", Kw::kUnderline, 0},
      {"uldb", Kw::kUnderline, 0},
      {"ulhwave", Kw::kUnderline, 0},
      {"ulldash", Kw::kUnderline, 0},
      {"ulth", Kw::kUnderline, 0},
      {"ulthd", Kw::kUnderline, 0},
      {"ulthdash", Kw::kUnderline, 0},
      {"ulthdashd", Kw::kUnderline, 0},
      {"ulthdashdd", Kw::kUnderline, 0},
      {"ulthldash", Kw::kUnderline, 0},
      {"ululdbwave", Kw::kUnderline, 0},
      {"ulw", Kw::kUnderline, 0},
      {"ulwave", Kw::kUnderline, 0},
      {"ulnone", Kw::kUnderlineNone, 0},
      {"strike", Kw::kStrike, 0},
      {"striked", Kw::kStrike, 0},
      {"cf", Kw::kColor, 0},
      {"fs", Kw::kFontSize, 0},
      {"v", Kw::kHidden, 0},
      {"uc", Kw::kUnicodeSkip, 0},
      {"u", Kw::kUnicode, 0},
      // Special characters.
      {"bullet", Kw::kChar, 0x2022},
      {"emdash", Kw::kChar, 0x2014},
      {"endash", Kw::kChar, 0x2013},
      {"emspace", Kw::kChar, 0x2003},
      {"enspace", Kw::kChar, 0x2002},
      {"qmspace", Kw::kChar, 0x2005},
      {"lquote", Kw::kChar, 0x2018},
      {"rquote", Kw::kChar, 0x2019},
      {"ldblquote", Kw::kChar, 0x201C},
      {"rdblquote", Kw::kChar, 0x201D},
      {"zwj", Kw::kChar, 0x200D},
      {"zwnj", Kw::kChar, 0x200C},
  });
  std::sort(k.begin(), k.end(),
            [](const Keyword& a, const Keyword& b) { return a.name < b.name; });
  return k;
}();

static_assert(std::adjacent_find(kKeywords.begin(), kKeywords.end(),
                                 [](const Keyword& a, const Keyword& b) {
                                   return a.name == b.name;
                                 }) == kKeywords.end(),
              "duplicate control word");

}  // namespace

const Keyword* findKeyword(std::string_view name) {
  const auto it = std::lower_bound(
      kKeywords.begin(), kKeywords.end(), name,
      [](const Keyword& k, std::string_view n) { return k.name < n; });
  if (it == kKeywords.end() || it->name != name) return nullptr;
  return &*it;
}

}  // namespace tovrin::rtf
