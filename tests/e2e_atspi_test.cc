// get-selection end to end with an accessibility bus on the private X
// server: the editor's selection is read over AT-SPI before PRIMARY.

#include <gtest/gtest.h>

#include "e2e_desktop.h"

namespace tovrin::testing {
namespace {

class GetSelectionOverAtspiTest : public RealDesktopTest {
 protected:
  /// Starts an accessibility bus for this display in a session bus of its
  /// own; false when it is not up within its deadline. The launcher
  /// publishes the bus on the root window (AT_SPI_BUS), where applications
  /// and tovrin find it without a session bus.
  bool startAccessibilityBus() {
    if (!xvfb().spawn({"dbus-run-session", "--",
                       "/usr/libexec/at-spi-bus-launcher",
                       "--launch-immediately"})) {
      return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto property = xvfb().run({"xprop", "-root", "AT_SPI_BUS"}, 5s);
      if (property && property->output.find("unix:") != std::string::npos) {
        return true;
      }
      std::this_thread::sleep_for(50ms);
    }
    return false;
  }

  /// Starts mousepad, with its accessibility on, on `text` and selects all
  /// of it.
  void startAccessibleEditorWithSelection(const std::string& text) {
    SpawnOptions options;
    options.environment = {
        "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
        "HOME=" + directory_.string(),
        "XDG_CONFIG_HOME=" + (directory_ / "config").string()};
    ASSERT_TRUE(
        xvfb().spawn({"mousepad", writeFile("note.txt", text)}, options));
    const uint32_t window = visibleWindow("mousepad");
    ASSERT_NE(window, 0u);
    selectAll(window);
    ASSERT_TRUE(waitForSelection("primary", text));
  }

  bool requirements() {
    return requireProgram("mousepad") && requireProgram("dbus-run-session") &&
           requireProgram("xprop") &&
           access("/usr/libexec/at-spi-bus-launcher", X_OK) == 0;
  }
};

TEST_F(GetSelectionOverAtspiTest, AnEditorsSelectionIsReadOverAtspi) {
  if (!requirements()) GTEST_SKIP() << "mousepad or at-spi2-core is missing";
  ASSERT_TRUE(startAccessibilityBus());
  const std::string text =
      "Hello over AT-SPI\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97";
  startAccessibleEditorWithSelection(text);
  own("clipboard", "saved text");

  const Answer result = getSelection();
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", text},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "] [tovrin] Accessibility: read through AT-SPI from "
                     "mousepad (gtk)\n"))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] Accessibility: Got 25 chars\n"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOverAtspiTest, AnotherProgramsPrimaryIsStillNeverTaken) {
  if (!requirements()) GTEST_SKIP() << "mousepad or at-spi2-core is missing";
  ASSERT_TRUE(startAccessibilityBus());
  startAccessibleEditorWithSelection("editor text");
  // The editor drops its selection, and tells so over AT-SPI too.
  own("primary", "other program");
  own("clipboard", "saved text");

  const Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "[tovrin] Accessibility: Could not get selected text "
                     "(error: -25212)"));
  EXPECT_FALSE(logged(result, "read through AT-SPI"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

}  // namespace
}  // namespace tovrin::testing
