#include "accessibility/focused_text.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeAttribute;

TEST(FocusedTextTest, EachEndLogsOneLineAndReleasesEverything) {
  const FakeAttribute element{kAXErrorSuccess, std::string("element")};
  const std::string focus = "[tovrin] Accessibility: Could not get focused element (error: ",
                    text = "[tovrin] Accessibility: Could not get selected text (error: ";
  const std::vector<std::string> both = {"AXFocusedUIElement", "AXSelectedText"};
  const std::string emoji = "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD";  // one, of two code points
  const struct {
    FakeAttribute focused, selected;
    std::optional<std::string> text;
    std::string line;
    std::vector<std::string> queries;
  } rows[] = {
      {{kAXErrorAPIDisabled, std::monostate()}, {}, std::nullopt, focus + "-25211)",
       {"AXFocusedUIElement"}},
      {{kAXErrorSuccess, std::monostate()}, {}, std::nullopt, focus + "0)", {"AXFocusedUIElement"}},
      {element, {kAXErrorAttributeUnsupported, std::monostate()}, std::nullopt, text + "-25205)",
       both},
      {element, {kAXErrorSuccess, FakeAttribute::NonString()}, std::nullopt, text + "0)", both},
      {element, {kAXErrorSuccess, std::monostate()}, std::nullopt, text + "0)", both},
      {element, {kAXErrorSuccess, std::string()}, std::nullopt,
       "[tovrin] Accessibility: Selected text is empty", both},
      {element, {kAXErrorSuccess, std::string(" \n ")}, " \n ",
       "[tovrin] Accessibility: Got 3 chars", both},
      {element, {kAXErrorSuccess, emoji}, emoji, "[tovrin] Accessibility: Got 1 chars", both},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    testing::FakeDesktop desktop;
    desktop.focusedElement = row.focused;
    desktop.selectedText = row.selected;
    EXPECT_EQ(getSelectedTextViaAccessibility(desktop), row.text);
    EXPECT_EQ(desktop.logLines, std::vector<std::string>{row.line});
    EXPECT_EQ(desktop.operations, row.queries);
    EXPECT_EQ(desktop.liveHandles(), 0);
  }
}

}  // namespace
}  // namespace tovrin
