// The Wayland desktops of the tests: a headless compositor on a runtime
// directory of its own, the selections through wl-clipboard (data-control),
// and the keys through tovrin's own pieces: a virtual keyboard held on the
// seat for the whole session, or under KWin its fake input through
// tovrin-kwin-input.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <xkbcommon/xkbcommon.h>

#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"
#include "platform/wayland/kwin_input.h"
#include "platform/wayland/toplevels.h"
#include "tests/desktop.h"

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// tovrin's helper for KWin, beside the binary under test.
std::string kwinInputPath() {
  return std::filesystem::canonical(TOVRIN_BINARY)
      .replace_filename("tovrin-kwin-input")
      .string();
}

struct KeymapFree {
  void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
using Keymap = std::unique_ptr<xkb_keymap, KeymapFree>;

/// The keymap XKB makes of `layout`; the connection loads xkbcommon.
Keymap keymapOf(const std::string& layout) {
  static xkb_context* const context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  const xkb_rule_names names = {"evdev", "pc105", layout.c_str(), "", ""};
  return Keymap(
      xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
}

/// The keyboard of the tests on a compositor's seat. A compositor without
/// input devices (sway on its headless backend) gives its seat no keyboard:
/// applications never bind one, and keys that a short-lived virtual
/// keyboard sends reach nobody. With a virtual keyboard held the seat has
/// one from the start, the way a person's desktop does. KWin has no
/// virtual keyboards; there the keys go through its fake input, in KWin's
/// own layout (US).
class TestKeyboard {
 public:
  bool start(const std::string& socket, const std::string& layout) {
    connection_ = WaylandConnection::open(socket);
    us_ = connection_ ? keymapOf("us") : nullptr;
    if (!us_) return false;
    if (connection_->virtualKeyboard() == nullptr) {
      kwin_ = KWinInput::start(kwinInputPath(), connection_->socketPath());
      keyboard_ = KWinInput::keyboard(kwin_);
      if (!keyboard_) return false;
    }
    return setLayout(layout).empty();
  }

  /// Gives the keyboard the keymap of `layout`; an error text when it
  /// cannot.
  std::string setLayout(const std::string& layout) {
    Keymap keymap = keymapOf(layout);
    if (!keymap) return "no keymap for layout " + layout;
    if (kwin_) {
      if (layout != "us") return "KWin's layout is not the keyboard's to change";
      keymap_ = std::move(keymap);
      return "";
    }
    char* text = xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
    CopyKeys keys;
    keys.keymap = text;
    std::free(text);
    // The new keyboard comes before the old one goes: the seat keeps one.
    auto keyboard = VirtualKeyboard::create(*connection_, keys);
    if (!keyboard || !keyboard->sync()) return "the virtual keyboard was refused";
    keyboard_ = std::move(keyboard);
    keymap_ = std::move(keymap);
    return "";
  }

  /// Presses and releases "mod+mod+key"; an error text when a name is
  /// unknown. Keys are keysym names; a keysym the layout lacks (a Latin
  /// letter under "ru") is the key at its US position, as a person would
  /// press it.
  std::string press(const std::string& combination) {
    std::vector<std::string> names;
    std::stringstream parts(combination);
    for (std::string part; std::getline(parts, part, '+');) names.push_back(part);
    static const std::map<std::string, std::pair<const char*, uint32_t>>
        kModifiers = {{"ctrl", {XKB_MOD_NAME_CTRL, 29}},
                      {"shift", {XKB_MOD_NAME_SHIFT, 42}},
                      {"alt", {XKB_MOD_NAME_ALT, 56}}};
    std::vector<std::pair<const char*, uint32_t>> modifiers;
    for (size_t i = 0; i + 1 < names.size(); ++i) {
      const auto found = kModifiers.find(names[i]);
      if (found == kModifiers.end()) return "unknown modifier " + names[i];
      modifiers.push_back(found->second);
    }
    auto [code, level] = keyOf(keymap_.get(), names.back());
    if (code == 0) std::tie(code, level) = keyOf(us_.get(), names.back());
    if (code == 0) return "no key gives " + combination;
    if (level == 1) modifiers.push_back(kModifiers.at("shift"));
    uint32_t mask = 0;
    std::vector<uint32_t> keys;
    for (const auto& [name, evdev] : modifiers) {
      mask |= 1u << xkb_keymap_mod_get_index(keymap_.get(), name);
      keys.push_back(evdev);
    }
    keys.push_back(code);
    if (kwin_) {
      // Fake input has no modifiers of its own: KWin takes them from the
      // modifier keys pressed.
      for (const uint32_t key : keys) keyboard_->key(key, true);
      for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
        keyboard_->key(*key, false);
      }
    } else {
      keyboard_->modifiers(mask);
      keyboard_->key(code, true);
      keyboard_->key(code, false);
      keyboard_->modifiers(0);
    }
    return keyboard_->sync() ? "" : "the compositor did not answer";
  }

  /// The app id of the compositor's active window; nothing when no window
  /// is active. The window lists are asked on a connection of their own
  /// (KWin's through a helper of its own) each time: a list, once bound,
  /// tells only of what changes.
  std::optional<std::string> activeWindow() {
    const auto deadline = Clock::now() + milliseconds(5000);
    if (!kwin_) {
      const auto connection = WaylandConnection::open(connection_->socketPath());
      if (!connection) return std::nullopt;
      return activatedToplevel(*connection, deadline).appId;
    }
    const auto helper =
        KWinInput::start(kwinInputPath(), connection_->socketPath());
    if (!helper) return std::nullopt;
    return helper->activeWindow(deadline).appId;
  }

 private:
  /// The evdev code and level (0 plain, 1 with Shift) of the key that
  /// gives the keysym `name` in the first layout of `keymap`; 0 when none
  /// does. The plain level anywhere first: "Left" is on the arrow key, not
  /// on the keypad's shifted 4.
  static std::pair<uint32_t, uint32_t> keyOf(xkb_keymap* keymap,
                                             const std::string& name) {
    static const std::map<std::string, xkb_keysym_t> kNamed = {
        {"End", XKB_KEY_End}, {"Return", XKB_KEY_Return},
        {"space", XKB_KEY_space}};
    const auto named = kNamed.find(name);
    // A single character is its own keysym (Latin-1).
    const xkb_keysym_t keysym =
        named != kNamed.end() ? named->second
        : name.size() == 1    ? static_cast<unsigned char>(name[0])
                              : XKB_KEY_NoSymbol;
    for (uint32_t level = 0; keysym != XKB_KEY_NoSymbol && level < 2; ++level) {
      for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap);
           key <= xkb_keymap_max_keycode(keymap); ++key) {
        const xkb_keysym_t* syms = nullptr;
        const int count =
            xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &syms);
        for (int i = 0; i < count; ++i) {
          if (syms[i] == keysym) return {key - 8, level};
        }
      }
    }
    return {0, 0};
  }

  std::unique_ptr<WaylandConnection> connection_;
  std::shared_ptr<KWinInput> kwin_;
  std::unique_ptr<SyntheticKeyboard> keyboard_;
  Keymap keymap_;
  Keymap us_;
};

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
    if (pid && waitUntil(
                   [&] {
                     return !running(*pid) ||
                            keyboard_.activeWindow() == application.id;
                   },
                   milliseconds(30000), milliseconds(50)) &&
        running(*pid)) {
      return pid;
    }
    ADD_FAILURE() << "No window of " << application.id << " got the focus";
    return std::nullopt;
  }

  bool pressKeys(const std::string& combination) override {
    return succeeded(keyboard_.press(combination), combination);
  }
  bool setLayout(const std::string& layout) override {
    return succeeded(keyboard_.setLayout(layout), "layout " + layout);
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
    if (!pid ||
        !waitUntil([&] { return !running(*pid) || ready(); },
                   milliseconds(20000), milliseconds(10)) ||
        !running(*pid)) {
      *error = argv[0] + " did not start within the deadline (is it installed?)";
      return false;
    }
    compositor_ = *pid;
    environment_ = {"XDG_RUNTIME_DIR=" + runtime_, "WAYLAND_DISPLAY=" + socket_,
                    "DISPLAY", "WAYLAND_SOCKET"};
    for (const auto& [name, value] : extraEnvironment_) {
      environment_.push_back(name + "=" + value);
    }
    return true;
  }

  /// Holds a keyboard of `layout` on the seat; false when the compositor
  /// does not take it.
  bool holdKeyboard(const std::string& layout) {
    return keyboard_.start(runtime_ + "/" + socket_, layout);
  }

  TestKeyboard keyboard_;
  std::string runtime_;
  std::string socket_;
  std::map<std::string, std::string> extraEnvironment_;

 private:
  static bool succeeded(const std::string& error, const std::string& what) {
    if (!error.empty()) ADD_FAILURE() << what << ": " << error;
    return error.empty();
  }

  pid_t compositor_ = -1;
};

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
    // keyboard's first round trip is answered once it runs.
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
    // naming the helper beside the binary under test; the tests type
    // through it too.
    const std::string applications = folder_ + "/share/applications/";
    std::filesystem::create_directories(applications);
    std::ifstream installed(std::string(TOVRIN_SOURCE_DIR) +
                            "/data/tovrin.desktop.in");
    std::string entry((std::istreambuf_iterator<char>(installed)),
                      std::istreambuf_iterator<char>());
    const std::string placeholder = "@TOVRIN_KWIN_INPUT@";
    if (const size_t at = entry.find(placeholder); at != std::string::npos) {
      entry.replace(at, placeholder.size(), kwinInputPath());
    }
    std::ofstream(applications + "tovrin.desktop") << entry;
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
    *error = "KWin did not offer its fake input to tovrin-kwin-input";
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
