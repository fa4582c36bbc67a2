// tovrin on a Wayland compositor that offers neither data-control nor
// virtual keyboards, as GNOME and KDE do not: weston, headless. The
// compositor runs as the test's user (root included), on a runtime
// directory of the test's own.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "process.h"

namespace tovrin::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char kSocket[] = "tovrin-weston";

class WestonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (access("/usr/bin/weston", X_OK) != 0) {
      GTEST_SKIP() << "weston is not installed";
    }
    char pattern[] = "/tmp/tovrin-weston.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    runtime_ = pattern;
    weston_ = fork();
    ASSERT_GE(weston_, 0);
    if (weston_ == 0) {
      setpgid(0, 0);
      setenv("XDG_RUNTIME_DIR", runtime_.c_str(), 1);
      unsetenv("WAYLAND_DISPLAY");
      unsetenv("DISPLAY");
      const int devNull = open("/dev/null", O_RDWR);
      dup2(devNull, STDOUT_FILENO);
      dup2(devNull, STDERR_FILENO);
      const std::string log = runtime_ + "/weston.log";
      execlp("weston", "weston", "--backend=headless-backend.so",
             (std::string("--socket=") + kSocket).c_str(), "--idle-time=0",
             ("--log=" + log).c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    const auto deadline = Clock::now() + 15s;
    while (!std::filesystem::exists(runtime_ + "/" + kSocket)) {
      ASSERT_LT(Clock::now(), deadline) << "weston did not start";
      std::this_thread::sleep_for(50ms);
    }
  }

  void TearDown() override {
    if (weston_ > 0) {
      kill(-weston_, SIGCONT);
      kill(-weston_, SIGTERM);
      const auto deadline = Clock::now() + 5s;
      while (waitpid(weston_, nullptr, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
          kill(-weston_, SIGKILL);
          waitpid(weston_, nullptr, 0);
          break;
        }
        std::this_thread::sleep_for(20ms);
      }
    }
    if (!runtime_.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(runtime_, ignored);
    }
  }

  /// Runs tovrin `command` on the compositor, without X11 and without an
  /// accessibility bus.
  ProcessResult runTovrin(const std::string& command) {
    return runProcess(TOVRIN_BINARY, {"tovrin", command},
                      {{"XDG_RUNTIME_DIR", runtime_},
                       {"WAYLAND_DISPLAY", kSocket},
                       {"DISPLAY", ""},
                       {"DBUS_SESSION_BUS_ADDRESS", ""},
                       {"AT_SPI_BUS_ADDRESS", ""}},
                      20s);
  }

  /// The log's messages, each without its time stamp and process.
  static std::vector<std::string> messages(const ProcessResult& result) {
    std::vector<std::string> lines;
    for (const std::string& line : splitLines(result.standardError)) {
      const size_t start = line.find("] ");
      lines.push_back(start == std::string::npos ? line : line.substr(start + 2));
    }
    return lines;
  }

  std::string runtime_;
  pid_t weston_ = -1;
};

constexpr char kNoDataControl[] =
    "[tovrin] Wayland: the compositor does not offer "
    "zwlr_data_control_manager_v1; only AT-SPI can read the selection";
constexpr char kNoVirtualKeyboard[] =
    "[tovrin] Wayland: the compositor does not offer "
    "zwp_virtual_keyboard_manager_v1; only AT-SPI can read the selection";

TEST_F(WestonTest, WithoutTheCopyProtocolsOnlyTheAccessibilityReadIsLeft) {
  const ProcessResult check = runTovrin("check-accessibility");
  ASSERT_EQ(check.exitStatus, 0) << check.standardError;
  EXPECT_EQ(json::parse(check.standardOutput),
            json({{"success", true}, {"granted", false}}));
  EXPECT_EQ(messages(check),
            (std::vector<std::string>{kNoDataControl, kNoVirtualKeyboard,
                                      "[tovrin] check-accessibility: false"}));

  // No key is sent and the clipboard is not touched: the run stops at the
  // permission, once it has said why.
  const ProcessResult get = runTovrin("get-selection");
  ASSERT_EQ(get.exitStatus, 0) << get.standardError;
  const json answer = json::parse(get.standardOutput);
  EXPECT_EQ(answer["success"], false);
  EXPECT_EQ(answer["error"],
            "Accessibility permission required - please grant in System "
            "Settings > Privacy & Security > Accessibility");
  const std::vector<std::string> lines = messages(get);
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[0], "[tovrin] Starting get-selection");
  EXPECT_EQ(lines[1], kNoDataControl);
  EXPECT_EQ(lines[2], kNoVirtualKeyboard);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find("CGEvent: Sent"), std::string::npos) << line;
  }
}

TEST_F(WestonTest, AFrozenCompositorDoesNotHoldTheHostUp) {
  // Its socket still accepts connections; nothing answers on them.
  ASSERT_EQ(kill(-weston_, SIGSTOP), 0);
  for (const char* command : {"check-accessibility", "get-selection"}) {
    SCOPED_TRACE(command);
    const ProcessResult result = runTovrin(command);
    ASSERT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_LT(result.wallTime, 5s);
    const auto lines = splitLines(result.standardOutput);
    ASSERT_EQ(lines.size(), 1u) << result.standardOutput;
    EXPECT_TRUE(json::accept(lines[0])) << lines[0];
    const std::vector<std::string> log = messages(result);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front(),
              "[tovrin] Wayland: no compositor answers at WAYLAND_DISPLAY; "
              "trying X11");
  }
}

}  // namespace
}  // namespace tovrin::testing
