#include "rtf/html_writer.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <utility>

#include "rtf/ascii.h"
#include "text/text.h"

namespace tovrin::rtf {
namespace {

/// How many times one link may be opened (it reopens after each paragraph
/// break or interruption).
constexpr int kMaxLinkOpenings = 8;
constexpr std::string_view kTabSpan =
    "<span class=\"Apple-tab-span\">\t</span>";

constexpr std::array<bool, 256> kNeedsEscape = [] {
  std::array<bool, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = true;
  t['<'] = t['>'] = t['&'] = true;
  return t;
}();

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

}  // namespace

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

int StyleClasses::idFor(std::string css) {
  const auto [it, inserted] =
      ids_.try_emplace(std::move(css), static_cast<int>(order_.size()) + 1);
  if (inserted) order_.push_back(&it->first);
  return it->second;
}

int HtmlWriter::addLink(std::string_view url) {
  links_.push_back(escapeAttribute(url));
  link_openings_.push_back(0);
  return static_cast<int>(links_.size());
}

int HtmlWriter::spanClass(const SpanStyle& style) {
  std::string css;
  const auto add = [&css](std::string_view declaration) {
    if (!css.empty()) css.append("; ");
    css.append(declaration);
  };
  if (style.font_size != style.paragraph_font_size ||
      style.family != style.paragraph_family) {
    add("font: " + cssFontSize(style.font_size) + " " +
        std::string(style.family));
  }
  if (style.underline && style.strike) {
    add("text-decoration: underline line-through");
  } else if (style.underline) {
    add("text-decoration: underline");
  } else if (style.strike) {
    add("text-decoration: line-through");
  }
  if (style.rgb >= 0) {
    std::string color = "color: #";
    appendHex(color, static_cast<uint32_t>(style.rgb), 6);
    add(color);
  }
  return css.empty() ? 0 : span_classes_.idFor(std::move(css));
}

void HtmlWriter::setInlineTags(InlineTags want) {
  if (want.link != 0 && want.link != open_.link &&
      link_openings_[static_cast<size_t>(want.link - 1)] >= kMaxLinkOpenings) {
    want.link = 0;
  }
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

void HtmlWriter::appendText(std::string_view utf8) {
  appendEscaped(paragraph_, utf8);
}

void HtmlWriter::appendTab() {
  paragraph_.append(kTabSpan);
  used_tab_span_ = true;
}

void HtmlWriter::appendLineBreak() { paragraph_.append("<br>\n"); }

void HtmlWriter::endParagraph(const ParagraphStyle& style, bool has_content) {
  std::string css = "margin: 0.0px 0.0px 0.0px 0.0px; ";
  switch (style.align) {
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
  css.append("font: " + cssFontSize(style.font_size) + " ");
  css.append(style.family);
  if (!has_content) {
    // Keeps the empty line as tall as a line of text, like Cocoa does.
    css.append("; min-height: " +
               std::to_string((style.font_size * 6 + 5) / 10) + ".0px");
  }
  body_.append("<p class=\"p");
  body_.append(std::to_string(paragraph_classes_.idFor(std::move(css))));
  body_.append("\">");
  if (has_content) {
    closeTagsFrom(0);
    open_ = InlineTags{};
    body_.append(paragraph_);
  } else {
    body_.append("<br>");
  }
  body_.append("</p>\n");
  paragraph_.clear();
}

void HtmlWriter::closeTagsFrom(int level) {
  if (open_.span != 0) paragraph_.append("</span>");
  if (level <= 2 && open_.italic) paragraph_.append("</i>");
  if (level <= 1 && open_.bold) paragraph_.append("</b>");
  if (level <= 0 && open_.link != 0) paragraph_.append("</a>");
}

std::string HtmlWriter::finish() const {
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

}  // namespace tovrin::rtf
