#include "tests/session_processes.h"

#include "tests/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <fstream>
#include <thread>
#include <utility>

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

// A file descriptor holding `data`, read from its start.
int dataFd(const std::string& data) {
  int fd = memfd_create("session-input", MFD_CLOEXEC);
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

void closeFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

SessionProcesses::~SessionProcesses() { endAll(); }

void SessionProcesses::endAll() {
  for (auto child = children_.rbegin(); child != children_.rend(); ++child) {
    endProcess(*child);
  }
  children_.clear();
}

std::optional<pid_t> SessionProcesses::spawn(
    const std::vector<std::string>& argv, const SpawnOptions& options) {
  if (argv.empty()) return std::nullopt;
  Launch how{"", argv, options.environment};
  how.environment.insert(how.environment.end(), environment_.begin(),
                         environment_.end());
  int outputFds[2] = {-1, -1};
  if (options.captureOutput && pipe2(outputFds, O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  // A socket rather than a pipe: writing to a program that is gone must
  // fail, not raise SIGPIPE in the test.
  int inputFds[2] = {-1, -1};
  if (options.keepInput &&
      socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, inputFds) != 0) {
    closeFd(outputFds[0]);
    closeFd(outputFds[1]);
    return std::nullopt;
  }
  how.output = outputFds[1];
  if (options.keepInput) {
    how.input = inputFds[1];
  } else if (options.input) {
    how.input = dataFd(*options.input);
  }
  if (options.showErrors) how.errors = 2;
  how.keep = options.keepFd;
  pid_t pid = launch(how);
  closeFd(how.input);
  closeFd(outputFds[1]);
  if (pid < 0) {
    closeFd(outputFds[0]);
    closeFd(inputFds[0]);
    return std::nullopt;
  }
  Child child;
  child.pid = pid;
  child.inputFd = inputFds[0];
  child.outputFd = outputFds[0];
  children_.push_back(std::move(child));
  return pid;
}

template <typename Done>
bool SessionProcesses::readOutput(Child& child,
                                  std::chrono::milliseconds timeout,
                                  Done done) {
  auto deadline = Clock::now() + timeout;
  while (!done()) {
    if (child.outputFd < 0) return false;
    pollfd fd = {child.outputFd, POLLIN, 0};
    int ready = poll(&fd, 1, msUntil(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    char buffer[65536];
    ssize_t count = read(child.outputFd, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      closeFd(child.outputFd);
      return false;
    }
    child.pendingOutput.append(buffer, static_cast<size_t>(count));
  }
  return true;
}

std::optional<std::string> SessionProcesses::readLine(
    pid_t pid, std::chrono::milliseconds timeout) {
  Child* child = find(pid);
  if (child == nullptr) return std::nullopt;
  std::string& pending = child->pendingOutput;
  if (!readOutput(*child, timeout,
                  [&] { return pending.find('\n') != std::string::npos; })) {
    return std::nullopt;
  }
  const size_t end = pending.find('\n');
  std::string line = pending.substr(0, end);
  pending.erase(0, end + 1);
  return line;
}

bool SessionProcesses::writeInput(pid_t pid, const std::string& text) {
  Child* child = find(pid);
  if (child == nullptr || child->inputFd < 0) return false;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t sent = send(child->inputFd, text.data() + done, text.size() - done,
                        MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    done += static_cast<size_t>(sent);
  }
  return true;
}

std::optional<RunResult> SessionProcesses::run(
    const std::vector<std::string>& argv, std::chrono::milliseconds timeout,
    SpawnOptions options) {
  options.captureOutput = true;
  std::optional<pid_t> pid = spawn(argv, options);
  if (!pid) return std::nullopt;
  auto deadline = Clock::now() + timeout;
  Child& child = *find(*pid);
  // Reading as it comes keeps a chatty program from blocking on a full pipe.
  readOutput(child, timeout, [] { return false; });
  std::optional<int> status = reap(*pid, deadline);
  if (!status) {
    terminate(*pid);
    return std::nullopt;
  }
  child.exit = exitOf(*status);
  return RunResult{*child.exit, std::exchange(child.pendingOutput, {})};
}

bool SessionProcesses::signal(pid_t pid, int signalNumber) {
  Child* child = find(pid);
  return child != nullptr && !child->exit && kill(pid, signalNumber) == 0;
}

void SessionProcesses::terminate(pid_t pid) {
  if (Child* child = find(pid)) endProcess(*child);
}

bool SessionProcesses::running(pid_t pid) {
  Child* child = find(pid);
  if (child == nullptr || child->exit) return false;
  int status = 0;
  if (waitpid(pid, &status, WNOHANG) != pid) return true;
  child->exit = exitOf(status);
  return false;
}

void SessionProcesses::endProcess(Child& child) {
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
  closeFd(child.inputFd);
  closeFd(child.outputFd);
}

SessionProcesses::Child* SessionProcesses::find(pid_t pid) {
  for (Child& child : children_) {
    if (child.pid == pid) return &child;
  }
  return nullptr;
}

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
