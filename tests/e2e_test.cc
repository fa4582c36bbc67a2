// tovrin end to end: the built binary, started as a host starts it, against
// real applications on every desktop of the tests. One table of scenarios
// (kRows) runs on every desktop (kDesktops); a desktop that cannot run a row
// names the reason, and the row is skipped there with it.
//
// To add a scenario: a function that runs it through the Run below, and its
// row in kRows; a desktop that cannot run it names why in its column. To
// add a desktop: see tests/desktop.h, then its column in kDesktops.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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
// 27 user-perceived characters: the emoji is one.
const std::string kEditorText =
    "Hello over AT-SPI\ncaf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x98\x80";
const std::string kSaved = "saved text";

json copied(const std::string& text) {
  return {{"success", true}, {"text", text}, {"method", "cgevent"}};
}
json readDirectly(const std::string& text) {
  return {{"success", true}, {"text", text}, {"method", "accessibility"}};
}

/// One run of tovrin as a host sees it: both streams read to their end,
/// the one answer line parsed.
struct Answer {
  ProcessResult run;
  json answer;

  /// Whether the log holds `line` whole.
  bool logged(const std::string& line) const {
    return run.standardError.find("] " + line + "\n") != std::string::npos;
  }
};

/// Standard output holds nothing or one valid JSON answer line.
bool noneOrOneAnswer(const std::string& output) {
  const auto lines = splitLines(output);
  return output.empty() || (lines.size() == 1 && output.back() == '\n' &&
                            json::accept(lines[0]));
}

/// What one scenario works with: its desktop, a folder of its own for the
/// applications' files and settings, and tovrin.
struct Run {
  Run(DesktopKind kind, std::unique_ptr<Desktop> started)
      : kind(kind), desktop(std::move(started)) {
    char folder[] = "/tmp/tovrin-e2e-XXXXXX";
    directory = mkdtemp(folder);
  }
  ~Run() {
    desktop.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  bool x11() const { return kind == DesktopKind::kX11; }

  std::string writeFile(const std::string& name, const std::string& content) {
    std::ofstream(directory / name) << content;
    return directory / name;
  }

  /// Starts `argv` with this scenario's home, with its accessibility on or
  /// off, and waits for its window to take the focus; its pid.
  std::optional<pid_t> start(const std::vector<std::string>& argv,
                             const std::string& id, bool accessible = false) {
    return desktop->startApplication(
        {argv, id,
         {"HOME=" + directory.string(),
          "XDG_CONFIG_HOME=" + (directory / "config").string(),
          "DBUS_SESSION_BUS_ADDRESS=" + sessionBus,
          accessible ? "ACCESSIBILITY_ENABLED=1" : "NO_AT_BRIDGE=1",
          accessible ? "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1" : "GTK_A11Y=none"}});
  }

  /// Presses `keys` until PRIMARY holds `text`: a document or page that is
  /// still loading has nothing to select yet.
  void selectUntilPrimaryHolds(const std::string& text,
                               const std::vector<std::string>& keys = {"ctrl+a"}) {
    const auto deadline = Clock::now() + 30s;
    do {
      for (const std::string& combination : keys) {
        ASSERT_TRUE(desktop->pressKeys(combination)) << combination;
      }
      if (desktop->waitFor(Selection::kPrimary, text, 1s)) return;
    } while (Clock::now() < deadline);
    FAIL() << "PRIMARY never held the selection";
  }

  /// gnome-text-editor's app id: it takes its desktop file's name once it
  /// reaches a session bus (started accessible, it has the accessibility
  /// bus's), as sway and KWin name its window.
  std::string textEditorId(bool accessible) const {
    const bool named = kind == DesktopKind::kKWin || kind == DesktopKind::kSway;
    return named && accessible ? "org.gnome.TextEditor" : "gnome-text-editor";
  }

  /// Starts the desktop's editor on `text`, all of it selected; its pid.
  pid_t startEditorWithSelection(bool accessible = false,
                                 const std::string& text = kEditorText) {
    const std::string file = writeFile("note.txt", text);
    const auto pid = x11() ? start({"mousepad", file}, "mousepad", accessible)
                           : start({"gnome-text-editor", "--standalone", file},
                                   textEditorId(accessible), accessible);
    EXPECT_TRUE(pid);
    if (pid) selectUntilPrimaryHolds(text);
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
        "--user-data-dir=" + (directory / "chromium").string()};
    if (!x11()) argv.push_back("--ozone-platform=wayland");
    if (accessible) argv.push_back("--force-renderer-accessibility");
    argv.push_back("file://" + writeFile("page.html", html));
    ASSERT_TRUE(start(argv, "chromium", accessible));
    selectUntilPrimaryHolds(text);
  }

  /// Starts Firefox, with its accessibility on, on a page of `html` and
  /// selects all of it, which puts `text` in PRIMARY.
  void startFirefoxWithSelection(const std::string& html,
                                 const std::string& text) {
    const auto profile = directory / "firefox";
    std::filesystem::create_directories(profile);
    // A first start that shows no welcome pages.
    std::ofstream(profile / "user.js")
        << "user_pref(\"browser.aboutwelcome.enabled\", false);\n"
           "user_pref(\"browser.shell.checkDefaultBrowser\", false);\n"
           "user_pref(\"browser.startup.homepage_override.mstone\", \"ignore\");\n"
           "user_pref(\"datareporting.policy.dataSubmissionEnabled\", false);\n"
           "user_pref(\"accessibility.force_disabled\", -1);\n";
    ASSERT_TRUE(start({"firefox-esr", "--no-remote", "--new-instance",
                       "--profile", profile.string(),
                       "file://" + writeFile("page.html", html)},
                      "firefox-esr", true));
    selectUntilPrimaryHolds(text);
  }

  /// Puts files of `names` in a folder of their own and selects them in
  /// the desktop's file manager, whose copy brings them as a text/uri-list;
  /// the answer with their paths.
  json startFileManagerWithSelection(const std::vector<std::string>& names) {
    const auto folder = directory / "files";
    std::filesystem::create_directories(folder);
    json paths = json::array();
    for (const std::string& name : names) {
      std::ofstream(folder / name) << "x";
      paths.push_back(folder / name);
    }
    if (x11()) {
      EXPECT_TRUE(start({"pcmanfm", "--new-win", folder}, "pcmanfm"));
      EXPECT_TRUE(desktop->pressKeys("ctrl+a"));
      // Selecting files takes no selection: nothing tells when it is done.
      std::this_thread::sleep_for(300ms);
    } else {
      // A window of ours copies the folder's files on Ctrl+C, as a file
      // manager does.
      std::vector<std::string> argv = {
          std::string(TOVRIN_SOURCE_DIR) + "/tests/wayland/file_copier.py", folder};
      // GNOME tells no client where the keys go: the window says it has them.
      if (kind == DesktopKind::kMutter) argv.push_back("files window active");
      EXPECT_TRUE(start(argv, "org.tovrin.FileCopier"));
      if (argv.size() > 2) {
        EXPECT_TRUE(desktop->waitFor(Selection::kClipboard, argv[2]));
      }
    }
    return {{"success", true}, {"method", "cgevent"}, {"file_paths", paths}};
  }

  /// Starts what each desktop copies fastest, selected: a file manager on
  /// X11 (an editor's selection there is read directly), an editor on
  /// Wayland; the answer its copy brings.
  json startCopyTarget() {
    if (x11()) return startFileManagerWithSelection({"a.txt"});
    startEditorWithSelection();
    return copied(kEditorText);
  }

  /// Makes another program own PRIMARY: on X11 the direct read then has
  /// nothing of the focused application's, and GTK drops its selection.
  void takePrimaryAway() {
    if (x11()) {
      ASSERT_TRUE(desktop->own(Selection::kPrimary, "other program"));
    }
  }

  /// Makes "saved text" the user's clipboard. Owned last, right before
  /// tovrin runs: applications take the clipboard while they start.
  pid_t ownClipboard() {
    const auto pid = desktop->own(Selection::kClipboard, kSaved);
    EXPECT_TRUE(pid);
    return pid.value_or(-1);
  }
  bool clipboardKept() {
    return desktop->waitFor(Selection::kClipboard, kSaved, 5s);
  }

  /// Whether the user's text is back on the clipboard and no key is held;
  /// after a kill the serving process puts things right within
  /// milliseconds.
  bool userStateIsBack() {
    return waitUntil(
        [&] {
          const auto keys = desktop->keysDown();
          return desktop->read(Selection::kClipboard) == kSaved &&
                 (!keys || keys->empty());
        },
        5s, 50ms);
  }

  /// What tovrin gets from a host: the desktop, and no session bus (it
  /// needs one only to switch toolkit accessibility on), unless the
  /// desktop has its own (GNOME's compositor's interface is on it).
  std::map<std::string, std::string> environment(
      const std::map<std::string, std::string>& changes = {}) {
    auto variables = desktop->clientEnvironment();
    variables["HOME"] = directory;
    variables.emplace("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    // Without an X root window to publish it, the accessibility bus is
    // named as a session names it to its programs.
    variables["AT_SPI_BUS_ADDRESS"] = x11() ? "" : accessibilityBus;
    for (const auto& [name, value] : changes) variables[name] = value;
    return variables;
  }

  /// Runs `command` as a host does; `changes` to its environment on top
  /// (an empty value removes a variable).
  Answer tovrin(const std::string& command = "get-selection",
                const std::map<std::string, std::string>& changes = {}) {
    Answer result;
    result.run = runProcess(TOVRIN_BINARY, {"tovrin", command},
                            environment(changes), 20s);
    EXPECT_FALSE(result.run.timedOut) << result.run.standardError;
    EXPECT_EQ(result.run.exitStatus, 0);
    const std::string& output = result.run.standardOutput;
    EXPECT_TRUE(!output.empty() && noneOrOneAnswer(output)) << output;
    result.answer = json::parse(output.substr(0, output.find('\n')), nullptr, false);
    return result;
  }
  /// Runs tovrin until it answers over AT-SPI, for 10 s at most, `before`
  /// each try: browsers tell AT-SPI of a selection a moment after they make
  /// it, and until then the read gives way to the copy.
  Answer tovrinUntilReadDirectly(const std::function<void()>& before = [] {}) {
    Answer result;
    const auto deadline = Clock::now() + 10s;
    do {
      before();
      result = tovrin();
    } while (result.answer.value("method", "") != "accessibility" &&
             Clock::now() < deadline);
    return result;
  }
  StartedProcess startTovrin() {
    return startProcess(TOVRIN_BINARY, {"tovrin", "get-selection"},
                        environment());
  }

  /// Starts an accessibility bus in a session bus of its own, with the
  /// test's own settings; false when it is not up in time. On X11 the
  /// launcher publishes the bus on the root window (AT_SPI_BUS), where
  /// applications and tovrin find it; elsewhere the session bus names it.
  bool startAccessibilityBus() {
    const std::string addressFile = directory / "session-bus";
    SpawnOptions options;
    options.environment = {"GSETTINGS_BACKEND=memory",
                           "HOME=" + directory.string()};
    if (!desktop->spawn({"dbus-run-session", "--", "sh", "-c",
                         "echo \"$DBUS_SESSION_BUS_ADDRESS\" > " + addressFile +
                             " && exec /usr/libexec/at-spi-bus-launcher "
                             "--launch-immediately"},
                        options)) {
      return false;
    }
    return waitUntil(
        [&] {
          std::ifstream(addressFile) >> sessionBus;
          const auto reply = desktop->run(
              {"dbus-send", "--bus=" + sessionBus, "--print-reply=literal",
               "--dest=org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus.GetAddress"},
              5s);
          const auto published =
              x11() ? desktop->run({"xprop", "-root", "AT_SPI_BUS"}, 5s) : reply;
          if (!reply || reply->exit.code != 0 || !published ||
              published->output.find("unix:") == std::string::npos) {
            return false;
          }
          accessibilityBus = reply->output.substr(reply->output.find("unix:"));
          accessibilityBus.erase(accessibilityBus.find_last_not_of(" \n") + 1);
          return true;
        },
        10s, 50ms);
  }

  DesktopKind kind;
  std::unique_ptr<Desktop> desktop;
  std::filesystem::path directory;
  /// The applications' session bus. None by default: each test's editor
  /// runs alone instead of handing its file to another's.
  std::string sessionBus = "unix:path=/nonexistent";
  std::string accessibilityBus;
};

// ---------------------------------------------------------------------------
// The scenarios.

void permissionAnswers(Run& run) {
  // Weston offers neither data-control nor virtual keyboards.
  const bool granted = run.kind != DesktopKind::kWeston;
  for (const char* command : {"check-accessibility", "request-accessibility"}) {
    EXPECT_EQ(run.tovrin(command).answer,
              json({{"success", true}, {"granted", granted}}));
  }
  if (!granted) {
    // No key is sent and the clipboard is not touched: the run stops at the
    // permission, once it has said why.
    const std::string why = "[tovrin] Wayland: the compositor does not offer ";
    const std::string only = "; only AT-SPI can read the selection";
    std::vector<std::string> messages;
    for (const std::string& line :
         splitLines(run.tovrin("check-accessibility").run.standardError)) {
      messages.push_back(line.substr(line.find("] ") + 2));
    }
    EXPECT_EQ(messages, (std::vector<std::string>{
                            why + "zwlr_data_control_manager_v1" + only,
                            why + "zwp_virtual_keyboard_manager_v1" + only,
                            "[tovrin] check-accessibility: false"}));
    const Answer get = run.tovrin();
    EXPECT_EQ(get.answer["error"],
              "Accessibility permission required - please grant in System "
              "Settings > Privacy & Security > Accessibility");
    EXPECT_TRUE(get.logged(why + "zwlr_data_control_manager_v1" + only));
    EXPECT_EQ(get.run.standardError.find("CGEvent"), std::string::npos);
  }
  if (run.kind == DesktopKind::kKWin) {
    // A tovrin without its helper, then one whose helper no installed
    // .desktop file names: neither types nor lists windows, and each says
    // what it needs.
    const auto unlisted = run.directory / "tovrin";
    const auto helper = run.directory / "tovrin-kwin-input";
    std::filesystem::copy_file(TOVRIN_BINARY, unlisted);
    for (const std::string& why :
         {std::string("tovrin-kwin-input, which types for tovrin under KWin, "
                      "is neither beside tovrin nor in "),
          "KWin offers org_kde_kwin_fake_input only to programs named by an "
          "installed .desktop file that lists it in X-KDE-Wayland-Interfaces; "
          "tovrin's package installs one for " + helper.string() + "\n"}) {
      const ProcessResult result = runProcess(
          unlisted, {"tovrin", "check-accessibility"}, run.environment(), 20s);
      EXPECT_EQ(result.standardOutput, "{\"success\":true,\"granted\":false}\n");
      EXPECT_NE(result.standardError.find("] [tovrin] Wayland: " + why),
                std::string::npos)
          << result.standardError;
      std::filesystem::copy_file(
          std::filesystem::path(TOVRIN_BINARY).replace_filename(helper.filename()),
          helper, std::filesystem::copy_options::skip_existing);
    }
  }
  if (!run.x11()) {
    // A WAYLAND_DISPLAY that names no compositor leaves X11, and here no
    // X display either.
    const Answer result = run.tovrin("check-accessibility",
                                     {{"WAYLAND_DISPLAY", "wayland-nobody"}});
    EXPECT_EQ(result.answer, json({{"success", true}, {"granted", false}}));
    EXPECT_TRUE(result.logged(
        "[tovrin] Wayland: no compositor answers at WAYLAND_DISPLAY; trying "
        "X11"));
  }
}

// PRIMARY holds the last selection made anywhere: another program's is not
// what the user selected, and the editor drops its own when it loses it.
void editorReadDirectly(Run& run) {
  run.startEditorWithSelection();
  run.ownClipboard();
  Answer result = run.tovrin();
  EXPECT_EQ(result.answer, readDirectly(kEditorText))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("[tovrin] Accessibility: Got 27 chars"));
  EXPECT_TRUE(run.clipboardKept());

  run.takePrimaryAway();
  result = run.tovrin();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "[tovrin] Accessibility: Could not get selected text (error: -25212)"));
  EXPECT_TRUE(result.logged("[tovrin] CGEvent: Sent Cmd+C"));
  EXPECT_TRUE(run.clipboardKept());
}

/// Copies the focused application's selection, `text`, and expects that
/// text (and HTML holding `html` when given) and the user's clipboard back.
void expectCopy(Run& run, const std::string& appName, const std::string& text,
                const std::string& html = "",
                const std::map<std::string, std::string>& changes = {}) {
  run.takePrimaryAway();
  run.ownClipboard();
  Answer result = run.tovrin("get-selection", changes);
  if (html.empty()) {
    EXPECT_FALSE(result.answer.contains("html"));
  } else {
    EXPECT_NE(result.answer.value("html", "").find(html), std::string::npos)
        << result.run.standardError;
  }
  result.answer.erase("html");
  EXPECT_EQ(result.answer, copied(text)) << result.run.standardError;
  // GNOME names the frontmost application only over AT-SPI, which these
  // applications run without.
  const bool named = run.kind != DesktopKind::kMutter;
  EXPECT_TRUE(result.logged("[tovrin] Frontmost app: " +
                            (named ? appName : "unknown") + ", finder=false"))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("[tovrin] CGEvent: Restored original clipboard"));
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
  if (run.kind == DesktopKind::kMutter) {
    // Nor when the window has the focus; there "PRIMARY" is read by a copy.
    run.selectUntilPrimaryHolds(kEditorText);
  } else {
    ASSERT_TRUE(run.desktop->pressKeys("ctrl+a"));
    // Nothing outside tells when the selection is made.
    std::this_thread::sleep_for(300ms);
  }
  expectCopy(run, run.x11() ? "FeatherPad" : "featherpad", kEditorText);
}

void wordProcessorCopiedWithHtml(Run& run) {
  ASSERT_TRUE(run.start(
      {"abiword", run.writeFile("doc.txt", "Rich words here")}, "abiword"));
  ASSERT_TRUE(run.desktop->pressKeys("ctrl+a"));
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
  expected["file_paths"][2] = run.directory / "files" / "caf\xEF\xBF\xBD.txt";
  run.ownClipboard();
  Answer result = run.tovrin();
  auto& paths = result.answer["file_paths"];
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(result.answer, expected) << result.run.standardError;
  EXPECT_TRUE(result.logged("[tovrin] CGEvent: Got 3 file path(s)"));
  EXPECT_TRUE(run.clipboardKept());
}

// Ctrl+C in a terminal interrupts its program. Terminals that copy with
// Ctrl+Shift+C get that (foot); xterm copies on selecting alone, and gets no
// keystroke at all.
void terminalProgramNotInterrupted(Run& run) {
  std::optional<pid_t> terminal;
  json expected = kNothing;
  if (run.x11()) {
    terminal = run.start({"xterm", "-e", "sleep", "120"}, "xterm");
  } else {
    terminal = run.start(
        {"foot", "sh", "-c", "printf 'foot says hello world\\n'; sleep 120"},
        "foot");
    // foot keeps a search's match selected after the search: the
    // keyboard's way to select there.
    std::vector<std::string> keys = {"ctrl+shift+r"};
    for (const char c : std::string("hello world")) {
      keys.push_back(c == ' ' ? "space" : std::string(1, c));
    }
    keys.push_back("Return");
    run.selectUntilPrimaryHolds("hello world", keys);
    expected = copied("hello world");
  }
  ASSERT_TRUE(terminal);
  run.ownClipboard();
  const Answer result = run.tovrin();
  EXPECT_EQ(result.answer, expected) << result.run.standardError;
  EXPECT_TRUE(result.logged(std::string("[tovrin] Frontmost app: ") +
                            (run.x11() ? "XTerm" : "foot") + ", finder=false"));
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(run.desktop->running(*terminal))
      << "the copy keystroke ended the program";
  EXPECT_TRUE(run.clipboardKept());
}

// xfce4-clipman copies every new owner's content and puts it back when the
// clipboard is emptied: that must not be taken for the application's copy.
void clipboardManagerNotMistakenForACopy(Run& run) {
  ASSERT_TRUE(run.desktop->spawn({"xfce4-clipman"}));
  run.startEditorWithSelection();
  run.takePrimaryAway();
  run.ownClipboard();
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(run.tovrin().answer, kNothing);
  EXPECT_TRUE(run.clipboardKept());
}

// An application started right after a copy, before any key is pressed,
// must find a keyboard with a keymap on the seat: sway has no current
// keyboard once the one that typed goes away, and Chromium then ends as it
// starts.
void anApplicationStartedAfterACopyTakesKeys(Run& run) {
  const json copy = run.startCopyTarget();
  run.ownClipboard();
  EXPECT_EQ(run.tovrin().answer, copy);
  run.startBrowserWithSelection("<p>Started after a copy</p>",
                                "Started after a copy");
}

// A host that kills tovrin anywhere in its copy (at its timeout, say) still
// finds the user's text on the clipboard and no key held.
void killedRunLosesNothing(Run& run) {
  const json copy = run.startCopyTarget();
  run.ownClipboard();
  // Spread over the run: the save, the pause before the clear (~55 ms), the
  // keystroke, the reads and the write-back (~260 ms).
  for (const int signalNumber : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
    for (const int delayMs : {30, 70, 110, 150, 190, 230, 270}) {
      SCOPED_TRACE(std::string(strsignal(signalNumber)) + " after " +
                   std::to_string(delayMs) + " ms");
      StartedProcess started = run.startTovrin();
      ASSERT_GT(started.pid, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      kill(started.pid, signalNumber);
      const ProcessResult result = finishProcess(started, 10s);
      ASSERT_FALSE(result.timedOut);
      EXPECT_TRUE(noneOrOneAnswer(result.standardOutput))
          << result.standardOutput;
      if (signalNumber != SIGKILL && result.signal) {
        // Interrupted, it still answered; or it had answered already.
        const json answer = json::parse(result.standardOutput);
        EXPECT_TRUE(answer == kNothing || answer == copy) << answer;
      }
      EXPECT_TRUE(run.userStateIsBack()) << result.standardError;
    }
  }
}

// A host that exits mid-run leaves tovrin writing into closed pipes; one
// that starts it with its standard streams closed would let a display
// connection take descriptor 1, and the answer go into its stream.
void hostsThatCloseTheirEndsLoseNothing(Run& run) {
  run.startCopyTarget();
  run.ownClipboard();
  StartedProcess started = run.startTovrin();
  ASSERT_GT(started.pid, 0);
  std::this_thread::sleep_for(100ms);
  close(started.standardOutput);
  close(started.standardError);
  started.standardOutput = started.standardError = -1;
  ProcessResult result = finishProcess(started, 10s);
  EXPECT_EQ(result.exitStatus, 0) << "ended by signal " << result.signal.value_or(0);
  EXPECT_TRUE(run.userStateIsBack());

  result = runProcess(
      "/bin/sh",
      {"sh", "-c",
       std::string("exec '") + TOVRIN_BINARY + "' get-selection <&- >&- 2>&-"},
      run.environment(), 20s);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_TRUE(run.userStateIsBack());
}

// A hotkey pressed again and again: each run answers the copy or nothing,
// never the user's clipboard taken for the selection.
void overlappingRunsNeverAnswerWithTheClipboard(Run& run) {
  const json copy = run.startCopyTarget();
  run.ownClipboard();
  std::vector<StartedProcess> runs;
  for (int i = 0; i < 10; ++i) {
    runs.push_back(run.startTovrin());
    std::this_thread::sleep_for(100ms);
  }
  int copies = 0;
  for (StartedProcess& started : runs) {
    const ProcessResult result = finishProcess(started, 20s);
    const auto lines = splitLines(result.standardOutput);
    ASSERT_EQ(lines.size(), 1u) << result.standardError;
    const json answer = json::parse(lines[0]);
    EXPECT_TRUE(answer == kNothing || answer == copy) << answer;
    copies += answer == copy;
  }
  EXPECT_GT(copies, 0);
  EXPECT_TRUE(run.userStateIsBack());
}

// A frozen application answers neither the direct read nor the copy
// keystroke; a frozen owner of the user's clipboard never answers its
// save. Each costs a bounded time, and the answer is still one line.
void frozenProgramsCostBoundedTime(Run& run) {
  const pid_t editor = run.startEditorWithSelection();
  ASSERT_GT(editor, 0);
  const pid_t owner = run.ownClipboard();
  ASSERT_TRUE(run.desktop->signal(editor, SIGSTOP));
  Answer result = run.tovrin();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_EQ(run.x11(), result.logged("[tovrin] Accessibility: Could not get "
                                     "selected text (error: -25204)"));
  EXPECT_LT(result.run.wallTime, 5s);
  // Checked while it is still frozen: once it runs again it handles the
  // keystroke it was sent, and copies.
  EXPECT_TRUE(run.clipboardKept());

  ASSERT_TRUE(run.desktop->signal(owner, SIGSTOP));
  result = run.tovrin();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  EXPECT_LT(result.run.wallTime, 5s);
}

// A Russian layout has no Latin c: the copy must still reach the
// application as Ctrl+C, as when a person presses it.
void copiesUnderACyrillicLayout(Run& run) {
  const std::string text = "Hello \xD0\xBC\xD0\xB8\xD1\x80";  // Hello мир
  // Selected while the layout is still US: Ctrl+A needs a Latin a. On X11
  // the editor would read directly: there, the browser.
  if (run.x11()) {
    run.startBrowserWithSelection(
        "<html><head><meta charset=\"utf-8\"></head><body><p>" + text +
            "</p></body></html>",
        text);
  } else {
    run.startEditorWithSelection(false, text);
  }
  ASSERT_TRUE(run.desktop->setLayout("ru"));
  expectCopy(run, run.x11() ? "Chromium" : "gnome-text-editor", text,
             run.x11() ? text : "");
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
  const Answer result = run.tovrin();
  const std::regex line(
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
      "tovrin\\[[0-9]+:[0-9]+\\] \\[tovrin\\] [ -~]*");
  for (const std::string& logged : splitLines(result.run.standardError)) {
    EXPECT_TRUE(std::regex_match(logged, line)) << logged;
  }
  EXPECT_TRUE(result.logged(
      "[tovrin] Frontmost app: Evil\\u000a2026-01-01 00:00:00.000 "
      "tovrin[1:1] [tovrin] SUCCESS\\u001b[31m, finder=false"))
      << result.run.standardError;
}

// Its socket still accepts connections; nothing answers on them.
void aFrozenDisplayServerDoesNotHoldTheHostUp(Run& run) {
  ASSERT_EQ(kill(run.desktop->serverPid(), SIGSTOP), 0);
  for (const char* command : {"check-accessibility", "get-selection"}) {
    const Answer result = run.tovrin(command);
    EXPECT_LT(result.run.wallTime, 5s);
    EXPECT_EQ(!run.x11(), result.logged("[tovrin] Wayland: no compositor "
                                        "answers at WAYLAND_DISPLAY; trying X11"));
  }
  kill(run.desktop->serverPid(), SIGCONT);
}

// Editors with their accessibility on answer over AT-SPI before PRIMARY:
// GTK 3, GTK 4, and Qt, which does not put a selection made with the
// keyboard in PRIMARY (nothing then tells when it is made: ask until the
// editor answers).
void accessibleEditorsAreReadOverAtspi(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  const struct {
    std::vector<std::string> argv;
    std::string id;
    const char* source;
  } editors[] = {
      {{"mousepad"}, "mousepad", "mousepad (gtk)"},
      {{"gnome-text-editor", "--standalone"},
       run.textEditorId(true),
       "gnome-text-editor (GTK)"},
      {{"featherpad"}, "featherpad", "FeatherPad (Qt)"},
  };
  for (auto [argv, id, source] : editors) {
    SCOPED_TRACE(id);
    // GTK 4.8 marks no window active, and GNOME names no application
    // otherwise: its selection is copied instead.
    if (run.kind == DesktopKind::kMutter && id == "gnome-text-editor") {
      continue;
    }
    argv.push_back(run.writeFile(id + ".txt", kEditorText));
    const auto pid = run.start(argv, id, true);
    ASSERT_TRUE(pid);
    Answer result;
    if (id != "featherpad") {
      run.selectUntilPrimaryHolds(kEditorText);
      run.ownClipboard();
      result = run.tovrin();
    } else {
      run.ownClipboard();
      // Nor, on GNOME, when the window has the focus: select again.
      result = run.tovrinUntilReadDirectly(
          [&] { EXPECT_TRUE(run.desktop->pressKeys("ctrl+a")); });
    }
    EXPECT_EQ(result.answer, readDirectly(kEditorText))
        << result.run.standardError;
    EXPECT_TRUE(result.logged(
        std::string("[tovrin] Accessibility: read through AT-SPI from ") +
        source));
    EXPECT_TRUE(result.logged("[tovrin] Accessibility: Got 27 chars"));
    if (run.kind == DesktopKind::kMutter) {
      // The application AT-SPI marks active is GNOME's frontmost one.
      const std::string name(source);
      EXPECT_TRUE(result.logged("[tovrin] Frontmost app: " +
                                name.substr(0, name.rfind(" (")) +
                                ", finder=false"))
          << result.run.standardError;
    }
    EXPECT_TRUE(run.clipboardKept());
    run.desktop->terminate(*pid);
  }
}

// On X11 the editor drops its selection when another program takes
// PRIMARY, and says so over AT-SPI as well; frozen, it costs the read's
// deadlines only.
void accessibleEditorLosingOrFrozen(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  pid_t editor = run.startEditorWithSelection(true);
  run.ownClipboard();
  if (run.x11()) {
    run.takePrimaryAway();
    const Answer result = run.tovrin();
    EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
    EXPECT_TRUE(result.logged(
        "[tovrin] Accessibility: Could not get selected text (error: -25212)"));
    EXPECT_EQ(result.run.standardError.find("read through AT-SPI"),
              std::string::npos);
    run.desktop->terminate(editor);
    editor = run.startEditorWithSelection(true);
  }
  ASSERT_TRUE(run.desktop->signal(editor, SIGSTOP));
  const Answer result = run.tovrin();
  EXPECT_EQ(result.answer, kNothing) << result.run.standardError;
  // Without the focused window's process (Wayland), applications that do
  // not answer are passed over, and none is left.
  EXPECT_TRUE(result.logged(
      std::string("[tovrin] Accessibility: Could not get selected text (error: ") +
      (run.x11() ? "-25204" : "-25211") + ")"));
  // Half a second is its budget, with room for a busy machine; a call
  // without a deadline waits 25 s.
  const std::string marker = "[tovrin] Accessibility failed in ";
  const size_t at = result.run.standardError.find(marker);
  ASSERT_NE(at, std::string::npos) << result.run.standardError;
  EXPECT_LT(std::atof(result.run.standardError.c_str() + at + marker.size()),
            2.0);
  EXPECT_TRUE(run.clipboardKept());
}

// Chromium keeps its selection when another program takes PRIMARY: the
// case where only the accessibility read answers directly. Chromium counts
// the ends of a selection in a way of its own past characters outside the
// Basic Multilingual Plane (its last paragraph's end it cannot count: the
// caret tells it).
void accessibleBrowserPage(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  const std::string thumb = "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD",
                    smile = "\xF0\x9F\x98\x80";
  run.startBrowserWithSelection(
      "<meta charset='utf-8'><p>Accessible caf&eacute; &mdash; " + thumb +
          " text</p><p>Second " + smile +
          " <b>bold</b> <a href='#'>link</a> more</p><p>end " + smile + "</p>",
      "Accessible caf\xC3\xA9 \xE2\x80\x94 " + thumb + " text\n\nSecond " +
          smile + " bold link more\n\nend " + smile,
      true);
  run.takePrimaryAway();
  run.ownClipboard();
  // A cut text would end the tries too, and fail.
  const Answer result = run.tovrinUntilReadDirectly();
  EXPECT_EQ(result.answer,
            readDirectly("Accessible caf\xC3\xA9 \xE2\x80\x94 " + thumb +
                         " text\nSecond " + smile + " bold link more\nend " +
                         smile))
      << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "[tovrin] Accessibility: read through AT-SPI from Chromium (Chromium)"));
  EXPECT_TRUE(run.clipboardKept());
}

// Firefox, with its accessibility on: its page read over AT-SPI, and where
// AT-SPI cannot be reached, copied with its HTML.
void firefoxPage(Run& run) {
  const std::string text = "Hello bold world caf\xC3\xA9";
  ASSERT_TRUE(run.startAccessibilityBus());
  run.startFirefoxWithSelection(
      "<html><head><meta charset=\"utf-8\"></head><body><p>Hello <b>bold</b> "
      "world caf\xC3\xA9</p></body></html>",
      text);
  run.takePrimaryAway();
  run.ownClipboard();
  const Answer result = run.tovrinUntilReadDirectly();
  EXPECT_EQ(result.answer, readDirectly(text)) << result.run.standardError;
  EXPECT_TRUE(result.logged(
      "[tovrin] Accessibility: read through AT-SPI from Firefox (Gecko)"))
      << result.run.standardError;
  EXPECT_TRUE(run.clipboardKept());
  expectCopy(run, "firefox-esr", text, "bold</b>",
             {{"AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent"}});
}

/// A property of org.a11y.Status on the session bus, as dbus-send prints it
/// ("boolean true").
std::string statusProperty(Run& run, const std::string& name) {
  const auto reply = run.desktop->run(
      {"dbus-send", "--bus=" + run.sessionBus, "--print-reply",
       "--dest=org.a11y.Bus", "/org/a11y/bus",
       "org.freedesktop.DBus.Properties.Get", "string:org.a11y.Status",
       "string:" + name},
      5s);
  const size_t at = reply ? reply->output.find("boolean ") : std::string::npos;
  if (at == std::string::npos) return "";
  return reply->output.substr(at, reply->output.find('\n', at) - at);
}

// The accessibility bus counts for the permission, and without an X
// display (as on Wayland, where no client learns which window has the
// keyboard) the application whose window is active answers. Asking turns
// toolkit accessibility on, and nothing else; checking switches nothing.
void accessibilityBusWithoutXDisplay(Run& run) {
  ASSERT_TRUE(run.startAccessibilityBus());
  run.startEditorWithSelection(true);
  const std::map<std::string, std::string> busAlone = {
      {"DISPLAY", ""}, {"AT_SPI_BUS_ADDRESS", run.accessibilityBus}};
  EXPECT_EQ(run.tovrin("check-accessibility", busAlone).answer,
            json({{"success", true}, {"granted", true}}));
  EXPECT_EQ(run.tovrin("check-accessibility", {{"DISPLAY", ""}}).answer,
            json({{"success", true}, {"granted", false}}));
  const Answer result = run.tovrin("get-selection", busAlone);
  EXPECT_EQ(result.answer, readDirectly(kEditorText))
      << result.run.standardError;
  EXPECT_TRUE(result.logged("[tovrin] Frontmost app: unknown, finder=false"));

  const std::map<std::string, std::string> sessionBus = {
      {"DBUS_SESSION_BUS_ADDRESS", run.sessionBus}};
  EXPECT_FALSE(run.tovrin("check-accessibility", sessionBus)
                   .logged("toolkit accessibility"));
  ASSERT_EQ(statusProperty(run, "IsEnabled"), "boolean false");
  const Answer asked = run.tovrin("request-accessibility", sessionBus);
  EXPECT_EQ(asked.answer, json({{"success", true}, {"granted", true}}));
  EXPECT_TRUE(asked.logged(
      "[tovrin] Accessibility: toolkit accessibility is on for applications "
      "started from now on"))
      << asked.run.standardError;
  EXPECT_EQ(statusProperty(run, "IsEnabled"), "boolean true");
  EXPECT_EQ(statusProperty(run, "ScreenReaderEnabled"), "boolean false");
}

// The host examples each print the selection, and the failure when there is
// none.
void hostExamples(Run& run) {
  const std::string dir = std::string(TOVRIN_SOURCE_DIR) + "/examples/";
  const std::vector<std::vector<std::string>> examples = {
      {"node", dir + "node/get-selection.mjs"},
      {"python3", dir + "python/get_selection.py"},
      {"sh", dir + "shell/get-selection.sh"}};
  run.startEditorWithSelection();
  for (const bool selected : {true, false}) {
    for (const auto& argv : examples) {
      SCOPED_TRACE(argv[0]);
      const ProcessResult result =
          runProcess("/usr/bin/" + argv[0], argv,
                     run.environment({{"TOVRIN", TOVRIN_BINARY}}), 30s);
      EXPECT_EQ(result.exitStatus, selected ? 0 : 1) << result.standardError;
      std::string printed = "text: " + kEditorText + "\nmethod: accessibility\n";
      if (argv[0] == "sh") printed = kEditorText + "\n";
      EXPECT_EQ(result.standardOutput, selected ? printed : "");
      if (!selected && argv[0] != "sh") {
        EXPECT_EQ(result.standardError,
                  "tovrin: No text selected or could not copy\n");
      }
    }
    // Nothing selected anywhere: the editor's PRIMARY taken by another
    // program, and it gives nothing to the copy either.
    run.takePrimaryAway();
    ASSERT_TRUE(run.desktop->pressKeys("ctrl+End"));
  }
}

// ---------------------------------------------------------------------------
// The table.

struct Row {
  const char* name;
  void (*run)(Run&);
};

const Row kRows[] = {
    {"PermissionAnswers", permissionAnswers},
    {"EditorReadDirectly", editorReadDirectly},
    {"EditorCopied", editorCopied},
    {"Gtk3EditorCopied", gtk3EditorCopied},
    {"QtEditorCopied", qtEditorCopied},
    {"WordProcessorCopiedWithHtml", wordProcessorCopiedWithHtml},
    {"BrowserCopiedWithHtml", browserCopiedWithHtml},
    {"FilesCopied", filesCopied},
    {"TerminalProgramNotInterrupted", terminalProgramNotInterrupted},
    {"ClipboardManagerNotMistakenForACopy", clipboardManagerNotMistakenForACopy},
    {"AnApplicationStartedAfterACopyTakesKeys",
     anApplicationStartedAfterACopyTakesKeys},
    {"KilledRunLosesNothing", killedRunLosesNothing},
    {"HostsThatCloseTheirEndsLoseNothing", hostsThatCloseTheirEndsLoseNothing},
    {"OverlappingRunsNeverAnswerWithTheClipboard",
     overlappingRunsNeverAnswerWithTheClipboard},
    {"FrozenProgramsCostBoundedTime", frozenProgramsCostBoundedTime},
    {"CopiesUnderACyrillicLayout", copiesUnderACyrillicLayout},
    {"AWindowNameCannotForgeALogLine", aWindowNameCannotForgeALogLine},
    {"AFrozenDisplayServerDoesNotHoldTheHostUp",
     aFrozenDisplayServerDoesNotHoldTheHostUp},
    {"AccessibleEditorsAreReadOverAtspi", accessibleEditorsAreReadOverAtspi},
    {"AccessibleEditorLosingOrFrozen", accessibleEditorLosingOrFrozen},
    {"AccessibleBrowserPage", accessibleBrowserPage},
    {"FirefoxPage", firefoxPage},
    {"AccessibilityBusWithoutXDisplay", accessibilityBusWithoutXDisplay},
    {"HostExamples", hostExamples},
};

/// A desktop's column: the rows it cannot run and why, or the only rows it
/// runs and why no other.
struct Column {
  DesktopKind kind;
  const char* name;
  std::unique_ptr<Desktop> (*start)(std::string* error);
  std::map<std::string, std::string> skipped;
  std::vector<std::string> only = {};
  const char* whyOnly = "";
};

const char kGtkOnX11[] =
    "a GTK editor's selection is its PRIMARY on X11, read directly; it drops "
    "it when another program takes PRIMARY";

const char kNoXDisplayToDoWithout[] =
    "the accessibility bus is found the same way on every desktop, and "
    "there is no X display to do without: tried on X11";
const char kNotOnWayland[] =
    "PRIMARY is not read on Wayland: the direct read is AT-SPI's";
const char kAbiWordOnX11[] = "AbiWord is tried on X11 only";
const char kExamplesOnX11[] =
    "the examples do not depend on the desktop: run on X11";
const char kNoCommandsOnMutter[] =
    "mutter binds no keys to commands, and a headless session has no "
    "terminal that copies with the user's keys";
const char kFootOnKWin[] =
    "foot 1.13 ends with SIGFPE as it starts on KWin's virtual output";

const Column kDesktops[] = {
    {DesktopKind::kX11,
     "X11",
     startX11Desktop,
     {{"EditorCopied", kGtkOnX11}, {"Gtk3EditorCopied", kGtkOnX11}}},
    {DesktopKind::kSway,
     "Sway",
     startSwayDesktop,
     {{"EditorReadDirectly", kNotOnWayland},
      {"WordProcessorCopiedWithHtml", kAbiWordOnX11},
      {"ClipboardManagerNotMistakenForACopy",
       "Debian 12 has no clipboard manager for wlroots compositors"},
      {"AccessibilityBusWithoutXDisplay", kNoXDisplayToDoWithout},
      {"HostExamples", kExamplesOnX11}}},
    {DesktopKind::kWeston,
     "Weston",
     startWestonDesktop,
     {},
     {"PermissionAnswers", "AFrozenDisplayServerDoesNotHoldTheHostUp"},
     "weston offers neither data-control nor virtual keyboards: tovrin can "
     "only say why it cannot copy"},
    {DesktopKind::kKWin,
     "KWin",
     startKWinDesktop,
     {{"EditorReadDirectly", kNotOnWayland},
      {"WordProcessorCopiedWithHtml", kAbiWordOnX11},
      {"TerminalProgramNotInterrupted", kFootOnKWin},
      {"AWindowNameCannotForgeALogLine", kFootOnKWin},
      {"ClipboardManagerNotMistakenForACopy",
       "Klipper needs a Plasma session around it"},
      {"CopiesUnderACyrillicLayout",
       "fake input types in KWin's layout, which is a setting of KWin's "
       "session; the choice of key is the same as on sway"},
      {"AccessibilityBusWithoutXDisplay",
       "the accessibility bus is found the same way on every desktop, and "
       "there is no X display to do without: tried on X11"},
      {"HostExamples", kExamplesOnX11}}},
    {DesktopKind::kMutter,
     "Mutter",
     startMutterDesktop,
     {{"EditorReadDirectly", kNotOnWayland},
      {"WordProcessorCopiedWithHtml", kAbiWordOnX11},
      {"TerminalProgramNotInterrupted", kNoCommandsOnMutter},
      {"ClipboardManagerNotMistakenForACopy",
       "GNOME has no clipboard manager in Debian 12"},
      {"CopiesUnderACyrillicLayout",
       "mutter's layout is a setting of GNOME's session, which the test "
       "desktop has not; tovrin sends keysyms, which mutter maps itself"},
      {"AWindowNameCannotForgeALogLine",
       "on GNOME the frontmost application's name comes over AT-SPI, from "
       "applications this row does not start"},
      {"AccessibleBrowserPage",
       "Chromium marks no window active over AT-SPI under headless Mutter "
       "here, and GNOME names no application otherwise"},
      {"AccessibilityBusWithoutXDisplay",
       "the accessibility bus is found the same way on every desktop, and "
       "there is no X display to do without: tried on X11"},
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

class EndToEnd
    : public ::testing::TestWithParam<std::tuple<const Column*, const Row*>> {};

TEST_P(EndToEnd, Scenario) {
  const auto& [column, row] = GetParam();
  if (const auto reason = skipReason(*column, *row)) {
    GTEST_SKIP() << column->name << " cannot run " << row->name << ": "
                 << *reason;
  }
  std::string error;
  auto desktop = column->start(&error);
  if (!desktop) GTEST_SKIP() << "No " << column->name << " desktop: " << error;
  tovrin::testing::Run run(column->kind, std::move(desktop));
  row->run(run);
}

template <typename T, size_t N>
std::vector<const T*> pointers(const T (&items)[N]) {
  std::vector<const T*> result;
  for (const T& item : items) result.push_back(&item);
  return result;
}

INSTANTIATE_TEST_SUITE_P(Desktops, EndToEnd,
                         ::testing::Combine(::testing::ValuesIn(pointers(kDesktops)),
                                            ::testing::ValuesIn(pointers(kRows))),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param)->name) +
                                  "_" + std::get<1>(info.param)->name;
                         });

}  // namespace
}  // namespace tovrin::testing
