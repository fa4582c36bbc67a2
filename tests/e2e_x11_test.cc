// get-selection end to end: the built binary, started as a host starts it,
// against real applications on a private X server with a window manager.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>

#include "e2e_desktop.h"

namespace tovrin::testing {
namespace {

class GetSelectionOnX11Test : public RealDesktopTest {};

TEST_F(GetSelectionOnX11Test, AnEditorsSelectionIsReadDirectly) {
  if (!requireProgram("mousepad")) GTEST_SKIP() << "mousepad is not installed";
  const std::string text = "Hello from mousepad\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97";
  startEditorWithSelection(text);

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", text},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] Accessibility: Got 27 chars\n"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, AnotherProgramsPrimaryIsNeverTaken) {
  if (!requireProgram("mousepad")) GTEST_SKIP() << "mousepad is not installed";
  startEditorWithSelection("editor text");
  // Taking PRIMARY away makes the editor drop its selection.
  own("primary", "other program");

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "[tovrin] Accessibility: Could not get selected text "
                     "(error: -25212)"));
  EXPECT_TRUE(logged(result, "[tovrin] CGEvent: Sent Cmd+C"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, ABrowserCopyBringsTextAndHtml) {
  if (!requireProgram("chromium")) GTEST_SKIP() << "chromium is not installed";
  ASSERT_NO_FATAL_FAILURE(startBrowserWithSelection(
      "<html><body><p>Hello <b>bold</b> world</p></body></html>",
      "Hello bold world"));
  // The browser keeps its selection when PRIMARY goes elsewhere: only the
  // copy brings it.
  own("primary", "other program");

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer["success"], true) << result.run.standardError;
  EXPECT_EQ(result.answer["method"], "cgevent");
  EXPECT_EQ(result.answer["text"], "Hello bold world");
  ASSERT_TRUE(result.answer.contains("html"));
  EXPECT_NE(result.answer["html"].get<std::string>().find("bold</b>"),
            std::string::npos);
  EXPECT_FALSE(result.answer.contains("file_paths"));
  EXPECT_TRUE(logged(result, "[tovrin] CGEvent: Restored original clipboard\n"));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
  EXPECT_LT(result.run.wallTime, 5s);
}

// A Russian layout has no Latin c: the browser copies on Control with the
// key at the US position of C, as when a person presses it.
TEST_F(GetSelectionOnX11Test, ABrowserCopiesUnderACyrillicLayout) {
  if (!requireProgram("chromium") || !requireProgram("setxkbmap")) {
    GTEST_SKIP() << "chromium or setxkbmap is not installed";
  }
  const std::string text = "Hello \xD0\xBC\xD0\xB8\xD1\x80";  // Hello мир
  ASSERT_NO_FATAL_FAILURE(startBrowserWithSelection(
      "<html><head><meta charset=\"utf-8\"></head><body><p>" + text +
          "</p></body></html>",
      text));
  // Selected while the layout is still US: xdotool's Ctrl+A needs a Latin a.
  const auto layout = xvfb().run(
      {"setxkbmap", "-display", xvfb().display(), "-layout", "ru"}, 10s);
  ASSERT_TRUE(layout && layout->exit.code == 0) << "setxkbmap failed";
  // The browser keeps its selection when PRIMARY goes elsewhere: only the
  // copy brings it.
  own("primary", "other program");

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer["success"], true) << result.run.standardError;
  EXPECT_EQ(result.answer["method"], "cgevent");
  EXPECT_EQ(result.answer["text"], text);
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, AFileManagerCopyBringsPaths) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  const auto files = directory_ / "files";
  std::filesystem::create_directories(files);
  std::ofstream(files / "a.txt") << "a";
  std::ofstream(files / "b c.txt") << "b";
  const uint32_t window =
      startApplication({"pcmanfm", "--new-win", files.string()}, "pcmanfm");
  ASSERT_NE(window, 0u);
  selectAll(window);
  std::this_thread::sleep_for(300ms);

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer["success"], true) << result.run.standardError;
  EXPECT_EQ(result.answer["method"], "cgevent");
  EXPECT_FALSE(result.answer.contains("text"));
  EXPECT_FALSE(result.answer.contains("html"));
  auto paths = result.answer["file_paths"].get<std::vector<std::string>>();
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (std::vector<std::string>{(files / "a.txt").string(),
                                             (files / "b c.txt").string()}));
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, AWordProcessorCopyBringsHtml) {
  if (!requireProgram("abiword")) GTEST_SKIP() << "abiword is not installed";
  const uint32_t window = startApplication(
      {"abiword", writeFile("doc.txt", "Rich words here")}, "abiword");
  ASSERT_NE(window, 0u);
  selectAll(window);
  std::this_thread::sleep_for(300ms);
  own("primary", "other program");

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer["method"], "cgevent") << result.run.standardError;
  EXPECT_EQ(result.answer["text"], "Rich words here");
  ASSERT_TRUE(result.answer.contains("html"));
  EXPECT_NE(result.answer["html"].get<std::string>().find("Rich words here"),
            std::string::npos);
  EXPECT_EQ(readSelection("clipboard"), "saved text")
      << result.run.standardError;
}

TEST_F(GetSelectionOnX11Test, ATerminalsProgramIsNeverInterrupted) {
  if (!requireProgram("xterm")) GTEST_SKIP() << "xterm is not installed";
  SpawnOptions options;
  const auto pid = xvfb().spawn({"xterm", "-e", "sleep", "120"}, options);
  ASSERT_TRUE(pid);
  const uint32_t window = visibleWindow("xterm");
  ASSERT_NE(window, 0u);
  xdotool({"windowactivate", "--sync", std::to_string(window)});

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result, "[tovrin] Frontmost app: XTerm, finder=false"));
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(xvfb().running(*pid)) << "the copy keystroke ended the program";
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, AFrozenApplicationCostsBoundedTime) {
  if (!requireProgram("mousepad")) GTEST_SKIP() << "mousepad is not installed";
  SpawnOptions options;
  options.environment = {"NO_AT_BRIDGE=1",
                         "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent"};
  const auto pid =
      xvfb().spawn({"mousepad", writeFile("note.txt", "frozen text")}, options);
  ASSERT_TRUE(pid);
  const uint32_t window = visibleWindow("mousepad");
  ASSERT_NE(window, 0u);
  ASSERT_TRUE(selectAllUntilPrimaryHolds(window, "frozen text"));
  ASSERT_TRUE(xvfb().signal(*pid, SIGSTOP));

  // Owned last: some applications take CLIPBOARD while they start.
  own("clipboard", "saved text");
  const Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "[tovrin] Accessibility: Could not get selected text "
                     "(error: -25204)"));
  EXPECT_LT(result.run.wallTime, 5s);
  xvfb().signal(*pid, SIGCONT);
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

TEST_F(GetSelectionOnX11Test, AClipboardManagerIsNotMistakenForACopy) {
  if (!requireProgram("mousepad") || !requireProgram("xfce4-clipman")) {
    GTEST_SKIP() << "mousepad or xfce4-clipman is not installed";
  }
  ASSERT_TRUE(xvfb().spawn({"xfce4-clipman"}));
  startEditorWithSelection("editor text");
  own("primary", "other program");

  own("clipboard", "saved text");
  // The manager copies every new owner's content, and would put it back
  // when the clipboard is emptied.
  std::this_thread::sleep_for(500ms);
  const Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_EQ(readSelection("clipboard"), "saved text");
}

}  // namespace
}  // namespace tovrin::testing
