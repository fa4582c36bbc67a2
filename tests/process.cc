#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace tovrin::testing {
namespace {

std::vector<std::string> buildEnvironment(
    const std::map<std::string, std::string>& overrides) {
  std::map<std::string, std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    const auto equals = text.find('=');
    if (equals == std::string::npos) continue;
    merged[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& [name, value] : overrides) {
    if (value.empty()) {
      merged.erase(name);
    } else {
      merged[name] = value;
    }
  }
  std::vector<std::string> result;
  for (const auto& [name, value] : merged) result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (auto& s : strings) result.push_back(s.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

pid_t launch(const Launch& how) {
  // Everything prepared before fork: after it only async-signal-safe calls
  // are made.
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  for (const std::string& change : how.environment) {
    const std::string name = change.substr(0, change.find('=')) + "=";
    std::erase_if(environment, [&](const std::string& entry) {
      return entry.compare(0, name.size(), name) == 0;
    });
    if (change.size() >= name.size()) environment.push_back(change);
  }
  std::vector<char*> argv;
  std::vector<char*> envp;
  for (const std::string& arg : how.argv) {
    argv.push_back(const_cast<char*>(arg.c_str()));
  }
  for (std::string& entry : environment) envp.push_back(entry.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  const char* program = how.program.empty() ? argv[0] : how.program.c_str();

  const pid_t parent = getpid();
  const pid_t pid = fork();
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
  const int keep = how.keep >= 0 ? fcntl(how.keep, F_DUPFD, 10) : -1;
  const int devNull = open("/dev/null", O_RDWR);
  dup2(how.input >= 0 ? how.input : devNull, 0);
  dup2(how.output >= 0 ? how.output : devNull, 1);
  dup2(how.errors >= 0 ? how.errors : devNull, 2);
  if (keep >= 0) dup2(keep, 3);
  close_range(keep >= 0 ? 4 : 3, ~0U, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execvpe(program, argv.data(), envp.data());
  _exit(127);
}

StartedProcess startProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment) {
  StartedProcess process;
  process.start = std::chrono::steady_clock::now();
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0) return process;
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return process;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null",
                                   O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);

  std::vector<std::string> args = arguments;
  std::vector<std::string> env = buildEnvironment(environment);
  auto argv = pointers(args);
  auto envp = pointers(env);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr,
                                  argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  if (spawned != 0) {
    close(out[0]);
    close(err[0]);
    return process;
  }
  process.pid = pid;
  process.standardOutput = out[0];
  process.standardError = err[0];
  return process;
}

ProcessResult finishProcess(StartedProcess& process,
                            std::chrono::milliseconds timeout) {
  ProcessResult result;
  if (process.pid < 0) return result;
  const auto deadline = process.start + timeout;
  pollfd fds[2] = {{process.standardOutput, POLLIN, 0},
                   {process.standardError, POLLIN, 0}};
  std::string* sinks[2] = {&result.standardOutput, &result.standardError};
  int open = 0;
  for (const pollfd& fd : fds) open += fd.fd >= 0 ? 1 : 0;
  while (open > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      break;
    }
    const int ready = poll(fds, 2, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (auto& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  process.standardOutput = process.standardError = -1;
  int status = 0;
  // A program may close its streams and still run: it gets the rest of its
  // deadline to end, then it is killed.
  while (!result.timedOut) {
    const pid_t ended = waitpid(process.pid, &status, WNOHANG);
    if (ended == process.pid) break;
    if (ended < 0 && errno != EINTR) break;
    if (std::chrono::steady_clock::now() >= deadline) {
      result.timedOut = true;
      break;
    }
    usleep(2000);
  }
  if (result.timedOut) {
    kill(process.pid, SIGKILL);
    while (waitpid(process.pid, &status, 0) < 0 && errno == EINTR) {
    }
  }
  if (!result.timedOut && WIFEXITED(status)) {
    result.exitStatus = WEXITSTATUS(status);
  }
  if (!result.timedOut && WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  result.wallTime = std::chrono::steady_clock::now() - process.start;
  process.pid = -1;
  return result;
}

ProcessResult runProcess(const std::string& program,
                         const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         std::chrono::milliseconds timeout) {
  StartedProcess process = startProcess(program, arguments, environment);
  return finishProcess(process, timeout);
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

bool killOnceReached(
    const std::function<void(const std::function<void()>& killHere)>& work,
    std::chrono::milliseconds timeout) {
  int ready[2];
  if (pipe(ready) != 0) return false;
  const pid_t child = fork();
  if (child < 0) {
    close(ready[0]);
    close(ready[1]);
    return false;
  }
  if (child == 0) {
    close(ready[0]);
    work([&] {
      if (write(ready[1], "r", 1) == 1) std::this_thread::sleep_for(timeout);
      _exit(0);
    });
    _exit(1);
  }
  close(ready[1]);
  pollfd entry = {ready[0], POLLIN, 0};
  char byte = 0;
  const bool reached =
      poll(&entry, 1, static_cast<int>(timeout.count())) == 1 &&
      read(ready[0], &byte, 1) == 1;
  close(ready[0]);
  kill(child, SIGKILL);
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return reached;
}

}  // namespace tovrin::testing
