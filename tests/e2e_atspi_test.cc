// get-selection end to end with an accessibility bus on the private X
// server: the editor's selection is read over AT-SPI before PRIMARY.

#include <gtest/gtest.h>

#include <signal.h>

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
    const std::string addressFile = (directory_ / "session-bus").string();
    // Its settings (toolkit accessibility on or off) are the test's own.
    SpawnOptions options;
    options.environment = {"GSETTINGS_BACKEND=memory",
                           "HOME=" + directory_.string(),
                           "XDG_CONFIG_HOME=" + (directory_ / "config").string()};
    if (!xvfb().spawn({"dbus-run-session", "--", "sh", "-c",
                       "echo \"$DBUS_SESSION_BUS_ADDRESS\" > " + addressFile +
                           " && exec /usr/libexec/at-spi-bus-launcher "
                           "--launch-immediately"},
                      options)) {
      return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto property = xvfb().run({"xprop", "-root", "AT_SPI_BUS"}, 5s);
      const size_t start =
          property ? property->output.find("\"unix:") : std::string::npos;
      if (start != std::string::npos) {
        accessibilityBus_ = property->output.substr(
            start + 1, property->output.rfind('"') - start - 1);
        std::ifstream(addressFile) >> sessionBus_;
        return !sessionBus_.empty();
      }
      std::this_thread::sleep_for(50ms);
    }
    return false;
  }

  /// Starts mousepad, with its accessibility on, on `text` and selects all
  /// of it; its pid.
  pid_t startAccessibleEditorWithSelection(const std::string& text) {
    const uint32_t window = startApplication(
        {"mousepad", writeFile("note.txt", text)}, "mousepad", true);
    EXPECT_NE(window, 0u);
    EXPECT_TRUE(selectAllUntilPrimaryHolds(window, text));
    const auto pid = xvfb().run(
        {"xdotool", "getwindowpid", std::to_string(window)}, 5s);
    return pid ? static_cast<pid_t>(std::atoi(pid->output.c_str())) : -1;
  }

  /// A property of org.a11y.Status on the session bus, as dbus-send prints
  /// it ("boolean true").
  std::string statusProperty(const std::string& name) {
    const auto reply = xvfb().run(
        {"dbus-send", "--bus=" + sessionBus_, "--print-reply",
         "--dest=org.a11y.Bus", "/org/a11y/bus",
         "org.freedesktop.DBus.Properties.Get", "string:org.a11y.Status",
         "string:" + name},
        5s);
    if (!reply) return "";
    const size_t at = reply->output.find("boolean ");
    if (at == std::string::npos) return "";
    return reply->output.substr(at, reply->output.find('\n', at) - at);
  }

  /// How long the accessibility read took, from its failure line.
  std::optional<double> accessibilitySeconds(const Answer& answer) {
    const std::string marker = "[tovrin] Accessibility failed in ";
    const size_t at = answer.run.standardError.find(marker);
    if (at == std::string::npos) return std::nullopt;
    return std::atof(answer.run.standardError.c_str() + at + marker.size());
  }

  std::string accessibilityBus_;

  bool requirements() {
    return requireProgram("mousepad") && requireProgram("dbus-run-session") &&
           requireProgram("xprop") && requireProgram("dbus-send") &&
           access("/usr/libexec/at-spi-bus-launcher", X_OK) == 0;
  }


  /// Starts `argv`, an editor of `wmClass`, on a file of `text`, selects
  /// all of it, and expects get-selection to read it over AT-SPI from
  /// `source`.
  void expectEditorReadOverAtspi(std::vector<std::string> argv,
                                 const std::string& wmClass,
                                 const std::string& source,
                                 bool offersPrimary = true) {
    ASSERT_TRUE(startAccessibilityBus());
    const std::string text =
        "Hello over AT-SPI\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 "
        "\xF0\x9F\x98\x80";
    argv.push_back(writeFile("note.txt", text));
    const uint32_t window = startApplication(argv, wmClass, true);
    ASSERT_NE(window, 0u);
    Answer result;
    if (offersPrimary) {
      ASSERT_TRUE(selectAllUntilPrimaryHolds(window, text));
      own("clipboard", "saved text");
      result = getSelection();
    } else {
      selectAll(window);
      own("clipboard", "saved text");
      // Nothing outside tells when the selection is made: ask until the
      // editor answers.
      const auto deadline = std::chrono::steady_clock::now() + 10s;
      do {
        result = getSelection();
      } while (result.answer.value("method", "") != "accessibility" &&
               std::chrono::steady_clock::now() < deadline);
    }
    EXPECT_EQ(result.answer, json({{"success", true},
                                   {"text", text},
                                   {"method", "accessibility"}}))
        << result.run.standardError;
    EXPECT_TRUE(logged(result,
                       "] [tovrin] Accessibility: read through AT-SPI from " +
                           source + "\n"))
        << result.run.standardError;
    // User-perceived characters: the emoji is one.
    EXPECT_TRUE(logged(result, "] [tovrin] Accessibility: Got 27 chars\n"))
        << result.run.standardError;
    EXPECT_EQ(readSelection("clipboard"), "saved text");
  }
};

TEST_F(GetSelectionOverAtspiTest, AGtk3EditorsSelectionIsReadOverAtspi) {
  if (!requirements()) GTEST_SKIP() << "mousepad or at-spi2-core is missing";
  expectEditorReadOverAtspi({"mousepad"}, "mousepad", "mousepad (gtk)");
}

TEST_F(GetSelectionOverAtspiTest, AGtk4EditorsSelectionIsReadOverAtspi) {
  if (!requirements() || !requireProgram("gnome-text-editor")) {
    GTEST_SKIP() << "gnome-text-editor or at-spi2-core is missing";
  }
  expectEditorReadOverAtspi({"gnome-text-editor", "--standalone"},
                            "gnome-text-editor", "gnome-text-editor (GTK)");
}

TEST_F(GetSelectionOverAtspiTest, AQtEditorsSelectionIsReadOverAtspi) {
  if (!requirements() || !requireProgram("featherpad")) {
    GTEST_SKIP() << "featherpad or at-spi2-core is missing";
  }
  // Qt does not put a selection made with the keyboard in PRIMARY.
  expectEditorReadOverAtspi({"featherpad"}, "featherpad", "FeatherPad (Qt)",
                            false);
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

TEST_F(GetSelectionOverAtspiTest, ABrowserPageIsReadOverAtspiWhilePrimaryIsElsewhere) {
  if (!requirements() || !requireProgram("chromium")) {
    GTEST_SKIP() << "chromium or at-spi2-core is missing";
  }
  ASSERT_TRUE(startAccessibilityBus());
  startBrowserWithSelection(
      "<p>First paragraph caf&eacute;</p><p>Second <b>bold</b> "
      "<a href='#'>link</a> \xF0\x9F\x98\x80</p>",
      "First paragraph caf\xC3\xA9\n\nSecond bold link \xF0\x9F\x98\x80",
      true);
  // Chromium keeps its selection when another program takes PRIMARY.
  own("primary", "other program");
  own("clipboard", "saved text");

  const Answer result = getSelection();
  EXPECT_EQ(result.answer,
            json({{"success", true},
                  {"text",
                   "First paragraph caf\xC3\xA9\nSecond bold link "
                   "\xF0\x9F\x98\x80"},
                  {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "] [tovrin] Accessibility: read through AT-SPI from "
                     "Chromium (Chromium)\n"))
      << result.run.standardError;
  EXPECT_FALSE(logged(result, "CGEvent"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOverAtspiTest, AFrozenApplicationCostsItsDeadlinesOnly) {
  if (!requirements()) GTEST_SKIP() << "mousepad or at-spi2-core is missing";
  ASSERT_TRUE(startAccessibilityBus());
  const pid_t editor = startAccessibleEditorWithSelection("frozen text");
  ASSERT_GT(editor, 0);
  own("clipboard", "saved text");
  ASSERT_EQ(kill(editor, SIGSTOP), 0);

  const Answer result = getSelection();
  kill(editor, SIGCONT);
  // It answers neither AT-SPI nor the copy keystroke.
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "] [tovrin] Accessibility: Could not get selected text "
                     "(error: -25204)\n"))
      << result.run.standardError;
  // Half a second is its budget, with room for a busy machine; a call
  // without a deadline waits 25 s.
  const auto seconds = accessibilitySeconds(result);
  ASSERT_TRUE(seconds) << result.run.standardError;
  EXPECT_LT(*seconds, 2.0);
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOverAtspiTest, WithoutAnXDisplayTheActiveApplicationAnswers) {
  // As on Wayland, where no client learns which window has the keyboard.
  if (!requirements()) GTEST_SKIP() << "mousepad or at-spi2-core is missing";
  ASSERT_TRUE(startAccessibilityBus());
  startAccessibleEditorWithSelection("active \xE2\x9C\x93");

  const Answer result = runTovrin(
      "get-selection", {{"DISPLAY", ""}, {"AT_SPI_BUS_ADDRESS", accessibilityBus_}});
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", "active \xE2\x9C\x93"},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] Frontmost app: unknown, finder=false\n"));
}

TEST_F(GetSelectionOverAtspiTest, PermissionCommandsCountTheAccessibilityBus) {
  if (!requirements()) GTEST_SKIP() << "at-spi2-core is missing";
  ASSERT_TRUE(startAccessibilityBus());
  const std::map<std::string, std::string> noDisplay = {
      {"DISPLAY", ""}, {"AT_SPI_BUS_ADDRESS", accessibilityBus_}};
  EXPECT_EQ(runTovrin("check-accessibility", noDisplay).answer,
            json({{"success", true}, {"granted", true}}));
  EXPECT_EQ(runTovrin("check-accessibility",
                      {{"DISPLAY", ""},
                       {"AT_SPI_BUS_ADDRESS", ""},
                       {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}})
                .answer,
            json({{"success", true}, {"granted", false}}));

  // Asking turns toolkit accessibility on, and nothing else.
  ASSERT_EQ(statusProperty("IsEnabled"), "boolean false");
  const Answer asked =
      runTovrin("request-accessibility", {{"DBUS_SESSION_BUS_ADDRESS", sessionBus_}});
  EXPECT_EQ(asked.answer, json({{"success", true}, {"granted", true}}));
  EXPECT_TRUE(logged(asked,
                     "] [tovrin] Accessibility: toolkit accessibility is on "
                     "for applications started from now on\n"))
      << asked.run.standardError;
  EXPECT_EQ(statusProperty("IsEnabled"), "boolean true");
  EXPECT_EQ(statusProperty("ScreenReaderEnabled"), "boolean false");
  // Checking never switches anything.
  EXPECT_FALSE(logged(runTovrin("check-accessibility",
                                {{"DBUS_SESSION_BUS_ADDRESS", sessionBus_}}),
                      "toolkit accessibility"));
}

}  // namespace
}  // namespace tovrin::testing
