#include "accessibility/focused_text.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeAttribute;
using testing::FakeDesktop;

struct Case {
  const char* name;
  FakeAttribute focused;
  FakeAttribute selected;
  std::optional<std::string> text;
  std::string line;
  int queries;
};

TEST(FocusedTextTest, EachEndLogsOneLineAndReleasesEverything) {
  const FakeAttribute element{kAXErrorSuccess, std::string("element")};
  const Case cases[] = {
      {"focus query fails", {kAXErrorAPIDisabled, std::monostate()}, {},
       std::nullopt,
       "[tovrin] Accessibility: Could not get focused element (error: -25211)",
       1},
      {"focus query gives no element", {kAXErrorSuccess, std::monostate()}, {},
       std::nullopt,
       "[tovrin] Accessibility: Could not get focused element (error: 0)", 1},
      {"no selected-text attribute", element,
       {kAXErrorAttributeUnsupported, std::monostate()}, std::nullopt,
       "[tovrin] Accessibility: Could not get selected text (error: -25205)",
       2},
      {"selected text is not a string", element,
       {kAXErrorSuccess, FakeAttribute::NonString()}, std::nullopt,
       "[tovrin] Accessibility: Could not get selected text (error: 0)", 2},
      {"selected text is absent", element, {kAXErrorSuccess, std::monostate()},
       std::nullopt,
       "[tovrin] Accessibility: Could not get selected text (error: 0)", 2},
      {"empty selection", element, {kAXErrorSuccess, std::string()}, std::nullopt,
       "[tovrin] Accessibility: Selected text is empty", 2},
      {"blanks are text", element, {kAXErrorSuccess, std::string(" \n ")}, " \n ",
       "[tovrin] Accessibility: Got 3 chars", 2},
      {"one emoji of several code points", element,
       {kAXErrorSuccess, std::string("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD")},
       "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD", "[tovrin] Accessibility: Got 1 chars",
       2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeDesktop desktop;
    desktop.focusedElement = c.focused;
    desktop.selectedText = c.selected;
    EXPECT_EQ(getSelectedTextViaAccessibility(desktop), c.text);
    EXPECT_EQ(desktop.logLines, std::vector<std::string>{c.line});
    EXPECT_EQ(desktop.attributeQueries.size(), static_cast<size_t>(c.queries));
    EXPECT_EQ(desktop.liveHandles(), 0);
  }
}

}  // namespace
}  // namespace tovrin
