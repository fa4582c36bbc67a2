// Prints how long a host waits for tovrin's answer when it starts it for a
// command that needs no desktop, beside /bin/true: the median wall time of
// many runs of each, interleaved so that a busy moment hits all alike.
//
//   tovrin_startup_bench path/to/tovrin [runs]

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

/// Wall time of one run, output to /dev/null, without DISPLAY.
double runOnce(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 0, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 01, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 01, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) !=
      0) {
    std::fprintf(stderr, "cannot start %s\n", argv[0]);
    std::exit(2);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  const auto end = std::chrono::steady_clock::now();
  posix_spawn_file_actions_destroy(&actions);
  return std::chrono::duration<double, std::milli>(end - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle]
                           : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s path/to/tovrin [runs]\n", argv[0]);
    return 2;
  }
  const int runs = argc > 2 ? std::max(30, std::atoi(argv[2])) : 200;
  unsetenv("DISPLAY");
  const std::string tovrin = argv[1];
  const std::vector<std::pair<std::string, std::vector<std::string>>> commands =
      {{"/bin/true", {"/bin/true"}},
       {"tovrin check-accessibility (no display)",
        {tovrin, "check-accessibility"}},
       {"tovrin frobnicate (unknown command)", {tovrin, "frobnicate"}}};
  std::vector<std::vector<double>> times(commands.size());
  for (int warmup = 0; warmup < 10; ++warmup) {
    for (const auto& command : commands) runOnce(command.second);
  }
  for (int run = 0; run < runs; ++run) {
    for (size_t i = 0; i < commands.size(); ++i) {
      times[i].push_back(runOnce(commands[i].second));
    }
  }
  const double baseline = median(times[0]);
  std::printf("median wall time over %d runs each\n", runs);
  for (size_t i = 0; i < commands.size(); ++i) {
    const double value = median(times[i]);
    std::printf("  %-42s %6.3f ms  %4.2fx /bin/true\n",
                commands[i].first.c_str(), value, value / baseline);
  }
  return 0;
}
