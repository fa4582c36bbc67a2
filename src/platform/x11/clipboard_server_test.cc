#include "platform/x11/pasteboard.h"

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "platform/system.h"
#include "platform/x11/xcb_util.h"
#include "tests/process.h"
#include "tests/x11/clipboard_fixture.h"

// The process that serves what the pasteboard writes: how long it lives,
// what it offers, and that the host starting tovrin never waits for it.

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using tovrin::testing::openPasteboard;
using tovrin::testing::processEnded;
using tovrin::testing::Selection;
using tovrin::testing::waitUntil;

// A bound for operations that must give up on a peer that never answers.
constexpr milliseconds kGivesUp{3000};

class ClipboardServerX11Test : public testing::X11Test {};

// Large enough for INCR both ways: xclip too sends values above 1 MB in chunks.
TEST_F(ClipboardServerX11Test, WrittenTextOutlivesThePasteboardAndItsProcess) {
  // A clipboard manager as the freedesktop convention has it: asked to
  // convert CLIPBOARD_MANAGER to SAVE_TARGETS, it would copy the targets
  // listed in the requestor's property from CLIPBOARD.
  ConversionDeadline deadline;
  ASSERT_TRUE(acquireSelection(display(), probe_->window(), atom("CLIPBOARD_MANAGER"), deadline));
  std::string text;
  std::string latin1;
  for (int i = 0; text.size() < 3 * 1024 * 1024; ++i) {
    text += "row " + std::to_string(i) + " \xC3\xA9\n";
    latin1 += "row " + std::to_string(i) + " \xE9\n";
  }
  auto pasteboard = openPasteboard(xvfb().display());
  ASSERT_TRUE(pasteboard);
  pasteboard->clearContents();
  EXPECT_TRUE(pasteboard->setString(text, PasteboardType::kString));
  EXPECT_FALSE(pasteboard->setString(text, PasteboardType::kHTML));
  pasteboard.reset();
  XEvent event;
  ASSERT_TRUE(waitUntil(
      [&] { return XCheckTypedEvent(display(), SelectionRequest, &event) == True; }, kGivesUp));
  const XSelectionRequestEvent& request = event.xselectionrequest;
  EXPECT_EQ(request.target, atom("SAVE_TARGETS"));
  auto listed = readProperty(display(), request.requestor, request.property);
  ASSERT_TRUE(listed);
  EXPECT_EQ(namesOf(listed->values32()), "UTF8_STRING text/plain;charset=utf-8 STRING");
  // Compared whole, so that a failure does not print megabytes.
  EXPECT_TRUE(xclipReads("UTF8_STRING") == text);
  EXPECT_TRUE(xclipReads("text/plain;charset=utf-8") == text);
  EXPECT_TRUE(xclipReads("STRING") == latin1);
  EXPECT_EQ(xclipReads("TARGETS"),
            "TARGETS\nTIMESTAMP\nMULTIPLE\nUTF8_STRING\n"
            "text/plain;charset=utf-8\nSTRING\n");

  // The serving process ends once another client takes CLIPBOARD.
  pid_t server = clipboardOwnerPid();
  ASSERT_GT(server, 0);
  EXPECT_NE(server, getpid());
  EXPECT_FALSE(processEnded(server));
  ASSERT_TRUE(xvfb().own(Selection::kClipboard, text + "from xclip"));
  EXPECT_TRUE(waitUntil([&] { return processEnded(server); }, kGivesUp));
  pasteboard = openPasteboard(xvfb().display());
  ASSERT_TRUE(pasteboard);
  EXPECT_TRUE(pasteboard->stringForType(PasteboardType::kString) == text + "from xclip");
}

#if defined(__SANITIZE_THREAD__)
#define TOVRIN_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TOVRIN_THREAD_SANITIZER 1
#endif
#endif

TEST_F(ClipboardServerX11Test, DisplayGoingAwayEndsTheServerButNotUs) {
#ifdef TOVRIN_THREAD_SANITIZER
  // On a broken connection libX11 unlocks the display's mutex once more than
  // it locked it (harmless with glibc's default mutexes), which
  // ThreadSanitizer reports.
  GTEST_SKIP() << "libX11's recovery from a broken connection upsets TSan";
#endif
  auto pasteboard = openPasteboard(xvfb().display());
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString("bye", PasteboardType::kString));
  pid_t server = clipboardOwnerPid();
  ASSERT_GT(server, 0);
  pasteboard->clearContents();  // an owner connection, a server started ahead
  probe_.reset();
  xvfb().stopServer();
  EXPECT_TRUE(waitUntil([&] { return processEnded(server); }, kGivesUp));
  // Xlib would end this process on a broken connection by default.
  auto elapsed = testing::timed([&] {
    EXPECT_EQ(pasteboard->types(), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    pasteboard->clearContents();
    EXPECT_FALSE(pasteboard->setString("lost", PasteboardType::kString));
  });
  EXPECT_LT(elapsed, kGivesUp);
}

/// The processes whose parent is this one, once those that ended are reaped.
std::vector<pid_t> ownChildren() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
  std::ifstream list("/proc/self/task/" + std::to_string(gettid()) + "/children");
  std::vector<pid_t> children;
  for (pid_t pid = 0; list >> pid;) children.push_back(pid);
  return children;
}

// Run as the host runs tovrin: in a child process of its own whose output
// the host reads to its end, which must come when tovrin exits, not when the
// server it leaves does.
TEST_F(ClipboardServerX11Test, ServerProcessStartedAheadEndsUnusedOrIsReplaced) {
  // Exit codes past 0 tell where the run failed.
  const auto run = [&]() -> int {
    // Orphans of this process become its children, so it can see them end.
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) return 2;
    auto pasteboard = openPasteboard(xvfb().display());
    if (!pasteboard) return 2;
    pasteboard->clearContents();
    // The intermediate process ends at once; the server becomes ours.
    if (!waitUntil([] { return ownChildren().size() == 1; }, kGivesUp)) return 3;
    pasteboard.reset();
    if (!waitUntil([] { return ownChildren().empty(); }, kGivesUp)) return 4;
    if (!(pasteboard = openPasteboard(xvfb().display()))) return 2;
    pasteboard->clearContents();
    if (!waitUntil([] { return ownChildren().size() == 1; }, kGivesUp)) return 3;
    kill(ownChildren().front(), SIGKILL);
    waitpid(-1, nullptr, 0);
    if (!pasteboard->setString("replaced", PasteboardType::kString)) return 5;
    return write(STDOUT_FILENO, "written\n", 8) == 8 ? 0 : 6;
  };
  testing::StartedProcess tool = testing::startForked(run);
  const auto result = testing::finishProcess(tool, milliseconds(12000));
  EXPECT_FALSE(result.timedOut) << "the output pipe stayed open";
  EXPECT_EQ(result.exitStatus, 0)
      << "3: no server, 4: one lingered, 5: not written; " << result.standardError;
  EXPECT_EQ(result.standardOutput, "written\n");
  EXPECT_EQ(xclipReads("UTF8_STRING"), "replaced");
}

// Killed with Ctrl+C down, right after clearing CLIPBOARD; the copy run's
// steps without X are tested with the serving process.
TEST_F(ClipboardServerX11Test, AKilledRunLeavesNoKeyHeldAndTheUserTextBack) {
  char directory[] = "/tmp/tovrin-guard-test-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  setenv("XDG_RUNTIME_DIR", directory, 1);
  ASSERT_TRUE(xvfb().own(Selection::kClipboard, "user text"));
  const auto run = [&](const std::function<void()>& killHere) {
    auto lock = lockUserFile("copy.lock", milliseconds(0));
    auto pasteboard = openPasteboard(xvfb().display());
    Display* keys = XOpenDisplay(xvfb().display().c_str());
    if (!lock || !pasteboard || keys == nullptr) return;
    pasteboard->writeBack().shareCopyLock(lock->fd());
    pasteboard->guardString("user text");
    pasteboard->clearContents();
    const std::vector<uint8_t> shortcut = {XKeysymToKeycode(keys, XK_Control_L),
                                           XKeysymToKeycode(keys, XK_c)};
    pasteboard->writeBack().keysPressed(shortcut);
    for (const uint8_t key : shortcut) {
      XTestFakeKeyEvent(keys, key, True, CurrentTime);
    }
    XSync(keys, False);
    killHere();
  };
  EXPECT_TRUE(testing::killOnceReached(run, milliseconds(10000)));
  // The next run gets the lock only once the text is back.
  EXPECT_TRUE(lockUserFile("copy.lock", milliseconds(5000)));
  unsetenv("XDG_RUNTIME_DIR");
  const pid_t server = clipboardOwnerPid();
  EXPECT_GT(server, 0) << "the user's text is not served again";
  EXPECT_EQ(xclipReads("UTF8_STRING"), "user text");
  EXPECT_EQ(xvfb().keysDown(), std::vector<int>{}) << "a key is held";
  if (server > 0) kill(server, SIGTERM);
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace tovrin
