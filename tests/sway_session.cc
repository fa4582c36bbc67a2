#include "tests/sway_session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kKeyboardAnswerTimeout{5000};

// Nothing in it moves the focus or the pointer by itself: windows get the
// focus when they open, and keep it until a test says otherwise.
constexpr char kConfig[] =
    "xwayland disable\n"
    "focus_follows_mouse no\n"
    "mouse_warping none\n"
    "focus_on_window_activation focus\n"
    "default_border none\n";

/// The name of the first "wayland-N" socket in `directory`; empty when there
/// is none yet.
std::string findDisplaySocket(const std::string& directory) {
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(directory, error)) {
    const std::string name = entry.path().filename();
    if (name.rfind("wayland-", 0) == 0 && entry.is_socket(error)) return name;
  }
  return "";
}

bool focusedAppIs(const nlohmann::json& node, std::string_view appId) {
  if (node.value("focused", false)) {
    const auto id = node.find("app_id");
    return id != node.end() && id->is_string() && *id == appId;
  }
  for (const char* children : {"nodes", "floating_nodes"}) {
    const auto list = node.find(children);
    if (list == node.end() || !list->is_array()) continue;
    for (const auto& child : *list) {
      if (focusedAppIs(child, appId)) return true;
    }
  }
  return false;
}

}  // namespace

std::unique_ptr<SwaySession> SwaySession::start(const SwayOptions& options,
                                                std::string* error) {
  auto fail = [error](std::string reason) -> std::unique_ptr<SwaySession> {
    if (error != nullptr) *error = std::move(reason);
    return nullptr;
  };
  if (geteuid() == 0) {
    return fail(
        "sway refuses to run as root: run the Wayland tests as an "
        "unprivileged user (tests/wayland/as_test_user.sh does)");
  }
  if (access(options.keyboardHolder.c_str(), X_OK) != 0) {
    return fail("no keyboard holder program at '" + options.keyboardHolder +
                "'");
  }
  char directory[] = "/tmp/tovrin-sway-XXXXXX";
  if (mkdtemp(directory) == nullptr) return fail("no runtime directory");
  std::unique_ptr<SwaySession> session(new SwaySession());
  session->runtimeDirectory_ = directory;
  // Clients refuse a runtime directory that others may enter.
  chmod(directory, 0700);
  const std::string config = session->runtimeDirectory_ + "/sway.config";
  std::ofstream(config) << kConfig;

  session->environment_ = {"XDG_RUNTIME_DIR=" + session->runtimeDirectory_,
                           "DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET",
                           "SWAYSOCK"};
  SpawnOptions swayOptions;
  swayOptions.environment = {"WLR_BACKENDS=headless", "WLR_RENDERER=pixman",
                             "WLR_LIBINPUT_NO_DEVICES=1"};
  const auto sway = session->spawn({"sway", "-c", config}, swayOptions);
  if (!sway) return fail("sway did not start");
  session->compositorPid_ = *sway;

  // sway opens its socket before it has read its configuration; the
  // keyboard holder's first round trip is answered once it runs.
  const auto deadline = Clock::now() + options.startTimeout;
  const std::string ipcSocket = session->runtimeDirectory_ + "/sway-ipc." +
                                std::to_string(getuid()) + "." +
                                std::to_string(*sway) + ".sock";
  while (session->waylandDisplay_.empty() ||
         access(ipcSocket.c_str(), F_OK) != 0) {
    if (Clock::now() >= deadline || !session->running(*sway)) {
      return fail(
          "sway did not open its sockets within the deadline (is the sway "
          "package installed?)");
    }
    std::this_thread::sleep_for(milliseconds(10));
    session->waylandDisplay_ = findDisplaySocket(session->runtimeDirectory_);
  }
  session->swaySocket_ = ipcSocket;
  session->environment_ = {"XDG_RUNTIME_DIR=" + session->runtimeDirectory_,
                           "WAYLAND_DISPLAY=" + session->waylandDisplay_,
                           "SWAYSOCK=" + session->swaySocket_, "DISPLAY",
                           "WAYLAND_SOCKET"};

  SpawnOptions keyboardOptions;
  keyboardOptions.keepInput = true;
  keyboardOptions.captureOutput = true;
  keyboardOptions.showErrors = true;
  const auto keyboard = session->spawn(
      {options.keyboardHolder, options.keyboardLayout}, keyboardOptions);
  if (!keyboard) return fail("the keyboard holder did not start");
  session->keyboardPid_ = *keyboard;
  const auto left =
      std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
  if (session->readLine(*keyboard, std::max(left, milliseconds(0))) !=
      "ready") {
    return fail("sway did not take the virtual keyboard within the deadline");
  }
  return session;
}

SwaySession::~SwaySession() {
  // Last started, first ended: sway, started first, ends after its clients.
  endAll();
  if (!runtimeDirectory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(runtimeDirectory_, ignored);
  }
}

std::map<std::string, std::string> SwaySession::clientEnvironment() const {
  return {{"XDG_RUNTIME_DIR", runtimeDirectory_},
          {"WAYLAND_DISPLAY", waylandDisplay_},
          {"SWAYSOCK", swaySocket_},
          {"DISPLAY", ""},
          {"WAYLAND_SOCKET", ""}};
}

bool SwaySession::tellKeyboard(const std::string& command) {
  if (!writeInput(keyboardPid_, command + "\n")) return false;
  const auto answer = readLine(keyboardPid_, kKeyboardAnswerTimeout);
  if (answer != "ok") {
    ADD_FAILURE() << "The keyboard holder answered '" << answer.value_or("")
                  << "' to '" << command << "'";
    return false;
  }
  return true;
}

bool SwaySession::pressKeys(const std::string& combination) {
  return tellKeyboard(combination);
}

bool SwaySession::setKeyboardLayout(const std::string& layout) {
  return tellKeyboard("layout " + layout);
}

std::optional<std::string> SwaySession::swaymsg(
    const std::vector<std::string>& arguments) {
  std::vector<std::string> argv = {"swaymsg"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const auto result = run(argv, milliseconds(5000));
  if (!result || result->exit.code != 0) return std::nullopt;
  return result->output;
}

bool SwaySession::waitForFocus(std::string_view appId,
                               std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    if (const auto tree = swaymsg({"-t", "get_tree"})) {
      const auto parsed = nlohmann::json::parse(*tree, nullptr, false);
      if (!parsed.is_discarded() && focusedAppIs(parsed, appId)) return true;
    }
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(milliseconds(50));
  }
}

void SwayTest::SetUp() {
  std::string error;
  sway_ = SwaySession::start(swayOptions_, &error);
  if (!sway_) GTEST_SKIP() << "No sway session could be started: " << error;
}

void SwayTest::TearDown() { sway_.reset(); }

}  // namespace tovrin::testing
