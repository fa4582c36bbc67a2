#ifndef TOVRIN_RTF_HTML_WRITER_H_
#define TOVRIN_RTF_HTML_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tovrin::rtf {

/// Paragraph alignment, each written as a CSS text-align.
enum class Align : uint8_t { kLeft, kCenter, kRight, kJustify };

/// Longest font family name written, in bytes; longer names are cut.
constexpr size_t kMaxFontNameBytes = 64;

/// A font name made safe for a CSS `font` declaration: characters that could
/// break out of it are dropped, the name is cut to kMaxFontNameBytes and
/// quoted unless it is a plain identifier. Empty when nothing usable is left.
std::string cssFamily(std::string_view name);

/// A size in half-points as Cocoa writes it, e.g. "10.5px".
std::string cssFontSize(int half_points);

/// Numbered CSS classes, each distinct declaration list getting the next
/// number on first use.
class StyleClasses {
 public:
  /// Returns the 1-based class number for `css`, adding it when new.
  int idFor(std::string css);

  /// Declaration lists in class-number order.
  const std::vector<const std::string*>& inOrder() const { return order_; }

 private:
  std::unordered_map<std::string, int> ids_;
  std::vector<const std::string*> order_;  // points at keys of ids_
};

/// The inline tags around a run of text, outermost first.
struct InlineTags {
  int link = 0;  // a number from HtmlWriter::addLink, 0 for none
  bool bold = false;
  bool italic = false;
  int span = 0;  // a number from HtmlWriter::spanClass, 0 for none
  bool operator==(const InlineTags&) const = default;
};

/// The format of a run of text, set against the font of its paragraph.
struct SpanStyle {
  bool underline = false;
  bool strike = false;
  int rgb = -1;             // 0xRRGGBB, or -1 for the default colour
  int font_size = 0;        // half-points
  std::string_view family;  // as cssFamily writes it
  int paragraph_font_size = 0;
  std::string_view paragraph_family;
};

struct ParagraphStyle {
  Align align = Align::kLeft;
  int font_size = 0;        // half-points
  std::string_view family;  // as cssFamily writes it
};

/// Writes a UTF-8 HTML document the way the Cocoa HTML writer lays out
/// clipboard HTML: numbered `p.pN` and `span.sN` classes in a style block,
/// `<a>`, `<b>` and `<i>` nested in that order around styled spans.
///
/// Text goes into the open paragraph; endParagraph moves it into the body.
/// The style block is written in front of the body by finish(), once every
/// class is known.
class HtmlWriter {
 public:
  /// Reserves room for a body of about `bytes`.
  void reserveBody(size_t bytes) { body_.reserve(bytes); }

  /// Registers a link to `url` (not escaped); returns its number for
  /// InlineTags::link.
  int addLink(std::string_view url);

  /// The class number for text in `style`, 0 when it needs no class.
  int spanClass(const SpanStyle& style);

  /// Makes the open inline tags match `want`, closing and reopening as
  /// little as possible while keeping them properly nested. A link that has
  /// been opened a few times already stays closed, so that the output keeps
  /// proportional to the input when a long URL covers many tiny pieces of
  /// text.
  void setInlineTags(InlineTags want);

  /// Appends text with `<`, `>` and `&` escaped; C0 control characters are
  /// dropped because tabs and breaks are written as markup of their own.
  void appendText(std::string_view utf8);
  void appendTab();
  void appendLineBreak();

  /// Closes the paragraph's inline tags and writes it into the body with a
  /// class for `style`. A paragraph without content becomes an empty line
  /// as tall as a line of text.
  void endParagraph(const ParagraphStyle& style, bool has_content);

  /// The whole document: head with the style block, then the body.
  std::string finish() const;

 private:
  /// Closes open tags from the span inwards out to `level` (0 link, 1 bold,
  /// 2 italic, 3 the span alone).
  void closeTagsFrom(int level);

  std::vector<std::string> links_;  // escaped href values
  std::vector<int> link_openings_;
  StyleClasses paragraph_classes_;
  StyleClasses span_classes_;
  bool used_tab_span_ = false;

  std::string body_;
  std::string paragraph_;  // content of the open paragraph
  InlineTags open_;
};

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_HTML_WRITER_H_
