#include "platform/linux/formats.h"

#include <cstdint>
#include <optional>

#include "text/text.h"
#include "text/url_uriparser.h"
#include "text/utf16.h"

namespace tovrin {
namespace {

/// UTF-16 bytes of either order as UTF-8; an odd last byte becomes U+FFFD.
std::string decodeUtf16(std::string_view bytes, bool bigEndian) {
  std::vector<uint16_t> units;
  units.reserve(bytes.size() / 2);
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto first = static_cast<uint8_t>(bytes[i]);
    const auto second = static_cast<uint8_t>(bytes[i + 1]);
    units.push_back(static_cast<uint16_t>(bigEndian ? (first << 8) | second
                                                    : (second << 8) | first));
  }
  std::string out = utf8FromUtf16(units);
  if (bytes.size() % 2 != 0) out.append("\xEF\xBF\xBD");
  return out;
}

std::string_view withoutTrailingNuls(std::string_view bytes) {
  while (!bytes.empty() && bytes.back() == '\0') bytes.remove_suffix(1);
  return bytes;
}

// Lines ended by LF, each without its CR.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

std::string decodeHtml(std::string_view bytes) {
  std::string text;
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF &&
      static_cast<uint8_t>(bytes[1]) == 0xFE) {
    text = decodeUtf16(bytes.substr(2), /*bigEndian=*/false);
  } else if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFE &&
             static_cast<uint8_t>(bytes[1]) == 0xFF) {
    text = decodeUtf16(bytes.substr(2), /*bigEndian=*/true);
  } else {
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    text = toValidUtf8(bytes);
  }
  dropOneTrailingNul(text);
  return text;
}

std::string crlfToLf(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out.push_back(text[i]);
  }
  return out;
}

void dropOneTrailingNul(std::string& text) {
  if (!text.empty() && text.back() == '\0') text.pop_back();
}

std::vector<std::string> uriListEntries(std::string_view bytes) {
  std::vector<std::string> entries;
  for (std::string_view line : linesOf(withoutTrailingNuls(bytes))) {
    if (line.empty() || line.front() == '#') continue;
    entries.emplace_back(line);
  }
  return entries;
}

std::optional<std::string> localFilePath(std::string_view uri) {
  std::optional<ParsedURL> url = parseURLWithUriparser(uri);
  if (!url || !url->isFileURL || !url->path.starts_with('/') ||
      url->path.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  return std::move(url->path);
}

std::vector<PasteboardURLObject> fileURLObjectsFromUriList(
    std::string_view bytes) {
  std::vector<PasteboardURLObject> objects;
  for (const std::string& entry : uriListEntries(bytes)) {
    if (auto path = localFilePath(entry)) {
      objects.push_back(PasteboardURLObject{true, std::move(*path)});
    }
  }
  return objects;
}

std::vector<PasteboardItem> itemsFromGnomeCopiedFiles(std::string_view bytes) {
  std::vector<PasteboardItem> items;
  std::vector<std::string_view> lines = linesOf(withoutTrailingNuls(bytes));
  if (lines.empty() || (lines.front() != "copy" && lines.front() != "cut")) {
    return items;
  }
  for (size_t i = 1; i < lines.size(); ++i) {
    // The item keeps its URL: the reader of items turns it into a path.
    if (!localFilePath(lines[i])) continue;
    items.push_back(PasteboardItem{std::string(lines[i])});
  }
  return items;
}

std::string latin1IfRepresentable(std::string_view text) {
  std::string latin1;
  latin1.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    auto byte = static_cast<uint8_t>(text[i]);
    if (byte < 0x80) {
      latin1.push_back(static_cast<char>(byte));
    } else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < text.size() &&
               (static_cast<uint8_t>(text[i + 1]) & 0xC0) == 0x80) {
      latin1.push_back(static_cast<char>(
          ((byte & 0x03) << 6) | (static_cast<uint8_t>(text[i + 1]) & 0x3F)));
      ++i;
    } else {
      return std::string(text);
    }
  }
  return latin1;
}

}  // namespace tovrin
