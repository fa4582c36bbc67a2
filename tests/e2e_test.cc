// tovrin end to end: the built binary, started as a host starts it, against
// real applications on every desktop of the tests. One table of scenarios
// (kRows) runs on every desktop (kDesktops); a desktop that cannot run a row
// says why, and the row is skipped with that reason.
//
// To add a scenario: a function that runs it through the Run below, a row
// in kRows, and a reason in each desktop's `skipped` that cannot run it.
// To add a desktop: see tests/desktop.h, then its column in kDesktops.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "tests/desktop.h"
#include "tests/process.h"

namespace tovrin::testing {
namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

const json kNothing = {{"success", false},
                       {"error", "No text selected or could not copy"}};
const std::string kPermissionError =
    "Accessibility permission required - please grant in System Settings > "
    "Privacy & Security > Accessibility";
// 27 user-perceived characters: the emoji is one.
const std::string kEditorText =
    "Hello over AT-SPI\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x98\x80";
const std::string kSaved = "saved text";

/// One run of tovrin as a host sees it: both streams read to their end,
/// the one answer line parsed.
struct Answer {
  ProcessResult run;
  json answer;

  bool logged(const std::string& text) const {
    return run.standardError.find(text) != std::string::npos;
  }
  /// The log's messages, each without its time stamp and process.
  std::vector<std::string> messages() const {
    std::vector<std::string> lines;
    for (const std::string& line : splitLines(run.standardError)) {
      const size_t start = line.find("] ");
      lines.push_back(start == std::string::npos ? line : line.substr(start + 2));
    }
    return lines;
  }
};

/// Standard output holds nothing or one valid JSON answer line.
bool noneOrOneAnswer(const std::string& output) {
  const auto lines = splitLines(output);
  return output.empty() || (lines.size() == 1 && output.back() == '\n' &&
                            json::accept(lines[0]));
}

/// A path as a file URL carries it: bytes other than letters, digits and
/// "/-._~" as %XX.
std::string percentEncoded(const std::string& path) {
  std::string encoded;
  for (const unsigned char c : path) {
    if (std::isalnum(c) || std::strchr("/-._~", c) != nullptr) {
      encoded += static_cast<char>(c);
    } else {
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02X", c);
      encoded += escape;
    }
  }
  return encoded;
}

/// What one scenario works with: its desktop, a folder of its own for the
/// applications' files and settings, and tovrin.
class Run {
 public:
  Run(DesktopKind kind, std::unique_ptr<Desktop> desktop)
      : kind_(kind), desktop_(std::move(desktop)) {
    char folder[] = "/tmp/tovrin-e2e-XXXXXX";
    directory_ = mkdtemp(folder);
  }
  ~Run() {
    desktop_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  Desktop& desktop() { return *desktop_; }
  DesktopKind kind() const { return kind_; }
  bool x11() const { return kind_ == DesktopKind::kX11; }
  const std::filesystem::path& directory() const { return directory_; }

  std::string writeFile(const std::string& name, const std::string& content) {
    const auto path = directory_ / name;
    std::ofstream(path) << content;
    return path;
  }

  /// Starts `argv` with this scenario's home, with its accessibility on or
  /// off, and waits for its window to take the focus; its pid.
  std::optional<pid_t> start(const std::vector<std::string>& argv,
                             const std::string& id, bool accessible = false) {
    Application application{argv, id,
                            {"HOME=" + directory_.string(),
                             "XDG_CONFIG_HOME=" + (directory_ / "config").string(),
                             "DBUS_SESSION_BUS_ADDRESS=" + sessionBus_}};
    if (accessible) {
      application.environment.insert(application.environment.end(),
                                     {"ACCESSIBILITY_ENABLED=1",
                                      "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1"});
    } else {
      application.environment.insert(application.environment.end(),
                                     {"NO_AT_BRIDGE=1", "GTK_A11Y=none"});
    }
    return desktop_->startApplication(application);
  }

  /// Presses `keys` until PRIMARY holds `text`: a document or page that is
  /// still loading has nothing to select yet.
  void selectUntilPrimaryHolds(const std::string& text,
                               const std::vector<std::string>& keys = {"ctrl+a"}) {
    const auto deadline = Clock::now() + 30s;
    do {
      for (const std::string& combination : keys) {
        ASSERT_TRUE(desktop_->pressKeys(combination)) << combination;
      }
      if (desktop_->waitFor(Selection::kPrimary, text, 1s)) return;
    } while (Clock::now() < deadline);
    FAIL() << "PRIMARY never held the selection";
  }

  /// gnome-text-editor's app id, started accessible (with the session bus
  /// of the accessibility bus) or not: it has its desktop file's name once
  /// it reaches a session bus, and KWin names windows by desktop files.
  std::string textEditorId(bool accessible) const {
    return kind_ == DesktopKind::kKWin && accessible ? "org.gnome.TextEditor"
                                                     : "gnome-text-editor";
  }

  /// Starts the desktop's editor on kEditorText, all of it selected; its pid.
  pid_t startEditorWithSelection(bool accessible = false) {
    const std::string file = writeFile("note.txt", kEditorText);
    const auto pid =
        x11() ? start({"mousepad", file}, "mousepad", accessible)
              : start({"gnome-text-editor", "--standalone", file},
                      textEditorId(accessible), accessible);
    EXPECT_TRUE(pid);
    if (pid) selectUntilPrimaryHolds(kEditorText);
    return pid.value_or(-1);
  }

  /// Starts Chromium on a page of `html` and selects all of it, which puts
  /// `text` in PRIMARY.
  void startBrowserWithSelection(const std::string& html,
                                 const std::string& text,
                                 bool accessible = false) {
    std::vector<std::string> argv = {
        "chromium", "--no-sandbox", "--no-first-run", "--disable-gpu",
        "--disable-background-networking", "--disable-component-update",
        "--disable-sync", "--password-store=basic",
        "--user-data-dir=" + (directory_ / "chromium").string()};
    if (!x11()) argv.push_back("--ozone-platform=wayland");
    if (accessible) argv.push_back("--force-renderer-accessibility");
    argv.push_back("file://" + writeFile("page.html", html));
    ASSERT_TRUE(start(argv, "chromium", accessible));
    selectUntilPrimaryHolds(text);
  }

  /// Puts files of `names` in a folder of their own and selects them in
  /// the desktop's file manager, which copies them as a text/uri-list; the
  /// answer that brings their paths.
  json startFileManagerWithSelection(const std::vector<std::string>& names) {
    const auto folder = directory_ / "files";
    std::filesystem::create_directories(folder);
    json paths = json::array();
    std::string uris;
    for (const std::string& name : names) {
      std::ofstream(folder / name) << "x";
      paths.push_back(folder / name);
      uris += "file://" + percentEncoded(folder / name) + "\r\n";
    }
    if (x11()) {
      EXPECT_TRUE(start({"pcmanfm", "--new-win", folder}, "pcmanfm"));
      EXPECT_TRUE(desktop_->pressKeys("ctrl+a"));
      // Selecting files takes no selection: nothing tells when it is done.
      std::this_thread::sleep_for(300ms);
    } else {
      // A file manager of the compositor's own: its copy shortcut makes
      // wl-copy offer the list, as a file manager's does.
      const std::string list = writeFile("uris", uris);
      const auto bound = desktop_->run(
          {"swaymsg", "--", "bindsym", "ctrl+c", "exec",
           "wl-copy --type text/uri-list < " + list},
          5s);
      EXPECT_TRUE(bound && bound->exit.code == 0) << "no key binding";
    }
    return {{"success", true}, {"method", "cgevent"}, {"file_paths", paths}};
  }

  /// Starts what each desktop copies fastest, selected: a file manager on
  /// X11 (an editor's selection there is read directly), an editor on
  /// Wayland; the answer its copy brings.
  json startCopyTarget() {
    if (x11()) return startFileManagerWithSelection({"a.txt"});
    startEditorWithSelection();
    return {{"success", true}, {"text", kEditorText}, {"method", "cgevent"}};
  }

  /// Makes another program own PRIMARY: on X11 the direct read then has
  /// nothing of the focused application's, and GTK drops its selection.
  void takePrimaryAway() {
    if (x11()) {
      ASSERT_TRUE(desktop_->own(Selection::kPrimary, "other program"));
    }
  }

  /// Makes "saved text" the user's clipboard. Owned last, right before
  /// tovrin runs: applications take the clipboard while they start, and
  /// the editor's own copies would replace it.
  pid_t ownClipboard() {
    const auto pid = desktop_->own(Selection::kClipboard, kSaved);
    EXPECT_TRUE(pid);
    return pid.value_or(-1);
  }
  bool clipboardKept() {
    return desktop_->waitFor(Selection::kClipboard, kSaved, 5s);
  }

  /// Runs `command` as a host does, on this desktop; `environment` on top
  /// (an empty value removes a variable).
  Answer tovrin(const std::string& command,
                const std::map<std::string, std::string>& environment = {}) {
    auto merged = tovrinEnvironment();
    for (const auto& [name, value] : environment) merged[name] = value;
    Answer result;
    result.run = runProcess(TOVRIN_BINARY, {"tovrin", command}, merged, 20s);
    EXPECT_FALSE(result.run.timedOut) << result.run.standardError;
    EXPECT_EQ(result.run.exitStatus, 0);
    const auto lines = splitLines(result.run.standardOutput);
    EXPECT_EQ(lines.size(), 1u) << result.run.standardOutput;
    if (!lines.empty()) result.answer = json::parse(lines[0]);
    return result;
  }
  Answer getSelection() { return tovrin("get-selection"); }
  StartedProcess startGetSelection() {
    return startProcess(TOVRIN_BINARY, {"tovrin", "get-selection"},
                        tovrinEnvironment());
  }
  std::map<std::string, std::string> tovrinEnvironment() {
    auto environment = desktop_->clientEnvironment();
    environment["HOME"] = directory_;
    // Hosts started from a session have one; tovrin needs it only to
    // switch toolkit accessibility on.
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
    // Without an X root window to publish it, the bus is named as a
    // session names it to its programs.
    environment["AT_SPI_BUS_ADDRESS"] = x11() ? "" : accessibilityBus_;
    return environment;
  }

  /// Whether the user's text is back on the clipboard and no key is held;
  /// after a kill, the serving process puts things right within
  /// milliseconds.
  bool userStateIsBack() {
    const auto deadline = Clock::now() + 5s;
    do {
      const auto keys = desktop_->keysDown();
      if (desktop_->read(Selection::kClipboard) == kSaved &&
          (!keys || keys->empty())) {
        return true;
      }
      std::this_thread::sleep_for(50ms);
    } while (Clock::now() < deadline);
    return false;
  }

  /// Starts an accessibility bus in a session bus of its own; false when
  /// it is not up within its deadline. The launcher publishes the bus on
  /// the X root window (AT_SPI_BUS), where applications and tovrin find it.
  bool startAccessibilityBus() {
    const std::string addressFile = (directory_ / "session-bus").string();
    // Its settings (toolkit accessibility on or off) are the test's own.
    SpawnOptions options;
    options.environment = {"GSETTINGS_BACKEND=memory",
                           "HOME=" + directory_.string(),
                           "XDG_CONFIG_HOME=" + (directory_ / "config").string()};
    if (!desktop_->spawn({"dbus-run-session", "--", "sh", "-c",
                          "echo \"$DBUS_SESSION_BUS_ADDRESS\" > " +
                              addressFile +
                              " && exec /usr/libexec/at-spi-bus-launcher "
                              "--launch-immediately"},
                         options)) {
      return false;
    }
    const auto deadline = Clock::now() + 10s;
    while (!x11() && Clock::now() < deadline) {
      std::ifstream(addressFile) >> sessionBus_;
      const auto reply = desktop_->run(
          {"dbus-send", "--bus=" + sessionBus_, "--print-reply=literal",
           "--dest=org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus.GetAddress"},
          5s);
      if (reply && reply->exit.code == 0) {
        accessibilityBus_ = reply->output.substr(reply->output.find("unix:"));
        accessibilityBus_.erase(accessibilityBus_.find_last_not_of(" \n") + 1);
        return true;
      }
      std::this_thread::sleep_for(50ms);
    }
    while (Clock::now() < deadline) {
      const auto property = desktop_->run({"xprop", "-root", "AT_SPI_BUS"}, 5s);
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
  const std::string& accessibilityBus() const { return accessibilityBus_; }
  const std::string& sessionBus() const { return sessionBus_; }

 private:
  DesktopKind kind_;
  std::unique_ptr<Desktop> desktop_;
  std::filesystem::path directory_;
  /// The session bus of the applications. None by default: each test's
  /// editor runs alone instead of handing its file to another's.
  std::string sessionBus_ = "unix:path=/nonexistent";
  std::string accessibilityBus_;
};

// ---------------------------------------------------------------------------
// The scenarios.

void permissionAnswers(Run& run) {
  // Weston offers neither data-control nor virtual keyboards.
  const bool granted = run.kind() != DesktopKind::kWeston;
  for (const char* command : {"check-accessibility", "request-accessibility"}) {
    SCOPED_TRACE(command);
    const Answer result = run.tovrin(command);
    EXPECT_EQ(result.answer, json({{"success", true}, {"granted", granted}}))
        << result.run.standardError;
  }
  if (!granted) {
    // No key is sent and the clipboard is not touched: the run stops at the
    // permission, once it has said why.
    const std::string why =
        "[tovrin] Wayland: the compositor does not offer ";
    const std::string only = "; only AT-SPI can read the selection";
    const Answer check = run.tovrin("check-accessibility");
    EXPECT_EQ(check.messages(),
              (std::vector<std::string>{
                  why + "zwlr_data_control_manager_v1" + only,
                  why + "zwp_virtual_keyboard_manager_v1" + only,
                  "[tovrin] check-accessibility: false"}));
    const Answer get = run.getSelection();
    EXPECT_EQ(get.answer, json({{"success", false}, {"error", kPermissionError}}));
    const auto lines = get.messages();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "[tovrin] Starting get-selection");
    EXPECT_EQ(lines[1], why + "zwlr_data_control_manager_v1" + only);
    EXPECT_FALSE(get.logged("CGEvent: Sent"));
  }
  if (run.kind() == DesktopKind::kKWin) {
    // A tovrin that no installed .desktop file names gets neither fake
    // input nor the window list, and says what it needs.
    const auto unlisted = run.directory() / "tovrin";
    std::filesystem::copy_file(TOVRIN_BINARY, unlisted);
    Answer check;
    check.run = runProcess(unlisted, {"tovrin", "check-accessibility"},
                           run.tovrinEnvironment(), 20s);
    EXPECT_EQ(check.run.standardOutput,
              "{\"success\":true,\"granted\":false}\n");
    EXPECT_EQ(check.messages(),
              (std::vector<std::string>{
                  "[tovrin] Wayland: the compositor does not offer "
                  "zwp_virtual_keyboard_manager_v1; only AT-SPI can read the "
                  "selection",
                  "[tovrin] Wayland: KWin offers org_kde_kwin_fake_input only "
                  "to programs named by an installed .desktop file that lists "
                  "it in X-KDE-Wayland-Interfaces; tovrin's package installs "
                  "one",
                  "[tovrin] check-accessibility: false"}));
  }
  if (!run.x11()) {
    // A WAYLAND_DISPLAY that names no compositor leaves X11, and here no
    // X display either.
    const Answer result = run.tovrin("check-accessibility",
                                     {{"WAYLAND_DISPLAY", "wayland-nobody"}});
    EXPECT_EQ(result.answer, json({{"success", true}, {"granted", false}}));
    EXPECT_TRUE(result.logged(
        "] [tovrin] Wayland: no compositor answers at WAYLAND_DISPLAY; trying "
        "X11\n"));
  }
}

void editorReadDirectly(Run& run) {
  run.startEditorWithSelection();
  run.ownClipboard();
  Answer result = run.getSelection();
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", kEditorText},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] Accessibility: Got 27 chars\n"));
  EXPECT_TRUE(run.clipboardKept());

  // PRIMARY holds the last selection made anywhere: another program's is
  // not what the user selected, and the editor has dropped its own.
  run.takePrimaryAway();
  result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "] [tovrin] Accessibility: Could not get selected text (error: -25212)\n"));
  EXPECT_TRUE(result.logged("] [tovrin] CGEvent: Sent Cmd+C\n"));
  EXPECT_TRUE(run.clipboardKept());
}

/// Copies the focused application's selection, `text`, and expects that
/// text (and HTML holding `html` when given) and the user's clipboard back.
void expectCopy(Run& run, const std::string& appName, const std::string& text,
                const std::string& html = "") {
  run.takePrimaryAway();
  run.ownClipboard();
  const Answer result = run.getSelection();
  json expected = {{"success", true}, {"text", text}, {"method", "cgevent"}};
  if (!html.empty()) {
    ASSERT_TRUE(result.answer.contains("html")) << result.run.standardError;
    EXPECT_NE(result.answer["html"].get<std::string>().find(html),
              std::string::npos);
    expected["html"] = result.answer["html"];
  }
  EXPECT_EQ(result.answer, expected) << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] Frontmost app: " + appName +
                            ", finder=false\n"))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] CGEvent: Sent Cmd+C\n"));
  EXPECT_TRUE(result.logged("] [tovrin] CGEvent: Restored original clipboard\n"));
  EXPECT_TRUE(run.clipboardKept());
  EXPECT_LT(result.run.wallTime, 5s);
}

void editorCopied(Run& run) {
  run.startEditorWithSelection();
  expectCopy(run, "gnome-text-editor", kEditorText);
}

// mousepad takes shortcuts from a virtual keyboard whose keymap is a whole
// layout, as the seat's is; from one that holds only the keys it types, it
// takes text but no shortcut.
void gtk3EditorCopied(Run& run) {
  ASSERT_TRUE(run.start({"mousepad", run.writeFile("note.txt", kEditorText)},
                        "mousepad"));
  run.selectUntilPrimaryHolds(kEditorText);
  expectCopy(run, "mousepad", kEditorText);
}

// Qt puts no selection made with the keyboard in PRIMARY: the copy is the
// only way to its text without accessibility.
void qtEditorCopied(Run& run) {
  ASSERT_TRUE(run.start({"featherpad", run.writeFile("note.txt", kEditorText)},
                        "featherpad"));
  ASSERT_TRUE(run.desktop().pressKeys("ctrl+a"));
  // Nothing outside tells when the selection is made.
  std::this_thread::sleep_for(300ms);
  expectCopy(run, run.x11() ? "FeatherPad" : "featherpad", kEditorText);
}

void wordProcessorCopiedWithHtml(Run& run) {
  ASSERT_TRUE(run.start({"abiword", run.writeFile("doc.txt", "Rich words here")},
                        "abiword"));
  ASSERT_TRUE(run.desktop().pressKeys("ctrl+a"));
  std::this_thread::sleep_for(300ms);
  expectCopy(run, "Abiword", "Rich words here", "Rich words here");
}

// The browser keeps its selection when PRIMARY goes elsewhere.
void browserCopiedWithHtml(Run& run) {
  run.startBrowserWithSelection(
      "<html><body><p>Hello <b>bold</b> world</p></body></html>",
      "Hello bold world");
  expectCopy(run, run.x11() ? "Chromium" : "chromium", "Hello bold world",
             "bold</b>");
}

// A name that is not UTF-8 comes back with U+FFFD for each byte that is
// not: the answer stays valid JSON and still shows which file it was.
void filesCopied(Run& run) {
  json expected =
      run.startFileManagerWithSelection({"a.txt", "b c.txt", "caf\xE9.txt"});
  expected["file_paths"][2] =
      (run.directory() / "files" / "caf\xEF\xBF\xBD.txt").string();
  run.ownClipboard();
  Answer result = run.getSelection();
  if (result.answer.contains("file_paths")) {
    auto& paths = result.answer["file_paths"];
    std::sort(paths.begin(), paths.end());
  }
  EXPECT_EQ(result.answer, expected) << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] CGEvent: Got 3 file path(s)\n"));
  EXPECT_TRUE(run.clipboardKept());
}

// Ctrl+C in a terminal interrupts its program. Terminals that copy with
// Ctrl+Shift+C get that (foot); xterm copies on selecting alone, and gets
// no keystroke at all.
void terminalProgramNotInterrupted(Run& run) {
  std::optional<pid_t> terminal;
  json expected = kNothing;
  if (run.x11()) {
    terminal = run.start({"xterm", "-e", "sleep", "120"}, "xterm");
  } else {
    terminal = run.start({"foot", "sh", "-c",
                          "printf 'foot says hello world\\n'; exec sleep 120"},
                         "foot");
    // foot keeps a search's match selected after the search: the
    // keyboard's way to select there.
    std::vector<std::string> keys = {"ctrl+shift+r"};
    for (const char c : std::string("hello world")) {
      keys.push_back(c == ' ' ? "space" : std::string(1, c));
    }
    keys.push_back("Return");
    run.selectUntilPrimaryHolds("hello world", keys);
    expected = {{"success", true}, {"text", "hello world"}, {"method", "cgevent"}};
  }
  ASSERT_TRUE(terminal);
  run.ownClipboard();
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, expected) << result.run.standardError;
  EXPECT_TRUE(result.logged(std::string("] [tovrin] Frontmost app: ") +
                            (run.x11() ? "XTerm" : "foot") + ", finder=false\n"));
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(run.desktop().running(*terminal))
      << "the copy keystroke ended the program";
  EXPECT_TRUE(run.clipboardKept());
}

// xfce4-clipman copies every new owner's content and puts it back when the
// clipboard is emptied: that must not be taken for the application's copy.
void clipboardManagerNotMistakenForACopy(Run& run) {
  ASSERT_TRUE(run.desktop().spawn({"xfce4-clipman"}));
  run.startEditorWithSelection();
  run.takePrimaryAway();
  run.ownClipboard();
  std::this_thread::sleep_for(500ms);
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(run.clipboardKept());
}

// A host that kills tovrin anywhere in its copy (at its timeout, say)
// still finds the user's text on the clipboard and no key held.
void killedRunLosesNothing(Run& run) {
  run.startCopyTarget();
  run.ownClipboard();
  // Spread over the run: the save, the pause before the clear (~55 ms), the
  // keystroke, the reads and the write-back (~260 ms).
  for (const int signalNumber : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
    for (const int delayMs : {30, 70, 110, 150, 190, 230, 270}) {
      SCOPED_TRACE(std::string(strsignal(signalNumber)) + " after " +
                   std::to_string(delayMs) + " ms");
      StartedProcess started = run.startGetSelection();
      ASSERT_GT(started.pid, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      kill(started.pid, signalNumber);
      const ProcessResult result = finishProcess(started, 10s);
      ASSERT_FALSE(result.timedOut);
      EXPECT_TRUE(noneOrOneAnswer(result.standardOutput))
          << result.standardOutput;
      if (signalNumber != SIGKILL && result.signal) {
        // Interrupted, it still answered.
        EXPECT_EQ(json::parse(result.standardOutput), kNothing);
      }
      EXPECT_TRUE(run.userStateIsBack())
          << "the clipboard holds "
          << run.desktop().read(Selection::kClipboard).value_or("nothing")
          << "\n" << result.standardError;
    }
  }
}

void hostLeavingMidRunLosesNothing(Run& run) {
  run.startCopyTarget();
  run.ownClipboard();
  StartedProcess started = run.startGetSelection();
  ASSERT_GT(started.pid, 0);
  std::this_thread::sleep_for(100ms);
  // The host exits: every later write of tovrin meets a closed pipe.
  close(started.standardOutput);
  close(started.standardError);
  started.standardOutput = started.standardError = -1;
  const ProcessResult result = finishProcess(started, 10s);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 0) << "ended by signal " << result.signal.value_or(0);
  EXPECT_TRUE(run.userStateIsBack());
}

// A hotkey pressed again and again: each run answers the copy or nothing,
// never the user's clipboard taken for the selection.
void overlappingRunsNeverAnswerWithTheClipboard(Run& run) {
  const json copied = run.startCopyTarget();
  run.ownClipboard();
  std::vector<StartedProcess> runs;
  for (int i = 0; i < 10; ++i) {
    runs.push_back(run.startGetSelection());
    std::this_thread::sleep_for(100ms);
  }
  int copies = 0;
  for (StartedProcess& started : runs) {
    const ProcessResult result = finishProcess(started, 20s);
    ASSERT_FALSE(result.timedOut);
    const auto lines = splitLines(result.standardOutput);
    ASSERT_EQ(lines.size(), 1u) << result.standardError;
    const json answer = json::parse(lines[0]);
    if (answer != kNothing) {
      EXPECT_EQ(answer, copied);
      ++copies;
    }
  }
  EXPECT_GT(copies, 0);
  EXPECT_TRUE(run.userStateIsBack());
}

// Without its streams, a display connection would take descriptor 1 and
// the answer would go into the display protocol's stream.
void closedStandardStreamsNeitherHangNorLeak(Run& run) {
  run.startCopyTarget();
  run.ownClipboard();
  const ProcessResult result = runProcess(
      "/bin/sh",
      {"sh", "-c",
       std::string("exec '") + TOVRIN_BINARY + "' get-selection <&- >&- 2>&-"},
      run.tovrinEnvironment(), 20s);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_TRUE(run.userStateIsBack());
}

// It answers neither the direct read nor the copy keystroke.
void frozenApplicationCostsBoundedTime(Run& run) {
  const pid_t editor = run.startEditorWithSelection();
  ASSERT_GT(editor, 0);
  run.ownClipboard();
  ASSERT_TRUE(run.desktop().signal(editor, SIGSTOP));
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  if (run.x11()) {
    EXPECT_TRUE(result.logged(
        "] [tovrin] Accessibility: Could not get selected text (error: "
        "-25204)\n"));
  }
  EXPECT_LT(result.run.wallTime, 5s);
  // Checked while it is still frozen: once it runs again it handles the
  // keystroke it was sent, and copies.
  EXPECT_TRUE(run.clipboardKept());
}

// Reading the user's clipboard to save it waits on its owner; one that
// never answers costs a bounded time, and the answer is still one line.
void frozenClipboardOwnerCostsBoundedTime(Run& run) {
  const pid_t owner = run.ownClipboard();
  ASSERT_TRUE(run.desktop().signal(owner, SIGSTOP));
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_LT(result.run.wallTime, 5s);
}

// A Russian layout has no Latin c: the copy must still reach the
// application as Ctrl+C, as when a person presses it.
void copiesUnderACyrillicLayout(Run& run) {
  const std::string text = "Hello \xD0\xBC\xD0\xB8\xD1\x80";  // Hello мир
  // Selected while the layout is still US: Ctrl+A needs a Latin a.
  if (run.x11()) {
    run.startBrowserWithSelection(
        "<html><head><meta charset=\"utf-8\"></head><body><p>" + text +
            "</p></body></html>",
        text);
  } else {
    ASSERT_TRUE(run.start({"gnome-text-editor", "--standalone",
                           run.writeFile("note.txt", text)},
                          "gnome-text-editor"));
    run.selectUntilPrimaryHolds(text);
  }
  ASSERT_TRUE(run.desktop().setLayout("ru"));
  run.takePrimaryAway();
  run.ownClipboard();
  Answer result = run.getSelection();
  result.answer.erase("html");  // Chromium's
  EXPECT_EQ(result.answer,
            json({{"success", true}, {"text", text}, {"method", "cgevent"}}))
      << result.run.standardError;
  EXPECT_TRUE(run.clipboardKept());
}

// A window's name comes from another program: in the log it is escaped,
// and every line stays one line of the log's own shape.
void aWindowNameCannotForgeALogLine(Run& run) {
  const std::string forged =
      "Evil\n2026-01-01 00:00:00.000 tovrin[1:1] [tovrin] SUCCESS\x1b[31m";
  // xdotool takes the class it searches for as a pattern.
  ASSERT_TRUE(run.x11()
                  ? run.start({"xterm", "-class", forged, "-e", "sleep", "60"},
                              "^Evil")
                  : run.start({"foot", "--app-id", forged, "sleep", "60"},
                              forged));
  const Answer result = run.getSelection();
  const std::regex line(
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
      "tovrin\\[[0-9]+:[0-9]+\\] \\[tovrin\\] [ -~]*");
  for (const std::string& logged : splitLines(result.run.standardError)) {
    EXPECT_TRUE(std::regex_match(logged, line)) << logged;
  }
  EXPECT_TRUE(result.logged(
      "] [tovrin] Frontmost app: Evil\\u000a2026-01-01 00:00:00.000 "
      "tovrin[1:1] [tovrin] SUCCESS\\u001b[31m, finder=false\n"))
      << result.run.standardError;
}

// Its socket still accepts connections; nothing answers on them.
void aFrozenDisplayServerDoesNotHoldTheHostUp(Run& run) {
  ASSERT_EQ(kill(run.desktop().serverPid(), SIGSTOP), 0);
  for (const char* command : {"check-accessibility", "get-selection"}) {
    SCOPED_TRACE(command);
    const ProcessResult result = runProcess(
        TOVRIN_BINARY, {"tovrin", command}, run.tovrinEnvironment(), 20s);
    ASSERT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_FALSE(result.standardOutput.empty());
    EXPECT_TRUE(noneOrOneAnswer(result.standardOutput));
    EXPECT_LT(result.wallTime, 5s);
    if (!run.x11()) {
      EXPECT_NE(result.standardError.find(
                    "] [tovrin] Wayland: no compositor answers at "
                    "WAYLAND_DISPLAY; trying X11\n"),
                std::string::npos);
    }
  }
  kill(run.desktop().serverPid(), SIGCONT);
}

// --- The accessibility read (AT-SPI).

/// Starts `argv`, an editor of `id`, with accessibility on kEditorText,
/// selects all of it, and expects get-selection to read it over AT-SPI
/// from `source`; the editor's pid.
pid_t expectEditorReadOverAtspi(Run& run, std::vector<std::string> argv,
                                const std::string& id, const std::string& source,
                                bool offersPrimary = true) {
  EXPECT_TRUE(run.startAccessibilityBus());
  argv.push_back(run.writeFile("note.txt", kEditorText));
  const auto pid = run.start(argv, id, true);
  EXPECT_TRUE(pid);
  if (!pid) return -1;
  Answer result;
  if (offersPrimary) {
    run.selectUntilPrimaryHolds(kEditorText);
    run.ownClipboard();
    result = run.getSelection();
  } else {
    EXPECT_TRUE(run.desktop().pressKeys("ctrl+a"));
    run.ownClipboard();
    // Nothing outside tells when the selection is made: ask until the
    // editor answers.
    const auto deadline = Clock::now() + 10s;
    do {
      result = run.getSelection();
    } while (result.answer.value("method", "") != "accessibility" &&
             Clock::now() < deadline);
  }
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", kEditorText},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] Accessibility: read through AT-SPI from " +
                            source + "\n"))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] Accessibility: Got 27 chars\n"));
  EXPECT_TRUE(run.clipboardKept());
  return *pid;
}

void accessibleGtk3Editor(Run& run) {
  expectEditorReadOverAtspi(run, {"mousepad"}, "mousepad", "mousepad (gtk)");
  // The editor drops its selection when another program takes PRIMARY, and
  // says so over AT-SPI as well.
  if (!run.x11()) return;
  run.takePrimaryAway();
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "] [tovrin] Accessibility: Could not get selected text (error: -25212)\n"));
  EXPECT_FALSE(result.logged("read through AT-SPI"));
}

void accessibleGtk4Editor(Run& run) {
  expectEditorReadOverAtspi(run, {"gnome-text-editor", "--standalone"},
                            run.textEditorId(true), "gnome-text-editor (GTK)");
}

// Qt does not put a selection made with the keyboard in PRIMARY.
void accessibleQtEditor(Run& run) {
  expectEditorReadOverAtspi(run, {"featherpad"}, "featherpad",
                            "FeatherPad (Qt)", false);
}

// Chromium keeps its selection when another program takes PRIMARY: the
// case where only the accessibility read answers directly.
void accessibleBrowserPage(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  run.startBrowserWithSelection(
      "<p>First paragraph caf&eacute;</p><p>Second <b>bold</b> "
      "<a href='#'>link</a> \xF0\x9F\x98\x80</p>",
      "First paragraph caf\xC3\xA9\n\nSecond bold link \xF0\x9F\x98\x80", true);
  run.takePrimaryAway();
  run.ownClipboard();
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer,
            json({{"success", true},
                  {"text",
                   "First paragraph caf\xC3\xA9\nSecond bold link "
                   "\xF0\x9F\x98\x80"},
                  {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "] [tovrin] Accessibility: read through AT-SPI from Chromium (Chromium)\n"))
      << result.run.standardError;
  EXPECT_FALSE(result.logged("CGEvent"));
  EXPECT_TRUE(run.clipboardKept());
}

void accessibleFrozenApplication(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  const pid_t editor = run.startEditorWithSelection(true);
  ASSERT_GT(editor, 0);
  run.ownClipboard();
  ASSERT_TRUE(run.desktop().signal(editor, SIGSTOP));
  const Answer result = run.getSelection();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  // Without the focused window's process (Wayland), applications that do
  // not answer are passed over, and none is left.
  EXPECT_TRUE(result.logged(
      std::string("] [tovrin] Accessibility: Could not get selected text (error: ") +
      (run.x11() ? "-25204" : "-25211") + ")\n"))
      << result.run.standardError;
  // Half a second is its budget, with room for a busy machine; a call
  // without a deadline waits 25 s.
  const std::string marker = "[tovrin] Accessibility failed in ";
  const size_t at = result.run.standardError.find(marker);
  ASSERT_NE(at, std::string::npos) << result.run.standardError;
  EXPECT_LT(std::atof(result.run.standardError.c_str() + at + marker.size()),
            2.0);
  EXPECT_TRUE(run.clipboardKept());
}

// As on Wayland, where no client learns which window has the keyboard.
void accessibleActiveApplicationWithoutXDisplay(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  run.startEditorWithSelection(true);
  const Answer result = run.tovrin(
      "get-selection",
      {{"DISPLAY", ""}, {"AT_SPI_BUS_ADDRESS", run.accessibilityBus()}});
  EXPECT_EQ(result.answer, json({{"success", true},
                                 {"text", kEditorText},
                                 {"method", "accessibility"}}))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("] [tovrin] Frontmost app: unknown, finder=false\n"));
}

/// A property of org.a11y.Status on the session bus, as dbus-send prints it
/// ("boolean true").
std::string statusProperty(Run& run, const std::string& name) {
  const auto reply = run.desktop().run(
      {"dbus-send", "--bus=" + run.sessionBus(), "--print-reply",
       "--dest=org.a11y.Bus", "/org/a11y/bus",
       "org.freedesktop.DBus.Properties.Get", "string:org.a11y.Status",
       "string:" + name},
      5s);
  const size_t at = reply ? reply->output.find("boolean ") : std::string::npos;
  if (at == std::string::npos) return "";
  return reply->output.substr(at, reply->output.find('\n', at) - at);
}

void accessibilityPermissionCommands(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  EXPECT_EQ(run.tovrin("check-accessibility",
                       {{"DISPLAY", ""},
                        {"AT_SPI_BUS_ADDRESS", run.accessibilityBus()}})
                .answer,
            json({{"success", true}, {"granted", true}}));
  EXPECT_EQ(run.tovrin("check-accessibility", {{"DISPLAY", ""}}).answer,
            json({{"success", true}, {"granted", false}}));

  // Asking turns toolkit accessibility on, and nothing else.
  ASSERT_EQ(statusProperty(run, "IsEnabled"), "boolean false");
  const Answer asked = run.tovrin(
      "request-accessibility", {{"DBUS_SESSION_BUS_ADDRESS", run.sessionBus()}});
  EXPECT_EQ(asked.answer, json({{"success", true}, {"granted", true}}));
  EXPECT_TRUE(asked.logged(
      "] [tovrin] Accessibility: toolkit accessibility is on for applications "
      "started from now on\n"))
      << asked.run.standardError;
  EXPECT_EQ(statusProperty(run, "IsEnabled"), "boolean true");
  EXPECT_EQ(statusProperty(run, "ScreenReaderEnabled"), "boolean false");
  // Checking never switches anything.
  EXPECT_FALSE(run.tovrin("check-accessibility",
                          {{"DBUS_SESSION_BUS_ADDRESS", run.sessionBus()}})
                   .logged("toolkit accessibility"));
}

// The host examples each print the selection, and the failure when there is
// none.
void hostExamples(Run& run) {
  const std::string dir = std::string(TOVRIN_SOURCE_DIR) + "/examples/";
  const std::vector<std::vector<std::string>> examples = {
      {"node", dir + "node/get-selection.mjs"},
      {"python3", dir + "python/get_selection.py"},
      {"sh", dir + "shell/get-selection.sh"}};
  auto runExample = [&](const std::vector<std::string>& argv) {
    SCOPED_TRACE(argv[0]);
    auto environment = run.tovrinEnvironment();
    environment["TOVRIN"] = TOVRIN_BINARY;
    return runProcess("/usr/bin/" + argv[0], argv, environment, 30s);
  };
  run.startEditorWithSelection();
  for (const auto& example : examples) {
    const ProcessResult result = runExample(example);
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput,
              example[0] == "sh"
                  ? kEditorText + "\n"
                  : "text: " + kEditorText + "\nmethod: accessibility\n");
  }
  // Nothing selected anywhere: the editor's PRIMARY taken by another
  // program, and it gives nothing to the copy either.
  run.takePrimaryAway();
  ASSERT_TRUE(run.desktop().pressKeys("ctrl+End"));
  for (const auto& example : examples) {
    const ProcessResult result = runExample(example);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.standardOutput, "");
    if (example[0] != "sh") {
      EXPECT_EQ(result.standardError,
                "tovrin: No text selected or could not copy\n");
    }
  }
}

// ---------------------------------------------------------------------------
// The table.

struct Row {
  const char* name;
  void (*run)(Run&);
  /// Programs it needs besides the desktop's own.
  std::vector<const char*> programs;
};

const Row kRows[] = {
    {"PermissionAnswers", permissionAnswers, {}},
    {"EditorReadDirectly", editorReadDirectly, {"mousepad"}},
    {"EditorCopied", editorCopied, {"gnome-text-editor"}},
    {"Gtk3EditorCopied", gtk3EditorCopied, {"mousepad"}},
    {"QtEditorCopied", qtEditorCopied, {"featherpad"}},
    {"WordProcessorCopiedWithHtml", wordProcessorCopiedWithHtml, {"abiword"}},
    {"BrowserCopiedWithHtml", browserCopiedWithHtml, {"chromium"}},
    {"FilesCopied", filesCopied, {"pcmanfm"}},
    {"TerminalProgramNotInterrupted", terminalProgramNotInterrupted,
     {"xterm", "foot"}},
    {"ClipboardManagerNotMistakenForACopy", clipboardManagerNotMistakenForACopy,
     {"xfce4-clipman", "mousepad"}},
    {"KilledRunLosesNothing", killedRunLosesNothing, {}},
    {"HostLeavingMidRunLosesNothing", hostLeavingMidRunLosesNothing, {}},
    {"OverlappingRunsNeverAnswerWithTheClipboard",
     overlappingRunsNeverAnswerWithTheClipboard, {}},
    {"ClosedStandardStreamsNeitherHangNorLeak",
     closedStandardStreamsNeitherHangNorLeak, {}},
    {"FrozenApplicationCostsBoundedTime", frozenApplicationCostsBoundedTime, {}},
    {"FrozenClipboardOwnerCostsBoundedTime",
     frozenClipboardOwnerCostsBoundedTime, {}},
    {"CopiesUnderACyrillicLayout", copiesUnderACyrillicLayout, {}},
    {"AWindowNameCannotForgeALogLine", aWindowNameCannotForgeALogLine, {}},
    {"AFrozenDisplayServerDoesNotHoldTheHostUp",
     aFrozenDisplayServerDoesNotHoldTheHostUp, {}},
    {"AccessibleGtk3Editor", accessibleGtk3Editor, {"mousepad"}},
    {"AccessibleGtk4Editor", accessibleGtk4Editor, {"gnome-text-editor"}},
    {"AccessibleQtEditor", accessibleQtEditor, {"featherpad"}},
    {"AccessibleBrowserPage", accessibleBrowserPage, {"chromium"}},
    {"AccessibleFrozenApplication", accessibleFrozenApplication, {"mousepad"}},
    {"AccessibleActiveApplicationWithoutXDisplay",
     accessibleActiveApplicationWithoutXDisplay, {"mousepad"}},
    {"AccessibilityPermissionCommands", accessibilityPermissionCommands, {}},
    {"HostExamples", hostExamples, {"node", "python3", "jq", "mousepad"}},
};

const char kAtspiOnWayland[] =
    "the AT-SPI read is not reliable under a Wayland compositor yet: GTK marks "
    "no window active there";

const char kNoXDisplay[] = "there is no X display to do without";
const char kBusFoundAlike[] =
    "the accessibility bus is found the same way on every desktop: tried on "
    "X11";
const char kExamplesOnX11[] =
    "the examples do not depend on the desktop: run on X11";
const char kFootOnKWin[] =
    "foot 1.13 ends with SIGFPE as it starts on KWin's virtual output";

/// A desktop's column: the rows it cannot run, and why; or the only rows
/// it runs, and why no other.
struct Column {
  DesktopKind kind;
  const char* name;
  std::unique_ptr<Desktop> (*start)(std::string* error);
  std::map<std::string, std::string> skipped;
  std::vector<std::string> only = {};
  const char* whyOnly = "";
};

const Column kDesktops[] = {
    {DesktopKind::kX11,
     "X11",
     startX11Desktop,
     {{"EditorCopied",
       "a GTK editor's selection is its PRIMARY on X11, read directly; it "
       "drops it when another program takes PRIMARY"},
      {"Gtk3EditorCopied",
       "a GTK editor's selection is its PRIMARY on X11, read directly; it "
       "drops it when another program takes PRIMARY"}}},
    {DesktopKind::kSway,
     "Sway",
     startSwayDesktop,
     {{"EditorReadDirectly",
       "PRIMARY is not read on Wayland: the direct read is AT-SPI's"},
      {"WordProcessorCopiedWithHtml", "AbiWord is tried on X11 only"},
      {"ClipboardManagerNotMistakenForACopy",
       "Debian 12 has no clipboard manager for wlroots compositors"},
      {"AccessibleGtk3Editor", kAtspiOnWayland},
      {"AccessibleGtk4Editor", kAtspiOnWayland},
      {"AccessibleQtEditor", kAtspiOnWayland},
      {"AccessibleBrowserPage", kAtspiOnWayland},
      {"AccessibleFrozenApplication", kAtspiOnWayland},
      {"AccessibleActiveApplicationWithoutXDisplay", kNoXDisplay},
      {"AccessibilityPermissionCommands", kBusFoundAlike},
      {"HostExamples", kExamplesOnX11}}},
    {DesktopKind::kWeston,
     "Weston",
     startWestonDesktop,
     {},
     {"PermissionAnswers", "AFrozenDisplayServerDoesNotHoldTheHostUp"},
     "weston offers neither data-control nor virtual keyboards, as GNOME's "
     "compositor does not: tovrin can only say why it cannot copy"},
    {DesktopKind::kKWin,
     "KWin",
     startKWinDesktop,
     {{"EditorReadDirectly",
       "PRIMARY is not read on Wayland: the direct read is AT-SPI's"},
      {"WordProcessorCopiedWithHtml", "AbiWord is tried on X11 only"},
      {"FilesCopied",
       "pcmanfm ends at once on Wayland, and the sway column's file manager "
       "is a key binding of sway's"},
      {"TerminalProgramNotInterrupted", kFootOnKWin},
      {"AWindowNameCannotForgeALogLine", kFootOnKWin},
      {"ClipboardManagerNotMistakenForACopy",
       "Klipper needs a Plasma session around it"},
      {"CopiesUnderACyrillicLayout",
       "fake input types in KWin's layout, which is a setting of KWin's "
       "session; the choice of key is the same as on sway"},
      {"AccessibleActiveApplicationWithoutXDisplay", kNoXDisplay},
      {"AccessibilityPermissionCommands", kBusFoundAlike},
      {"HostExamples", kExamplesOnX11}}},
};

std::optional<std::string> skipReason(const Column& column, const Row& row) {
  const auto& only = column.only;
  if (!only.empty() && std::find(only.begin(), only.end(), row.name) == only.end()) {
    return column.whyOnly;
  }
  const auto found = column.skipped.find(row.name);
  if (found == column.skipped.end()) return std::nullopt;
  return found->second;
}

bool installed(const std::string& program) {
  for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"}) {
    if (access((dir + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

class EndToEnd
    : public ::testing::TestWithParam<std::tuple<const Column*, const Row*>> {};

TEST_P(EndToEnd, Scenario) {
  const auto& [column, row] = GetParam();
  if (const auto reason = skipReason(*column, *row)) {
    GTEST_SKIP() << column->name << " cannot run " << row->name << ": "
                 << *reason;
  }
  for (const char* program : row->programs) {
    if (!installed(program)) GTEST_SKIP() << program << " is not installed";
  }
  std::string error;
  auto desktop = column->start(&error);
  if (!desktop) {
    GTEST_SKIP() << "No " << column->name << " desktop could be started: " << error;
  }
  tovrin::testing::Run run(column->kind, std::move(desktop));
  row->run(run);
}

INSTANTIATE_TEST_SUITE_P(
    Desktops, EndToEnd,
    ::testing::Combine(::testing::ValuesIn([] {
                         std::vector<const Column*> columns;
                         for (const Column& column : kDesktops) {
                           columns.push_back(&column);
                         }
                         return columns;
                       }()),
                       ::testing::ValuesIn([] {
                         std::vector<const Row*> rows;
                         for (const Row& row : kRows) rows.push_back(&row);
                         return rows;
                       }())),
    [](const auto& info) {
      return std::string(std::get<0>(info.param)->name) + "_" +
             std::get<1>(info.param)->name;
    });

}  // namespace
}  // namespace tovrin::testing
