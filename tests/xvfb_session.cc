#include "tests/xvfb_session.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

int msUntil(Clock::time_point deadline) {
  auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

template <typename T>
using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
XcbReply<T> owned(T* reply) {
  return XcbReply<T>(reply, &std::free);
}

bool hasClass(xcb_connection_t* connection, xcb_window_t window,
              std::string_view wmClass) {
  auto reply = owned(xcb_get_property_reply(
      connection,
      xcb_get_property(connection, 0, window, XCB_ATOM_WM_CLASS,
                       XCB_ATOM_STRING, 0, 256),
      nullptr));
  if (!reply || reply->format != 8) return false;
  const char* value =
      static_cast<const char*>(xcb_get_property_value(reply.get()));
  std::string_view text(
      value, static_cast<size_t>(xcb_get_property_value_length(reply.get())));
  // "instance\0class\0"
  while (!text.empty()) {
    size_t end = text.find('\0');
    if (text.substr(0, end) == wmClass) return true;
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return false;
}

std::optional<xcb_window_t> findWindow(xcb_connection_t* connection,
                                       xcb_window_t window,
                                       std::string_view wmClass, int depth) {
  if (hasClass(connection, window, wmClass)) return window;
  if (depth == 0) return std::nullopt;
  auto tree = owned(xcb_query_tree_reply(
      connection, xcb_query_tree(connection, window), nullptr));
  if (!tree) return std::nullopt;
  xcb_window_t* children = xcb_query_tree_children(tree.get());
  int count = xcb_query_tree_children_length(tree.get());
  for (int i = 0; i < count; ++i) {
    if (auto found = findWindow(connection, children[i], wmClass, depth - 1)) {
      return found;
    }
  }
  return std::nullopt;
}

bool windowManagerRuns(const std::string& display) {
  xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
  bool runs = false;
  if (xcb_connection_has_error(connection) == 0) {
    xcb_window_t root =
        xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const char name[] = "_NET_SUPPORTING_WM_CHECK";
    auto atom = owned(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 1, sizeof name - 1, name),
        nullptr));
    if (atom && atom->atom != XCB_ATOM_NONE) {
      auto property = owned(xcb_get_property_reply(
          connection,
          xcb_get_property(connection, 0, root, atom->atom, XCB_ATOM_WINDOW, 0,
                           1),
          nullptr));
      runs = property && xcb_get_property_value_length(property.get()) == 4;
    }
  }
  xcb_disconnect(connection);
  return runs;
}

}  // namespace

std::unique_ptr<XvfbSession> XvfbSession::start(const XvfbOptions& options,
                                                std::string* error) {
  auto fail = [error](std::string reason) -> std::unique_ptr<XvfbSession> {
    if (error != nullptr) *error = std::move(reason);
    return nullptr;
  };
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return fail("no pipe for -displayfd");
  pid_t server = launchServer({"Xvfb", "-displayfd", "3", "-screen", "0",
                               options.screen, "-nolisten", "tcp", "-noreset"},
                              fds[1]);
  close(fds[1]);
  if (server < 0) {
    close(fds[0]);
    return fail("fork failed");
  }

  std::unique_ptr<XvfbSession> session(new XvfbSession());
  session->serverPid_ = server;
  // Xvfb writes its display number once it accepts connections.
  auto deadline = Clock::now() + options.startTimeout;
  std::string number;
  while (number.find('\n') == std::string::npos) {
    pollfd fd = {fds[0], POLLIN, 0};
    if (poll(&fd, 1, msUntil(deadline)) <= 0) break;
    char buffer[32];
    ssize_t count = read(fds[0], buffer, sizeof buffer);
    if (count <= 0) break;
    number.append(buffer, static_cast<size_t>(count));
  }
  close(fds[0]);
  if (number.find('\n') == std::string::npos) {
    return fail(
        "Xvfb did not report a display within the deadline (is the "
        "xvfb package installed?)");
  }
  // ':' is a char because for a one-letter string in front of a temporary,
  // g++ 12 -O3 warns of an overlapping copy that cannot happen (-Wrestrict).
  session->display_ = ':' + number.substr(0, number.find('\n'));

  if (const char* previous = getenv("DISPLAY")) {
    session->previousDisplay_ = previous;
  }
  setenv("DISPLAY", session->display_.c_str(), 1);
  session->displayVariableSet_ = true;
  session->environment_ = {"DISPLAY=" + session->display_};

  if (options.windowManager) {
    auto wm =
        session->spawn({"matchbox-window-manager", "-use_titlebar", "no"});
    if (!wm) return fail("matchbox-window-manager did not start");
    while (!windowManagerRuns(session->display_)) {
      if (Clock::now() >= deadline || !session->running(*wm)) {
        return fail("matchbox-window-manager was not ready in time");
      }
      std::this_thread::sleep_for(milliseconds(10));
    }
  }
  return session;
}

XvfbSession::~XvfbSession() {
  // Last started, first ended: clients before the window manager.
  endAll();
  stopServer();
  if (!heldLock_.empty()) unlink(heldLock_.c_str());
  if (!displayVariableSet_) return;
  if (previousDisplay_) {
    setenv("DISPLAY", previousDisplay_->c_str(), 1);
  } else {
    unsetenv("DISPLAY");
  }
}

std::optional<uint32_t> XvfbSession::waitForWindow(
    std::string_view wmClass, std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  xcb_connection_t* connection = xcb_connect(display_.c_str(), nullptr);
  std::optional<uint32_t> found;
  if (xcb_connection_has_error(connection) == 0) {
    xcb_window_t root =
        xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    for (;;) {
      if (auto window = findWindow(connection, root, wmClass, 3)) {
        found = *window;
        break;
      }
      if (Clock::now() >= deadline) break;
      std::this_thread::sleep_for(milliseconds(20));
    }
  }
  xcb_disconnect(connection);
  return found;
}

void XvfbSession::stopServer() {
  if (serverPid_ <= 0) return;
  endServer(serverPid_);
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

void XvfbTest::SetUp() {
  std::string error;
  xvfb_ = XvfbSession::start(xvfbOptions_, &error);
  if (!xvfb_) GTEST_SKIP() << "No X server could be started: " << error;
}

void XvfbTest::TearDown() { xvfb_.reset(); }

}  // namespace tovrin::testing
