#ifndef TOVRIN_TESTS_DESKTOP_H_
#define TOVRIN_TESTS_DESKTOP_H_

// A private desktop for the tests: a display server of its own (Xvfb with a
// window manager, or a headless Wayland compositor), the applications a test
// starts on it, the keyboard and the clipboard as a user reaches them, and
// everything it started ended, by process id, when it goes away.
//
// To add a desktop: a class that implements this interface in a file of its
// own with a function that starts it, and its column in the scenario table
// (tests/e2e_test.cc).

#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/process.h"

namespace tovrin::testing {

using namespace std::chrono_literals;

enum class Selection { kClipboard, kPrimary };

/// An application as a test starts it on a desktop.
struct Application {
  std::vector<std::string> argv;
  /// The WM_CLASS (X11) or app id (Wayland) of its window.
  std::string id;
  /// "NAME=value" entries on top of the desktop's environment.
  std::vector<std::string> environment;
};

class Desktop : public SessionProcesses {
 public:
  virtual ~Desktop() = default;

  /// What tovrin, started outside the desktop as a host starts it, needs to
  /// reach it; an empty value removes a variable.
  virtual std::map<std::string, std::string> clientEnvironment() const = 0;
  /// Starts `application` and waits until a window of it has the focus; its
  /// pid, or nothing (with a test failure saying why).
  virtual std::optional<pid_t> startApplication(
      const Application& application) = 0;
  /// Presses a combination of keys ("ctrl+a", "ctrl+shift+End") on the
  /// focused window; true once the display server has handled them.
  virtual bool pressKeys(const std::string& combination) = 0;
  /// Gives the keyboard another XKB layout ("ru").
  virtual bool setLayout(const std::string& layout) = 0;
  /// The text a selection holds, as another program reads it.
  virtual std::optional<std::string> read(Selection selection) = 0;
  /// Makes a program of the desktop's own own `selection` with `text`, as
  /// the user's last copy; its pid, once the selection holds it.
  virtual std::optional<pid_t> own(Selection selection,
                                   const std::string& text) = 0;
  /// The key codes held down now; nothing where that cannot be seen.
  virtual std::optional<std::vector<int>> keysDown() { return std::nullopt; }
  /// The display server's process, e.g. to freeze it.
  virtual pid_t serverPid() const = 0;

  /// Waits until `selection` holds `text`.
  bool waitFor(Selection selection, const std::string& text,
               std::chrono::milliseconds timeout = 10s);

 protected:
  /// Starts `application` with GTK and Qt on Wayland; its pid.
  std::optional<pid_t> spawnOnWayland(const Application& application);
};

/// The desktops the end-to-end scenarios run on.
enum class DesktopKind { kX11, kSway, kWeston, kKWin, kMutter };

/// Each starts its desktop; null, with the reason in `error`, when it
/// cannot be started here.
std::unique_ptr<Desktop> startX11Desktop(std::string* error);
std::unique_ptr<Desktop> startSwayDesktop(std::string* error);
std::unique_ptr<Desktop> startWestonDesktop(std::string* error);
std::unique_ptr<Desktop> startKWinDesktop(std::string* error);
std::unique_ptr<Desktop> startMutterDesktop(std::string* error);

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_DESKTOP_H_
