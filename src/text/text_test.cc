#include "text/text.h"

#include <gtest/gtest.h>

namespace tovrin {
namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

TEST(Utf8Test, EachIllFormedSubpartBecomesOneReplacementCharacter) {
  const std::string f = "\xEF\xBF\xBD";
  const Rows rows = {
      {"caf\xC3\xA9", "caf\xC3\xA9"},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {"\xff", f},
      {"a\xC3", "a" + f},                    // truncated
      {"\xC0\xAF", f + f},                   // overlong '/'
      {"\xE0\x80\xAF", f + f + f},            // overlong '/'
      {"\xED\xA0\x80", f + f + f},           // surrogate
      {"\xE2\x82" "A", f + "A"},             // one truncated sequence
      {"end\xF0\x9F\x98", "end" + f},
      {"\xF4\x90\x80\x80", f + f + f + f},   // above U+10FFFF
      {"\xF5\x80\x80\x80", f + f + f + f},
  };
  for (const auto& [text, valid] : rows) {
    EXPECT_EQ(toValidUtf8(text), valid);
    EXPECT_EQ(isValidUtf8(text), text == valid);
  }
}

TEST(EscapeForLogTest, NothingFromOutsideStartsALineOrDrivesTheTerminal) {
  const Rows rows = {
      {"Mousepad", "Mousepad"},
      {"a\n2026-11-23 10:00:00.000 tovrin[1:1] [tovrin] x",
       "a\\u000a2026-11-23 10:00:00.000 tovrin[1:1] [tovrin] x"},
      {"\x1b]0;title\x07\r\x7f", "\\u001b]0;title\\u0007\\u000d\\u007f"},
      // C1 controls (here CSI, U+009B) are escaped; other non-ASCII stays.
      {"\xC2\x9B" "2J caf\xC3\xA9 \xC2\xA0", "\\u009b2J caf\xC3\xA9 \xC2\xA0"},
      {"q\"b\\", "q\\\"b\\\\"},
      {"\xff", "\xEF\xBF\xBD"},
  };
  for (const auto& [text, escaped] : rows) EXPECT_EQ(escapeForLog(text), escaped);
}

TEST(CharacterCountTest, CountsUserPerceivedCharacters) {
  const std::pair<const char*, size_t> rows[] = {
      {"", 0},
      {"e\xCC\x81", 1},                                                     // combining acute
      {"\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD", 1},                              // skin tone
      {"\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F"  // a family of four,
       "\x91\xA7\xE2\x80\x8D\xF0\x9F\x91\xA6", 1},                          // joined by ZWJ
      {"\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", 1},                              // flag
      {"\r\n", 1},
      {"  \n", 3},
      {"\xE6\xBC\xA2\xE5\xAD\x97", 2},
  };
  for (const auto& [text, count] : rows) EXPECT_EQ(countCharacters(text), count) << text;
}

}  // namespace
}  // namespace tovrin
