#include "clipboard/file_paths.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using Lines = std::vector<std::string>;

std::vector<std::string> readPaths(FakeDesktop& desktop) {
  return getFilePathsFromClipboard(desktop, *desktop.generalPasteboard());
}

TEST(FilePathsTest, EveryStrategyCountsItsOwnAndTheCombinedListIsUnique) {
  FakeDesktop desktop;
  desktop.pasteboard.urlObjects = std::vector<PasteboardURLObject>{
      {true, "/Users/me/a.pdf"}, {true, "/Users/me/b c.txt"}};
  desktop.pasteboard.items = std::vector<PasteboardItem>{
      {"file:///Users/me/a.pdf"}, {"file:///Users/me/b%20c.txt"}};
  desktop.pasteboard.filenames =
      PropertyList{Lines{"/Users/me/a.pdf", "/Users/me/b c.txt"}};
  EXPECT_EQ(readPaths(desktop), (Lines{"/Users/me/a.pdf", "/Users/me/b c.txt"}));
  EXPECT_EQ(desktop.logLines,
            (Lines{"[tovrin] File path strategy #1 (readObjects NSURL): 2",
                   "[tovrin] File path strategy #2 (pasteboardItems .fileURL): 2",
                   "[tovrin] File path strategy #3 (NSFilenamesPboardType): 2",
                   "[tovrin] Combined file path extraction: 2 unique path(s)"}));
  EXPECT_EQ(desktop.operations,
            (Lines{"urlObjects", "items", "propertyList NSFilenamesPboardType"}));
}

TEST(FilePathsTest, NothingFoundLogsNothing) {
  FakeDesktop desktop;
  desktop.pasteboard.string = "just text";
  desktop.pasteboard.urlObjects = std::vector<PasteboardURLObject>{};
  desktop.pasteboard.items = std::vector<PasteboardItem>{{std::nullopt}, {""}};
  desktop.pasteboard.filenames = PropertyList{Lines{}};
  EXPECT_TRUE(readPaths(desktop).empty());
  EXPECT_TRUE(desktop.logLines.empty());

  FakeDesktop notStrings;
  notStrings.pasteboard.filenames = PropertyList{std::nullopt};
  notStrings.pasteboard.urlObjects =
      std::vector<PasteboardURLObject>{{true, "/a"}, {false, ""}};
  EXPECT_TRUE(readPaths(notStrings).empty());
  EXPECT_TRUE(notStrings.logLines.empty());
}

TEST(FilePathsTest, ItemTextsThatAreNoFileUrlsAreTakenAsTheyAre) {
  FakeDesktop desktop;
  desktop.pasteboard.items = std::vector<PasteboardItem>{
      {"not a url"},
      {"https://example.com/x"},
      {"file:///tmp/caf%C3%A9/"},
      {"file://localhost/etc/hosts"},
      {"file:"}};
  EXPECT_EQ(readPaths(desktop),
            (Lines{"not a url", "https://example.com/x", "/tmp/caf\xC3\xA9",
                   "/etc/hosts"}));
  // The empty path of "file://" is counted, then dropped.
  EXPECT_EQ(desktop.logLines.front(),
            "[tovrin] File path strategy #2 (pasteboardItems .fileURL): 5");
  EXPECT_EQ(desktop.logLines.back(),
            "[tovrin] Combined file path extraction: 4 unique path(s)");
}

TEST(FilePathsTest, UrlObjectsWithEmptyPathsAreDroppedBeforeCounting) {
  FakeDesktop desktop;
  desktop.pasteboard.urlObjects =
      std::vector<PasteboardURLObject>{{true, ""}, {true, "/x"}};
  EXPECT_EQ(readPaths(desktop), Lines{"/x"});
  EXPECT_EQ(desktop.logLines.front(),
            "[tovrin] File path strategy #1 (readObjects NSURL): 1");
}

TEST(FilePathsTest, FilenamesListEntriesAreCountedUnfilteredThenCleaned) {
  FakeDesktop desktop;
  desktop.pasteboard.filenames = PropertyList{Lines{"", " /x ", "", "/x", "/y"}};
  EXPECT_EQ(readPaths(desktop), (Lines{"/x", "/y"}));
  EXPECT_EQ(desktop.logLines,
            (Lines{"[tovrin] File path strategy #3 (NSFilenamesPboardType): 5",
                   "[tovrin] Combined file path extraction: 2 unique path(s)"}));
}

TEST(DedupePathsTest, TrimsDropsBlanksAndKeepsFirstOccurrences) {
  EXPECT_EQ(dedupePaths({" /a\t", "\n/b\r\n", "/a", "   ", "", "\t\n",
                         "/A", "/b/", "\xC2\xA0/c\xE3\x80\x80",
                         "\xE2\x80\xA8/d\xC2\x85", "\xE2\x80\x8B/e"}),
            (Lines{"/a", "/b", "/A", "/b/", "/c", "/d", "\xE2\x80\x8B/e"}));
}

TEST(DedupePathsTest, NamesThatAreNotUtf8AreRepaired) {
  EXPECT_EQ(dedupePaths({"/tmp/caf\xE9.txt", "/tmp/caf\xE9.txt "}),
            Lines{"/tmp/caf\xEF\xBF\xBD.txt"});
}

TEST(DedupePathsTest, CanonicallyEquivalentPathsAreOne) {
  const std::string composed = "/tmp/caf\xC3\xA9.txt";
  const std::string decomposed = "/tmp/cafe\xCC\x81.txt";
  EXPECT_EQ(dedupePaths({decomposed, composed}), Lines{decomposed});
  EXPECT_EQ(dedupePaths({composed, " " + decomposed}), Lines{composed});
  // Compatibility forms are not canonical equivalents: the ligature stays.
  EXPECT_EQ(dedupePaths({"/\xEF\xAC\x81le", "/file"}).size(), 2u);
}

}  // namespace
}  // namespace tovrin
