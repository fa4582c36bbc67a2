#include "platform/linux/serving_loop.h"

#include <fcntl.h>
#include <time.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace tovrin {
namespace serving {
namespace {

// How long a server process started ahead of need waits for its text.
constexpr std::chrono::seconds kIdleServerLifetime{30};
// How long an application may still take to answer a copy keystroke: a
// few tens of milliseconds, a few hundred on a busy machine.
constexpr std::chrono::milliseconds kLateCopyGrace{500};

// Far above any clipboard text tovrin reads; only guards the allocation.
constexpr uint64_t kMaxOrderSize = uint64_t{1} << 30;

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

/// What the parent ordered before it said "serve" or "done", or went away.
struct Orders {
  std::optional<std::string> saved;
  bool clearing = false;
  std::vector<uint8_t> pressedKeys;
  bool keystroke = false;  // the copy keystroke was sent
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
        orders.keystroke = true;
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
    // The application may still be answering the keystroke: its copy,
    // landing after the text went back, would take the user's text away
    // for good.
    if (orders.keystroke) {
      timespec grace = {0, std::chrono::nanoseconds(kLateCopyGrace).count()};
      while (nanosleep(&grace, &grace) != 0 && errno == EINTR) {
      }
    }
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

void report(int fd, char kind, int32_t pid) {
  ChildMessage message;
  std::memset(&message, 0, sizeof message);
  message.kind = kind;
  message.pid = pid;
  ssize_t written = send(fd, &message, sizeof message, MSG_NOSIGNAL);
  (void)written;
}

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

void runServingProcess(int socketFd, int lockFd,
                       const ClipboardKeeperFactory& open) {
  resetSignals();
  std::array<int, 2> keep = {socketFd, lockFd};
  detachDescriptors(keep);
  if (chdir("/") != 0) {
    // Keeping the parent's directory busy is harmless.
  }
  _exit(runServer(keep[0], keep[1], open));
}

}  // namespace serving
}  // namespace tovrin
