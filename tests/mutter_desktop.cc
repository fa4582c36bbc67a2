// GNOME's compositor on its headless backend, in a session bus of its own
// that tovrin is handed. Mutter offers no data-control and no virtual
// keyboard: the keys and the clipboard go through remote-desktop sessions
// of tests/gnome/remote_desktop_main.cc. A headless Mutter has no
// keyboard until a session presses a key; the holder presses one and stays.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/desktop.h"

namespace tovrin::testing {
namespace {

using std::chrono::milliseconds;

const std::string kHolder = TOVRIN_REMOTE_DESKTOP;

class MutterDesktop : public Desktop {
 public:
  ~MutterDesktop() override {
    endAll();
    std::error_code ignored;
    if (!runtime_.empty()) std::filesystem::remove_all(runtime_, ignored);
  }

  bool start(std::string* error) {
    char directory[] = "/tmp/tovrin-mutter-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      *error = "no runtime directory";
      return false;
    }
    runtime_ = directory;
    chmod(directory, 0700);
    environment_ = {"XDG_RUNTIME_DIR=" + runtime_, "DISPLAY", "WAYLAND_SOCKET",
                    "WAYLAND_DISPLAY=tovrin-mutter"};
    const std::string busFile = runtime_ + "/session-bus";
    const std::string pidFile = runtime_ + "/mutter-pid";
    // The shell becomes mutter: its pid is the compositor's.
    const auto pid = spawn(
        {"dbus-run-session", "--", "sh", "-c",
         "echo $$ > " + pidFile + " && echo \"$DBUS_SESSION_BUS_ADDRESS\" > " +
             busFile +
             " && exec mutter --headless --wayland --no-x11 --virtual-monitor "
             "1280x800 --wayland-display tovrin-mutter"});
    const auto up = [&] {
      std::ifstream(busFile) >> bus_;
      return !running(*pid) ||
             (!bus_.empty() && std::filesystem::exists(runtime_ + "/tovrin-mutter"));
    };
    if (!pid || !waitUntil(up, milliseconds(20000), milliseconds(20)) ||
        !running(*pid)) {
      *error = "mutter did not start within the deadline (is it installed?)";
      return false;
    }
    std::ifstream(pidFile) >> compositor_;
    const auto holder = spawn({kHolder, "hold"}, {.environment = {busVariable()},
                                                  .keepInput = true,
                                                  .captureOutput = true,
                                                  .showErrors = true});
    if (!holder || readLine(*holder, milliseconds(15000)) != "ready") {
      *error = "no remote-desktop session could press a key";
      return false;
    }
    keyboard_ = *holder;
    return true;
  }

  std::map<std::string, std::string> clientEnvironment() const override {
    return {{"XDG_RUNTIME_DIR", runtime_},
            {"WAYLAND_DISPLAY", "tovrin-mutter"},
            {"DISPLAY", ""},
            {"WAYLAND_SOCKET", ""},
            {"DBUS_SESSION_BUS_ADDRESS", bus_}};
  }

  /// Mutter tells no ordinary client which window has the focus, and
  /// focuses a new window when it maps: the scenarios select until the
  /// selection holds their text, which waits for the window too.
  std::optional<pid_t> startApplication(
      const Application& application) override {
    const auto pid = spawnOnWayland(application);
    if (!pid || !running(*pid)) {
      ADD_FAILURE() << application.id << " did not start";
      return std::nullopt;
    }
    return pid;
  }

  bool pressKeys(const std::string& combination) override {
    if (keyboard_ < 0 || !writeInput(keyboard_, combination + "\n")) {
      return false;
    }
    const auto answer = readLine(keyboard_, milliseconds(5000));
    if (answer != "ok") {
      ADD_FAILURE() << "The holder answered '" << answer.value_or("")
                    << "' to '" << combination << "'";
      return false;
    }
    return true;
  }
  bool setLayout(const std::string&) override { return false; }

  /// PRIMARY cannot be read without data-control: the focused window's
  /// selection is copied and read from the clipboard instead.
  std::optional<std::string> read(Selection selection) override {
    if (selection == Selection::kPrimary && !pressKeys("ctrl+c")) {
      return std::nullopt;
    }
    const auto result = run({kHolder, "read"}, milliseconds(10000),
                            {.environment = {busVariable()}});
    if (!result || result->exit.code != 0) return std::nullopt;
    return result->output;
  }

  std::optional<pid_t> own(Selection selection,
                           const std::string& text) override {
    if (selection != Selection::kClipboard) return std::nullopt;
    const auto pid = spawn({kHolder, "own", text}, {.environment = {busVariable()},
                                                     .captureOutput = true,
                                                     .showErrors = true});
    if (!pid || readLine(*pid, milliseconds(10000)) != "ready" ||
        !waitFor(selection, text)) {
      ADD_FAILURE() << "no session took the clipboard";
      return std::nullopt;
    }
    return pid;
  }

  pid_t serverPid() const override { return compositor_; }

 private:
  /// The compositor's bus, for the helper's sessions. Applications get the
  /// scenario's own (that of its accessibility bus).
  std::string busVariable() const { return "DBUS_SESSION_BUS_ADDRESS=" + bus_; }

  std::string runtime_;
  std::string bus_;
  pid_t compositor_ = -1;
  pid_t keyboard_ = -1;
};

}  // namespace

std::unique_ptr<Desktop> startMutterDesktop(std::string* error) {
  if (geteuid() == 0) {
    *error =
        "run the end-to-end tests as an unprivileged user "
        "(tests/as_test_user.sh does)";
    return nullptr;
  }
  auto desktop = std::make_unique<MutterDesktop>();
  if (!desktop->start(error)) return nullptr;
  return desktop;
}

}  // namespace tovrin::testing
