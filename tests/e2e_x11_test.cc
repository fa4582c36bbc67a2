// get-selection end to end: the built binary, started as a host starts it,
// against real applications on a private X server with a window manager.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "process.h"
#include "xvfb_session.h"

namespace tovrin::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class GetSelectionOnX11Test : public XvfbTest {
 protected:
  GetSelectionOnX11Test() {
    xvfbOptions_.windowManager = true;
    directory_ = std::filesystem::temp_directory_path() /
                 ("tovrin-e2e-" + std::to_string(getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(directory_);
  }
  ~GetSelectionOnX11Test() override {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  /// Skips the test when `program` is not installed.
  bool requireProgram(const std::string& program) {
    for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"}) {
      if (access((dir + program).c_str(), X_OK) == 0) return true;
    }
    return false;
  }

  std::string writeFile(const std::string& name, const std::string& content) {
    const auto path = directory_ / name;
    std::ofstream(path) << content;
    return path;
  }

  /// Starts `argv` and waits for its window; the window id, or 0.
  uint32_t startApplication(const std::vector<std::string>& argv,
                            const std::string& wmClass) {
    SpawnOptions options;
    options.environment = {"NO_AT_BRIDGE=1",
                           // No session bus: each test's editor runs alone
                           // instead of handing its file to another's.
                           "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
                           "HOME=" + directory_.string(),
                           "XDG_CONFIG_HOME=" + (directory_ / "config").string()};
    if (!xvfb().spawn(argv, options)) return 0;
    return visibleWindow(wmClass);
  }

  /// The first mapped window of `wmClass`: toolkits also give WM_CLASS to
  /// hidden leader windows, which cannot be activated.
  uint32_t visibleWindow(const std::string& wmClass) {
    // xdotool gives up on its search when a window vanishes under it, as
    // starting applications' windows do: search again until the deadline.
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto found = xvfb().run(
          {"xdotool", "search", "--sync", "--onlyvisible", "--class", wmClass},
          30s);
      if (found && found->exit.code == 0) {
        return static_cast<uint32_t>(
            std::strtoul(found->output.c_str(), nullptr, 10));
      }
      std::this_thread::sleep_for(100ms);
    }
    return 0;
  }

  void xdotool(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {"xdotool"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    const auto result = xvfb().run(argv, 10s);
    ASSERT_TRUE(result && result->exit.code == 0) << "xdotool failed";
  }

  /// Activates `window` and selects everything in it.
  void selectAll(uint32_t window) {
    xdotool({"windowactivate", "--sync", std::to_string(window)});
    xdotool({"key", "--clearmodifiers", "ctrl+a"});
  }

  /// Starts mousepad on `text` and selects all of it, which puts it in
  /// PRIMARY.
  void startEditorWithSelection(const std::string& text) {
    const uint32_t window =
        startApplication({"mousepad", writeFile("note.txt", text)}, "mousepad");
    ASSERT_NE(window, 0u);
    selectAll(window);
    ASSERT_TRUE(waitForSelection("primary", text));
  }

  /// Starts Chromium on a page of `html` and selects all of it, which puts
  /// `text` in PRIMARY.
  void startBrowserWithSelection(const std::string& html,
                                 const std::string& text) {
    const std::string page = writeFile("page.html", html);
    const uint32_t window = startApplication(
        {"chromium", "--no-sandbox", "--no-first-run", "--disable-gpu",
         "--disable-background-networking", "--disable-component-update",
         "--disable-sync", "--password-store=basic",
         "--user-data-dir=" + (directory_ / "chromium").string(),
         "file://" + page},
        "chromium");
    ASSERT_NE(window, 0u);
    // The page needs a moment to render before select-all finds its text.
    std::optional<std::string> selected;
    for (int attempt = 0; attempt < 40 && selected != text; ++attempt) {
      selectAll(window);
      std::this_thread::sleep_for(250ms);
      selected = readSelection("primary");
    }
    ASSERT_EQ(selected, text);
  }

  std::optional<std::string> readSelection(const std::string& selection) {
    const auto result =
        xvfb().run({"xclip", "-o", "-selection", selection}, 5s);
    if (!result || result->exit.code != 0) return std::nullopt;
    return result->output;
  }

  /// Waits until `selection` holds `text`.
  bool waitForSelection(const std::string& selection, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
      if (readSelection(selection) == text) return true;
      std::this_thread::sleep_for(50ms);
    }
    return false;
  }

  /// Makes xclip own `selection` with `text`.
  void own(const std::string& selection, const std::string& text) {
    SpawnOptions options;
    options.input = text;
    ASSERT_TRUE(xvfb().spawn({"xclip", "-selection", selection, "-i"}, options));
    ASSERT_TRUE(waitForSelection(selection, text));
  }

  struct Answer {
    ProcessResult run;
    json answer;
  };

  /// Runs get-selection as a host does: both output streams read to their
  /// end through pipes.
  Answer getSelection() {
    Answer result;
    result.run = runProcess(TOVRIN_BINARY, {"tovrin", "get-selection"},
                            {{"DISPLAY", xvfb().display()}}, 20s);
    EXPECT_FALSE(result.run.timedOut) << result.run.standardError;
    EXPECT_EQ(result.run.exitStatus, 0);
    const auto lines = splitLines(result.run.standardOutput);
    EXPECT_EQ(lines.size(), 1u) << result.run.standardOutput;
    if (!lines.empty()) result.answer = json::parse(lines[0]);
    return result;
  }

  bool logged(const Answer& answer, const std::string& text) {
    return answer.run.standardError.find(text) != std::string::npos;
  }

  std::filesystem::path directory_;
};

const json kNothing = {{"success", false},
                       {"error", "No text selected or could not copy"}};

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
  selectAll(window);
  ASSERT_TRUE(waitForSelection("primary", "frozen text"));
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
