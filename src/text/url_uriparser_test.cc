#include "text/url_uriparser.h"

#include <gtest/gtest.h>

#include <string>

namespace tovrin {
namespace {

TEST(ParseURLWithUriparserTest, GivesFileURLsTheirDecodedPathAndOthersNothingOrTheirPath) {
  const std::pair<std::string, std::string> rows[] = {
      {"file:///a%20b/c%C3%A9", "file /a b/c\xC3\xA9"},
      // An escaped slash stays part of a name only in the URL; once decoded
      // it is a byte like any other. An escaped NUL is kept as a byte.
      {"file:///x%2Fy", "file /x/y"},
      {"file:///100%25", "file /100%"},
      {"file:///a%00b", std::string("file /a\0b", 9)},
      // Query and fragment are not part of the path.
      {"file:///a/b?x=1#top", "file /a/b"},
      // The host must be empty or localhost; the scheme has no case.
      {"file://localhost/etc/hosts", "file /etc/hosts"},
      {"file://LocalHost/etc", "file /etc"},
      {"file://server/share/x", "other /share/x"},
      {"FILE:///Users/me", "file /Users/me"},
      {"File:/no/authority", "file /no/authority"},
      // One trailing slash is dropped, but not the root.
      {"file:///a%20b/", "file /a b"},
      {"file:///", "file /"},
      {"file://localhost", "file /"},
      {"http://example.com/a%20b", "other /a b"},
      {"https://example.com", "other "},
      {"mailto:someone@example.com", "other someone@example.com"},
      {"smb://host/file", "other /file"},
  };
  for (const auto& [text, parsed] : rows) {
    const std::optional<ParsedURL> url = parseURLWithUriparser(text);
    EXPECT_EQ(!url ? "nothing" : (url->isFileURL ? "file " : "other ") + url->path, parsed)
        << "for \"" << text << "\"";
  }
  // Text that is no absolute URI gives nothing.
  for (const char* text : {"", "not a url", "file://host with spaces", "file:///a b",
                           "/just/a/path", "relative/path", "file:///bad%zzescape",
                           "file:///trailing%2", "://missing-scheme", "1http://x",
                           "file:///line\nbreak"}) {
    EXPECT_FALSE(parseURLWithUriparser(text).has_value()) << "for \"" << text << "\"";
  }
}

}  // namespace
}  // namespace tovrin
