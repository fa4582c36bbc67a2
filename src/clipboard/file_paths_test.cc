#include "clipboard/file_paths.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::PasteboardContents;
using Lines = std::vector<std::string>;
using Urls = std::vector<PasteboardURLObject>;
using Items = std::vector<PasteboardItem>;

const std::string kOne = "[tovrin] File path strategy #1 (readObjects NSURL): ",
                  kTwo = "[tovrin] File path strategy #2 (pasteboardItems .fileURL): ",
                  kThree = "[tovrin] File path strategy #3 (NSFilenamesPboardType): ",
                  kAll = "[tovrin] Combined file path extraction: ";

TEST(FilePathsTest, EveryStrategyCountsItsOwnAndTheCombinedListIsUnique) {
  const struct {
    PasteboardContents contents;
    Lines paths, lines;
  } rows[] = {
      {{.urlObjects = Urls{{true, "/Users/me/a.pdf"}, {true, "/Users/me/b c.txt"}},
        .items = Items{{"file:///Users/me/a.pdf"}, {"file:///Users/me/b%20c.txt"}},
        .filenames = PropertyList{Lines{"/Users/me/a.pdf", "/Users/me/b c.txt"}}},
       {"/Users/me/a.pdf", "/Users/me/b c.txt"},
       {kOne + "2", kTwo + "2", kThree + "2", kAll + "2 unique path(s)"}},
      // Nothing found logs nothing.
      {{.string = "just text", .urlObjects = Urls{}, .items = Items{{std::nullopt}, {""}},
        .filenames = PropertyList{Lines{}}},
       {}, {}},
      {{.urlObjects = Urls{{true, "/a"}, {false, ""}}, .filenames = PropertyList{std::nullopt}},
       {}, {}},
      // Item texts that are no file URLs are taken as they are; the empty
      // path of "file:" is counted, then dropped.
      {{.items = Items{{"not a url"}, {"https://example.com/x"}, {"file:///tmp/caf%C3%A9/"},
                       {"file://localhost/etc/hosts"}, {"file:"}}},
       {"not a url", "https://example.com/x", "/tmp/caf\xC3\xA9", "/etc/hosts"},
       {kTwo + "5", kAll + "4 unique path(s)"}},
      // URL objects with empty paths are dropped before counting.
      {{.urlObjects = Urls{{true, ""}, {true, "/x"}}},
       {"/x"},
       {kOne + "1", kAll + "1 unique path(s)"}},
      // The file names list is counted unfiltered, then cleaned.
      {{.filenames = PropertyList{Lines{"", " /x ", "", "/x", "/y"}}},
       {"/x", "/y"}, {kThree + "5", kAll + "2 unique path(s)"}},
  };
  for (const auto& row : rows) {
    testing::FakeDesktop desktop;
    desktop.pasteboard = row.contents;
    EXPECT_EQ(getFilePathsFromClipboard(desktop, desktop), row.paths);
    EXPECT_EQ(desktop.logLines, row.lines);
    EXPECT_EQ(desktop.operations,
              (Lines{"urlObjects", "items", "propertyList NSFilenamesPboardType"}));
  }
}

TEST(DedupePathsTest, TrimsRepairsAndKeepsTheFirstOfEquivalentPaths) {
  const std::string composed = "/tmp/caf\xC3\xA9.txt", decomposed = "/tmp/cafe\xCC\x81.txt";
  const std::pair<Lines, Lines> rows[] = {
      // White space (also no-break, ideographic, line separator, NEL) is
      // trimmed; blanks go; a zero-width space is no white space.
      {{" /a\t", "\n/b\r\n", "/a", "   ", "", "\t\n", "/A", "/b/", "\xC2\xA0/c\xE3\x80\x80",
        "\xE2\x80\xA8/d\xC2\x85", "\xE2\x80\x8B/e"},
       {"/a", "/b", "/A", "/b/", "/c", "/d", "\xE2\x80\x8B/e"}},
      // Names that are not UTF-8 are repaired.
      {{"/tmp/caf\xE9.txt", "/tmp/caf\xE9.txt "}, {"/tmp/caf\xEF\xBF\xBD.txt"}},
      // Canonically equivalent paths are one; compatibility forms are not.
      {{decomposed, composed}, {decomposed}},
      {{composed, " " + decomposed}, {composed}},
      {{"/\xEF\xAC\x81le", "/file"}, {"/\xEF\xAC\x81le", "/file"}},
  };
  for (const auto& [paths, unique] : rows) EXPECT_EQ(dedupePaths(paths), unique);
}

}  // namespace
}  // namespace tovrin
