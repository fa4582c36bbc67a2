#include "text/utf16.h"

#include "text/text.h"

namespace tovrin {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

bool isHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void appendUtf8(char32_t c, std::string& text) {
  if (c < 0x80) {
    text.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    text.push_back(static_cast<char>(0xC0 | (c >> 6)));
    text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    text.push_back(static_cast<char>(0xE0 | (c >> 12)));
    text.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    text.push_back(static_cast<char>(0xF0 | (c >> 18)));
    text.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    text.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

/// Decodes well-formed UTF-8 (the caller has made sure of it).
void appendUtf16(std::string_view valid, std::vector<uint16_t>& units) {
  size_t i = 0;
  while (i < valid.size()) {
    const auto lead = static_cast<unsigned char>(valid[i]);
    const size_t length = lead < 0x80   ? 1
                          : lead < 0xE0 ? 2
                          : lead < 0xF0 ? 3
                                        : 4;
    char32_t c = length == 1   ? lead
                 : length == 2 ? lead & 0x1F
                 : length == 3 ? lead & 0x0F
                               : lead & 0x07;
    for (size_t k = 1; k < length; ++k) {
      c = (c << 6) | (static_cast<unsigned char>(valid[i + k]) & 0x3F);
    }
    i += length;
    if (c < 0x10000) {
      units.push_back(static_cast<uint16_t>(c));
    } else {
      c -= 0x10000;
      units.push_back(static_cast<uint16_t>(0xD800 | (c >> 10)));
      units.push_back(static_cast<uint16_t>(0xDC00 | (c & 0x3FF)));
    }
  }
}

}  // namespace

std::string utf8FromUtf16(std::span<const uint16_t> units) {
  std::string text;
  text.reserve(units.size());
  for (size_t i = 0; i < units.size(); ++i) {
    const uint32_t unit = units[i];
    if (isHighSurrogate(unit) && i + 1 < units.size() &&
        isLowSurrogate(units[i + 1])) {
      const uint32_t low = units[++i];
      appendUtf8(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), text);
    } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
      appendUtf8(kReplacementCharacter, text);
    } else {
      appendUtf8(unit, text);
    }
  }
  return text;
}

std::vector<uint16_t> utf16FromUtf8(std::string_view text) {
  std::vector<uint16_t> units;
  units.reserve(text.size());
  if (isValidUtf8(text)) {
    appendUtf16(text, units);
  } else {
    appendUtf16(toValidUtf8(text), units);
  }
  return units;
}

}  // namespace tovrin
