#include "platform/text.h"

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
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const auto length = sequenceLength(bytes);
    if (length > 0) {
      text.append(bytes.substr(0, static_cast<size_t>(length)));
      bytes.remove_prefix(static_cast<size_t>(length));
    } else {
      text.append(kReplacementCharacter);
      bytes.remove_prefix(1);
    }
  }
  return text;
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

}  // namespace tovrin
