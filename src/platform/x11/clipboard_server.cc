#include "platform/x11/clipboard_server.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <thread>
#include <vector>

#include "platform/x11/formats.h"
#include "platform/x11/selection.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char kClipboard[] = "CLIPBOARD";
constexpr const char kUtf8String[] = "UTF8_STRING";
constexpr const char kPlainUtf8[] = "text/plain;charset=utf-8";
constexpr const char kClipboardManager[] = "CLIPBOARD_MANAGER";
constexpr const char kSaveTargets[] = "SAVE_TARGETS";
constexpr const char kSaveTargetsProperty[] = "TOVRIN_SAVE_TARGETS";
constexpr const char kWmPid[] = "_NET_WM_PID";

// Interned when the server's connection opens, in one round trip.
constexpr const char* kAtomNames[] = {kClipboard,
                                      "TARGETS",
                                      "TIMESTAMP",
                                      "MULTIPLE",
                                      "INCR",
                                      "ATOM_PAIR",
                                      kUtf8String,
                                      kPlainUtf8,
                                      kClipboardManager,
                                      kSaveTargets,
                                      kSaveTargetsProperty,
                                      kWmPid,
                                      "TOVRIN_TIMESTAMP"};

// How often a serving child checks that it still owns CLIPBOARD when
// nothing happens (it is told by SelectionClear; this is a safety net).
constexpr std::chrono::seconds kOwnershipCheckPeriod{60};
// How long a server process started ahead of need waits for its text.
constexpr std::chrono::seconds kIdleServerLifetime{30};

Atom atom(Display* display, const char* name) {
  return XInternAtom(display, name, False);
}

std::shared_ptr<const std::string> shared(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

// What the processes of a ServerProcess tell the parent. Each message is
// shorter than PIPE_BUF, so it arrives whole.
struct ChildMessage {
  char kind;
  int32_t pid;
};
constexpr char kServerStarted = 'P';  // from the intermediate: the server pid
constexpr char kServerOwns = 'O';     // the server owns CLIPBOARD
constexpr char kServerFailed = 'F';

void report(int fd, char kind, int32_t pid) {
  ChildMessage message;
  std::memset(&message, 0, sizeof message);
  message.kind = kind;
  message.pid = pid;
  ssize_t written = send(fd, &message, sizeof message, MSG_NOSIGNAL);
  (void)written;
}

// Leaves the server only its socket and /dev/null as standard streams, so
// that it holds open neither the host's pipes nor the parent's X connections
// (which would keep the parent's windows alive).
int detachDescriptors(int keepFd) {
  if (keepFd < 3) keepFd = fcntl(keepFd, F_DUPFD, 3);
  int devNull = open("/dev/null", O_RDWR);
  if (devNull >= 0) {
    for (int stream = 0; stream < 3; ++stream) {
      if (devNull != stream) dup2(devNull, stream);
    }
    if (devNull > 2 && devNull != keepFd) close(devNull);
  }
  auto closeFrom = [](unsigned first, unsigned last) {
    if (first > last) return;
    if (close_range(first, last, 0) == 0) return;
    long limit = std::min<long>(sysconf(_SC_OPEN_MAX), 65536);
    for (long fd = first; fd <= std::min<long>(last, limit); ++fd) {
      close(static_cast<int>(fd));
    }
  };
  closeFrom(3, static_cast<unsigned>(keepFd) - 1);
  closeFrom(static_cast<unsigned>(keepFd) + 1, ~0U);
  return keepFd;
}

// The parent's signal handlers and mask mean nothing to the server.
void resetSignals() {
  for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
    struct sigaction action;
    if (sigaction(signalNumber, nullptr, &action) != 0) continue;
    if (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN) {
      signal(signalNumber, SIG_DFL);
    }
  }
  signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

std::vector<OfferedTarget> textTargets(Display* display,
                                       std::string_view text) {
  auto utf8 = shared(std::string(text));
  return {
      {atom(display, kUtf8String), atom(display, kUtf8String), 8, utf8},
      {atom(display, kPlainUtf8), atom(display, kPlainUtf8), 8, utf8},
      {XA_STRING, XA_STRING, 8, shared(latin1IfRepresentable(text))},
  };
}

// Asks a running clipboard manager to copy the text now, as GTK does when
// an application quits, so that it outlives this process. Its answer is not
// awaited: the server keeps serving meanwhile.
void askClipboardManagerToSave(Display* display, Window window, Time time) {
  Atom manager = atom(display, kClipboardManager);
  if (XGetSelectionOwner(display, manager) == None) return;
  long targets[] = {static_cast<long>(atom(display, kUtf8String)),
                    static_cast<long>(atom(display, kPlainUtf8)),
                    static_cast<long>(XA_STRING)};
  Atom property = atom(display, kSaveTargetsProperty);
  XChangeProperty(display, window, property, XA_ATOM, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(targets), 3);
  XConvertSelection(display, manager, atom(display, kSaveTargets), property,
                    window, time);
  XFlush(display);
}

enum class Transfer { kDone, kClosed, kTimedOut };

// Waits until `fd` is ready for `events`, at most until `deadline`.
bool waitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    auto now = Clock::now();
    if (now >= deadline) return false;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    pollfd entry = {fd, events, 0};
    int ready = poll(&entry, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

// Reads exactly `size` bytes; waits for the first one until `firstDeadline`,
// then gives up after kX11ConversionTimeout without progress.
Transfer receiveAll(int fd, char* buffer, size_t size,
                    Clock::time_point firstDeadline) {
  Clock::time_point deadline = firstDeadline;
  size_t done = 0;
  while (done < size) {
    if (!waitFor(fd, POLLIN, deadline)) return Transfer::kTimedOut;
    ssize_t count = recv(fd, buffer + done, size - done, MSG_DONTWAIT);
    if (count == 0) return Transfer::kClosed;
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return Transfer::kClosed;
    }
    done += static_cast<size_t>(count);
    deadline = Clock::now() + kX11ConversionTimeout;
  }
  return Transfer::kDone;
}

// The server process: opens the display, waits for the text (nothing comes
// when the parent never needs it), then owns CLIPBOARD with it until another
// client takes it or the display goes away. Returns its exit status.
int runServer(int socketFd, const std::string& displayName) {
  auto connection = SelectionConnection::open(
      displayName,
      std::vector<const char*>(std::begin(kAtomNames), std::end(kAtomNames)));
  if (!connection) {
    report(socketFd, kServerFailed, 0);
    return 1;
  }
  uint64_t size = 0;
  if (receiveAll(socketFd, reinterpret_cast<char*>(&size), sizeof size,
                 Clock::now() + kIdleServerLifetime) != Transfer::kDone) {
    return 0;
  }
  std::string text;
  if (size > text.max_size()) return 1;
  text.resize(static_cast<size_t>(size));
  if (receiveAll(socketFd, text.data(), text.size(),
                 Clock::now() + kX11ConversionTimeout) != Transfer::kDone) {
    return 1;
  }

  Display* display = connection->display();
  Window window = connection->window();
  // Tells tools (and tests) which process serves the clipboard.
  long pid = getpid();
  XChangeProperty(display, window, atom(display, kWmPid), XA_CARDINAL, 32,
                  PropModeReplace, reinterpret_cast<unsigned char*>(&pid), 1);
  ConversionDeadline deadline;
  Atom clipboard = atom(display, kClipboard);
  std::optional<Time> acquired =
      acquireSelection(display, window, clipboard, deadline);
  if (!acquired) {
    report(socketFd, kServerFailed, 0);
    return 1;
  }
  SelectionServer server(display, window, clipboard, *acquired,
                         textTargets(display, text));
  text = std::string();
  report(socketFd, kServerOwns, static_cast<int32_t>(getpid()));
  close(socketFd);
  askClipboardManagerToSave(display, window, *acquired);

  for (;;) {
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      server.handleEvent(event);
    }
    if (connection->broken()) return 0;
    auto now = Clock::now();
    server.expireTransfers(now);
    if (server.lost() && !server.transferring()) return 0;
    auto wake = now + kOwnershipCheckPeriod;
    if (auto transferEnd = server.nextDeadline()) {
      wake = std::min(wake, *transferEnd);
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake - now);
    pollfd fd = {ConnectionNumber(display), POLLIN, 0};
    int ready = poll(&fd, 1,
                     static_cast<int>(std::max<int64_t>(
                         0, std::min<int64_t>(wait.count(), INT_MAX))));
    if (ready == 0 && !server.transferring() &&
        XGetSelectionOwner(display, clipboard) != window) {
      return 0;
    }
  }
}

}  // namespace

UniqueFd::UniqueFd(UniqueFd&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)) {}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void UniqueFd::reset() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

std::unique_ptr<ServerProcess> ServerProcess::start(
    const std::string& displayName) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    return nullptr;
  }
  UniqueFd ours(ends[0]);
  UniqueFd theirs(ends[1]);
  pid_t intermediate = fork();
  if (intermediate < 0) return nullptr;
  if (intermediate == 0) {
    // Other threads of the parent may hold locks that will never be
    // released here: only async-signal-safe calls until the second fork.
    close(ends[0]);
    setsid();
    pid_t server = fork();
    if (server == 0) {
      resetSignals();
      int socketFd = detachDescriptors(ends[1]);
      if (chdir("/") != 0) {
        // Keeping the parent's directory busy is harmless.
      }
      _exit(runServer(socketFd, displayName));
    }
    report(ends[1], server > 0 ? kServerStarted : kServerFailed, server);
    _exit(0);
  }
  return std::unique_ptr<ServerProcess>(
      new ServerProcess(std::move(ours), intermediate));
}

ServerProcess::~ServerProcess() {
  // The server sees the end of its socket and ends unless it serves.
  socket_.reset();
  reapIntermediate();
}

ServerProcess::Outcome ServerProcess::serve(std::string_view text) {
  uint64_t size = text.size();
  Outcome outcome = Outcome::kGone;
  if (send(reinterpret_cast<const char*>(&size), sizeof size) &&
      send(text.data(), text.size())) {
    outcome = awaitOwnership();
  }
  reapIntermediate();
  if (outcome != Outcome::kOwns && server_ > 0) kill(server_, SIGKILL);
  socket_.reset();
  return outcome;
}

bool ServerProcess::send(const char* data, size_t size) {
  auto deadline = Clock::now() + kX11ConversionTimeout;
  size_t done = 0;
  while (done < size) {
    if (!waitFor(socket_.get(), POLLOUT, deadline)) return false;
    ssize_t count = ::send(socket_.get(), data + done, size - done,
                           MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return false;
    }
    done += static_cast<size_t>(count);
    deadline = Clock::now() + kX11ConversionTimeout;
  }
  return true;
}

ServerProcess::Outcome ServerProcess::awaitOwnership() {
  auto deadline = Clock::now() + kX11ConversionTimeout;
  for (;;) {
    ChildMessage message;
    switch (receiveAll(socket_.get(), reinterpret_cast<char*>(&message),
                       sizeof message, deadline)) {
      case Transfer::kDone:
        break;
      case Transfer::kClosed:
        return Outcome::kGone;
      case Transfer::kTimedOut:
        return Outcome::kFailed;
    }
    if (message.kind == kServerStarted) {
      server_ = message.pid;
      continue;
    }
    return message.kind == kServerOwns ? Outcome::kOwns : Outcome::kFailed;
  }
}

void ServerProcess::reapIntermediate() {
  if (intermediate_ <= 0) return;
  // It exits right after starting the server; the bound only guards
  // against the unforeseen.
  auto deadline = Clock::now() + kX11ConversionTimeout;
  for (;;) {
    pid_t result = waitpid(intermediate_, nullptr, WNOHANG);
    if (result == intermediate_ || (result < 0 && errno != EINTR)) break;
    if (Clock::now() >= deadline) {
      kill(intermediate_, SIGKILL);
      while (waitpid(intermediate_, nullptr, 0) < 0 && errno == EINTR) {
      }
      break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  intermediate_ = -1;
}

}  // namespace tovrin
