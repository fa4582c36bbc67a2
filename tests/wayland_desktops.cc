// The Wayland desktops of the tests: a headless compositor on a runtime
// directory of its own, the selections through wl-clipboard (data-control),
// and where the compositor takes virtual keyboards, one held on the seat
// for the keys (tests/wayland/keyboard_holder_main.cc).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/desktop.h"

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class WaylandDesktop : public Desktop {
 public:
  ~WaylandDesktop() override {
    // Last started, first ended: the compositor ends after its clients.
    endAll();
    std::error_code ignored;
    if (!runtime_.empty()) std::filesystem::remove_all(runtime_, ignored);
  }

  std::map<std::string, std::string> clientEnvironment() const override {
    std::map<std::string, std::string> environment = {
        {"XDG_RUNTIME_DIR", runtime_},
        {"WAYLAND_DISPLAY", socket_},
        {"DISPLAY", ""},
        {"WAYLAND_SOCKET", ""}};
    environment.insert(extraEnvironment_.begin(), extraEnvironment_.end());
    return environment;
  }

  std::optional<pid_t> startApplication(
      const Application& application) override {
    const auto pid = spawnOnWayland(application);
    const auto deadline = Clock::now() + milliseconds(30000);
    while (pid && running(*pid) && Clock::now() < deadline) {
      if (focused(application.id)) return pid;
      std::this_thread::sleep_for(milliseconds(50));
    }
    ADD_FAILURE() << "No window of " << application.id << " got the focus";
    return std::nullopt;
  }

  bool pressKeys(const std::string& combination) override {
    return tellKeyboard(combination);
  }
  bool setLayout(const std::string& layout) override {
    return tellKeyboard("layout " + layout);
  }

  std::optional<std::string> read(Selection selection) override {
    std::vector<std::string> argv = {"wl-paste", "--no-newline"};
    if (selection == Selection::kPrimary) argv.push_back("--primary");
    const auto result = run(argv, milliseconds(5000));
    if (!result || result->exit.code != 0) return std::nullopt;
    return result->output;
  }

  std::optional<pid_t> own(Selection selection,
                           const std::string& text) override {
    // In the foreground it stays our child, to be ended by its pid.
    std::vector<std::string> argv = {"wl-copy", "--foreground"};
    if (selection == Selection::kPrimary) argv.push_back("--primary");
    argv.insert(argv.end(), {"--", text});
    const auto pid = spawn(argv);
    if (!pid || !waitFor(selection, text)) {
      ADD_FAILURE() << "wl-copy did not take the selection";
      return std::nullopt;
    }
    return pid;
  }

  pid_t serverPid() const override { return compositor_; }

 protected:
  /// Starts the compositor `argv` on a runtime directory of its own and
  /// waits until `ready` holds; false, with the reason in `error`, when it
  /// does not in time. `ready` may set socket_ from the directory.
  template <typename Ready>
  bool startCompositor(const std::vector<std::string>& argv,
                       std::vector<std::string> environment, Ready ready,
                       std::string* error) {
    char directory[] = "/tmp/tovrin-wayland-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      *error = "no runtime directory";
      return false;
    }
    runtime_ = directory;
    // Clients refuse a runtime directory that others may enter.
    chmod(directory, 0700);
    environment_ = {"XDG_RUNTIME_DIR=" + runtime_, "DISPLAY",
                    "WAYLAND_DISPLAY", "WAYLAND_SOCKET"};
    SpawnOptions options;
    options.environment = std::move(environment);
    const auto pid = spawn(argv, options);
    const auto deadline = Clock::now() + milliseconds(20000);
    while (pid && running(*pid) && Clock::now() < deadline) {
      if (ready()) {
        compositor_ = *pid;
        environment_ = {"XDG_RUNTIME_DIR=" + runtime_,
                        "WAYLAND_DISPLAY=" + socket_, "DISPLAY",
                        "WAYLAND_SOCKET"};
        for (const auto& [name, value] : extraEnvironment_) {
          environment_.push_back(name + "=" + value);
        }
        return true;
      }
      std::this_thread::sleep_for(milliseconds(10));
    }
    *error = argv[0] + " did not start within the deadline (is it installed?)";
    return false;
  }

  /// Holds a virtual keyboard of `layout` on the seat; false when the
  /// compositor does not take it in time.
  bool holdKeyboard(const std::string& layout) {
    SpawnOptions options;
    options.keepInput = true;
    options.captureOutput = true;
    options.showErrors = true;
    const auto pid = spawn({TOVRIN_KEYBOARD_HOLDER, layout}, options);
    if (!pid || readLine(*pid, milliseconds(15000)) != "ready") return false;
    keyboard_ = *pid;
    return true;
  }

  /// Whether a window of `id` has the keyboard focus.
  virtual bool focused(const std::string& id) = 0;

  /// The keyboard holder's answer line to `command`.
  std::optional<std::string> askKeyboard(const std::string& command) {
    if (keyboard_ < 0 || !writeInput(keyboard_, command + "\n")) return {};
    return readLine(keyboard_, milliseconds(5000));
  }

  std::string runtime_;
  std::string socket_;
  std::map<std::string, std::string> extraEnvironment_;

 private:
  bool tellKeyboard(const std::string& command) {
    if (keyboard_ < 0 || !writeInput(keyboard_, command + "\n")) return false;
    const auto answer = readLine(keyboard_, milliseconds(5000));
    if (answer != "ok") {
      ADD_FAILURE() << "The keyboard holder answered '" << answer.value_or("")
                    << "' to '" << command << "'";
      return false;
    }
    return true;
  }

  pid_t compositor_ = -1;
  pid_t keyboard_ = -1;
};

bool focusedAppIs(const nlohmann::json& node, const std::string& appId) {
  if (node.value("focused", false)) return node.value("app_id", "") == appId;
  for (const char* children : {"nodes", "floating_nodes"}) {
    for (const auto& child : node.value(children, nlohmann::json::array())) {
      if (focusedAppIs(child, appId)) return true;
    }
  }
  return false;
}

/// sway on its headless backend, with a virtual keyboard held on its seat:
/// without input devices the seat has no keyboard, applications never bind
/// one, and the keys of a short-lived virtual keyboard reach nobody.
class SwayDesktop : public WaylandDesktop {
 public:
  bool start(std::string* error) {
    if (geteuid() == 0) {
      *error = "sway refuses to run as root: run the end-to-end tests as an "
               "unprivileged user (scripts/as_test_user.sh does)";
      return false;
    }
    char directory[] = "/tmp/tovrin-sway-config-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      *error = "no folder for sway's configuration";
      return false;
    }
    config_ = directory;
    // Nothing in it moves the focus by itself: windows get the focus when
    // they open, and keep it until a test says otherwise.
    std::ofstream(config_ + "/config") << "xwayland disable\n"
                                          "focus_follows_mouse no\n"
                                          "mouse_warping none\n"
                                          "focus_on_window_activation focus\n"
                                          "default_border none\n";
    // sway opens its socket before it has read its configuration; the
    // keyboard holder's first round trip is answered once it runs.
    const bool started = startCompositor(
        {"sway", "-c", config_ + "/config"},
        {"WLR_BACKENDS=headless", "WLR_RENDERER=pixman",
         "WLR_LIBINPUT_NO_DEVICES=1"},
        [&] {
          std::error_code ignored;
          for (const auto& entry :
               std::filesystem::directory_iterator(runtime_, ignored)) {
            const std::string name = entry.path().filename();
            if (name.rfind("wayland-", 0) == 0) socket_ = name;
            if (name.rfind("sway-ipc.", 0) == 0) {
              extraEnvironment_["SWAYSOCK"] = entry.path();
            }
          }
          return !socket_.empty() && extraEnvironment_.count("SWAYSOCK") > 0;
        },
        error);
    if (!started) return false;
    if (holdKeyboard("us")) return true;
    *error = "sway did not take the virtual keyboard in time";
    return false;
  }
  ~SwayDesktop() override {
    std::error_code ignored;
    std::filesystem::remove_all(config_, ignored);
  }

 private:
  bool focused(const std::string& id) override {
    const auto tree = run({"swaymsg", "-t", "get_tree"}, milliseconds(5000));
    if (!tree || tree->exit.code != 0) return false;
    const auto parsed = nlohmann::json::parse(tree->output, nullptr, false);
    return !parsed.is_discarded() && focusedAppIs(parsed, id);
  }

  std::string config_;
};

/// weston on its headless backend: no data-control, no virtual keyboard,
/// as GNOME's and KDE's compositors before tovrin spoke their own
/// interfaces. No application runs on it here.
class WestonDesktop : public WaylandDesktop {
 public:
  bool start(std::string* error) {
    socket_ = "tovrin-weston";
    return startCompositor(
        {"weston", "--backend=headless-backend.so", "--socket=" + socket_,
         "--idle-time=0"},
        {}, [&] { return std::filesystem::exists(runtime_ + "/" + socket_); },
        error);
  }

 private:
  bool focused(const std::string&) override { return false; }
};

/// KWin 5.27 on its virtual backend, as a user runs it: KWin offers its
/// fake input and window list only to the programs its installed .desktop
/// files authorize, and the session's authorize tovrin and the keyboard
/// holder the way tovrin's package does.
class KWinDesktop : public WaylandDesktop {
 public:
  bool start(std::string* error) {
    if (geteuid() == 0) {
      *error = "KWin is run as an unprivileged user here (tests/as_test_user.sh)";
      return false;
    }
    char directory[] = "/tmp/tovrin-kwin-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      *error = "no folder for KWin";
      return false;
    }
    folder_ = directory;
    // /usr/bin/kwin_wayland carries a file capability that an unprivileged
    // user cannot take up; a copy without it runs while it keeps its name.
    std::error_code failed;
    std::filesystem::copy_file("/usr/bin/kwin_wayland",
                               folder_ + "/kwin_wayland", failed);
    if (failed) {
      *error = "kwin_wayland is not installed";
      return false;
    }
    // tovrin's helper is authorized by the file its package installs,
    // naming the helper beside the binary under test; the keyboard holder
    // by one of its own.
    const std::string applications = folder_ + "/share/applications/";
    std::filesystem::create_directories(applications);
    std::ifstream installed(std::string(TOVRIN_SOURCE_DIR) +
                            "/data/tovrin.desktop.in");
    std::string entry((std::istreambuf_iterator<char>(installed)),
                      std::istreambuf_iterator<char>());
    const std::string placeholder = "@TOVRIN_KWIN_INPUT@";
    if (const size_t at = entry.find(placeholder); at != std::string::npos) {
      entry.replace(at, placeholder.size(),
                    std::filesystem::canonical(TOVRIN_BINARY)
                        .replace_filename("tovrin-kwin-input")
                        .string());
    }
    std::ofstream(applications + "tovrin.desktop") << entry;
    std::ofstream(applications + "keyboard_holder.desktop")
        << "[Desktop Entry]\nType=Application\nName=keyboard_holder\n"
        << "Exec=" << std::filesystem::canonical(TOVRIN_KEYBOARD_HOLDER).string()
        << "\nX-KDE-Wayland-Interfaces="
        << "org_kde_kwin_fake_input,org_kde_plasma_window_management\n";
    socket_ = "tovrin-kwin";
    const bool started = startCompositor(
        {"dbus-run-session", "--", folder_ + "/kwin_wayland", "--virtual",
         "--width", "1280", "--height", "800", "--no-lockscreen", "--socket",
         socket_},
        {"XDG_DATA_DIRS=" + folder_ + "/share:/usr/share",
         "XDG_CONFIG_HOME=" + folder_ + "/config",
         "XDG_CACHE_HOME=" + folder_ + "/cache", "QT_QPA_PLATFORM"},
        [&] { return std::filesystem::exists(runtime_ + "/" + socket_); },
        error);
    if (!started) return false;
    if (holdKeyboard("us")) return true;
    *error = "KWin did not offer its fake input to the keyboard holder";
    return false;
  }
  ~KWinDesktop() override {
    endAll();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  /// KWin itself, not the bus session around it.
  pid_t serverPid() const override {
    const std::string parent = std::to_string(WaylandDesktop::serverPid());
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
      std::ifstream stat(entry.path() / "stat");
      std::string pid, name, state, ppid;
      if (stat >> pid >> name >> state >> ppid && ppid == parent &&
          name == "(kwin_wayland)") {
        return std::stoi(pid);
      }
    }
    return -1;
  }

 private:
  bool focused(const std::string& id) override {
    std::string escaped;
    for (const unsigned char c : id) {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", c);
      escaped += c < 0x20 ? std::string(escape) : std::string(1, c);
    }
    return askKeyboard("active") == escaped;
  }

  std::string folder_;
};

template <typename D>
std::unique_ptr<Desktop> started(std::string* error) {
  auto desktop = std::make_unique<D>();
  if (!desktop->start(error)) return nullptr;
  return desktop;
}

}  // namespace

std::unique_ptr<Desktop> startSwayDesktop(std::string* error) {
  return started<SwayDesktop>(error);
}

std::unique_ptr<Desktop> startWestonDesktop(std::string* error) {
  return started<WestonDesktop>(error);
}

std::unique_ptr<Desktop> startKWinDesktop(std::string* error) {
  return started<KWinDesktop>(error);
}

}  // namespace tovrin::testing
