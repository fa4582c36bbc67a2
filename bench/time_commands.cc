// Prints the median wall time of commands run many times, as a host runs
// them: output to /dev/null, waited for to the end. Runs are interleaved so
// that a busy moment of the machine hits all commands alike. The first
// command is the baseline the others are compared with.
//
//   time_commands RUNS "COMMAND ARGS..." "COMMAND ARGS..." ...
//
// Words are split at blanks; the environment is passed on unchanged.

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

std::vector<std::string> splitWords(const std::string& command) {
  std::istringstream stream(command);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

/// Wall time of one run in milliseconds.
double runOnce(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const auto& word : command) {
    argv.push_back(const_cast<char*>(word.c_str()));
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 0, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 01, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 01, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) !=
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
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s RUNS \"COMMAND ARGS...\"...\n", argv[0]);
    return 2;
  }
  const int runs = std::max(1, std::atoi(argv[1]));
  std::vector<std::vector<std::string>> commands;
  for (int i = 2; i < argc; ++i) commands.push_back(splitWords(argv[i]));
  std::vector<std::vector<double>> times(commands.size());
  const int warmups = std::min(runs, 5);
  for (int warmup = 0; warmup < warmups; ++warmup) {
    for (const auto& command : commands) runOnce(command);
  }
  for (int run = 0; run < runs; ++run) {
    for (size_t i = 0; i < commands.size(); ++i) {
      times[i].push_back(runOnce(commands[i]));
    }
  }
  const double baseline = median(times[0]);
  std::printf("median wall time over %d runs each:\n", runs);
  for (size_t i = 0; i < commands.size(); ++i) {
    const double value = median(times[i]);
    std::printf("  %-48s %9.3f ms  %5.2fx the first\n", argv[i + 2], value,
                value / baseline);
  }
  return 0;
}
