#ifndef TOVRIN_TESTS_E2E_DESKTOP_H_
#define TOVRIN_TESTS_E2E_DESKTOP_H_

// A private X desktop (Xvfb and a window manager) with real applications,
// and the built tovrin started as a host starts it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "e2e_host.h"
#include "xvfb_session.h"

namespace tovrin::testing {

class RealDesktopTest : public XvfbTest, protected TovrinHost {
 protected:
  RealDesktopTest() { xvfbOptions_.windowManager = true; }

  /// Starts `argv` and waits for its window; the window id, or 0. An
  /// `accessible` application registers on the accessibility bus, when
  /// there is one.
  uint32_t startApplication(const std::vector<std::string>& argv,
                            const std::string& wmClass,
                            bool accessible = false) {
    SpawnOptions options;
    options.environment = {
        "DBUS_SESSION_BUS_ADDRESS=" + sessionBus_,
        "HOME=" + directory_.string(),
        "XDG_CONFIG_HOME=" + (directory_ / "config").string(),
        // GTK 4 and Qt take Wayland when they see it.
        "GDK_BACKEND=x11", "QT_QPA_PLATFORM=xcb"};
    if (accessible) {
      options.environment.insert(options.environment.end(),
                                 {"ACCESSIBILITY_ENABLED=1",
                                  "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1"});
    } else {
      options.environment.push_back("NO_AT_BRIDGE=1");
    }
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

  /// Selects all in `window` until PRIMARY holds `text`: on a busy machine
  /// an editor can still be loading its document when the first keys come.
  bool selectAllUntilPrimaryHolds(uint32_t window, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    do {
      selectAll(window);
      if (waitForSelection("primary", text, 2s)) return true;
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
  }

  /// Starts mousepad on `text` and selects all of it, which puts it in
  /// PRIMARY.
  void startEditorWithSelection(const std::string& text) {
    const uint32_t window =
        startApplication({"mousepad", writeFile("note.txt", text)}, "mousepad");
    ASSERT_NE(window, 0u);
    ASSERT_TRUE(selectAllUntilPrimaryHolds(window, text));
  }

  /// Starts Chromium on a page of `html` and selects all of it, which puts
  /// `text` in PRIMARY.
  void startBrowserWithSelection(const std::string& html,
                                 const std::string& text,
                                 bool accessible = false) {
    const std::string page = writeFile("page.html", html);
    std::vector<std::string> argv = {
        "chromium", "--no-sandbox", "--no-first-run", "--disable-gpu",
        "--disable-background-networking", "--disable-component-update",
        "--disable-sync", "--password-store=basic",
        "--user-data-dir=" + (directory_ / "chromium").string()};
    if (accessible) argv.push_back("--force-renderer-accessibility");
    argv.push_back("file://" + page);
    const uint32_t window = startApplication(argv, "chromium", accessible);
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
  bool waitForSelection(const std::string& selection, const std::string& text,
                        std::chrono::milliseconds timeout = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
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

  /// Runs get-selection as a host does: both output streams read to their
  /// end through pipes.
  Answer getSelection() { return runTovrin("get-selection"); }

  /// Runs `command` as a host does, on this display unless `environment`
  /// says otherwise (an empty value removes a variable).
  Answer runTovrin(const std::string& command,
                   std::map<std::string, std::string> environment = {}) {
    environment.emplace("DISPLAY", xvfb().display());
    return runTovrinWith(command, environment);
  }

  /// The session bus of the applications. None by default: each test's
  /// editor runs alone instead of handing its file to another's.
  std::string sessionBus_ = "unix:path=/nonexistent";
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_E2E_DESKTOP_H_
