#include "platform/wayland/pipe_read.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

/// Waits until `fd` is ready for `events` or `until` passes; true when
/// ready (or hung up: the next read or write tells).
bool waitReady(int fd, short events, Clock::time_point until) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    if (left.count() <= 0) return false;
    pollfd entry = {fd, events, 0};
    const int ready =
        poll(&entry, 1, static_cast<int>(std::min<int64_t>(left.count(), 60'000)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

void makeNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

}  // namespace

PipeRead readPipe(int fd, std::chrono::milliseconds inactivity,
                  Clock::time_point deadline, size_t maxSize) {
  PipeRead read;
  makeNonBlocking(fd);
  char buffer[65536];
  for (;;) {
    const Clock::time_point until =
        std::min(deadline, Clock::now() + inactivity);
    if (!waitReady(fd, POLLIN, until)) {
      read.result = PipeRead::Result::kTimedOut;
      return read;
    }
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count == 0) {
      read.result = PipeRead::Result::kComplete;
      return read;
    }
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      read.result = PipeRead::Result::kFailed;
      return read;
    }
    if (read.data.size() + static_cast<size_t>(count) > maxSize) {
      read.result = PipeRead::Result::kTooLarge;
      read.data.clear();
      return read;
    }
    read.data.append(buffer, static_cast<size_t>(count));
  }
}

bool writePipe(int fd, std::string_view data,
               std::chrono::milliseconds inactivity) {
  makeNonBlocking(fd);
  while (!data.empty()) {
    if (!waitReady(fd, POLLOUT, Clock::now() + inactivity)) return false;
    const ssize_t count = ::write(fd, data.data(), data.size());
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return false;
    }
    data.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace tovrin
