// get-selection end to end on Wayland: the built binary, started as a host
// starts it, against real applications on a private headless sway. The
// applications run without accessibility, so every read is a copy.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstring>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "e2e_host.h"
#include "sway_session.h"

namespace tovrin::testing {
namespace {

const std::string kEditorText =
    "Hello from Wayland\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x98\x80";

class GetSelectionOnWaylandTest : public SwayTest, protected TovrinHost {
 protected:
  /// Starts `argv` on this sway with this test's home and no
  /// accessibility, and waits until a window of `appId` has the focus; its
  /// pid.
  std::optional<pid_t> startApplication(const std::vector<std::string>& argv,
                                        const std::string& appId) {
    SpawnOptions options;
    options.environment = {
        "HOME=" + directory_.string(),
        "XDG_CONFIG_HOME=" + (directory_ / "config").string(),
        "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent", "NO_AT_BRIDGE=1",
        "GDK_BACKEND=wayland"};
    const auto pid = sway().spawn(argv, options);
    if (!pid) return std::nullopt;
    if (!sway().waitForFocus(appId, 30s)) {
      ADD_FAILURE() << "No window of " << appId << " got the focus";
      return std::nullopt;
    }
    return pid;
  }

  /// The clipboard's (or the primary selection's) text as wl-paste reads
  /// it; nothing when it holds no text.
  std::optional<std::string> readClipboard(bool primary = false) {
    std::vector<std::string> argv = {"wl-paste", "--no-newline"};
    if (primary) argv.push_back("--primary");
    const auto result = sway().run(argv, 5s);
    if (!result || result->exit.code != 0) return std::nullopt;
    return result->output;
  }

  /// Waits until the clipboard (or the primary selection) holds `text`.
  bool waitForClipboard(const std::string& text, bool primary = false,
                        std::chrono::milliseconds timeout = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
      if (readClipboard(primary) == text) return true;
      std::this_thread::sleep_for(50ms);
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
  }

  /// Makes wl-copy own the clipboard with `text`, as the user's last copy;
  /// its pid.
  std::optional<pid_t> ownClipboard(const std::string& text) {
    // In the foreground it stays our child, to be ended by its pid.
    const auto pid = sway().spawn({"wl-copy", "--foreground", "--", text});
    if (!pid || !waitForClipboard(text)) {
      ADD_FAILURE() << "wl-copy did not take the clipboard";
      return std::nullopt;
    }
    return pid;
  }

  /// Presses `keys` (e.g. {"ctrl+a"}) until the application offers `text`
  /// as its primary selection: a document or page that is still loading
  /// has nothing to select yet.
  void selectUntilPrimaryHolds(const std::vector<std::string>& keys,
                               const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    bool selected = false;
    while (!selected && std::chrono::steady_clock::now() < deadline) {
      for (const std::string& combination : keys) {
        ASSERT_TRUE(sway().pressKeys(combination));
      }
      selected = waitForClipboard(text, true, 500ms);
    }
    ASSERT_EQ(readClipboard(true), text);
  }

  /// Starts the editor `argv` of `appId` on kEditorText, selected whole.
  void startEditorWithSelection(std::vector<std::string> argv,
                                const std::string& appId) {
    argv.push_back(writeFile("note.txt", kEditorText));
    ASSERT_TRUE(startApplication(argv, appId));
    ASSERT_NO_FATAL_FAILURE(selectUntilPrimaryHolds({"ctrl+a"}, kEditorText));
  }

  /// Copies the focused editor's selection, all of kEditorText, with
  /// get-selection, and expects that text and the user's clipboard back.
  void expectEditorCopy(const std::string& appId) {
    // Owned last: the editor's own copies would replace it.
    ASSERT_TRUE(ownClipboard("saved text"));
    const Answer result = getSelection();
    EXPECT_EQ(
        result.answer,
        json({{"success", true}, {"text", kEditorText}, {"method", "cgevent"}}))
        << result.run.standardError;
    EXPECT_TRUE(logged(
        result, "] [tovrin] Frontmost app: " + appId + ", finder=false\n"))
        << result.run.standardError;
    EXPECT_TRUE(logged(result, "] [tovrin] CGEvent: Sent Cmd+C\n"));
    EXPECT_TRUE(
        logged(result, "] [tovrin] CGEvent: Restored original clipboard\n"));
    EXPECT_EQ(readClipboard(), "saved text");
  }

  /// Runs `command` as a host does, on this sway, without an accessibility
  /// bus; `environment` on top.
  Answer runTovrin(const std::string& command,
                   const std::map<std::string, std::string>& environment = {}) {
    auto merged = tovrinEnvironment();
    for (const auto& [name, value] : environment) merged[name] = value;
    return runTovrinWith(command, merged);
  }
  std::map<std::string, std::string> tovrinEnvironment() {
    auto environment = sway().clientEnvironment();
    environment["HOME"] = directory_.string();
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
    environment["AT_SPI_BUS_ADDRESS"] = "";
    return environment;
  }
  Answer getSelection() { return runTovrin("get-selection"); }
};

// sway offers data-control and virtual keyboards: the copy can work. A
// WAYLAND_DISPLAY that names no compositor leaves nothing to work with.
TEST_F(GetSelectionOnWaylandTest, PermissionIsHeldWhereTheCompositorAnswers) {
  Answer result = runTovrin("check-accessibility");
  EXPECT_EQ(result.answer, json({{"success", true}, {"granted", true}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] check-accessibility: true\n"));

  result = runTovrin("request-accessibility");
  EXPECT_EQ(result.answer, json({{"success", true}, {"granted", true}}))
      << result.run.standardError;
  EXPECT_TRUE(
      logged(result, "] [tovrin] AXIsProcessTrustedWithOptions: true\n"));

  result =
      runTovrin("check-accessibility", {{"WAYLAND_DISPLAY", "wayland-nobody"}});
  EXPECT_EQ(result.answer, json({{"success", true}, {"granted", false}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result,
                     "] [tovrin] Wayland: no compositor answers at "
                     "WAYLAND_DISPLAY; trying X11\n"));
  EXPECT_TRUE(logged(result, "] [tovrin] check-accessibility: false\n"));
}

TEST_F(GetSelectionOnWaylandTest, AGtk4EditorsCopyBringsItsText) {
  if (!requireProgram("gnome-text-editor")) {
    GTEST_SKIP() << "gnome-text-editor is not installed";
  }
  // Without D-Bus (--standalone) GTK names the window after the program.
  ASSERT_NO_FATAL_FAILURE(startEditorWithSelection(
      {"gnome-text-editor", "--standalone"}, "gnome-text-editor"));
  expectEditorCopy("gnome-text-editor");
}

// mousepad is GTK 3: it takes shortcuts from a virtual keyboard whose keymap
// is a whole layout, as the seat's is. (From wtype's, which holds only the
// keys it types, it takes text but no shortcut.)
// A host that kills tovrin anywhere in its copy (at its timeout, say) still
// finds the user's text on the clipboard: the serving process puts it back.
TEST_F(GetSelectionOnWaylandTest, AKilledRunLosesNothing) {
  if (!requireProgram("gnome-text-editor")) {
    GTEST_SKIP() << "gnome-text-editor is not installed";
  }
  ASSERT_NO_FATAL_FAILURE(startEditorWithSelection(
      {"gnome-text-editor", "--standalone"}, "gnome-text-editor"));
  ASSERT_TRUE(ownClipboard("saved text"));
  // Spread over the run: the save, the pause, the clear and the keystroke,
  // the reads, the write-back (about 290 ms in all).
  for (const int signalNumber : {SIGKILL, SIGTERM}) {
    for (const int delayMs : {20, 60, 100, 140, 180, 220, 260}) {
      SCOPED_TRACE(std::string(strsignal(signalNumber)) + " after " +
                   std::to_string(delayMs) + " ms");
      StartedProcess run = startProcess(
          TOVRIN_BINARY, {"tovrin", "get-selection"}, tovrinEnvironment());
      ASSERT_GT(run.pid, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      kill(run.pid, signalNumber);
      const ProcessResult result = finishProcess(run, 10s);
      ASSERT_FALSE(result.timedOut);
      const auto lines = splitLines(result.standardOutput);
      EXPECT_TRUE(lines.empty() ||
                  (lines.size() == 1 && json::accept(lines[0])))
          << result.standardOutput;
      EXPECT_TRUE(waitForClipboard("saved text", false, 5s))
          << "the clipboard holds " << readClipboard().value_or("nothing")
          << "\n" << result.standardError;
    }
  }
  // The keys were let go of: the editor still copies as before.
  expectEditorCopy("gnome-text-editor");
}

TEST_F(GetSelectionOnWaylandTest, AGtk3EditorsCopyBringsItsText) {
  if (!requireProgram("mousepad")) GTEST_SKIP() << "mousepad is not installed";
  ASSERT_NO_FATAL_FAILURE(startEditorWithSelection({"mousepad"}, "mousepad"));
  expectEditorCopy("mousepad");
}

// foot copies on Ctrl+Shift+C; Ctrl+C would interrupt its program, and
// with it foot itself.
TEST_F(GetSelectionOnWaylandTest, ATerminalsProgramIsNeverInterrupted) {
  if (!requireProgram("foot")) GTEST_SKIP() << "foot is not installed";
  const auto foot = startApplication(
      {"foot", "sh", "-c", "printf 'foot says hello world\\n'; exec sleep 120"},
      "foot");
  ASSERT_TRUE(foot);
  // foot selects a search's match and keeps it selected after the search:
  // the keyboard's way to select there.
  std::vector<std::string> keys = {"ctrl+shift+r"};
  for (const char c : std::string("hello world")) {
    keys.push_back(c == ' ' ? "space" : std::string(1, c));
  }
  keys.push_back("Return");
  ASSERT_NO_FATAL_FAILURE(selectUntilPrimaryHolds(keys, "hello world"));

  ASSERT_TRUE(ownClipboard("saved text"));
  const Answer result = getSelection();
  EXPECT_EQ(
      result.answer,
      json({{"success", true}, {"text", "hello world"}, {"method", "cgevent"}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] Frontmost app: foot, finder=false\n"))
      << result.run.standardError;
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(sway().running(*foot)) << "the copy keystroke ended the program";
  EXPECT_EQ(readClipboard(), "saved text");
}

TEST_F(GetSelectionOnWaylandTest, ABrowserCopyBringsTextAndHtml) {
  if (!requireProgram("chromium")) GTEST_SKIP() << "chromium is not installed";
  const std::string page = writeFile(
      "page.html", "<html><body><p>Hello <b>bold</b> world</p></body></html>");
  ASSERT_TRUE(startApplication(
      {"chromium", "--ozone-platform=wayland", "--no-sandbox", "--no-first-run",
       "--disable-gpu", "--disable-background-networking",
       "--disable-component-update", "--disable-sync", "--password-store=basic",
       "--user-data-dir=" + (directory_ / "chromium").string(),
       "file://" + page},
      "chromium"));
  ASSERT_NO_FATAL_FAILURE(
      selectUntilPrimaryHolds({"ctrl+a"}, "Hello bold world"));

  ASSERT_TRUE(ownClipboard("saved text"));
  const Answer result = getSelection();
  EXPECT_EQ(result.answer["success"], true) << result.run.standardError;
  EXPECT_EQ(result.answer["method"], "cgevent");
  EXPECT_EQ(result.answer["text"], "Hello bold world");
  ASSERT_TRUE(result.answer.contains("html")) << result.run.standardError;
  EXPECT_NE(result.answer["html"].get<std::string>().find("bold</b>"),
            std::string::npos);
  EXPECT_FALSE(result.answer.contains("file_paths"));
  EXPECT_TRUE(
      logged(result, "] [tovrin] CGEvent: Restored original clipboard\n"));
  EXPECT_EQ(readClipboard(), "saved text");
  EXPECT_LT(result.run.wallTime, 5s);
}

// A file manager copies files as a text/uri-list. Here the application is a
// clipboard owner of our own that sway starts copying when it sees Ctrl+C,
// as a file manager does when its shortcut reaches it.
TEST_F(GetSelectionOnWaylandTest, AFileCopyBringsPaths) {
  const auto files = directory_ / "files";
  std::filesystem::create_directories(files);
  std::ofstream(files / "a.txt") << "a";
  std::ofstream(files / "b c.txt") << "b";
  const std::string uris = "file://" + (files / "a.txt").string() +
                           "\r\nfile://" + files.string() + "/b%20c.txt\r\n";
  SpawnOptions options;
  options.captureOutput = true;
  const auto owner = sway().spawn({TOVRIN_CLIPBOARD_OWNER, "--on-signal",
                                   "--type", "text/uri-list", "--data", uris},
                                  options);
  ASSERT_TRUE(owner);
  ASSERT_EQ(sway().readLine(*owner, 10s), "waiting");
  ASSERT_TRUE(sway().swaymsg({"--", "bindsym", "ctrl+c", "exec", "kill", "-s",
                              "USR1", std::to_string(*owner)}));

  ASSERT_TRUE(ownClipboard("saved text"));
  const Answer result = getSelection();
  EXPECT_EQ(result.answer,
            json({{"success", true},
                  {"method", "cgevent"},
                  {"file_paths", json::array({(files / "a.txt").string(),
                                              (files / "b c.txt").string()})}}))
      << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] CGEvent: Got 2 file path(s)\n"))
      << result.run.standardError;
  EXPECT_EQ(readClipboard(), "saved text");
  // The write-back took the clipboard from it.
  const auto exit = sway().waitForExit(*owner, 5s);
  ASSERT_TRUE(exit) << "the owner still holds the clipboard";
  EXPECT_EQ(exit->code, 0);
}

// Reading the user's clipboard to save it waits on its owner; one that
// never answers costs a bounded time, and the answer is still one line.
TEST_F(GetSelectionOnWaylandTest, AFrozenClipboardOwnerCostsBoundedTime) {
  // An owner that takes reads and never writes.
  SpawnOptions options;
  options.captureOutput = true;
  const auto silent =
      sway().spawn({TOVRIN_CLIPBOARD_OWNER, "--frozen", "--type",
                    "text/plain;charset=utf-8", "--data", "saved text"},
                   options);
  ASSERT_TRUE(silent);
  ASSERT_EQ(sway().readLine(*silent, 10s), "ready");
  Answer result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(logged(result, "] [tovrin] CGEvent: No text copied\n"));
  EXPECT_LT(result.run.wallTime, 5s);

  // An owner stopped outright: it does not even take the read.
  const auto stopped = ownClipboard("saved text");
  ASSERT_TRUE(stopped);
  ASSERT_TRUE(sway().signal(*stopped, SIGSTOP));
  result = getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_LT(result.run.wallTime, 5s);
  sway().signal(*stopped, SIGCONT);
}

class GetSelectionUnderCyrillicLayoutTest : public GetSelectionOnWaylandTest {
 protected:
  GetSelectionUnderCyrillicLayoutTest() { swayOptions_.keyboardLayout = "ru"; }
};

// A Russian layout alone has no Latin c: the copy shortcut must still reach
// the editor as Ctrl+C.
TEST_F(GetSelectionUnderCyrillicLayoutTest, AnEditorStillCopies) {
  if (!requireProgram("gnome-text-editor")) {
    GTEST_SKIP() << "gnome-text-editor is not installed";
  }
  ASSERT_TRUE(startApplication(
      {"gnome-text-editor", "--standalone", writeFile("note.txt", kEditorText)},
      "gnome-text-editor"));
  // GTK 4 takes Ctrl with the key of A for no shortcut where no layout has
  // a Latin a; Home and End are in every layout.
  ASSERT_NO_FATAL_FAILURE(
      selectUntilPrimaryHolds({"ctrl+Home", "ctrl+shift+End"}, kEditorText));
  expectEditorCopy("gnome-text-editor");
}

}  // namespace
}  // namespace tovrin::testing
