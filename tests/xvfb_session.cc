#include "tests/xvfb_session.h"

#include <fcntl.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>

namespace tovrin::testing {
namespace {

using std::chrono::milliseconds;

const char* selectionName(Selection selection) {
  return selection == Selection::kPrimary ? "primary" : "clipboard";
}

}  // namespace

std::unique_ptr<XvfbSession> XvfbSession::start(bool windowManager,
                                                std::string* error) {
  auto fail = [error](std::string reason) -> std::unique_ptr<XvfbSession> {
    if (error != nullptr) *error = std::move(reason);
    return nullptr;
  };
  std::unique_ptr<XvfbSession> session(new XvfbSession());
  const auto server = session->spawn(
      {"Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten",
       "tcp", "-noreset"},
      {.captureOutput = true});
  if (!server) return fail("Xvfb did not start");
  session->serverPid_ = *server;
  // Xvfb writes its display number once it accepts connections.
  const auto number = session->readLine(*server, milliseconds(10000));
  if (!number) {
    return fail(
        "Xvfb did not report a display within the deadline (is the "
        "xvfb package installed?)");
  }
  // ':' is a char because for a one-letter string in front of a temporary,
  // g++ 12 -O3 warns of an overlapping copy that cannot happen (-Wrestrict).
  session->display_ = ':' + *number;

  if (const char* previous = getenv("DISPLAY")) {
    session->previousDisplay_ = previous;
  }
  setenv("DISPLAY", session->display_.c_str(), 1);
  // GTK 4 and Qt take Wayland when they see it.
  session->environment_ = {"DISPLAY=" + session->display_, "WAYLAND_DISPLAY",
                           "GDK_BACKEND=x11", "QT_QPA_PLATFORM=xcb"};

  if (windowManager) {
    auto wm =
        session->spawn({"matchbox-window-manager", "-use_titlebar", "no"});
    if (!wm) return fail("matchbox-window-manager did not start");
    // It names its window in _NET_SUPPORTING_WM_CHECK once it runs.
    const bool ready = waitUntil(
        [&] {
          const auto check = session->run(
              {"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}, milliseconds(5000));
          return !session->running(*wm) ||
                 (check && check->output.find("window id") != std::string::npos);
        },
        milliseconds(10000), milliseconds(10));
    if (!ready || !session->running(*wm)) {
      return fail("matchbox-window-manager was not ready in time");
    }
  }
  return session;
}

XvfbSession::~XvfbSession() {
  // Last started, first ended: clients, the window manager, the server.
  endAll();
  if (!heldLock_.empty()) unlink(heldLock_.c_str());
  if (previousDisplay_) {
    setenv("DISPLAY", previousDisplay_->c_str(), 1);
  } else {
    unsetenv("DISPLAY");
  }
}

void XvfbSession::stopServer() {
  if (serverPid_ <= 0) return;
  terminate(serverPid_);
  serverPid_ = -1;
  // The display number stays ours until the session ends: a server that
  // another test starts meanwhile would take it, and the clients of this
  // test that reconnect would talk to that one. X servers skip a number
  // whose lock file names a live process.
  if (heldLock_.empty() && display_.size() > 1) {
    const std::string path = "/tmp/.X" + display_.substr(1) + "-lock";
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0444);
    if (fd >= 0) {
      char pid[16];
      const int length = std::snprintf(pid, sizeof pid, "%10d\n", getpid());
      if (write(fd, pid, static_cast<size_t>(length)) == length) heldLock_ = path;
      close(fd);
      if (heldLock_.empty()) unlink(path.c_str());
    }
  }
}

std::map<std::string, std::string> XvfbSession::clientEnvironment() const {
  return {{"DISPLAY", display_}, {"WAYLAND_DISPLAY", ""}};
}

bool XvfbSession::succeeds(const std::vector<std::string>& argv) {
  const auto result = run(argv, milliseconds(10000));
  return result && result->exit.code == 0;
}

std::optional<pid_t> XvfbSession::startApplication(
    const Application& application) {
  const auto pid = spawn(application.argv, {.environment = application.environment});
  if (!pid) return std::nullopt;
  // Toolkits also give WM_CLASS to hidden leader windows, which cannot be
  // activated: the first mapped one. xdotool gives up on its search when a
  // window vanishes under it, as starting applications' windows do: search
  // again until the deadline.
  const auto activated = [&] {
    const auto found = run({"xdotool", "search", "--sync", "--onlyvisible",
                            "--class", application.id},
                           milliseconds(30000));
    return found && found->exit.code == 0 &&
           succeeds({"xdotool", "windowactivate", "--sync",
                     found->output.substr(0, found->output.find('\n'))});
  };
  if (waitUntil([&] { return !running(*pid) || activated(); },
                milliseconds(30000), milliseconds(100)) &&
      running(*pid)) {
    return pid;
  }
  ADD_FAILURE() << "No window of " << application.id << " got the focus";
  return std::nullopt;
}

bool XvfbSession::pressKeys(const std::string& combination) {
  return succeeds({"xdotool", "key", "--clearmodifiers", combination});
}

bool XvfbSession::setLayout(const std::string& layout) {
  return succeeds({"setxkbmap", "-display", display_, "-layout", layout});
}

std::optional<std::string> XvfbSession::read(Selection selection) {
  const auto result = run({"xclip", "-o", "-selection", selectionName(selection)},
                          milliseconds(5000));
  if (!result || result->exit.code != 0) return std::nullopt;
  return result->output;
}

std::optional<pid_t> XvfbSession::own(Selection selection,
                                      const std::string& text) {
  // In the foreground it stays our child, to be ended by its pid.
  const auto pid =
      spawn({"xclip", "-quiet", "-selection", selectionName(selection), "-i"},
            {.input = text});
  if (!pid || !waitFor(selection, text)) {
    ADD_FAILURE() << "xclip did not take the " << selectionName(selection);
    return std::nullopt;
  }
  return pid;
}

std::optional<std::vector<int>> XvfbSession::keysDown() {
  xcb_connection_t* connection = xcb_connect(display_.c_str(), nullptr);
  auto* keys = xcb_connection_has_error(connection) == 0
                   ? xcb_query_keymap_reply(
                         connection, xcb_query_keymap(connection), nullptr)
                   : nullptr;
  xcb_disconnect(connection);
  if (keys == nullptr) return std::nullopt;
  std::vector<int> down;
  for (int key = 0; key < 256; ++key) {
    if ((keys->keys[key / 8] & (1 << (key % 8))) != 0) down.push_back(key);
  }
  std::free(keys);
  return down;
}

std::unique_ptr<Desktop> startX11Desktop(std::string* error) {
  return XvfbSession::start(true, error);
}

void XvfbTest::SetUp() {
  std::string error;
  xvfb_ = XvfbSession::start(false, &error);
  if (!xvfb_) GTEST_SKIP() << "No X server could be started: " << error;
}

}  // namespace tovrin::testing
