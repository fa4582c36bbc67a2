#include "platform/linux/serving_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

// How long a server process started ahead of need waits for its text.
constexpr std::chrono::seconds kIdleServerLifetime{30};

// What the processes of a ServerProcess tell the parent. Each message is
// shorter than PIPE_BUF, so it arrives whole.
struct ChildMessage {
  char kind;
  int32_t pid;
};
constexpr char kServerStarted = 'P';  // from the intermediate: the server pid
constexpr char kServerOwns = 'O';     // the server owns the clipboard
constexpr char kServerFailed = 'F';

void report(int fd, char kind, int32_t pid) {
  ChildMessage message;
  std::memset(&message, 0, sizeof message);
  message.kind = kind;
  message.pid = pid;
  ssize_t written = send(fd, &message, sizeof message, MSG_NOSIGNAL);
  (void)written;
}

// Leaves the server only `keep` (its socket and the copy-run lock) and
// /dev/null as standard streams, so that it holds open neither the host's
// pipes nor the parent's display connections (which would keep the parent's
// windows alive). Descriptors of `keep` below 3 are moved up; -1 stays.
void detachDescriptors(std::array<int, 2>& keep) {
  for (int& fd : keep) {
    if (fd >= 0 && fd < 3) fd = fcntl(fd, F_DUPFD, 3);
  }
  int devNull = open("/dev/null", O_RDWR);
  if (devNull >= 0) {
    for (int stream = 0; stream < 3; ++stream) {
      if (devNull != stream) dup2(devNull, stream);
    }
    if (devNull > 2 && devNull != keep[0] && devNull != keep[1]) {
      close(devNull);
    }
  }
  auto closeRange = [](unsigned first, unsigned last) {
    if (first > last) return;
    if (close_range(first, last, 0) == 0) return;
    long limit = std::min<long>(sysconf(_SC_OPEN_MAX), 65536);
    for (long fd = first; fd <= std::min<long>(last, limit); ++fd) {
      close(static_cast<int>(fd));
    }
  };
  std::array<int, 2> sorted = keep;
  std::sort(sorted.begin(), sorted.end());
  unsigned next = 3;
  for (const int fd : sorted) {
    if (fd < 3) continue;
    closeRange(next, static_cast<unsigned>(fd) - 1);
    next = static_cast<unsigned>(fd) + 1;
  }
  closeRange(next, ~0U);
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
// then gives up after kServerReplyTimeout without progress.
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
    deadline = Clock::now() + kServerReplyTimeout;
  }
  return Transfer::kDone;
}

// What the parent tells its server process, each a kind byte, a 64-bit
// length and that many bytes.
constexpr char kOrderSaved = 'S';     // the user's text, to restore if need be
constexpr char kOrderClearing = 'C';  // the clipboard is being cleared
constexpr char kOrderKeys = 'K';      // key codes about to be pressed
constexpr char kOrderKeysUp = 'U';    // ... and released again
constexpr char kOrderServe = 'W';     // the text to serve now
constexpr char kOrderDone = 'D';      // the run ended; nothing to do
// Far above any clipboard text tovrin reads; only guards the allocation.
constexpr uint64_t kMaxOrderSize = uint64_t{1} << 30;

/// What the parent ordered before it said "serve" or "done", or went away.
struct Orders {
  std::optional<std::string> saved;
  bool clearing = false;
  std::vector<uint8_t> pressedKeys;
  std::optional<std::string> serve;
  bool done = false;
};

/// Reads orders until the parent says what to serve, says it is done, or
/// goes away (killed, or silent for kIdleServerLifetime).
Orders receiveOrders(int socketFd) {
  Orders orders;
  for (;;) {
    char kind = 0;
    uint64_t size = 0;
    if (receiveAll(socketFd, &kind, 1, Clock::now() + kIdleServerLifetime) !=
            Transfer::kDone ||
        receiveAll(socketFd, reinterpret_cast<char*>(&size), sizeof size,
                   Clock::now() + kServerReplyTimeout) != Transfer::kDone ||
        size > kMaxOrderSize) {
      return orders;
    }
    std::string payload(static_cast<size_t>(size), '\0');
    if (receiveAll(socketFd, payload.data(), payload.size(),
                   Clock::now() + kServerReplyTimeout) != Transfer::kDone) {
      return orders;
    }
    switch (kind) {
      case kOrderSaved:
        orders.saved = std::move(payload);
        break;
      case kOrderClearing:
        orders.clearing = true;
        break;
      case kOrderKeys:
        orders.pressedKeys.assign(payload.begin(), payload.end());
        break;
      case kOrderKeysUp:
        orders.pressedKeys.clear();
        break;
      case kOrderServe:
        orders.serve = std::move(payload);
        return orders;
      case kOrderDone:
        orders.done = true;
        return orders;
      default:
        return orders;
    }
  }
}

// The server process: makes its keeper with `open` and watches over the
// parent's copy run (nothing comes when the parent never needs it). Should
// the parent die between clearing the clipboard and writing the user's text
// back, it releases the keys the parent pressed and puts the text back
// itself. Then the keeper serves the text until another client takes the
// clipboard or the display goes away. `lockFd`, when open, is the parent's
// copy-run lock: held until the text is served, so that the next run does
// not start on a clipboard that is still ours to restore. Returns its exit
// status.
int runServer(int socketFd, int lockFd, const ClipboardKeeperFactory& open) {
  // Forked from a process with threads, this one starts none: the opening
  // is bounded by an alarm instead, whose default action ends the process
  // (and lets go of the copy-run lock it may hold).
  alarm(static_cast<unsigned>(
      std::chrono::ceil<std::chrono::seconds>(kServerOpenTimeout).count()));
  std::unique_ptr<ClipboardKeeper> keeper = open();
  alarm(0);
  if (!keeper) {
    report(socketFd, kServerFailed, 0);
    return 1;
  }
  Orders orders = receiveOrders(socketFd);
  if (orders.done) return 0;
  const bool parentGone = !orders.serve;
  if (parentGone) {
    keeper->releaseKeys(orders.pressedKeys);
    // Before the clear the clipboard still holds what the user had there.
    if (!orders.clearing || !orders.saved) return 0;
    close(socketFd);
    socketFd = -1;
  }
  const std::string text = parentGone ? *orders.saved : *orders.serve;
  orders = Orders();

  if (!keeper->own(text)) {
    if (socketFd >= 0) report(socketFd, kServerFailed, 0);
    return 1;
  }
  if (socketFd >= 0) {
    report(socketFd, kServerOwns, static_cast<int32_t>(getpid()));
    close(socketFd);
  }
  if (lockFd >= 0) close(lockFd);
  keeper->serve();
  return 0;
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

std::unique_ptr<ServerProcess> ServerProcess::start(ClipboardKeeperFactory open,
                                                    int lockFd) {
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
      std::array<int, 2> keep = {ends[1], lockFd};
      detachDescriptors(keep);
      if (chdir("/") != 0) {
        // Keeping the parent's directory busy is harmless.
      }
      _exit(runServer(keep[0], keep[1], open));
    }
    report(ends[1], server > 0 ? kServerStarted : kServerFailed, server);
    _exit(0);
  }
  return std::unique_ptr<ServerProcess>(
      new ServerProcess(std::move(ours), intermediate));
}

ServerProcess::~ServerProcess() {
  // Said only here: a parent that dies never says it, and the end of the
  // socket without it sets the server to work.
  if (socket_.get() >= 0) order(kOrderDone, {});
  socket_.reset();
  reapIntermediate();
}

void ServerProcess::guard(std::string_view savedText) {
  order(kOrderSaved, savedText);
}

void ServerProcess::clearing() { order(kOrderClearing, {}); }

void ServerProcess::keysDown(const std::vector<uint8_t>& keys) {
  order(kOrderKeys, std::string_view(reinterpret_cast<const char*>(keys.data()),
                                     keys.size()));
}

void ServerProcess::keysUp() { order(kOrderKeysUp, {}); }

bool ServerProcess::order(char kind, std::string_view payload) {
  const uint64_t size = payload.size();
  return socket_.get() >= 0 && send(&kind, 1) &&
         send(reinterpret_cast<const char*>(&size), sizeof size) &&
         send(payload.data(), payload.size());
}

ServerProcess::Outcome ServerProcess::serve(std::string_view text) {
  Outcome outcome = Outcome::kGone;
  if (order(kOrderServe, text)) outcome = awaitOwnership();
  reapIntermediate();
  if (outcome != Outcome::kOwns && server_ > 0) kill(server_, SIGKILL);
  socket_.reset();
  return outcome;
}

bool ServerProcess::send(const char* data, size_t size) {
  auto deadline = Clock::now() + kServerReplyTimeout;
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
    deadline = Clock::now() + kServerReplyTimeout;
  }
  return true;
}

ServerProcess::Outcome ServerProcess::awaitOwnership() {
  auto deadline = Clock::now() + kServerReplyTimeout;
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
  auto deadline = Clock::now() + kServerReplyTimeout;
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
