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

TEST(DecodeHtmlTest, FollowsTheByteOrderMark) {
  // "<b>é😀</b>" in UTF-16 LE and BE, with a trailing NUL.
  const std::string le =
      "\xFF\xFE<\0b\0>\0\xE9\0\x3D\xD8\x00\xDE<\0/\0b\0>\0\0\0"s;
  const std::string be =
      "\xFE\xFF\0<\0b\0>\0\xE9\xD8\x3D\xDE\x00\0<\0/\0b\0>\0\0"s;
  const std::string expected = "<b>\xC3\xA9\xF0\x9F\x98\x80</b>";
  EXPECT_EQ(decodeHtml(le), expected);
  EXPECT_EQ(decodeHtml(be), expected);
  EXPECT_EQ(decodeHtml("\xEF\xBB\xBF<p>x</p>"), "<p>x</p>");
  EXPECT_EQ(decodeHtml("<p>x</p>"), "<p>x</p>");
}

TEST(DecodeHtmlTest, DropsOneTrailingNulAndReplacesBrokenUnits) {
  EXPECT_EQ(decodeHtml("<p>\0\0"s), "<p>\0"s);
  const std::string r = "\xEF\xBF\xBD";
  // A lone high surrogate, then an odd last byte.
  EXPECT_EQ(decodeHtml("\xFF\xFE\x3D\xD8"
                       "a\0"
                       "b"s),
            r + "a" + r);
  EXPECT_EQ(decodeHtml("<i>\xE9</i>"), "<i>" + r + "</i>");
}

TEST(CrlfToLfTest, TurnsOnlyPairsIntoLineFeeds) {
  EXPECT_EQ(crlfToLf("a\r\nb\rc\n\r\n\r"), "a\nb\rc\n\n\r");
}

TEST(UriListTest, ReadsLinesOfEitherEndingAndSkipsComments) {
  EXPECT_EQ(uriListEntries("# a comment\r\nfile:///a\r\n\r\nhttp://x/y\n"
                           "file:///b"),
            (Strings{"file:///a", "http://x/y", "file:///b"}));
  EXPECT_EQ(uriListEntries("file:///c\r\n\0"s), (Strings{"file:///c"}));
  EXPECT_TRUE(uriListEntries("").empty());
}

TEST(UriListTest, KeepsOnlyFileURLsAsDecodedPaths) {
  // As pcmanfm sends it: CRLF line ends and a trailing NUL.
  const std::string list =
      "file:///home/u/a%20b.txt\r\n"
      "http://example.com/page\r\n"
      "file://localhost/etc/hosts\r\n"
      "file://otherhost/share\r\n"
      "not a url\r\n"
      "FILE:///tmp/dir/\r\n\0"s;
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
  // Items that name no local file are left out too.
  EXPECT_EQ(urlsOf(itemsFromGnomeCopiedFiles(
                "copy\nfile:///a\nsmb://server/b\nfile:///c%00d\nrel\n")),
            (Strings{"file:///a"}));
}

TEST(GnomeCopiedFilesTest, GivesOneItemPerURIAfterTheOperation) {
  EXPECT_EQ(
      urlsOf(itemsFromGnomeCopiedFiles("copy\nfile:///a\nfile:///b%20c\0"s)),
      (Strings{"file:///a", "file:///b%20c"}));
  EXPECT_EQ(urlsOf(itemsFromGnomeCopiedFiles("cut\r\nfile:///x\r\n")),
            (Strings{"file:///x"}));
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("copy").empty());
}

TEST(GnomeCopiedFilesTest, OtherFirstLinesGiveNoItems) {
  EXPECT_TRUE(itemsFromGnomeCopiedFiles(
                  "x-special/nautilus-clipboard\ncopy\nfile:///a\n")
                  .empty());
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("file:///a\nfile:///b").empty());
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("").empty());
}

TEST(Latin1IfRepresentableTest, EncodesLatin1TextAndLeavesTheRest) {
  EXPECT_EQ(latin1IfRepresentable("caf\xC3\xA9 \xC2\xA0!"), "caf\xE9 \xA0!");
  EXPECT_EQ(latin1IfRepresentable("5 \xE2\x82\xAC"), "5 \xE2\x82\xAC");
  EXPECT_EQ(latin1IfRepresentable("ascii"), "ascii");
}

}  // namespace
}  // namespace tovrin
