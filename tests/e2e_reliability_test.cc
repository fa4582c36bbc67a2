// get-selection under hosts and programs that do not play along: hosts that
// kill tovrin or leave mid-run, runs that overlap, closed standard streams,
// window names and file names that are not what they should be. The user's
// clipboard text and the keyboard are checked after each.

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include "e2e_desktop.h"
// clang-format on

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <regex>

namespace tovrin::testing {
namespace {

class ReliabilityOnX11Test : public RealDesktopTest {
 protected:
  /// A file manager with `names` in a folder of their own, all selected:
  /// its copy brings their paths and takes a few tens of milliseconds.
  std::filesystem::path startFileManagerWithSelection(
      const std::vector<std::string>& names) {
    const auto folder = directory_ / "files";
    std::filesystem::create_directories(folder);
    for (const std::string& name : names) std::ofstream(folder / name) << "x";
    const uint32_t window =
        startApplication({"pcmanfm", "--new-win", folder.string()}, "pcmanfm");
    EXPECT_NE(window, 0u);
    selectAll(window);
    std::this_thread::sleep_for(300ms);
    return folder;
  }

  StartedProcess startGetSelection() {
    return startProcess(TOVRIN_BINARY, {"tovrin", "get-selection"},
                        {{"DISPLAY", xvfb().display()}});
  }

  /// The key codes the X server has down now.
  std::vector<int> keysDown() {
    std::vector<int> down;
    Display* display = XOpenDisplay(xvfb().display().c_str());
    if (display == nullptr) return {-1};
    char keys[32] = {};
    XQueryKeymap(display, keys);
    XCloseDisplay(display);
    for (int key = 0; key < 256; ++key) {
      if ((keys[key / 8] & (1 << (key % 8))) != 0) down.push_back(key);
    }
    return down;
  }

  /// Whether the user's text is back on the clipboard and no key is held,
  /// waiting for that a little: after a kill, the serving process puts
  /// things right within milliseconds.
  bool userStateIsBack() {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (std::chrono::steady_clock::now() < deadline) {
      if (readSelection("clipboard") == "saved text" && keysDown().empty()) {
        return true;
      }
      std::this_thread::sleep_for(50ms);
    }
    return false;
  }
};

/// Standard output holds nothing or one valid JSON answer line.
bool noneOrOneAnswer(const std::string& output) {
  if (output.empty()) return true;
  const auto lines = splitLines(output);
  return lines.size() == 1 && output.back() == '\n' && json::accept(lines[0]);
}

TEST_F(ReliabilityOnX11Test, AKilledRunLosesNothingAndHoldsNoKey) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  startFileManagerWithSelection({"a.txt"});
  own("clipboard", "saved text");
  // Spread over the run: before the clear (~55 ms), around the keystroke,
  // during the reads and the write-back (~260 ms).
  int runs = 0, intact = 0;
  for (const int signalNumber : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
    for (const int delayMs : {30, 70, 110, 150, 190, 230, 270}) {
      SCOPED_TRACE(std::string(strsignal(signalNumber)) + " after " +
                   std::to_string(delayMs) + " ms");
      StartedProcess run = startGetSelection();
      ASSERT_GT(run.pid, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      kill(run.pid, signalNumber);
      const ProcessResult result = finishProcess(run, 10s);
      ASSERT_FALSE(result.timedOut);
      EXPECT_TRUE(noneOrOneAnswer(result.standardOutput))
          << result.standardOutput;
      if (signalNumber != SIGKILL && result.signal) {
        // Interrupted, it still answered.
        EXPECT_EQ(json::parse(result.standardOutput), kNothing);
      }
      ++runs;
      if (userStateIsBack()) {
        ++intact;
      } else {
        ADD_FAILURE() << "clipboard " << readSelection("clipboard").value_or("-")
                      << ", " << keysDown().size() << " keys down\n"
                      << result.standardError;
      }
    }
  }
  std::cout << "clipboard kept and keys clean in " << intact << " of " << runs
            << " killed runs\n";
}

TEST_F(ReliabilityOnX11Test, AHostThatLeavesMidRunLosesNothing) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  startFileManagerWithSelection({"a.txt"});
  own("clipboard", "saved text");
  StartedProcess run = startGetSelection();
  ASSERT_GT(run.pid, 0);
  std::this_thread::sleep_for(100ms);
  // The host exits: every later write of tovrin meets a closed pipe.
  close(run.standardOutput);
  close(run.standardError);
  run.standardOutput = run.standardError = -1;
  const ProcessResult result = finishProcess(run, 10s);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 0) << "ended by signal " << result.signal.value_or(0);
  EXPECT_TRUE(userStateIsBack());
}

TEST_F(ReliabilityOnX11Test, OverlappingRunsNeverAnswerWithTheClipboard) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  const auto folder = startFileManagerWithSelection({"a.txt"});
  own("clipboard", "saved text");
  // A hotkey pressed again and again.
  std::vector<StartedProcess> runs;
  for (int i = 0; i < 10; ++i) {
    runs.push_back(startGetSelection());
    std::this_thread::sleep_for(100ms);
  }
  int copied = 0;
  for (StartedProcess& run : runs) {
    const ProcessResult result = finishProcess(run, 20s);
    ASSERT_FALSE(result.timedOut);
    const auto lines = splitLines(result.standardOutput);
    ASSERT_EQ(lines.size(), 1u) << result.standardError;
    const json answer = json::parse(lines[0]);
    EXPECT_FALSE(answer.contains("text")) << "the clipboard as the selection";
    if (answer["success"] == true) {
      ++copied;
      EXPECT_EQ(answer["file_paths"], json::array({(folder / "a.txt").string()}));
    } else {
      EXPECT_EQ(answer, kNothing);
    }
  }
  EXPECT_GT(copied, 0);
  EXPECT_TRUE(userStateIsBack());
}

TEST_F(ReliabilityOnX11Test, ClosedStandardStreamsNeitherHangNorLeak) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  startFileManagerWithSelection({"a.txt"});
  own("clipboard", "saved text");
  // Without its streams, the display connection would take descriptor 1 and
  // the answer would go into the X protocol stream.
  const ProcessResult run = runProcess(
      "/bin/sh",
      {"sh", "-c",
       std::string("exec '") + TOVRIN_BINARY + "' get-selection <&- >&- 2>&-"},
      {{"DISPLAY", xvfb().display()}}, 20s);
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(userStateIsBack());
}

TEST_F(ReliabilityOnX11Test, AWindowNameCannotForgeALogLine) {
  Display* display = XOpenDisplay(xvfb().display().c_str());
  ASSERT_NE(display, nullptr);
  const Window window = XCreateSimpleWindow(
      display, DefaultRootWindow(display), 0, 0, 300, 200, 0, 0, 0);
  std::string name = "evil";
  std::string className =
      "Evil\n2026-01-01 00:00:00.000 tovrin[1:1] [tovrin] SUCCESS\x1b[31m";
  XClassHint hint = {name.data(), className.data()};
  XSetClassHint(display, window, &hint);
  XMapWindow(display, window);
  XSync(display, False);
  xdotool({"windowactivate", "--sync", std::to_string(window)});

  const Answer result = getSelection();
  const std::regex line(
      "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
      "tovrin\\[[0-9]+:[0-9]+\\] \\[tovrin\\] [ -~]*");
  for (const std::string& logged : splitLines(result.run.standardError)) {
    EXPECT_TRUE(std::regex_match(logged, line)) << logged;
  }
  EXPECT_TRUE(logged(result,
                     "] [tovrin] Frontmost app: Evil\\u000a2026-01-01 "
                     "00:00:00.000 tovrin[1:1] [tovrin] SUCCESS\\u001b[31m, "
                     "finder=false\n"))
      << result.run.standardError;
  XCloseDisplay(display);
}

TEST_F(ReliabilityOnX11Test, AFileNameThatIsNotUtf8StillGivesAnAnswer) {
  if (!requireProgram("pcmanfm")) GTEST_SKIP() << "pcmanfm is not installed";
  const auto folder = startFileManagerWithSelection({"caf\xE9.txt"});
  own("clipboard", "saved text");
  const Answer result = getSelection();
  // Each byte that is not UTF-8 stands as U+FFFD: the name still shows.
  EXPECT_EQ(result.answer,
            json({{"success", true},
                  {"method", "cgevent"},
                  {"file_paths",
                   {(folder / "caf\xEF\xBF\xBD.txt").string()}}}))
      << result.run.standardError;
}

}  // namespace
}  // namespace tovrin::testing
