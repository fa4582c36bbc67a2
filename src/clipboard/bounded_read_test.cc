#include "clipboard/bounded_read.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "fake_desktop.h"
#include "platform/system.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using Lines = std::vector<std::string>;

TEST(BoundedReadTest, GivesTheAnswerThatCameInTimeAndNothingAfterTheDeadline) {
  const struct {
    double readSeconds;
    std::optional<std::string> answer;
    int64_t timeoutMs;
    std::optional<std::string> result;
    double elapsed;
  } rows[] = {
      // Present or absent, the reader's answer is given without a line.
      {0, "", 2000, "", 0},
      {0, std::nullopt, 2000, std::nullopt, 0},
      // A slow reader is abandoned at the deadline.
      {5.0, "late", 250, std::nullopt, 0.25},
      // A zero timeout takes only an answer that is already there.
      {0, "now", 0, "now", 0},
      {0.001, "later", 0, std::nullopt, 0},
  };
  for (const auto& row : rows) {
    FakeDesktop desktop;
    EXPECT_EQ(readClipboardWithTimeout<std::string>(
                  desktop,
                  [&] {
                    desktop.sleep(row.readSeconds);
                    return row.answer;
                  },
                  row.timeoutMs),
              row.result);
    EXPECT_DOUBLE_EQ(desktop.elapsed(), row.elapsed);
    const std::string timedOut =
        "[tovrin] Clipboard read timed out after " + std::to_string(row.timeoutMs) + "ms";
    EXPECT_EQ(desktop.logLines, row.result == row.answer ? Lines{} : Lines{timedOut});
  }
}

// The same operation on real threads: a late reader's answer goes to a slot
// that only it holds, never to the next call.
TEST(BoundedReadTest, ALateAnswerIsNeverTakenForTheNextOne) {
  class RealThreads : public FakeDesktop {
   public:
    std::chrono::nanoseconds monotonicNow() override { return monotonicClockNow(); }
    std::shared_ptr<Semaphore> createSemaphore() override { return createSystemSemaphore(); }
    void dispatchAsync(std::function<void()> work) override { dispatchToWorker(std::move(work)); }
  } desktop;

  const auto release = std::make_shared<std::atomic<bool>>(false);
  const auto finished = createSystemSemaphore();
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop,
                [release, finished] {
                  while (!release->load()) std::this_thread::yield();
                  finished->signal();
                  return std::optional<std::string>("first");
                },
                20),
            std::nullopt);
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop,
                [release] {
                  release->store(true);
                  return std::optional<std::string>("second");
                },
                10000),
            "second");
  // Let the late reader end before the test does.
  EXPECT_TRUE(finished->waitUntil(monotonicClockNow() + std::chrono::seconds(10)));
  EXPECT_EQ(desktop.logLines, Lines{"[tovrin] Clipboard read timed out after 20ms"});
}

}  // namespace
}  // namespace tovrin
