#include "platform/wayland/offers.h"

#include <gtest/gtest.h>

namespace tovrin {
namespace {

using Types = std::vector<std::string>;

TEST(WaylandOffersTest, TextIsAskedForInTheBestTypeTheOfferLists) {
  // Offered in the owner's order; asked for in ours.
  EXPECT_EQ(typesToRead(PasteboardType::kString,
                        {"text/plain", "UTF8_STRING",
                         "text/plain;charset=utf-8", "TEXT"}),
            (Types{"text/plain;charset=utf-8", "UTF8_STRING", "text/plain"}));
  // STRING and TEXT are never read: owners put Latin-1 or anything there.
  EXPECT_EQ(typesToRead(PasteboardType::kString, {"STRING", "TEXT"}), Types{});
  EXPECT_EQ(typesToRead(PasteboardType::kHTML,
                        {"text/plain", "text/html", "text/rtf"}),
            Types{"text/html"});
  EXPECT_EQ(typesToRead(PasteboardType::kRTF,
                        {"application/rtf", "text/html", "text/rtf"}),
            (Types{"text/rtf", "application/rtf"}));
  EXPECT_EQ(typesToRead(PasteboardType::kRTF, {"text/plain"}), Types{});
}

TEST(WaylandOffersTest, BytesBecomeThePasteboardsText) {
  // GTK ends lines with CRLF under the text/plain types only.
  EXPECT_EQ(textFromOffer("text/plain;charset=utf-8", "a\r\nb\r\n"), "a\nb\n");
  EXPECT_EQ(textFromOffer("text/plain", "a\r\nb"), "a\nb");
  EXPECT_EQ(textFromOffer("UTF8_STRING", "a\r\nb"), "a\r\nb");
  // A lone CR stays; one trailing NUL goes; broken UTF-8 is repaired.
  EXPECT_EQ(textFromOffer("text/plain;charset=utf-8", "a\rb"), "a\rb");
  EXPECT_EQ(textFromOffer("UTF8_STRING", std::string("caf\xC3\xA9\0", 6)),
            "caf\xC3\xA9");
  EXPECT_EQ(textFromOffer("UTF8_STRING", "a\xFF" "b"), "a\xEF\xBF\xBD" "b");
  // HTML in UTF-16 with a byte-order mark, as Firefox offers it.
  EXPECT_EQ(textFromOffer("text/html", std::string("\xFF\xFE<\0b\0>\0", 8)),
            "<b>");
}

TEST(WaylandOffersTest, ServedTextIsLatin1OnlyUnderString) {
  const Types types = servedTextTypes();
  EXPECT_EQ(types.front(), "text/plain;charset=utf-8");
  for (const std::string& type : types) {
    EXPECT_EQ(servedTextFor(type, "caf\xC3\xA9"),
              type == "STRING" ? "caf\xE9" : "caf\xC3\xA9")
        << type;
  }
  // Text without a Latin-1 form stays UTF-8 there too.
  EXPECT_EQ(servedTextFor("STRING", "\xE6\xBC\xA2"), "\xE6\xBC\xA2");
}

}  // namespace
}  // namespace tovrin
