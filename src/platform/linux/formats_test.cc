#include "platform/linux/formats.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/x11/clipboard_fixture.h"

namespace tovrin {
namespace {

using namespace std::string_literals;
using tovrin::testing::pathsOf;
using tovrin::testing::Strings;
using tovrin::testing::urlsOf;

TEST(DecodeHtmlTest, FollowsTheByteOrderMarkAndRepairsBrokenUnits) {
  const std::string bold = "<b>\xC3\xA9\xF0\x9F\x98\x80</b>";
  const std::string r = "\xEF\xBF\xBD";
  const std::pair<std::string, std::string> cases[] = {
      // "<b>é😀</b>" in UTF-16 LE and BE, with a trailing NUL.
      {"\xFF\xFE<\0b\0>\0\xE9\0\x3D\xD8\x00\xDE<\0/\0b\0>\0\0\0"s, bold},
      {"\xFE\xFF\0<\0b\0>\0\xE9\xD8\x3D\xDE\x00\0<\0/\0b\0>\0\0"s, bold},
      {"\xEF\xBB\xBF<p>x</p>", "<p>x</p>"},
      {"<p>\0\0"s, "<p>\0"s},  // one trailing NUL goes
      // A lone high surrogate, then an odd last byte.
      {"\xFF\xFE\x3D\xD8" "a\0b"s, r + "a" + r},
      {"<i>\xE9</i>", "<i>" + r + "</i>"},
  };
  for (const auto& [bytes, html] : cases) {
    EXPECT_EQ(decodeHtml(bytes), html) << bytes;
  }
}

TEST(CrlfToLfTest, TurnsOnlyPairsIntoLineFeeds) {
  EXPECT_EQ(crlfToLf("a\r\nb\rc\n\r\n\r"), "a\nb\rc\n\n\r");
}

TEST(UriListTest, ReadsLinesOfEitherEndingAndKeepsFileURLsAsPaths) {
  EXPECT_EQ(uriListEntries("# a comment\r\nfile:///a\r\n\r\nhttp://x/y\n"
                           "file:///b"),
            (Strings{"file:///a", "http://x/y", "file:///b"}));
  EXPECT_EQ(uriListEntries("file:///c\r\n\0"s), (Strings{"file:///c"}));
  EXPECT_TRUE(uriListEntries("").empty());
  // As pcmanfm sends it: CRLF line ends and a trailing NUL.
  const std::string list =
      "file:///home/u/a%20b.txt\r\nhttp://example.com/page\r\n"
      "file://localhost/etc/hosts\r\nfile://otherhost/share\r\n"
      "not a url\r\nFILE:///tmp/dir/\r\n\0"s;
  EXPECT_EQ(pathsOf(fileURLObjectsFromUriList(list)),
            (Strings{"/home/u/a b.txt", "/etc/hosts", "/tmp/dir"}));
}

TEST(LocalFilePathTest, OnlyAbsolutePathsOfThisMachineWithoutNul) {
  EXPECT_EQ(localFilePath("file:///home/u/caf%E9.txt"), "/home/u/caf\xE9.txt");
  EXPECT_EQ(localFilePath("file://localhost/etc/hosts"), "/etc/hosts");
  for (const char* uri :
       {"file://server/share/a.txt", "smb://server/share/a.txt",
        "file:relative/a.txt", "file:a.txt", "file:///tmp/a%00.txt",
        "/tmp/plain-path", "sftp://host/tmp/a"}) {
    EXPECT_EQ(localFilePath(uri), std::nullopt) << uri;
  }
}

TEST(GnomeCopiedFilesTest, GivesOneItemPerLocalFileAfterTheOperation) {
  const std::pair<std::string, Strings> cases[] = {
      {"copy\nfile:///a\nfile:///b%20c\0"s, {"file:///a", "file:///b%20c"}},
      {"cut\r\nfile:///x\r\n", {"file:///x"}},
      {"copy", {}},
      // Other first lines give no items.
      {"x-special/nautilus-clipboard\ncopy\nfile:///a\n", {}},
      {"", {}},
      // Items that name no local file are left out.
      {"copy\nfile:///a\nsmb://server/b\nfile:///c%00d\nrel\n", {"file:///a"}},
  };
  for (const auto& [bytes, urls] : cases) {
    EXPECT_EQ(urlsOf(itemsFromGnomeCopiedFiles(bytes)), urls) << bytes;
  }
}

TEST(Latin1IfRepresentableTest, EncodesLatin1TextAndLeavesTheRest) {
  EXPECT_EQ(latin1IfRepresentable("caf\xC3\xA9 \xC2\xA0!"), "caf\xE9 \xA0!");
  EXPECT_EQ(latin1IfRepresentable("5 \xE2\x82\xAC"), "5 \xE2\x82\xAC");
}

}  // namespace
}  // namespace tovrin
