#include "platform/system.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <memory>
#include <vector>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace tovrin {

namespace {

// The only state a signal handler can reach: what it may write, and whether
// an answer has been started (so that a run answers once).
std::atomic<const std::string*> interruptedAnswer{nullptr};
std::atomic<bool> answerStarted{false};
static_assert(std::atomic<bool>::is_always_lock_free &&
              std::atomic<const std::string*>::is_always_lock_free);

void onInterrupt(int signalNumber) {
  if (!answerStarted.exchange(true)) {
    if (const std::string* line = interruptedAnswer.load()) {
      writeAll(STDOUT_FILENO, *line);
    }
  }
  // Ends by the same signal, as the host expects of a stopped child.
  signal(signalNumber, SIG_DFL);
  raise(signalNumber);
}

}  // namespace

void setInterruptedAnswerLine(std::string_view line) {
  // Never freed: the handler may still read a line as the process ends.
  // A line that is replaced stays listed, where leak checkers see it held.
  static auto* const lines = new std::vector<std::unique_ptr<std::string>>();
  lines->push_back(std::make_unique<std::string>(line));
  interruptedAnswer.store(lines->back().get());
}

void prepareProcess() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    // open() takes the lowest free descriptor: this one.
    const int opened = open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    if (opened != fd && opened >= 0) close(opened);
  }
  signal(SIGPIPE, SIG_IGN);
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
    sigaddset(&action.sa_mask, signalNumber);
  }
  for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
    sigaction(signalNumber, &action, nullptr);
  }
}

namespace {

/// This user's runtime directory: $XDG_RUNTIME_DIR, else /tmp/tovrin-UID,
/// made private to the user. Empty when neither can be trusted.
std::string runtimeDirectory() {
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR");
      runtime != nullptr && runtime[0] == '/') {
    return runtime;
  }
  const std::string directory = "/tmp/tovrin-" + std::to_string(getuid());
  mkdir(directory.c_str(), 0700);
  // Another user may have made it first, to read or steer our lock.
  struct stat status {};
  if (lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
      status.st_uid != getuid() || (status.st_mode & 077) != 0) {
    return {};
  }
  return directory;
}

}  // namespace

FileLock::~FileLock() {
  if (fd_ >= 0) close(fd_);
}

std::unique_ptr<FileLock> lockUserFile(const std::string& name,
                                       std::chrono::milliseconds timeout) {
  const std::string directory = runtimeDirectory();
  if (directory.empty()) return std::make_unique<FileLock>(-1);
  const std::string path = directory + "/" + name;
  const int fd = open(path.c_str(),
                      O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return std::make_unique<FileLock>(-1);
  auto lock = std::make_unique<FileLock>(fd);
  // flock() has no timeout of its own: try, and try again every 10 ms.
  const auto deadline = monotonicClockNow() + timeout;
  for (;;) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return lock;
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return std::make_unique<FileLock>(-1);
    }
    if (monotonicClockNow() >= deadline) return nullptr;
    sleepSeconds(0.01);
  }
}

void sleepSeconds(double seconds) {
  if (!(seconds > 0)) return;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

std::chrono::nanoseconds monotonicClockNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

bool writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

void writeStandardOutput(std::string_view text) {
  if (answerStarted.exchange(true)) return;
  writeAll(STDOUT_FILENO, text);
}

std::string formatLogLine(const std::tm& localTime, long milliseconds,
                          long pid, long tid, std::string_view line) {
  char prefix[96];
  std::snprintf(prefix, sizeof prefix,
                "%04d-%02d-%02d %02d:%02d:%02d.%03ld tovrin[%ld:%ld] ",
                localTime.tm_year + 1900, localTime.tm_mon + 1,
                localTime.tm_mday, localTime.tm_hour, localTime.tm_min,
                localTime.tm_sec, milliseconds, pid, tid);
  std::string text(prefix);
  text.append(line);
  text.push_back('\n');
  return text;
}

}  // namespace tovrin
