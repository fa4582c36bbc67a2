#include "rtf/rtf_to_html.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "text/text.h"

// The converter reads the RTF in a single pass. Group state lives on an
// explicit stack (never the call stack), text of the body is written into
// the current paragraph as it arrives, and inline tags are opened lazily
// when text needs them, so formatting that covers no text leaves no markup.
// A paragraph's class is settled when it ends, because alignment may be set
// anywhere before its \par. Classes are collected on the way and the
// <style> block is written in front of the body at the end.

namespace tovrin {
namespace {

/// Groups deeper than this share the state of the innermost group within
/// the limit, so hostile nesting cannot grow the state stack without bound.
constexpr size_t kMaxGroupDepth = 1000;
/// Longest font name kept, in bytes; longer names are cut.
constexpr size_t kMaxFontNameBytes = 64;
/// Raw bytes of a font name collected before decoding (a multibyte name
/// takes more raw bytes than it has characters).
constexpr size_t kMaxRawFontNameBytes = 4 * kMaxFontNameBytes;
/// Longest field instruction kept, in bytes; enough for any sane URL.
constexpr size_t kMaxFieldInstructionBytes = 2048;
/// How many times one link may be opened (it reopens after each paragraph
/// break or interruption). Keeps the output proportional to the input even
/// when a long URL covers many tiny pieces of text.
constexpr int kMaxLinkOpenings = 8;
/// Font size in half-points used when the document sets none (12 pt).
constexpr int kDefaultFontSize = 24;
constexpr int kMaxFontSize = 3276;
constexpr int kDefaultCodePage = 1252;
constexpr int kMaxUnicodeSkip = 255;
constexpr char32_t kReplacementChar = 0xFFFD;
constexpr std::string_view kTabSpan =
    "<span class=\"Apple-tab-span\">\t</span>";

enum class Kw : uint8_t {
  kSkipDestination,
  kFontTable,
  kColorTable,
  kAnsi,
  kMac,
  kPc,
  kPca,
  kAnsiCodePage,
  kDefaultFont,
  kFont,
  kFontCharset,
  kFontCodePage,
  kRed,
  kGreen,
  kBlue,
  kField,
  kFieldInstruction,
  kFieldResult,
  kAttachment,
  kPar,
  kLine,
  kTab,
  kSoftBreak,  // \page, \sect, \row: end a paragraph that has content
  kCell,
  kPard,
  kAlign,
  kPlain,
  kBold,
  kItalic,
  kUnderline,
  kUnderlineNone,
  kStrike,
  kColor,
  kFontSize,
  kHidden,
  kUnicodeSkip,
  kUnicode,
  kChar,
};

enum class Align : uint8_t { kLeft, kCenter, kRight, kJustify };

struct Keyword {
  std::string_view name;
  Kw kw;
  int value;
};

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

const Keyword* findKeyword(std::string_view name) {
  const auto it = std::lower_bound(
      kKeywords.begin(), kKeywords.end(), name,
      [](const Keyword& k, std::string_view n) { return k.name < n; });
  if (it == kKeywords.end() || it->name != name) return nullptr;
  return &*it;
}

/// Byte classes used by the scanning loops.
constexpr std::array<bool, 256> kPlainText = [] {
  std::array<bool, 256> t{};
  for (int c = 0x20; c < 0x7F; ++c) t[c] = true;
  t['\\'] = t['{'] = t['}'] = false;
  return t;
}();

constexpr std::array<bool, 256> kNeedsEscape = [] {
  std::array<bool, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = true;
  t['<'] = t['>'] = t['&'] = true;
  return t;
}();

bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Writes `cp` as UTF-8 into `out` (room for 4 bytes); returns the length.
size_t encodeUtf8(char32_t cp, char* out) {
  if (cp < 0x80) {
    out[0] = static_cast<char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return 4;
}

/// Appends `text` with `<`, `>` and `&` escaped; C0 control characters are
/// dropped because tabs and breaks are emitted as markup of their own.
void appendEscaped(std::string& out, std::string_view text) {
  size_t start = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (!kNeedsEscape[c]) continue;
    out.append(text.substr(start, i - start));
    if (c == '<') {
      out.append("&lt;");
    } else if (c == '>') {
      out.append("&gt;");
    } else if (c == '&') {
      out.append("&amp;");
    }
    start = i + 1;
  }
  out.append(text.substr(start));
}

/// Escapes a value for a double-quoted HTML attribute.
std::string escapeAttribute(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '"':
        out.append("&quot;");
        break;
      case '&':
        out.append("&amp;");
        break;
      case '<':
        out.append("&lt;");
        break;
      case '>':
        out.append("&gt;");
        break;
      default:
        if (static_cast<unsigned char>(c) >= 0x20) out.push_back(c);
    }
  }
  return out;
}

/// Maps an RTF \fcharset value to a Windows code page; 0 means "use the
/// document's code page".
int codePageForCharset(int charset) {
  // clang-format off
  switch (charset) {
    case 0: return 1252;    // ANSI
    case 2: return 1252;    // Symbol: glyph numbers, read as Latin text
    case 77: return 10000;  // Mac Roman
    case 78: return 10001;  // Mac Japanese
    case 79: return 10003;  // Mac Korean
    case 80: return 10008;  // Mac Simplified Chinese
    case 81: return 10002;  // Mac Traditional Chinese
    case 89: return 10007;  // Mac Cyrillic
    case 128: return 932;   // Shift_JIS
    case 129: return 949;   // Hangul
    case 130: return 1361;  // Johab
    case 134: return 936;   // GBK
    case 136: return 950;   // Big5
    case 161: return 1253;  // Greek
    case 162: return 1254;  // Turkish
    case 163: return 1258;  // Vietnamese
    case 177: return 1255;  // Hebrew
    case 178: return 1256;  // Arabic
    case 186: return 1257;  // Baltic
    case 204: return 1251;  // Cyrillic
    case 222: return 874;   // Thai
    case 238: return 1250;  // Eastern European
    case 254: return 437;   // PC 437
    case 255: return 437;   // OEM
    default: return 0;
  }
  // clang-format on
}

/// glibc iconv name of a Windows code page, or nullptr when unsupported.
const char* iconvName(int code_page) {
  // clang-format off
  switch (code_page) {
    case 437: return "IBM437";
    case 850: return "IBM850";
    case 874: return "CP874";
    case 932: return "CP932";
    case 936: return "CP936";
    case 949: return "CP949";
    case 950: return "CP950";
    case 1250: return "CP1250";
    case 1251: return "CP1251";
    case 1252: return "CP1252";
    case 1253: return "CP1253";
    case 1254: return "CP1254";
    case 1255: return "CP1255";
    case 1256: return "CP1256";
    case 1257: return "CP1257";
    case 1258: return "CP1258";
    case 1361: return "JOHAB";
    case 10000: return "MACINTOSH";
    case 10001: return "SHIFT_JIS";
    case 10002: return "BIG5";
    case 10003: return "EUC-KR";
    case 10007: return "MAC-CYRILLIC";
    case 10008: return "GB2312";
    case 20127: return "ASCII";
    case 20866: return "KOI8-R";
    case 28591: return "ISO-8859-1";
    case 28592: return "ISO-8859-2";
    case 28595: return "ISO-8859-5";
    case 28597: return "ISO-8859-7";
    case 28605: return "ISO-8859-15";
    case 65001: return "UTF-8";
    default: return nullptr;
  }
  // clang-format on
}

/// Code pages where a byte below 0x80 may be the second half of a character.
bool isMultiByte(int code_page) {
  switch (code_page) {
    case 932:
    case 936:
    case 949:
    case 950:
    case 1361:
    case 10001:
    case 10002:
    case 10003:
    case 10008:
      return true;
    default:
      return false;
  }
}

/// Decodes code-page bytes to UTF-8 through iconv, keeping one descriptor
/// per code page for the lifetime of a single conversion.
class CodePageDecoder {
 public:
  CodePageDecoder() = default;
  CodePageDecoder(const CodePageDecoder&) = delete;
  CodePageDecoder& operator=(const CodePageDecoder&) = delete;
  ~CodePageDecoder() {
    for (const Entry& e : entries_) {
      if (e.descriptor != noDescriptor()) iconv_close(e.descriptor);
    }
  }

  /// Appends the UTF-8 form of `bytes` to `out`; bytes that are invalid in
  /// `code_page` become U+FFFD. Unknown code pages are read as 1252.
  void decode(int code_page, std::string_view bytes, std::string& out) {
    // Unknown code pages share one descriptor, which keeps entries_ short
    // whatever numbers a document throws at us.
    if (iconvName(code_page) == nullptr) code_page = kDefaultCodePage;
    iconv_t cd = descriptorFor(code_page);
    if (cd == noDescriptor()) cd = descriptorFor(kDefaultCodePage);
    if (cd == noDescriptor()) {
      // Without iconv's tables (e.g. a static build) Latin-1 is the best
      // guess that still yields valid UTF-8.
      char buffer[4];
      for (const char b : bytes) {
        out.append(buffer, encodeUtf8(static_cast<unsigned char>(b), buffer));
      }
      return;
    }
    char* in = const_cast<char*>(bytes.data());
    size_t in_left = bytes.size();
    size_t used = out.size();
    out.resize(used + in_left * 3 + 8);
    while (in_left > 0) {
      char* dst = out.data() + used;
      size_t dst_left = out.size() - used;
      const size_t result = iconv(cd, &in, &in_left, &dst, &dst_left);
      used = out.size() - dst_left;
      if (result != static_cast<size_t>(-1)) break;
      if (errno == E2BIG) {
        out.resize(out.size() * 2);
        continue;
      }
      // An invalid or truncated sequence: give up on one byte and resync.
      if (out.size() - used < 8) out.resize(out.size() + in_left * 3 + 8);
      std::memcpy(out.data() + used, "\xEF\xBF\xBD", 3);
      used += 3;
      ++in;
      --in_left;
    }
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    out.resize(used);
  }

 private:
  struct Entry {
    int code_page;
    iconv_t descriptor;
  };

  static iconv_t noDescriptor() {
    return reinterpret_cast<iconv_t>(static_cast<intptr_t>(-1));
  }

  iconv_t descriptorFor(int code_page) {
    for (const Entry& e : entries_) {
      if (e.code_page == code_page) return e.descriptor;
    }
    const char* name = iconvName(code_page);
    const iconv_t cd = name ? iconv_open("UTF-8", name) : noDescriptor();
    entries_.push_back({code_page, cd});
    return cd;
  }

  std::vector<Entry> entries_;
};

/// Numbered CSS classes, each distinct declaration list getting the next
/// number on first use.
class StyleClasses {
 public:
  /// Returns the 1-based class number for `css`, adding it when new.
  int idFor(std::string css) {
    const auto [it, inserted] =
        ids_.try_emplace(std::move(css), static_cast<int>(order_.size()) + 1);
    if (inserted) order_.push_back(&it->first);
    return it->second;
  }

  /// Declaration lists in class-number order.
  const std::vector<const std::string*>& inOrder() const { return order_; }

 private:
  std::unordered_map<std::string, int> ids_;
  std::vector<const std::string*> order_;  // points at keys of ids_
};

/// Extracts the target of a HYPERLINK field instruction, e.g.
/// `HYPERLINK "https://x/" \o "tip"` or `HYPERLINK \l "anchor"`.
std::optional<std::string> hyperlinkTarget(std::string_view inst) {
  size_t pos = 0;
  const auto skipSpace = [&] {
    while (pos < inst.size() && (inst[pos] == ' ' || inst[pos] == '\t' ||
                                 inst[pos] == '\r' || inst[pos] == '\n')) {
      ++pos;
    }
  };
  // A quoted argument may contain spaces; Word doubles backslashes in it.
  const auto readArgument = [&] {
    std::string arg;
    if (pos < inst.size() && inst[pos] == '"') {
      ++pos;
      while (pos < inst.size() && inst[pos] != '"') {
        if (inst[pos] == '\\' && pos + 1 < inst.size() &&
            (inst[pos + 1] == '\\' || inst[pos + 1] == '"')) {
          ++pos;
        }
        arg.push_back(inst[pos++]);
      }
      if (pos < inst.size()) ++pos;
    } else {
      while (pos < inst.size() && inst[pos] != ' ' && inst[pos] != '\t' &&
             inst[pos] != '\r' && inst[pos] != '\n') {
        arg.push_back(inst[pos++]);
      }
    }
    return arg;
  };

  skipSpace();
  constexpr std::string_view kHyperlink = "HYPERLINK";
  if (inst.size() - pos < kHyperlink.size()) return std::nullopt;
  for (size_t i = 0; i < kHyperlink.size(); ++i) {
    const char c = inst[pos + i];
    if ((c & ~0x20) != kHyperlink[i]) return std::nullopt;
  }
  pos += kHyperlink.size();
  if (pos < inst.size() && inst[pos] != ' ' && inst[pos] != '"' &&
      inst[pos] != '\t') {
    return std::nullopt;
  }

  std::string url;
  std::string anchor;
  bool have_url = false;
  while (true) {
    skipSpace();
    if (pos >= inst.size()) break;
    if (inst[pos] == '\\' && pos + 1 < inst.size() &&
        isAsciiLetter(inst[pos + 1])) {
      const char which = inst[pos + 1];
      pos += 2;
      while (pos < inst.size() && isAsciiLetter(inst[pos])) ++pos;
      // \l names a bookmark; \o (tooltip) and \t (target frame) carry an
      // argument of their own that is not the address.
      if (which == 'l') {
        skipSpace();
        anchor = readArgument();
      } else if (which == 'o' || which == 't') {
        skipSpace();
        readArgument();
      }
      continue;
    }
    std::string arg = readArgument();
    if (!have_url) {
      url = std::move(arg);
      have_url = true;
    }
  }
  if (!anchor.empty()) url += "#" + anchor;
  if (url.empty()) return std::nullopt;
  return url;
}

/// Drops characters that could break out of a CSS declaration and quotes
/// the family name unless it is a plain identifier.
std::string cssFamily(std::string_view name) {
  std::string clean;
  for (const char c : name) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F) continue;
    if (std::string_view("'\"\\<>{};&").find(c) != std::string_view::npos) {
      continue;
    }
    clean.push_back(c);
  }
  const size_t first = clean.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  clean.erase(0, first);
  clean.erase(clean.find_last_not_of(' ') + 1);
  if (clean.size() > kMaxFontNameBytes) {
    size_t cut = kMaxFontNameBytes;
    // Never split a UTF-8 sequence.
    while (cut > 0 && (static_cast<unsigned char>(clean[cut]) & 0xC0) == 0x80) {
      --cut;
    }
    clean.resize(cut);
  }
  bool identifier = !clean.empty() && isAsciiLetter(clean[0]);
  for (const char c : clean) {
    if (!isAsciiLetter(c) && !isDigit(c) && c != '-') identifier = false;
  }
  if (identifier) return clean;
  return "'" + clean + "'";
}

std::string cssFontSize(int half_points) {
  return std::to_string(half_points / 2) + (half_points % 2 ? ".5" : ".0") +
         "px";
}

enum class Destination : uint8_t {
  kBody,
  kSkip,
  kFontTable,
  kColorTable,
  kFieldInstruction,
};

/// Everything an RTF group scopes.
struct GroupState {
  Destination destination = Destination::kBody;
  Align align = Align::kLeft;
  bool bold = false;
  bool italic = false;
  bool underline = false;
  bool strike = false;
  bool hidden = false;
  // Set by \*: the group is skipped unless its destination is one we read.
  bool starred = false;
  // Set after an attachment group: its placeholder character follows.
  bool drop_attachment = false;
  int font = -1;  // -1: the document's default font (\deff)
  int font_size = kDefaultFontSize;
  int color = 0;
  int unicode_skip = 1;
  int link = 0;         // 1-based index into links_, 0 for none
  int field_sink = -1;  // index into fields_ receiving instruction text
};

struct FontInfo {
  std::string family;  // CSS-ready; empty when the name was unusable
  int code_page = 0;   // 0: the document's code page
};

struct Field {
  size_t depth;
  std::string instruction;
  int link = -1;  // -1 until the result starts, then 0 or a link number
};

/// The inline tags currently open inside the paragraph, outermost first.
struct OpenTags {
  int link = 0;
  bool bold = false;
  bool italic = false;
  int span = 0;
  bool operator==(const OpenTags&) const = default;
};

struct SpanKey {
  bool underline;
  bool strike;
  int rgb;
  int font;
  int font_size;
  int para_font;
  int para_font_size;
  bool operator==(const SpanKey&) const = default;
};

class Converter {
 public:
  explicit Converter(std::string_view rtf) : in_(rtf) {}

  std::string run() {
    stack_.emplace_back();
    // Typical clipboard RTF yields about as much HTML as it holds bytes;
    // reserving that up front avoids repeated regrowth of a large buffer.
    body_.reserve(in_.size() + in_.size() / 4);
    while (pos_ < in_.size() && !finished_) {
      switch (in_[pos_]) {
        case '{':
          ++pos_;
          openGroup();
          break;
        case '}':
          ++pos_;
          closeGroup();
          break;
        case '\\':
          parseControl();
          break;
        case '\r':
        case '\n':
          ++pos_;
          break;
        default:
          parseText();
          break;
      }
    }
    flushPending();
    resolveLoneSurrogate();
    if (para_open_) endParagraph(false);
    return assemble();
  }

 private:
  GroupState& top() { return stack_.back(); }

  bool inTextDestination() const {
    const Destination d = stack_.back().destination;
    return d == Destination::kBody || d == Destination::kFieldInstruction;
  }

  // ---- Tokenizer ---------------------------------------------------------

  void parseText() {
    const Destination d = top().destination;
    if (d == Destination::kSkip) {
      while (pos_ < in_.size() && in_[pos_] != '{' && in_[pos_] != '}' &&
             in_[pos_] != '\\') {
        ++pos_;
      }
      return;
    }
    if (skip_remaining_ == 0 && pending_.empty() && inTextDestination()) {
      size_t end = pos_;
      while (end < in_.size() &&
             kPlainText[static_cast<unsigned char>(in_[end])]) {
        ++end;
      }
      if (end > pos_) {
        emitText(in_.substr(pos_, end - pos_));
        pos_ = end;
        return;
      }
    }
    onTextByte(static_cast<unsigned char>(in_[pos_++]));
  }

  void parseControl() {
    ++pos_;  // the backslash
    if (pos_ >= in_.size()) return;
    const char c = in_[pos_];
    if (isAsciiLetter(c)) {
      const size_t start = pos_;
      while (pos_ < in_.size() && isAsciiLetter(in_[pos_])) ++pos_;
      const std::string_view name = in_.substr(start, pos_ - start);
      bool negative = false;
      if (pos_ + 1 < in_.size() && in_[pos_] == '-' && isDigit(in_[pos_ + 1])) {
        negative = true;
        ++pos_;
      }
      bool has_param = false;
      int64_t value = 0;
      while (pos_ < in_.size() && isDigit(in_[pos_])) {
        has_param = true;
        // Saturate instead of overflowing on absurdly long numbers.
        if (value < (int64_t{1} << 40)) value = value * 10 + (in_[pos_] - '0');
        ++pos_;
      }
      if (pos_ < in_.size() && in_[pos_] == ' ') ++pos_;
      if (negative) value = -value;
      value = std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(),
                                  std::numeric_limits<int32_t>::max());
      const int param = static_cast<int>(value);
      if (name == "bin") {
        // Raw bytes follow; they may contain braces, so they are stepped
        // over wherever they appear.
        if (has_param && param > 0) {
          pos_ +=
              std::min<size_t>(static_cast<size_t>(param), in_.size() - pos_);
        }
        if (skip_remaining_ > 0) --skip_remaining_;
        return;
      }
      flushPending();
      onControlWord(name, has_param, param);
      return;
    }
    ++pos_;
    if (c == '\'') {
      int value = 0;
      int digits = 0;
      while (digits < 2 && pos_ < in_.size()) {
        const int h = hexValue(in_[pos_]);
        if (h < 0) break;
        value = value * 16 + h;
        ++digits;
        ++pos_;
      }
      if (digits == 2) onHexByte(static_cast<unsigned char>(value));
      return;
    }
    flushPending();
    onControlSymbol(c);
  }

  // ---- Token handlers ----------------------------------------------------

  void openGroup() {
    flushPending();
    skip_remaining_ = 0;
    if (stack_.size() >= kMaxGroupDepth) {
      ++overflow_depth_;
      return;
    }
    GroupState child = stack_.back();
    child.starred = false;
    child.drop_attachment = false;
    stack_.push_back(child);
  }

  void closeGroup() {
    flushPending();
    skip_remaining_ = 0;
    if (overflow_depth_ > 0) {
      --overflow_depth_;
      return;
    }
    if (font_entry_active_ && stack_.size() <= font_entry_depth_) {
      finishFontEntry();
    }
    while (!fields_.empty() && fields_.back().depth >= stack_.size()) {
      fields_.pop_back();
    }
    // stack_[0] is the state outside every group, stack_[1] the document's.
    if (stack_.size() <= 2) {
      finished_ = true;
      return;
    }
    stack_.pop_back();
  }

  void onTextByte(unsigned char b) {
    if (skip_remaining_ > 0) {
      --skip_remaining_;
      return;
    }
    switch (top().destination) {
      case Destination::kSkip:
        return;
      case Destination::kFontTable:
        if (b == ';') {
          finishFontEntry();
        } else if (font_entry_active_ &&
                   font_name_.size() < kMaxRawFontNameBytes) {
          font_name_.push_back(static_cast<char>(b));
        }
        return;
      case Destination::kColorTable:
        if (b == ';') finishColorEntry();
        return;
      case Destination::kBody:
      case Destination::kFieldInstruction:
        break;
    }
    if (b >= 0x80) {
      appendCodePageByte(b);
      return;
    }
    if (!pending_.empty() && isMultiByte(pending_code_page_)) {
      // Possibly the trail byte of a double-byte character.
      pending_.push_back(static_cast<char>(b));
      return;
    }
    flushPending();
    if (b == '\t') {
      emitTab();
    } else if (b >= 0x20) {
      const char c = static_cast<char>(b);
      emitText(std::string_view(&c, 1));
    }
  }

  void onHexByte(unsigned char b) {
    if (skip_remaining_ > 0) {
      --skip_remaining_;
      return;
    }
    switch (top().destination) {
      case Destination::kSkip:
      case Destination::kColorTable:
        return;
      case Destination::kFontTable:
        if (font_entry_active_ && font_name_.size() < kMaxRawFontNameBytes) {
          font_name_.push_back(static_cast<char>(b));
        }
        return;
      case Destination::kBody:
      case Destination::kFieldInstruction:
        break;
    }
    if (pending_.empty() && b < 0x80) {
      if (b >= 0x20) {
        const char c = static_cast<char>(b);
        emitText(std::string_view(&c, 1));
      }
      return;
    }
    appendCodePageByte(b);
  }

  void onControlSymbol(char c) {
    if (skip_remaining_ > 0) {
      --skip_remaining_;
      return;
    }
    GroupState& s = top();
    if (s.destination == Destination::kSkip) return;
    switch (c) {
      case '*':
        s.starred = true;
        break;
      case '~':
        emitCodePoint(0xA0);
        break;
      case '_':
        emitCodePoint(0x2011);
        break;
      case '{':
      case '}':
      case '\\':
        if (s.destination == Destination::kFontTable) {
          onTextByte(static_cast<unsigned char>(c));
        } else {
          emitText(std::string_view(&c, 1));
        }
        break;
      case '\r':
      case '\n':
        if (s.destination == Destination::kBody) endParagraph(true);
        break;
      default:
        // \- (optional hyphen) and the index/formula symbols print nothing.
        break;
    }
  }

  void onControlWord(std::string_view name, bool has_param, int param) {
    if (skip_remaining_ > 0) {
      --skip_remaining_;
      return;
    }
    GroupState& s = top();
    if (s.destination == Destination::kSkip) return;
    const Keyword* k = findKeyword(name);
    if (s.starred) {
      s.starred = false;
      // After \* only destinations this reader understands are kept.
      if (k == nullptr || k->kw != Kw::kFieldInstruction) {
        s.destination = Destination::kSkip;
        return;
      }
    }
    if (k == nullptr) return;
    const bool on = !has_param || param != 0;
    switch (k->kw) {
      case Kw::kSkipDestination:
        s.destination = Destination::kSkip;
        break;
      case Kw::kFontTable:
        s.destination = Destination::kFontTable;
        break;
      case Kw::kColorTable:
        s.destination = Destination::kColorTable;
        color_set_ = false;
        red_ = green_ = blue_ = 0;
        break;
      case Kw::kAnsi:
        document_code_page_ = 1252;
        break;
      case Kw::kMac:
        document_code_page_ = 10000;
        break;
      case Kw::kPc:
        document_code_page_ = 437;
        break;
      case Kw::kPca:
        document_code_page_ = 850;
        break;
      case Kw::kAnsiCodePage:
        document_code_page_ = has_param && param > 0 ? param : kDefaultCodePage;
        break;
      case Kw::kDefaultFont:
        default_font_ = has_param ? param : 0;
        break;
      case Kw::kFont:
        if (s.destination == Destination::kFontTable) {
          startFontEntry(has_param ? param : 0);
        } else {
          s.font = has_param ? param : 0;
        }
        break;
      case Kw::kFontCharset:
        if (s.destination == Destination::kFontTable) font_charset_ = param;
        break;
      case Kw::kFontCodePage:
        if (s.destination == Destination::kFontTable) font_code_page_ = param;
        break;
      case Kw::kRed:
      case Kw::kGreen:
      case Kw::kBlue:
        if (s.destination == Destination::kColorTable) {
          const int v = std::clamp(param, 0, 255);
          (k->kw == Kw::kRed ? red_ : k->kw == Kw::kGreen ? green_ : blue_) = v;
          color_set_ = true;
        }
        break;
      case Kw::kField:
        startField();
        break;
      case Kw::kFieldInstruction:
        if (!fields_.empty()) {
          s.destination = Destination::kFieldInstruction;
          s.field_sink = static_cast<int>(fields_.size()) - 1;
        } else {
          s.destination = Destination::kSkip;
        }
        break;
      case Kw::kFieldResult:
        // A result nested inside an instruction stays part of it.
        if (s.destination == Destination::kBody && !fields_.empty()) {
          const int link = linkFor(fields_.back());
          if (link != 0) s.link = link;
        }
        break;
      case Kw::kAttachment:
        s.destination = Destination::kSkip;
        if (overflow_depth_ == 0 && stack_.size() >= 3) {
          stack_[stack_.size() - 2].drop_attachment = true;
        }
        break;
      case Kw::kPar:
        if (s.destination == Destination::kBody) endParagraph(true);
        break;
      case Kw::kSoftBreak:
        if (s.destination == Destination::kBody) endParagraph(false);
        break;
      case Kw::kCell:
        if (s.destination == Destination::kBody && para_open_) {
          pending_cell_ = true;
        }
        break;
      case Kw::kLine:
        emitLineBreak();
        break;
      case Kw::kTab:
        emitTab();
        break;
      case Kw::kPard:
        s.align = Align::kLeft;
        break;
      case Kw::kAlign:
        s.align = static_cast<Align>(k->value);
        break;
      case Kw::kPlain:
        s.bold = s.italic = s.underline = s.strike = s.hidden = false;
        s.font = -1;
        s.font_size = kDefaultFontSize;
        s.color = 0;
        break;
      case Kw::kBold:
        s.bold = on;
        break;
      case Kw::kItalic:
        s.italic = on;
        break;
      case Kw::kUnderline:
        s.underline = on;
        break;
      case Kw::kUnderlineNone:
        s.underline = false;
        break;
      case Kw::kStrike:
        s.strike = on;
        break;
      case Kw::kColor:
        s.color = has_param ? param : 0;
        break;
      case Kw::kFontSize:
        s.font_size = has_param && param > 0 ? std::min(param, kMaxFontSize)
                                             : kDefaultFontSize;
        break;
      case Kw::kHidden:
        s.hidden = on;
        break;
      case Kw::kUnicodeSkip:
        s.unicode_skip = has_param ? std::clamp(param, 0, kMaxUnicodeSkip) : 1;
        break;
      case Kw::kUnicode:
        if (has_param) onUnicode(param);
        break;
      case Kw::kChar:
        emitCodePoint(static_cast<char32_t>(k->value));
        break;
    }
  }

  void onUnicode(int param) {
    const int skip = top().unicode_skip;
    // Writers store \u as a signed 16-bit value.
    int64_t v = param;
    if (v < 0) v += 65536;
    if (inTextDestination()) {
      if (v >= 0xD800 && v <= 0xDBFF) {
        resolveLoneSurrogate();
        pending_high_ = static_cast<char32_t>(v);
      } else if (v >= 0xDC00 && v <= 0xDFFF) {
        if (pending_high_ != 0) {
          const char32_t cp = 0x10000 + ((pending_high_ - 0xD800) << 10) +
                              (static_cast<char32_t>(v) - 0xDC00);
          pending_high_ = 0;
          emitCodePoint(cp);
        } else {
          emitCodePoint(kReplacementChar);
        }
      } else if (v >= 0 && v <= 0x10FFFF) {
        emitCodePoint(static_cast<char32_t>(v));
      } else {
        emitCodePoint(kReplacementChar);
      }
    }
    skip_remaining_ = skip;
  }

  // ---- Tables and fields -------------------------------------------------

  void startFontEntry(int number) {
    finishFontEntry();
    font_entry_active_ = true;
    font_entry_depth_ = stack_.size();
    font_number_ = number;
    font_charset_ = -1;
    font_code_page_ = 0;
    font_name_.clear();
  }

  void finishFontEntry() {
    if (!font_entry_active_) return;
    font_entry_active_ = false;
    FontInfo info;
    info.code_page = font_code_page_ > 0 && iconvName(font_code_page_)
                         ? font_code_page_
                         : codePageForCharset(font_charset_);
    scratch_.clear();
    decoder_.decode(info.code_page ? info.code_page : document_code_page_,
                    font_name_, scratch_);
    info.family = cssFamily(scratch_);
    fonts_.insert_or_assign(font_number_, std::move(info));
  }

  void finishColorEntry() {
    colors_.push_back(color_set_ ? (red_ << 16) | (green_ << 8) | blue_ : -1);
    color_set_ = false;
    red_ = green_ = blue_ = 0;
  }

  void startField() {
    const Destination d = top().destination;
    if (d != Destination::kBody && d != Destination::kFieldInstruction) return;
    const size_t depth = stack_.size();
    // One field per group keeps fields_ bounded by the nesting depth.
    if (!fields_.empty() && fields_.back().depth == depth) {
      fields_.back() = Field{depth, {}, -1};
    } else {
      fields_.push_back(Field{depth, {}, -1});
    }
  }

  int linkFor(Field& field) {
    if (field.link >= 0) return field.link;
    field.link = 0;
    if (std::optional<std::string> url = hyperlinkTarget(field.instruction)) {
      links_.push_back(escapeAttribute(*url));
      link_openings_.push_back(0);
      field.link = static_cast<int>(links_.size());
    }
    return field.link;
  }

  // ---- Text output -------------------------------------------------------

  int resolvedFont(const GroupState& s) const {
    return s.font < 0 ? default_font_ : s.font;
  }

  const std::string& familyOf(int font) const {
    const auto it = fonts_.find(font);
    if (it == fonts_.end() || it->second.family.empty()) return default_family_;
    return it->second.family;
  }

  int currentCodePage() const {
    const auto it = fonts_.find(resolvedFont(stack_.back()));
    if (it != fonts_.end() && it->second.code_page != 0) {
      return it->second.code_page;
    }
    return document_code_page_;
  }

  void appendCodePageByte(unsigned char b) {
    if (pending_.empty()) pending_code_page_ = currentCodePage();
    pending_.push_back(static_cast<char>(b));
  }

  /// Decodes the collected code-page bytes. Called before anything that may
  /// change the formatting or destination, so they all share one format.
  void flushPending() {
    if (pending_.empty()) return;
    scratch_.clear();
    decoder_.decode(pending_code_page_, pending_, scratch_);
    pending_.clear();
    emitText(scratch_);
  }

  void resolveLoneSurrogate() {
    if (pending_high_ == 0) return;
    pending_high_ = 0;
    emitCodePoint(kReplacementChar);
  }

  void emitCodePoint(char32_t cp) {
    if (cp < 0x20) return;
    // Cocoa stores a line break inside a paragraph as LINE SEPARATOR.
    if (cp == 0x2028) {
      emitLineBreak();
      return;
    }
    if (cp == 0x2029) {
      if (top().destination == Destination::kBody) endParagraph(true);
      return;
    }
    char buffer[4];
    emitText(std::string_view(buffer, encodeUtf8(cp, buffer)));
  }

  void emitText(std::string_view utf8) {
    resolveLoneSurrogate();
    GroupState& s = top();
    if (s.destination == Destination::kFieldInstruction) {
      appendInstruction(utf8);
      return;
    }
    if (s.destination != Destination::kBody || s.hidden) return;
    if (s.drop_attachment) {
      s.drop_attachment = false;
      for (const std::string_view mark :
           {std::string_view("\xC2\xAC"), std::string_view("\xEF\xBF\xBC")}) {
        if (utf8.substr(0, mark.size()) == mark) {
          utf8.remove_prefix(mark.size());
          break;
        }
      }
      if (utf8.empty()) return;
    }
    beginContent();
    appendEscaped(paragraph_, utf8);
  }

  void emitTab() {
    resolveLoneSurrogate();
    const GroupState& s = top();
    if (s.destination == Destination::kFieldInstruction) {
      appendInstruction(" ");
      return;
    }
    if (s.destination != Destination::kBody || s.hidden) return;
    beginContent();
    paragraph_.append(kTabSpan);
    used_tab_span_ = true;
  }

  void emitLineBreak() {
    resolveLoneSurrogate();
    const GroupState& s = top();
    if (s.destination == Destination::kFieldInstruction) {
      appendInstruction(" ");
      return;
    }
    if (s.destination != Destination::kBody || s.hidden) return;
    beginContent();
    paragraph_.append("<br>\n");
  }

  void appendInstruction(std::string_view text) {
    const int sink = top().field_sink;
    if (sink < 0 || static_cast<size_t>(sink) >= fields_.size()) return;
    std::string& inst = fields_[static_cast<size_t>(sink)].instruction;
    const size_t room = kMaxFieldInstructionBytes -
                        std::min(inst.size(), kMaxFieldInstructionBytes);
    inst.append(text.substr(0, room));
  }

  /// Prepares the paragraph for visible content in the current format.
  void beginContent() {
    const GroupState& s = top();
    if (!para_open_) {
      para_open_ = true;
      para_font_ = resolvedFont(s);
      para_font_size_ = s.font_size;
    }
    syncTags();
    if (pending_cell_) {
      // Table cells are separated like tab stops.
      pending_cell_ = false;
      paragraph_.append(kTabSpan);
      used_tab_span_ = true;
    }
  }

  int spanClassFor(const GroupState& s) {
    int rgb = -1;
    if (s.color > 0 && static_cast<size_t>(s.color) < colors_.size()) {
      rgb = colors_[static_cast<size_t>(s.color)];
    }
    const SpanKey key{s.underline,     s.strike,    rgb,
                      resolvedFont(s), s.font_size, para_font_,
                      para_font_size_};
    if (span_memo_valid_ && key == span_memo_key_) return span_memo_class_;
    std::string css;
    const auto add = [&css](std::string_view declaration) {
      if (!css.empty()) css.append("; ");
      css.append(declaration);
    };
    const std::string& family = familyOf(key.font);
    if (key.font_size != para_font_size_ || family != familyOf(para_font_)) {
      add("font: " + cssFontSize(key.font_size) + " " + family);
    }
    if (key.underline && key.strike) {
      add("text-decoration: underline line-through");
    } else if (key.underline) {
      add("text-decoration: underline");
    } else if (key.strike) {
      add("text-decoration: line-through");
    }
    if (rgb >= 0) {
      std::string color = "color: #";
      appendHex(color, static_cast<uint32_t>(rgb), 6);
      add(color);
    }
    span_memo_valid_ = true;
    span_memo_key_ = key;
    span_memo_class_ = css.empty() ? 0 : span_classes_.idFor(std::move(css));
    return span_memo_class_;
  }

  /// Makes the open inline tags match the current format, closing and
  /// reopening as little as possible while keeping them properly nested.
  void syncTags() {
    const GroupState& s = top();
    OpenTags want;
    if (s.link != 0 &&
        (open_.link == s.link ||
         link_openings_[static_cast<size_t>(s.link - 1)] < kMaxLinkOpenings)) {
      want.link = s.link;
    }
    want.bold = s.bold;
    want.italic = s.italic;
    want.span = spanClassFor(s);
    if (want == open_) return;
    int level = 3;
    if (want.link != open_.link) {
      level = 0;
    } else if (want.bold != open_.bold) {
      level = 1;
    } else if (want.italic != open_.italic) {
      level = 2;
    }
    closeTagsFrom(level);
    if (level <= 0 && want.link != 0) {
      ++link_openings_[static_cast<size_t>(want.link - 1)];
      paragraph_.append("<a href=\"");
      paragraph_.append(links_[static_cast<size_t>(want.link - 1)]);
      paragraph_.append("\">");
    }
    if (level <= 1 && want.bold) paragraph_.append("<b>");
    if (level <= 2 && want.italic) paragraph_.append("<i>");
    if (want.span != 0) {
      paragraph_.append("<span class=\"s");
      paragraph_.append(std::to_string(want.span));
      paragraph_.append("\">");
    }
    open_ = want;
  }

  void closeTagsFrom(int level) {
    if (open_.span != 0) paragraph_.append("</span>");
    if (level <= 2 && open_.italic) paragraph_.append("</i>");
    if (level <= 1 && open_.bold) paragraph_.append("</b>");
    if (level <= 0 && open_.link != 0) paragraph_.append("</a>");
  }

  void endParagraph(bool keep_empty) {
    resolveLoneSurrogate();
    const GroupState& s = top();
    if (!para_open_ && !keep_empty) return;
    std::string css = "margin: 0.0px 0.0px 0.0px 0.0px; ";
    switch (s.align) {
      case Align::kLeft:
        break;
      case Align::kCenter:
        css.append("text-align: center; ");
        break;
      case Align::kRight:
        css.append("text-align: right; ");
        break;
      case Align::kJustify:
        css.append("text-align: justify; ");
        break;
    }
    const int font = para_open_ ? para_font_ : resolvedFont(s);
    const int size = para_open_ ? para_font_size_ : s.font_size;
    css.append("font: " + cssFontSize(size) + " " + familyOf(font));
    if (!para_open_) {
      // Keeps the empty line as tall as a line of text, like Cocoa does.
      css.append("; min-height: " + std::to_string((size * 6 + 5) / 10) +
                 ".0px");
    }
    body_.append("<p class=\"p");
    body_.append(std::to_string(paragraph_classes_.idFor(std::move(css))));
    body_.append("\">");
    if (para_open_) {
      closeTagsFrom(0);
      open_ = OpenTags{};
      body_.append(paragraph_);
    } else {
      body_.append("<br>");
    }
    body_.append("</p>\n");
    paragraph_.clear();
    para_open_ = false;
    pending_cell_ = false;
  }

  std::string assemble() const {
    std::string out;
    size_t style_bytes = 256;
    for (const StyleClasses* classes : {&paragraph_classes_, &span_classes_}) {
      for (const std::string* css : classes->inOrder()) {
        style_bytes += css->size() + 24;
      }
    }
    out.reserve(body_.size() + style_bytes + 512);
    out.append(
        "<!DOCTYPE html PUBLIC \"-//W3C//DTD HTML 4.01//EN\" "
        "\"http://www.w3.org/TR/html4/strict.dtd\">\n"
        "<html>\n"
        "<head>\n"
        "<meta http-equiv=\"Content-Type\" content=\"text/html; "
        "charset=UTF-8\">\n"
        "<meta http-equiv=\"Content-Style-Type\" content=\"text/css\">\n"
        "<title></title>\n"
        "<style type=\"text/css\">\n");
    int n = 0;
    for (const std::string* css : paragraph_classes_.inOrder()) {
      out.append("p.p" + std::to_string(++n) + " {" + *css + "}\n");
    }
    n = 0;
    for (const std::string* css : span_classes_.inOrder()) {
      out.append("span.s" + std::to_string(++n) + " {" + *css + "}\n");
    }
    if (used_tab_span_) out.append("span.Apple-tab-span {white-space:pre}\n");
    out.append("</style>\n</head>\n<body>\n");
    out.append(body_);
    out.append("</body>\n</html>\n");
    return out;
  }

  const std::string_view in_;
  size_t pos_ = 0;
  bool finished_ = false;

  std::vector<GroupState> stack_;
  size_t overflow_depth_ = 0;  // groups opened beyond kMaxGroupDepth
  int skip_remaining_ = 0;     // \u fallback characters still to skip
  char32_t pending_high_ = 0;  // high surrogate waiting for its pair

  CodePageDecoder decoder_;
  int document_code_page_ = kDefaultCodePage;
  std::string pending_;  // undecoded code-page bytes, all in one format
  int pending_code_page_ = kDefaultCodePage;
  std::string scratch_;

  std::unordered_map<int, FontInfo> fonts_;
  int default_font_ = 0;
  const std::string default_family_ = "Helvetica";
  bool font_entry_active_ = false;
  size_t font_entry_depth_ = 0;
  int font_number_ = 0;
  int font_charset_ = -1;
  int font_code_page_ = 0;
  std::string font_name_;  // raw bytes in the font's own code page

  std::vector<int> colors_;  // 0xRRGGBB, or -1 for "auto"
  bool color_set_ = false;
  int red_ = 0;
  int green_ = 0;
  int blue_ = 0;

  std::vector<Field> fields_;
  std::vector<std::string> links_;  // escaped href values
  std::vector<int> link_openings_;

  StyleClasses paragraph_classes_;
  StyleClasses span_classes_;
  bool span_memo_valid_ = false;
  SpanKey span_memo_key_{};
  int span_memo_class_ = 0;
  bool used_tab_span_ = false;

  std::string body_;
  std::string paragraph_;  // content of the open paragraph
  bool para_open_ = false;
  bool pending_cell_ = false;
  int para_font_ = 0;
  int para_font_size_ = kDefaultFontSize;
  OpenTags open_;
};

}  // namespace

std::optional<std::string> convertRtfToHtml(std::string_view rtf) {
  const size_t start = rtf.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return std::nullopt;
  rtf.remove_prefix(start);
  if (rtf.substr(0, 5) != "{\\rtf") return std::nullopt;
  return Converter(rtf).run();
}

}  // namespace tovrin
