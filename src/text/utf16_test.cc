#include "text/utf16.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "text/text.h"

namespace tovrin {
namespace {

const std::string kFffd = "\xEF\xBF\xBD";

std::string fromUnits(std::vector<uint16_t> units) {
  return utf8FromUtf16(units);
}

TEST(Utf16Test, EncodesEveryPlaneAndKeepsNul) {
  EXPECT_EQ(fromUnits({}), "");
  EXPECT_EQ(fromUnits({'a', 0, 'b'}), std::string("a\0b", 3));
  EXPECT_EQ(fromUnits({0xE9}), "\xC3\xA9");                    // é
  EXPECT_EQ(fromUnits({0x20AC}), "\xE2\x82\xAC");              // €
  EXPECT_EQ(fromUnits({0xFEFF, 'x'}), "\xEF\xBB\xBFx");        // BOM kept
  EXPECT_EQ(fromUnits({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");  // 😀
  EXPECT_EQ(fromUnits({0xDBFF, 0xDFFF}), "\xF4\x8F\xBF\xBF");  // U+10FFFF
}

TEST(Utf16Test, LoneSurrogatesBecomeReplacementCharacters) {
  EXPECT_EQ(fromUnits({'a', 0xD83D}), "a" + kFffd);       // cut at the end
  EXPECT_EQ(fromUnits({0xDE00, 'a'}), kFffd + "a");       // low alone
  EXPECT_EQ(fromUnits({0xD83D, 'a'}), kFffd + "a");       // high, no low
  EXPECT_EQ(fromUnits({0xDE00, 0xD83D}), kFffd + kFffd);  // reversed pair
  EXPECT_EQ(fromUnits({0xD83D, 0xD83D, 0xDE00}),
            kFffd + "\xF0\x9F\x98\x80");  // the pair after
}

TEST(Utf16Test, DecodesValidUtf8) {
  EXPECT_EQ(utf16FromUtf8(""), std::vector<uint16_t>{});
  EXPECT_EQ(utf16FromUtf8(std::string("a\0b", 3)),
            (std::vector<uint16_t>{'a', 0, 'b'}));
  EXPECT_EQ(utf16FromUtf8("\xEF\xBB\xBFx"),
            (std::vector<uint16_t>{0xFEFF, 'x'}));
  EXPECT_EQ(utf16FromUtf8("\xF0\x9F\x98\x80"),
            (std::vector<uint16_t>{0xD83D, 0xDE00}));
}

TEST(Utf16Test, InvalidUtf8IsRepairedNotLost) {
  // Each stray byte becomes U+FFFD, as toValidUtf8 makes it.
  EXPECT_EQ(utf16FromUtf8("a\xC3"), (std::vector<uint16_t>{'a', 0xFFFD}));
  EXPECT_EQ(utf16FromUtf8("\xC0\xAF"), (std::vector<uint16_t>{0xFFFD, 0xFFFD}));
  EXPECT_EQ(utf16FromUtf8("\xED\xA0\x80"),
            (std::vector<uint16_t>{0xFFFD, 0xFFFD, 0xFFFD}));
  EXPECT_EQ(utf16FromUtf8("\xFF"
                          "b"),
            (std::vector<uint16_t>{0xFFFD, 'b'}));
}

TEST(Utf16Test, EveryScalarValueMakesTheRoundTrip) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    std::vector<uint16_t> units;
    if (c < 0x10000) {
      units = {static_cast<uint16_t>(c)};
    } else {
      units = {static_cast<uint16_t>(0xD800 + ((c - 0x10000) >> 10)),
               static_cast<uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF))};
    }
    const std::string text = utf8FromUtf16(units);
    ASSERT_TRUE(isValidUtf8(text)) << std::hex << static_cast<uint32_t>(c);
    ASSERT_EQ(utf16FromUtf8(text), units)
        << std::hex << static_cast<uint32_t>(c);
  }
}

}  // namespace
}  // namespace tovrin
