#include "tests/xvfb_session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

extern char** environ;

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTerminateGrace{2000};

int msUntil(Clock::time_point deadline) {
  auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

ProcessExit exitOf(int status) {
  ProcessExit exit;
  if (WIFSIGNALED(status)) {
    exit.signaled = true;
    exit.code = 128 + WTERMSIG(status);
  } else {
    exit.code = WEXITSTATUS(status);
  }
  return exit;
}

// Waits for our child `pid` until the deadline; its status when it ended.
std::optional<int> reap(pid_t pid, Clock::time_point deadline) {
  for (;;) {
    int status = 0;
    pid_t result = waitpid(pid, &status, WNOHANG);
    if (result == pid) return status;
    if (result < 0 && errno != EINTR) return 0;  // not ours (any more)
    if (Clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(milliseconds(5));
  }
}

/// Everything a new process needs, prepared before fork: after it only
/// async-signal-safe calls are made.
struct LaunchPlan {
  std::vector<std::string> argvStorage;
  std::vector<std::string> envStorage;
  std::vector<char*> argv;
  std::vector<char*> envp;
  int stdinFd = -1;   // -1: /dev/null
  int stdoutFd = -1;  // -1: /dev/null
  int stderrFd = -1;  // -1: /dev/null
  int keepFd = -1;    // inherited as fd 3
};

void buildPointers(LaunchPlan& plan) {
  for (auto& arg : plan.argvStorage) plan.argv.push_back(arg.data());
  plan.argv.push_back(nullptr);
  for (auto& entry : plan.envStorage) plan.envp.push_back(entry.data());
  plan.envp.push_back(nullptr);
}

std::vector<std::string> environmentWith(
    const std::vector<std::string>& overrides) {
  std::vector<std::string> entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    entries.emplace_back(*entry);
  }
  for (const std::string& override : overrides) {
    std::string name = override.substr(0, override.find('='));
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const std::string& entry) {
                                   return entry.compare(0, name.size() + 1,
                                                        name + "=") == 0;
                                 }),
                  entries.end());
    entries.push_back(override);
  }
  return entries;
}

pid_t launch(const LaunchPlan& plan) {
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid != 0) {
    // Both sides set the group, so that it exists whichever runs first.
    if (pid > 0) setpgid(pid, pid);
    return pid;
  }
  setpgid(0, 0);
  // Dies with the test instead of lingering after a crash.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  // Out of the way first: /dev/null may open as fd 3.
  int keep = plan.keepFd >= 0 ? fcntl(plan.keepFd, F_DUPFD, 10) : -1;
  int devNull = open("/dev/null", O_RDWR);
  dup2(plan.stdinFd >= 0 ? plan.stdinFd : devNull, 0);
  dup2(plan.stdoutFd >= 0 ? plan.stdoutFd : devNull, 1);
  dup2(plan.stderrFd >= 0 ? plan.stderrFd : devNull, 2);
  if (keep >= 0) dup2(keep, 3);
  close_range(keep >= 0 ? 4 : 3, ~0U, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execvpe(plan.argv[0], plan.argv.data(), plan.envp.data());
  _exit(127);
}

// A file descriptor holding `data`, read from its start.
int dataFd(const std::string& data) {
  int fd = memfd_create("xvfb-session-input", MFD_CLOEXEC);
  if (fd < 0) return -1;
  size_t done = 0;
  while (done < data.size()) {
    ssize_t written = write(fd, data.data() + done, data.size() - done);
    if (written <= 0) {
      close(fd);
      return -1;
    }
    done += static_cast<size_t>(written);
  }
  lseek(fd, 0, SEEK_SET);
  return fd;
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
  LaunchPlan plan;
  plan.argvStorage = {"Xvfb",         "-displayfd", "3",   "-screen", "0",
                      options.screen, "-nolisten",  "tcp", "-noreset"};
  plan.envStorage = environmentWith({});
  plan.keepFd = fds[1];
  buildPointers(plan);
  pid_t server = launch(plan);
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
  for (auto child = children_.rbegin(); child != children_.rend(); ++child) {
    endProcess(*child);
  }
  children_.clear();
  stopServer();
  if (!heldLock_.empty()) unlink(heldLock_.c_str());
  if (!displayVariableSet_) return;
  if (previousDisplay_) {
    setenv("DISPLAY", previousDisplay_->c_str(), 1);
  } else {
    unsetenv("DISPLAY");
  }
}

std::optional<pid_t> XvfbSession::spawn(const std::vector<std::string>& argv,
                                        const SpawnOptions& options) {
  if (argv.empty()) return std::nullopt;
  LaunchPlan plan;
  plan.argvStorage = argv;
  std::vector<std::string> environment = options.environment;
  environment.push_back("DISPLAY=" + display_);
  plan.envStorage = environmentWith(environment);
  int outputFds[2] = {-1, -1};
  if (options.captureOutput && pipe2(outputFds, O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  plan.stdoutFd = outputFds[1];
  if (options.input) plan.stdinFd = dataFd(*options.input);
  if (options.showErrors) plan.stderrFd = 2;
  buildPointers(plan);
  pid_t pid = launch(plan);
  if (plan.stdinFd >= 0) close(plan.stdinFd);
  if (outputFds[1] >= 0) close(outputFds[1]);
  if (pid < 0) {
    if (outputFds[0] >= 0) close(outputFds[0]);
    return std::nullopt;
  }
  Child child;
  child.pid = pid;
  child.outputFd = outputFds[0];
  children_.push_back(std::move(child));
  return pid;
}

std::optional<ProcessExit> XvfbSession::waitForExit(
    pid_t pid, std::chrono::milliseconds timeout) {
  Child* child = find(pid);
  if (child == nullptr) return std::nullopt;
  if (!child->exit) {
    std::optional<int> status = reap(pid, Clock::now() + timeout);
    if (!status) return std::nullopt;
    child->exit = exitOf(*status);
  }
  return child->exit;
}

std::string XvfbSession::output(pid_t pid, std::chrono::milliseconds timeout) {
  Child* child = find(pid);
  if (child == nullptr || child->outputFd < 0) return {};
  std::string text;
  auto deadline = Clock::now() + timeout;
  for (;;) {
    pollfd fd = {child->outputFd, POLLIN, 0};
    int ready = poll(&fd, 1, msUntil(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) break;
    char buffer[65536];
    ssize_t count = read(child->outputFd, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      close(child->outputFd);
      child->outputFd = -1;
      break;
    }
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

std::optional<RunResult> XvfbSession::run(const std::vector<std::string>& argv,
                                          std::chrono::milliseconds timeout,
                                          SpawnOptions options) {
  options.captureOutput = true;
  std::optional<pid_t> pid = spawn(argv, options);
  if (!pid) return std::nullopt;
  auto deadline = Clock::now() + timeout;
  // Reading as it comes keeps a chatty program from blocking on a full pipe.
  std::string text = output(*pid, timeout);
  std::optional<ProcessExit> exit =
      waitForExit(*pid, milliseconds(msUntil(deadline)));
  if (!exit) {
    terminate(*pid);
    return std::nullopt;
  }
  return RunResult{*exit, text};
}

bool XvfbSession::signal(pid_t pid, int signalNumber) {
  Child* child = find(pid);
  return child != nullptr && !child->exit && kill(pid, signalNumber) == 0;
}

void XvfbSession::terminate(pid_t pid) {
  if (Child* child = find(pid)) endProcess(*child);
}

bool XvfbSession::running(pid_t pid) {
  Child* child = find(pid);
  if (child == nullptr || child->exit) return false;
  int status = 0;
  if (waitpid(pid, &status, WNOHANG) != pid) return true;
  child->exit = exitOf(status);
  return false;
}

void XvfbSession::endProcess(Child& child) {
  if (!child.exit) {
    for (pid_t target : {-child.pid, child.pid}) {
      kill(target, SIGTERM);
      // A stopped process handles SIGTERM only once it is resumed.
      kill(target, SIGCONT);
    }
    std::optional<int> status = reap(child.pid, Clock::now() + kTerminateGrace);
    if (!status) {
      kill(-child.pid, SIGKILL);
      kill(child.pid, SIGKILL);
      status = reap(child.pid, Clock::now() + kTerminateGrace);
    }
    child.exit = exitOf(status.value_or(0));
  }
  // Members of its group that outlived it, such as forked servers. The id
  // stays reserved while the group has members, so this reaches no other.
  kill(-child.pid, SIGKILL);
  if (child.outputFd >= 0) close(child.outputFd);
  child.outputFd = -1;
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
  kill(serverPid_, SIGTERM);
  if (!reap(serverPid_, Clock::now() + kTerminateGrace)) {
    kill(serverPid_, SIGKILL);
    reap(serverPid_, Clock::now() + kTerminateGrace);
  }
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

XvfbSession::Child* XvfbSession::find(pid_t pid) {
  for (Child& child : children_) {
    if (child.pid == pid) return &child;
  }
  return nullptr;
}

void XvfbTest::SetUp() {
  std::string error;
  xvfb_ = XvfbSession::start(xvfbOptions_, &error);
  if (!xvfb_) GTEST_SKIP() << "No X server could be started: " << error;
}

void XvfbTest::TearDown() { xvfb_.reset(); }

bool processEnded(pid_t pid) {
  if (kill(pid, 0) != 0) return errno == ESRCH;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  // "pid (name) S ...": the state follows the name's closing parenthesis.
  size_t close = line.rfind(')');
  return close != std::string::npos && close + 2 < line.size() &&
         line[close + 2] == 'Z';
}

}  // namespace tovrin::testing
