#include "text/url_uriparser.h"

#include <gtest/gtest.h>

#include <string>

namespace tovrin {
namespace {

std::string describe(const std::optional<ParsedURL>& url) {
  if (!url) return "nothing";
  return std::string(url->isFileURL ? "file " : "other ") + url->path;
}

TEST(ParseURLWithUriparserTest, FileURLsGiveTheirDecodedPath) {
  EXPECT_EQ(describe(parseURLWithUriparser("file:///tmp/a.txt")),
            "file /tmp/a.txt");
  EXPECT_EQ(describe(parseURLWithUriparser("file:///a%20b/c%C3%A9")),
            "file /a b/c\xC3\xA9");
  // An escaped slash stays part of a name only in the URL; once decoded it
  // is a byte like any other.
  EXPECT_EQ(describe(parseURLWithUriparser("file:///x%2Fy")), "file /x/y");
  EXPECT_EQ(describe(parseURLWithUriparser("file:///100%25")), "file /100%");
  // Query and fragment are not part of the path.
  EXPECT_EQ(describe(parseURLWithUriparser("file:///a/b?x=1#top")),
            "file /a/b");
}

TEST(ParseURLWithUriparserTest, HostMustBeEmptyOrLocalhost) {
  EXPECT_EQ(describe(parseURLWithUriparser("file://localhost/etc/hosts")),
            "file /etc/hosts");
  EXPECT_EQ(describe(parseURLWithUriparser("file://LocalHost/etc")),
            "file /etc");
  EXPECT_EQ(describe(parseURLWithUriparser("file://server/share/x")),
            "other /share/x");
}

TEST(ParseURLWithUriparserTest, SchemeIsComparedWithoutCase) {
  EXPECT_EQ(describe(parseURLWithUriparser("FILE:///Users/me")),
            "file /Users/me");
  EXPECT_EQ(describe(parseURLWithUriparser("File:/no/authority")),
            "file /no/authority");
}

TEST(ParseURLWithUriparserTest, OneTrailingSlashIsDroppedButNotTheRoot) {
  EXPECT_EQ(describe(parseURLWithUriparser("file:///a%20b/")), "file /a b");
  EXPECT_EQ(describe(parseURLWithUriparser("file://localhost/")), "file /");
  EXPECT_EQ(describe(parseURLWithUriparser("file:///")), "file /");
  EXPECT_EQ(describe(parseURLWithUriparser("file://localhost")), "file /");
}

TEST(ParseURLWithUriparserTest, EscapedNulIsKeptAsAByte) {
  auto url = parseURLWithUriparser("file:///a%00b");
  ASSERT_TRUE(url.has_value());
  EXPECT_EQ(url->path, std::string("/a\0b", 4));
}

TEST(ParseURLWithUriparserTest, OtherSchemesAreNotFileURLs) {
  EXPECT_EQ(describe(parseURLWithUriparser("http://example.com/a%20b")),
            "other /a b");
  EXPECT_EQ(describe(parseURLWithUriparser("https://example.com")), "other ");
  EXPECT_EQ(describe(parseURLWithUriparser("mailto:someone@example.com")),
            "other someone@example.com");
  EXPECT_EQ(describe(parseURLWithUriparser("smb://host/file")), "other /file");
}

TEST(ParseURLWithUriparserTest, TextThatIsNoAbsoluteURIGivesNothing) {
  for (const char* text :
       {"", "not a url", "file://host with spaces", "file:///a b",
        "/just/a/path", "relative/path", "file:///bad%zzescape",
        "file:///trailing%2", "://missing-scheme", "1http://x",
        "file:///line\nbreak"}) {
    EXPECT_EQ(describe(parseURLWithUriparser(text)), "nothing")
        << "for \"" << text << "\"";
  }
}

}  // namespace
}  // namespace tovrin
