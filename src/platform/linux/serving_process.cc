#include "platform/linux/serving_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "platform/linux/serving_loop.h"

namespace tovrin {
namespace {

using serving::ChildMessage;
using serving::Clock;
using serving::kOrderClearing;
using serving::kOrderDone;
using serving::kOrderKeys;
using serving::kOrderKeysUp;
using serving::kOrderSaved;
using serving::kOrderServe;
using serving::kServerFailed;
using serving::kServerOwns;
using serving::kServerStarted;
using serving::runServingProcess;
using serving::receiveAll;
using serving::report;
using serving::Transfer;
using serving::waitFor;

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
    if (server == 0) runServingProcess(ends[1], lockFd, open);
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
