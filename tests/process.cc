#include "tests/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fstream>
#include <thread>
#include <utility>

extern char** environ;

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTerminateGrace{2000};

/// This process's environment with `changes` ("NAME=value", or "NAME" alone
/// to remove it) applied in order.
std::vector<std::string> environmentWith(
    const std::vector<std::string>& changes) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  for (const std::string& change : changes) {
    const std::string name = change.substr(0, change.find('=')) + "=";
    std::erase_if(environment, [&](const std::string& entry) {
      return entry.compare(0, name.size(), name) == 0;
    });
    if (change.size() >= name.size()) environment.push_back(change);
  }
  return environment;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (auto& s : strings) result.push_back(s.data());
  result.push_back(nullptr);
  return result;
}

void closeFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

/// Appends what each descriptor gives to its sink until `done` holds, all
/// of them have ended (each is closed at its end), or the deadline; whether
/// `done` held.
bool drain(std::vector<std::pair<int*, std::string*>> streams,
           Clock::time_point deadline, const std::function<bool()>& done) {
  while (!done()) {
    std::vector<pollfd> fds;
    for (const auto& [fd, sink] : streams) fds.push_back({*fd, POLLIN, 0});
    if (std::all_of(fds.begin(), fds.end(), [](auto& p) { return p.fd < 0; })) {
      return false;
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    const int ready = poll(fds.data(), fds.size(),
                           static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    for (size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        streams[i].second->append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        closeFd(*streams[i].first);
      }
    }
  }
  return true;
}

/// Waits for our child `pid` until the deadline; its status when it ended.
std::optional<int> reap(pid_t pid, Clock::time_point deadline) {
  for (;;) {
    int status = 0;
    const pid_t result = waitpid(pid, &status, WNOHANG);
    if (result == pid) return status;
    if (result < 0 && errno != EINTR) return 0;  // not ours (any more)
    if (Clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(milliseconds(2));
  }
}

int exitCode(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/// How launch() starts a program: argv[0] looked up in PATH, `environment`
/// on top of this process's, its standard streams (-1: /dev/null).
struct Launch {
  std::vector<std::string> argv;
  std::vector<std::string> environment;
  int input = -1, output = -1, errors = -1;
};

/// Starts a program in a process group of its own, which dies with the
/// thread that started it; its pid, or -1.
pid_t launch(const Launch& how) {
  // Everything prepared before fork: after it only async-signal-safe calls
  // are made.
  std::vector<std::string> environment = environmentWith(how.environment);
  std::vector<std::string> arguments = how.argv;
  const std::vector<char*> argv = pointers(arguments);
  const std::vector<char*> envp = pointers(environment);
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
  const int devNull = open("/dev/null", O_RDWR);
  dup2(how.input >= 0 ? how.input : devNull, 0);
  dup2(how.output >= 0 ? how.output : devNull, 1);
  dup2(how.errors >= 0 ? how.errors : devNull, 2);
  close_range(3, ~0U, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execvpe(argv[0], argv.data(), envp.data());
  _exit(127);
}

/// Starts a child with `start`, given the write ends of the pipes for its
/// standard output and error; it returns the child's pid, or -1.
StartedProcess startWithPipes(const std::function<pid_t(int, int)>& start) {
  StartedProcess process;
  process.start = Clock::now();
  int out[2] = {-1, -1}, err[2] = {-1, -1};
  if (pipe2(out, O_CLOEXEC) == 0 && pipe2(err, O_CLOEXEC) == 0) {
    process.pid = start(out[1], err[1]);
  }
  closeFd(out[1]);
  closeFd(err[1]);
  if (process.pid < 0) {
    closeFd(out[0]);
    closeFd(err[0]);
  }
  process.standardOutput = out[0];
  process.standardError = err[0];
  return process;
}

}  // namespace

StartedProcess startProcess(
    const std::string& program, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment) {
  std::vector<std::string> changes;
  for (const auto& [name, value] : environment) {
    changes.push_back(value.empty() ? name : name + "=" + value);
  }
  std::vector<std::string> args = arguments;
  std::vector<std::string> env = environmentWith(changes);
  return startWithPipes([&](int out, int err) {
    // posix_spawn, not launch(): an AddressSanitizer build of tovrin
    // started through fork aborts in LeakSanitizer at its exit.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null",
                                     O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr,
                                    pointers(args).data(), pointers(env).data());
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? pid : -1;
  });
}

StartedProcess startForked(const std::function<int()>& work) {
  return startWithPipes([&](int out, int err) {
    const pid_t pid = fork();
    if (pid == 0) {
      dup2(out, STDOUT_FILENO);
      dup2(err, STDERR_FILENO);
      close(out);
      close(err);
      _exit(work());
    }
    return pid;
  });
}

ProcessResult finishProcess(StartedProcess& process,
                            std::chrono::milliseconds timeout) {
  ProcessResult result;
  if (process.pid < 0) return result;
  const auto deadline = process.start + timeout;
  drain({{&process.standardOutput, &result.standardOutput},
         {&process.standardError, &result.standardError}},
        deadline, [] { return false; });
  // Streams still open at the deadline are a program past it. One may close
  // its streams and still run: it gets the rest of its deadline to end.
  const bool open = process.standardOutput >= 0 || process.standardError >= 0;
  closeFd(process.standardOutput);
  closeFd(process.standardError);
  std::optional<int> status =
      open ? std::nullopt : reap(process.pid, deadline);
  result.timedOut = !status;
  if (status && WIFEXITED(*status)) result.exitStatus = WEXITSTATUS(*status);
  if (status && WIFSIGNALED(*status)) result.signal = WTERMSIG(*status);
  if (!status) {
    kill(process.pid, SIGKILL);
    while (waitpid(process.pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  result.wallTime = Clock::now() - process.start;
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
    const size_t end = std::min(text.find('\n', start), text.size());
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

bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout,
               std::chrono::milliseconds period) {
  const auto deadline = Clock::now() + timeout;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(period);
  }
  return true;
}

bool processEnded(pid_t pid) {
  if (kill(pid, 0) != 0) return errno == ESRCH;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  // "pid (name) S ...": the state follows the name's closing parenthesis.
  const size_t close = line.rfind(')');
  return close != std::string::npos && close + 2 < line.size() &&
         line[close + 2] == 'Z';
}

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
  Launch how{argv, options.environment};
  how.environment.insert(how.environment.end(), environment_.begin(),
                         environment_.end());
  // Standard input on a socket rather than a pipe when it is kept: writing
  // to a program that is gone must fail, not raise SIGPIPE in the test.
  int output[2] = {-1, -1}, input[2] = {-1, -1};
  bool ready = (!options.captureOutput || pipe2(output, O_CLOEXEC) == 0) &&
               (!options.keepInput ||
                socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) == 0);
  if (ready && !options.keepInput && options.input) {
    // A file rather than a pipe: a text may be more than a pipe holds.
    input[1] = memfd_create("input", MFD_CLOEXEC);
    ready = pwrite(input[1], options.input->data(), options.input->size(), 0) ==
            static_cast<ssize_t>(options.input->size());
  }
  if (!ready) {
    for (int* fd : {&output[0], &output[1], &input[0], &input[1]}) closeFd(*fd);
    return std::nullopt;
  }
  how.input = input[1];
  how.output = output[1];
  if (options.showErrors) how.errors = 2;
  const pid_t pid = launch(how);
  closeFd(input[1]);
  closeFd(output[1]);
  if (pid < 0) {
    closeFd(output[0]);
    closeFd(input[0]);
    return std::nullopt;
  }
  children_.push_back({pid, input[0], output[0], {}, {}});
  return pid;
}

std::optional<std::string> SessionProcesses::readLine(
    pid_t pid, std::chrono::milliseconds timeout) {
  Child* child = find(pid);
  if (child == nullptr) return std::nullopt;
  std::string& pending = child->pendingOutput;
  if (!drain({{&child->outputFd, &pending}}, Clock::now() + timeout,
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
    const ssize_t sent = send(child->inputFd, text.data() + done,
                              text.size() - done, MSG_NOSIGNAL);
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
  const std::optional<pid_t> pid = spawn(argv, options);
  if (!pid) return std::nullopt;
  const auto deadline = Clock::now() + timeout;
  Child& child = *find(*pid);
  // Reading as it comes keeps a chatty program from blocking on a full pipe.
  drain({{&child.outputFd, &child.pendingOutput}}, deadline,
        [] { return false; });
  child.status = reap(*pid, deadline);
  if (!child.status) {
    terminate(*pid);
    return std::nullopt;
  }
  RunResult result;
  result.exit.code = exitCode(*child.status);
  result.output = std::exchange(child.pendingOutput, {});
  return result;
}

bool SessionProcesses::signal(pid_t pid, int signalNumber) {
  Child* child = find(pid);
  return child != nullptr && !child->status && kill(pid, signalNumber) == 0;
}

void SessionProcesses::terminate(pid_t pid) {
  if (Child* child = find(pid)) endProcess(*child);
}

bool SessionProcesses::running(pid_t pid) {
  Child* child = find(pid);
  if (child == nullptr || child->status) return false;
  child->status = reap(pid, Clock::now());
  return !child->status;
}

void SessionProcesses::endProcess(Child& child) {
  if (!child.status) {
    for (pid_t target : {-child.pid, child.pid}) {
      kill(target, SIGTERM);
      // A stopped process handles SIGTERM only once it is resumed.
      kill(target, SIGCONT);
    }
    child.status = reap(child.pid, Clock::now() + kTerminateGrace);
    if (!child.status) {
      kill(-child.pid, SIGKILL);
      kill(child.pid, SIGKILL);
      child.status = reap(child.pid, Clock::now() + kTerminateGrace).value_or(0);
    }
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

}  // namespace tovrin::testing
