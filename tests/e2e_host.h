#ifndef TOVRIN_TESTS_E2E_HOST_H_
#define TOVRIN_TESTS_E2E_HOST_H_

// What an end-to-end test needs besides its desktop: a directory of its own
// for the applications' files and settings, and the built tovrin started as
// a host starts it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "process.h"

namespace tovrin::testing {

using nlohmann::json;
using namespace std::chrono_literals;

class TovrinHost {
 protected:
  TovrinHost() {
    directory_ =
        std::filesystem::temp_directory_path() /
        ("tovrin-e2e-" + std::to_string(getpid()) + "-" +
         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(directory_);
  }
  ~TovrinHost() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  /// Whether `program` is installed; tests skip without it.
  bool requireProgram(const std::string& program) {
    for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"}) {
      if (access((dir + program).c_str(), X_OK) == 0) return true;
    }
    return false;
  }

  std::string writeFile(const std::string& name, const std::string& content) {
    const auto path = directory_ / name;
    std::ofstream(path) << content;
    return path;
  }

  struct Answer {
    ProcessResult run;
    json answer;
  };

  /// Runs `command` as a host does, with this process's environment and
  /// `environment` on top (an empty value removes a variable): both output
  /// streams read to their end through pipes; its one line parsed.
  Answer runTovrinWith(const std::string& command,
                       const std::map<std::string, std::string>& environment) {
    Answer result;
    result.run =
        runProcess(TOVRIN_BINARY, {"tovrin", command}, environment, 20s);
    EXPECT_FALSE(result.run.timedOut) << result.run.standardError;
    EXPECT_EQ(result.run.exitStatus, 0);
    const auto lines = splitLines(result.run.standardOutput);
    EXPECT_EQ(lines.size(), 1u) << result.run.standardOutput;
    if (!lines.empty()) result.answer = json::parse(lines[0]);
    return result;
  }

  bool logged(const Answer& answer, const std::string& text) {
    return answer.run.standardError.find(text) != std::string::npos;
  }

  std::filesystem::path directory_;
};

inline const json kNothing = {{"success", false},
                              {"error", "No text selected or could not copy"}};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_E2E_HOST_H_
