#include "text/text.h"

#include <cstdio>

#include <utf8proc.h>

namespace tovrin {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

/// The length of the well-formed sequence at the start of `bytes`, or a
/// negative value when it does not start with one.
utf8proc_ssize_t sequenceLength(std::string_view bytes) {
  utf8proc_int32_t codepoint = 0;
  return utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                          static_cast<utf8proc_ssize_t>(bytes.size()),
                          &codepoint);
}

}  // namespace

std::string toValidUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  while (i < bytes.size()) {
    auto lead = static_cast<uint8_t>(bytes[i]);
    if (lead < 0x80) {
      out.push_back(static_cast<char>(lead));
      ++i;
      continue;
    }
    size_t length = 0;
    uint8_t low = 0x80;
    uint8_t high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead == 0xE0) {
      length = 3;
      low = 0xA0;
    } else if ((lead >= 0xE1 && lead <= 0xEC) || lead == 0xEE || lead == 0xEF) {
      length = 3;
    } else if (lead == 0xED) {
      length = 3;
      high = 0x9F;  // no surrogates
    } else if (lead == 0xF0) {
      length = 4;
      low = 0x90;
    } else if (lead >= 0xF1 && lead <= 0xF3) {
      length = 4;
    } else if (lead == 0xF4) {
      length = 4;
      high = 0x8F;  // nothing above U+10FFFF
    }
    size_t valid = 1;
    if (length != 0) {
      while (valid < length && i + valid < bytes.size()) {
        auto next = static_cast<uint8_t>(bytes[i + valid]);
        uint8_t min = valid == 1 ? low : 0x80;
        uint8_t max = valid == 1 ? high : 0xBF;
        if (next < min || next > max) break;
        ++valid;
      }
    }
    if (length != 0 && valid == length) {
      out.append(bytes.substr(i, length));
    } else {
      out.append(kReplacementCharacter);
    }
    i += valid;
  }
  return out;
}

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto length = sequenceLength(text);
    if (length <= 0) return false;
    text.remove_prefix(static_cast<size_t>(length));
  }
  return true;
}

std::string formatSeconds(double seconds) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.3fs", seconds);
  return buffer;
}

size_t countCharacters(std::string_view text) {
  size_t count = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  while (!text.empty()) {
    utf8proc_int32_t codepoint = 0;
    auto length = utf8proc_iterate(
        reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
        static_cast<utf8proc_ssize_t>(text.size()), &codepoint);
    if (length <= 0) {
      // A stray byte stands for one replacement character.
      codepoint = 0xFFFD;
      length = 1;
    }
    if (previous < 0 ||
        utf8proc_grapheme_break_stateful(previous, codepoint, &state)) {
      ++count;
    }
    previous = codepoint;
    text.remove_prefix(static_cast<size_t>(length));
  }
  return count;
}

std::string escapeForLog(std::string_view text) {
  const std::string valid = toValidUtf8(text);
  std::string out;
  out.reserve(valid.size());
  for (size_t i = 0; i < valid.size(); ++i) {
    const auto byte = static_cast<uint8_t>(valid[i]);
    if (byte == '"' || byte == '\\') {
      out.push_back('\\');
      out.push_back(static_cast<char>(byte));
    } else if (byte < 0x20 || byte == 0x7F) {
      out.append("\\u");
      appendHex(out, byte, 4);
    } else if (byte == 0xC2 && i + 1 < valid.size() &&
               static_cast<uint8_t>(valid[i + 1]) < 0xA0) {
      // U+0080 to U+009F: C1 controls, which terminals also obey.
      out.append("\\u");
      appendHex(out, static_cast<uint8_t>(valid[++i]), 4);
    } else {
      out.push_back(static_cast<char>(byte));
    }
  }
  return out;
}

void appendHex(std::string& out, uint32_t value, int digits) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    out.push_back(kDigits[(value >> shift) & 0xF]);
  }
}

}  // namespace tovrin
