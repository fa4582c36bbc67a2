// The command line as a host program meets it: the dispatch on the fake
// desktop, and the built binary run as a child process.

#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <map>
#include <regex>

#include "cli/dispatch.h"
#include "fake_desktop.h"
#include "process.h"

namespace tovrin {
namespace {

using nlohmann::json;
using testing::FakeDesktop;
using testing::ProcessResult;
using testing::runProcess;
using testing::splitLines;

constexpr char kUsageLine[] =
    "{\"success\":false,\"error\":\"Usage: tovrin "
    "<check-accessibility|request-accessibility|get-selection>\"}\n";

TEST(DispatchTest, MissingOrUnknownCommandsAreAnsweredWithStatusOne) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"tovrin"}, kUsageLine},
      {{"tovrin", "frobnicate"},
       "{\"success\":false,\"error\":\"Unknown command: frobnicate\"}\n"},
      {{"tovrin", "Get-Selection"},
       "{\"success\":false,\"error\":\"Unknown command: Get-Selection\"}\n"},
      {{"tovrin", " get-selection "},
       "{\"success\":false,\"error\":\"Unknown command:  get-selection \"}\n"},
      {{"tovrin", "--check-accessibility"},
       "{\"success\":false,\"error\":\"Unknown command: "
       "--check-accessibility\"}\n"},
      {{"tovrin", "check"},
       "{\"success\":false,\"error\":\"Unknown command: check\"}\n"},
      {{"tovrin", ""},
       "{\"success\":false,\"error\":\"Unknown command: \"}\n"},
  };
  for (const auto& [arguments, answer] : cases) {
    FakeDesktop desktop;
    EXPECT_EQ(dispatchCommand(desktop, arguments), 1);
    EXPECT_EQ(desktop.output, answer);
    EXPECT_TRUE(desktop.logLines.empty());
    EXPECT_TRUE(desktop.trustCalls.empty());
  }
}

TEST(DispatchTest, KnownCommandsEndWithStatusZeroWhateverTheyAnswer) {
  FakeDesktop untrusted;
  untrusted.trusted = false;
  EXPECT_EQ(dispatchCommand(untrusted, {"tovrin", "get-selection", "extra"}), 0);
  EXPECT_EQ(json::parse(untrusted.output)["success"], false);

  FakeDesktop checking;
  checking.trusted = false;
  EXPECT_EQ(dispatchCommand(checking, {"tovrin", "check-accessibility", "x"}),
            0);
  EXPECT_EQ(checking.output, "{\"success\":true,\"granted\":false}\n");

  FakeDesktop requesting;
  EXPECT_EQ(dispatchCommand(requesting, {"tovrin", "request-accessibility"}), 0);
  EXPECT_EQ(requesting.output, "{\"success\":true,\"granted\":true}\n");

  // Interrupted, get-selection still answers; a permission command has no
  // answer that would not be a guess.
  EXPECT_EQ(untrusted.interruptedAnswer,
            "{\"success\":false,\"error\":\"No text selected or could not "
            "copy\"}\n");
  EXPECT_EQ(checking.interruptedAnswer, "");
  EXPECT_EQ(requesting.interruptedAnswer, "");
}

/// Runs the built tovrin without a display, as a host would.
ProcessResult runTovrin(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "tovrin");
  return runProcess(TOVRIN_BINARY, arguments, {{"DISPLAY", ""}});
}

TEST(BinaryTest, AnswersBadCommandLinesWithOneJsonLineAndStatusOne) {
  struct Case {
    std::vector<std::string> arguments;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{}, "Usage: tovrin <check-accessibility|request-accessibility|get-selection>"},
      {{"frobnicate"}, "Unknown command: frobnicate"},
      {{"Get-Selection"}, "Unknown command: Get-Selection"},
      {{" get-selection"}, "Unknown command:  get-selection"},
      {{""}, "Unknown command: "},
      {{"a/b"}, "Unknown command: a/b"},
      {{"say \"hi\"\\"}, "Unknown command: say \"hi\"\\"},
      {{"\xff" "x\xC3"}, "Unknown command: \xEF\xBF\xBDx\xEF\xBF\xBD"},
  };
  for (const Case& c : cases) {
    const ProcessResult run = runTovrin(c.arguments);
    ASSERT_EQ(run.exitStatus, 1);
    const auto lines = splitLines(run.standardOutput);
    ASSERT_EQ(lines.size(), 1u) << run.standardOutput;
    EXPECT_EQ(run.standardOutput.back(), '\n');
    EXPECT_EQ(json::parse(lines[0]),
              json({{"success", false}, {"error", c.error}}));
    EXPECT_EQ(run.standardError, "");
  }
  EXPECT_EQ(runTovrin({"a/b"}).standardOutput,
            "{\"success\":false,\"error\":\"Unknown command: a\\/b\"}\n");
}

TEST(BinaryTest, WithoutADisplayPermissionIsNotGrantedAndStatusIsZero) {
  const ProcessResult check = runTovrin({"check-accessibility", "extra", "args"});
  EXPECT_EQ(check.exitStatus, 0);
  EXPECT_EQ(check.standardOutput, "{\"success\":true,\"granted\":false}\n");
  // NSLog's shape: local date and time with milliseconds, process name,
  // process and thread ids (the main thread's id is the process id).
  const std::string pid = "([0-9]+)";
  const std::regex line(
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
      "tovrin\\[([0-9]+):([0-9]+)\\] \\[tovrin\\] check-accessibility: false\n");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(check.standardError, match, line))
      << check.standardError;
  EXPECT_EQ(match[1], match[2]);

  const ProcessResult request = runTovrin({"request-accessibility"});
  EXPECT_EQ(request.exitStatus, 0);
  EXPECT_EQ(request.standardOutput, "{\"success\":true,\"granted\":false}\n");
  const auto lines = splitLines(request.standardError);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].ends_with("] [tovrin] request-accessibility"));
  EXPECT_TRUE(
      lines[1].ends_with("] [tovrin] AXIsProcessTrustedWithOptions: false"));

  const ProcessResult selection = runTovrin({"get-selection"});
  EXPECT_EQ(selection.exitStatus, 0);
  EXPECT_EQ(json::parse(selection.standardOutput),
            json({{"success", false},
                  {"error",
                   "Accessibility permission required - please grant in "
                   "System Settings > Privacy & Security > Accessibility"}}));
}

TEST(BinaryTest, AnUnreachableDisplayIsNotGranted) {
  const ProcessResult run =
      runProcess(TOVRIN_BINARY, {"tovrin", "check-accessibility"},
                 {{"DISPLAY", ":9876"}});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.standardOutput, "{\"success\":true,\"granted\":false}\n");
}

TEST(BinaryTest, ADisplayThatNeverAnswersCountsAsNoDisplay) {
  // A stale forwarded display: the socket accepts (the kernel completes the
  // connection from the backlog) and nothing ever answers.
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int display = 0;
  for (display = 150; display < 250; ++display) {
    address.sin_port = htons(static_cast<uint16_t>(6000 + display));
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) ==
        0) {
      break;
    }
  }
  ASSERT_EQ(listen(listener, 16), 0);
  const std::map<std::string, std::string> environment = {
      {"DISPLAY", "127.0.0.1:" + std::to_string(display)}};
  for (const char* command : {"check-accessibility", "get-selection"}) {
    SCOPED_TRACE(command);
    const ProcessResult run = runProcess(TOVRIN_BINARY, {"tovrin", command},
                                         environment, std::chrono::seconds(20));
    ASSERT_FALSE(run.timedOut);
    EXPECT_EQ(run.exitStatus, 0);
    const json answer = json::parse(run.standardOutput);
    EXPECT_EQ(answer["success"], command == std::string("check-accessibility"));
    EXPECT_LT(run.wallTime.count(), 5.0);
  }
  close(listener);
}

}  // namespace
}  // namespace tovrin
