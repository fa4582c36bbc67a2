#include "text/utf16.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "text/text.h"

namespace tovrin {
namespace {

using Units = std::vector<uint16_t>;
const std::string kFffd = "\xEF\xBF\xBD";

TEST(Utf16Test, ConvertsBothWaysAndRepairsWhatIsIllFormed) {
  const std::pair<Units, std::string> both[] = {
      {{}, ""},
      {{'a', 0, 'b'}, std::string("a\0b", 3)},
      {{0xE9}, "\xC3\xA9"},
      {{0x20AC}, "\xE2\x82\xAC"},
      {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
      {{0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
  };
  for (const auto& [units, text] : both) {
    EXPECT_EQ(utf8FromUtf16(units), text);
    EXPECT_EQ(utf16FromUtf8(text), units);
  }
  // Lone surrogates: cut at the end, low alone, high without low, a
  // reversed pair, a pair after a lone one.
  const std::pair<Units, std::string> lone[] = {
      {{'a', 0xD83D}, "a" + kFffd},
      {{0xDE00, 'a'}, kFffd + "a"},
      {{0xD83D, 'a'}, kFffd + "a"},
      {{0xDE00, 0xD83D}, kFffd + kFffd},
      {{0xD83D, 0xD83D, 0xDE00}, kFffd + "\xF0\x9F\x98\x80"},
  };
  for (const auto& [units, text] : lone) EXPECT_EQ(utf8FromUtf16(units), text);
  // Invalid UTF-8 is repaired as toValidUtf8 repairs it, not lost.
  const std::pair<std::string, Units> invalid[] = {
      {"a\xC3", {'a', 0xFFFD}},
      {"\xC0\xAF", {0xFFFD, 0xFFFD}},
  };
  for (const auto& [text, units] : invalid) EXPECT_EQ(utf16FromUtf8(text), units);
}

TEST(Utf16Test, EveryScalarValueMakesTheRoundTrip) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const char32_t above = c - 0x10000;
    const Units units = c < 0x10000 ? Units{static_cast<uint16_t>(c)}
                                    : Units{static_cast<uint16_t>(0xD800 + (above >> 10)),
                                            static_cast<uint16_t>(0xDC00 + (above & 0x3FF))};
    const std::string text = utf8FromUtf16(units);
    ASSERT_TRUE(isValidUtf8(text)) << std::hex << static_cast<uint32_t>(c);
    ASSERT_EQ(utf16FromUtf8(text), units) << std::hex << static_cast<uint32_t>(c);
  }
}

}  // namespace
}  // namespace tovrin
