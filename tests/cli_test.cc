// The command line as a host program meets it: the dispatch on the fake
// desktop, and the built binary run as a child process.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "cli/dispatch.h"
#include "fake_desktop.h"
#include "process.h"

namespace tovrin {
namespace {

using nlohmann::json;
using testing::ProcessResult;
using testing::runProcess;
using testing::splitLines;
using Strings = std::vector<std::string>;

const std::string kUsage =
    "Usage: tovrin <check-accessibility|request-accessibility|get-selection>";
const std::string kPermission =
    "Accessibility permission required - please grant in System Settings > Privacy & Security > "
    "Accessibility";

std::string errorLine(const std::string& error) {
  return nlohmann::ordered_json({{"success", false}, {"error", error}}).dump() + "\n";
}

TEST(DispatchTest, AnswersEveryCommandLineWithOneLineAndItsStatus) {
  const std::string granted = "{\"success\":true,\"granted\":";
  struct Row {
    std::vector<std::string> arguments;
    bool trusted;
    int status;
    std::string output, interrupted;
  };
  std::vector<Row> rows = {
      {{"tovrin"}, true, 1, errorLine(kUsage), ""},
      // Known commands end with status 0 whatever they answer; interrupted,
      // get-selection still answers, while a permission command has no
      // answer that would not be a guess.
      {{"tovrin", "get-selection", "extra"}, false, 0, errorLine(kPermission),
       errorLine("No text selected or could not copy")},
      {{"tovrin", "check-accessibility", "x"}, false, 0, granted + "false}\n", ""},
      {{"tovrin", "request-accessibility"}, true, 0, granted + "true}\n", ""},
  };
  for (const std::string unknown : {"frobnicate", "Get-Selection", " get-selection ",
                                    "--check-accessibility", "check", ""}) {
    rows.push_back({{"tovrin", unknown}, true, 1, errorLine("Unknown command: " + unknown), ""});
  }
  for (const auto& row : rows) {
    testing::FakeDesktop desktop;
    desktop.trusted = row.trusted;
    EXPECT_EQ(dispatchCommand(desktop, row.arguments), row.status);
    EXPECT_EQ(desktop.output, row.output);
    EXPECT_TRUE(json::accept(desktop.output));
    EXPECT_EQ(desktop.interruptedAnswer, row.interrupted);
    if (row.status == 1) { EXPECT_TRUE(desktop.logLines.empty() && desktop.operations.empty()); }
  }
}

/// Runs the built tovrin as a host would, by default without a display.
ProcessResult runTovrin(std::vector<std::string> arguments, std::string display = "") {
  arguments.insert(arguments.begin(), "tovrin");
  return runProcess(TOVRIN_BINARY, arguments, {{"DISPLAY", display}}, std::chrono::seconds(20));
}

TEST(BinaryTest, AnswersBadCommandLinesWithOneJsonLineAndStatusOne) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{}, kUsage},
      {{"\xff" "x\xC3"}, "Unknown command: \xEF\xBF\xBDx\xEF\xBF\xBD"},
  };
  for (const auto& [arguments, error] : rows) {
    const ProcessResult run = runTovrin(arguments);
    EXPECT_EQ(run.exitStatus, 1);
    ASSERT_EQ(splitLines(run.standardOutput).size(), 1u) << run.standardOutput;
    EXPECT_EQ(run.standardOutput.back(), '\n');
    EXPECT_EQ(json::parse(run.standardOutput), json({{"success", false}, {"error", error}}));
    EXPECT_EQ(run.standardError, "");
  }
}

TEST(BinaryTest, WithoutADisplayThatAnswersPermissionIsNotGrantedAndStatusIsZero) {
  // A stale forwarded display: the socket accepts (the kernel completes the
  // connection from the backlog) and nothing ever answers.
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int stale = 150;
  for (; stale < 250; ++stale) {
    address.sin_port = htons(static_cast<uint16_t>(6000 + stale));
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) break;
  }
  ASSERT_EQ(listen(listener, 16), 0);
  const std::string notGranted = "{\"success\":true,\"granted\":false}\n";
  const std::pair<std::string, std::string> answers[] = {
      {"check-accessibility", notGranted},
      {"request-accessibility", notGranted},
      {"get-selection", errorLine(kPermission)},
  };
  // No display, one that nothing listens at, and the stale one.
  for (const std::string& display : Strings{"", ":9876", "127.0.0.1:" + std::to_string(stale)}) {
    for (const auto& [command, answer] : answers) {
      const ProcessResult run = runTovrin({command}, display);
      ASSERT_FALSE(run.timedOut) << command << " on " << display;
      EXPECT_EQ(run.exitStatus, 0);
      EXPECT_EQ(run.standardOutput, answer);
      EXPECT_LT(run.wallTime.count(), 5.0);
    }
  }
  close(listener);
  // NSLog's shape: local date and time with milliseconds, process name,
  // process and thread ids (the main thread's id is the process id).
  const ProcessResult check = runTovrin({"check-accessibility", "extra", "args"});
  const std::regex line(
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
      "tovrin\\[([0-9]+):([0-9]+)\\] \\[tovrin\\] check-accessibility: false\n");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(check.standardError, match, line)) << check.standardError;
  EXPECT_EQ(match[1], match[2]);
  const auto lines = splitLines(runTovrin({"request-accessibility"}).standardError);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].ends_with("] [tovrin] request-accessibility"));
  EXPECT_TRUE(lines[1].ends_with("] [tovrin] AXIsProcessTrustedWithOptions: false"));
}

}  // namespace
}  // namespace tovrin
