#include "text/text.h"

#include <gtest/gtest.h>

namespace tovrin {
namespace {

TEST(Utf8Test, EachIllFormedSubpartBecomesOneReplacementCharacter) {
  const std::string kFffd = "\xEF\xBF\xBD";
  EXPECT_EQ(toValidUtf8("plain"), "plain");
  EXPECT_EQ(toValidUtf8("caf\xC3\xA9"), "caf\xC3\xA9");
  EXPECT_EQ(toValidUtf8("\xff"), kFffd);
  EXPECT_EQ(toValidUtf8("a\xC3"), "a" + kFffd);         // truncated
  EXPECT_EQ(toValidUtf8("\xC0\xAF"), kFffd + kFffd);    // overlong '/'
  EXPECT_EQ(toValidUtf8("\xED\xA0\x80"), kFffd + kFffd + kFffd);  // surrogate
  EXPECT_EQ(toValidUtf8("\xE2\x82" "A"), kFffd + "A");  // one truncated
  EXPECT_EQ(toValidUtf8("end\xF0\x9F\x98"), "end" + kFffd);
  EXPECT_EQ(toValidUtf8("\xF4\x90\x80\x80"), kFffd + kFffd + kFffd + kFffd);
  EXPECT_EQ(toValidUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));
  EXPECT_TRUE(isValidUtf8(toValidUtf8("\xF5\x80\x80\x80 \xF4\x90\x80\x80")));
}

TEST(EscapeForLogTest, NothingFromOutsideStartsALineOrDrivesTheTerminal) {
  EXPECT_EQ(escapeForLog("Mousepad"), "Mousepad");
  EXPECT_EQ(escapeForLog("a\n2026-11-23 10:00:00.000 tovrin[1:1] [tovrin] x"),
            "a\\u000a2026-11-23 10:00:00.000 tovrin[1:1] [tovrin] x");
  EXPECT_EQ(escapeForLog("\x1b]0;title\x07\r\x7f"),
            "\\u001b]0;title\\u0007\\u000d\\u007f");
  // C1 controls (here CSI, U+009B) are escaped; other non-ASCII stays.
  EXPECT_EQ(escapeForLog("\xC2\x9B" "2J caf\xC3\xA9 \xC2\xA0"),
            "\\u009b2J caf\xC3\xA9 \xC2\xA0");
  EXPECT_EQ(escapeForLog("q\"b\\"), "q\\\"b\\\\");
  EXPECT_EQ(escapeForLog("\xff"), "\xEF\xBF\xBD");
}

TEST(CharacterCountTest, CountsUserPerceivedCharacters) {
  EXPECT_EQ(countCharacters(""), 0u);
  EXPECT_EQ(countCharacters("Hello"), 5u);
  EXPECT_EQ(countCharacters("e\xCC\x81"), 1u);  // e + combining acute
  EXPECT_EQ(countCharacters("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD"), 1u);  // skin tone
  // A family: four people joined by zero-width joiners.
  EXPECT_EQ(countCharacters("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2"
                            "\x80\x8D\xF0\x9F\x91\xA7\xE2\x80\x8D\xF0\x9F\x91"
                            "\xA6"),
            1u);
  EXPECT_EQ(countCharacters("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"), 1u);  // flag
  EXPECT_EQ(countCharacters("\r\n"), 1u);
  EXPECT_EQ(countCharacters("  \n"), 3u);
  EXPECT_EQ(countCharacters("\xE6\xBC\xA2\xE5\xAD\x97"), 2u);
}

}  // namespace
}  // namespace tovrin
