#include "rtf/rtf_to_html.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "rtf/ascii.h"
#include "rtf/code_pages.h"
#include "rtf/control_words.h"
#include "rtf/field_instruction.h"
#include "rtf/html_writer.h"

// The converter reads the RTF in a single pass. Group state lives on an
// explicit stack (never the call stack), text of the body is written into
// the current paragraph as it arrives, and inline tags are opened lazily
// when text needs them, so formatting that covers no text leaves no markup.
// A paragraph's class is settled when it ends, because alignment may be set
// anywhere before its \par. Classes are collected on the way and the
// <style> block is written in front of the body at the end.

namespace tovrin {
namespace rtf {
namespace {

/// Groups deeper than this share the state of the innermost group within
/// the limit, so hostile nesting cannot grow the state stack without bound.
constexpr size_t kMaxGroupDepth = 1000;
/// Raw bytes of a font name collected before decoding (a multibyte name
/// takes more raw bytes than it has characters).
constexpr size_t kMaxRawFontNameBytes = 4 * kMaxFontNameBytes;
/// Longest field instruction kept, in bytes; enough for any sane URL.
constexpr size_t kMaxFieldInstructionBytes = 2048;
/// Font size in half-points used when the document sets none (12 pt).
constexpr int kDefaultFontSize = 24;
constexpr int kMaxFontSize = 3276;
constexpr int kMaxUnicodeSkip = 255;
constexpr char32_t kReplacementChar = 0xFFFD;

/// Byte classes used by the scanning loops.
constexpr std::array<bool, 256> kPlainText = [] {
  std::array<bool, 256> t{};
  for (int c = 0x20; c < 0x7F; ++c) t[c] = true;
  t['\\'] = t['{'] = t['}'] = false;
  return t;
}();

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
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
  int link = 0;         // a link number from HtmlWriter, 0 for none
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
    writer_.reserveBody(in_.size() + in_.size() / 4);
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
    return writer_.finish();
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
      field.link = writer_.addLink(*url);
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
    writer_.appendText(utf8);
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
    writer_.appendTab();
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
    writer_.appendLineBreak();
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
      writer_.appendTab();
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
    span_memo_valid_ = true;
    span_memo_key_ = key;
    span_memo_class_ = writer_.spanClass(SpanStyle{
        .underline = key.underline,
        .strike = key.strike,
        .rgb = rgb,
        .font_size = key.font_size,
        .family = familyOf(key.font),
        .paragraph_font_size = para_font_size_,
        .paragraph_family = familyOf(para_font_),
    });
    return span_memo_class_;
  }

  void syncTags() {
    const GroupState& s = top();
    writer_.setInlineTags(InlineTags{.link = s.link,
                                     .bold = s.bold,
                                     .italic = s.italic,
                                     .span = spanClassFor(s)});
  }

  void endParagraph(bool keep_empty) {
    resolveLoneSurrogate();
    const GroupState& s = top();
    if (!para_open_ && !keep_empty) return;
    const int font = para_open_ ? para_font_ : resolvedFont(s);
    writer_.endParagraph(
        ParagraphStyle{.align = s.align,
                       .font_size = para_open_ ? para_font_size_ : s.font_size,
                       .family = familyOf(font)},
        para_open_);
    para_open_ = false;
    pending_cell_ = false;
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

  HtmlWriter writer_;
  // The span class of the last format asked for: text usually arrives in
  // many pieces of one format, and rebuilding its CSS for each costs.
  bool span_memo_valid_ = false;
  SpanKey span_memo_key_{};
  int span_memo_class_ = 0;

  bool para_open_ = false;
  bool pending_cell_ = false;
  int para_font_ = 0;
  int para_font_size_ = kDefaultFontSize;
};

}  // namespace
}  // namespace rtf

std::optional<std::string> convertRtfToHtml(std::string_view rtf) {
  const size_t start = rtf.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return std::nullopt;
  rtf.remove_prefix(start);
  if (rtf.substr(0, 5) != "{\\rtf") return std::nullopt;
  return rtf::Converter(rtf).run();
}

}  // namespace tovrin
