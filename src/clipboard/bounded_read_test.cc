#include "clipboard/bounded_read.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "fake_desktop.h"
#include "platform/system.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;

TEST(BoundedReadTest, GivesTheReadersAnswerPresentOrAbsentWithoutALine) {
  FakeDesktop desktop;
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop, [] { return std::optional<std::string>(""); }),
            std::optional<std::string>(""));
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop, [] { return std::optional<std::string>(); }),
            std::nullopt);
  EXPECT_TRUE(desktop.logLines.empty());
  EXPECT_EQ(desktop.elapsed(), 0.0);
}

TEST(BoundedReadTest, ASlowReaderIsAbandonedAtTheDeadline) {
  FakeDesktop desktop;
  const auto result = readClipboardWithTimeout<std::string>(
      desktop,
      [&desktop] {
        desktop.sleep(5.0);
        return std::optional<std::string>("late");
      },
      250);
  EXPECT_EQ(result, std::nullopt);
  EXPECT_DOUBLE_EQ(desktop.elapsed(), 0.25);
  EXPECT_EQ(desktop.logLines, std::vector<std::string>{
                                  "[tovrin] Clipboard read timed out after 250ms"});
}

TEST(BoundedReadTest, ZeroTimeoutTakesOnlyAnAnswerThatIsAlreadyThere) {
  FakeDesktop desktop;
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop, [] { return std::optional<std::string>("now"); }, 0),
            "now");
  EXPECT_EQ(readClipboardWithTimeout<std::string>(
                desktop,
                [&desktop] {
                  desktop.sleep(0.001);
                  return std::optional<std::string>("later");
                },
                0),
            std::nullopt);
  EXPECT_EQ(desktop.logLines, std::vector<std::string>{
                                  "[tovrin] Clipboard read timed out after 0ms"});
}

// The same operation on real threads: a late reader's answer goes to a slot
// that only it holds, never to the next call.
TEST(BoundedReadTest, ALateAnswerIsNeverTakenForTheNextOne) {
  class RealThreads : public FakeDesktop {
   public:
    std::chrono::nanoseconds monotonicNow() override {
      return monotonicClockNow();
    }
    std::shared_ptr<Semaphore> createSemaphore() override {
      return createSystemSemaphore();
    }
    void dispatchAsync(std::function<void()> work) override {
      dispatchToWorker(std::move(work));
    }
  } desktop;

  const auto release = std::make_shared<std::atomic<bool>>(false);
  const auto finished = createSystemSemaphore();
  const auto first = readClipboardWithTimeout<std::string>(
      desktop,
      [release, finished] {
        while (!release->load()) std::this_thread::yield();
        finished->signal();
        return std::optional<std::string>("first");
      },
      20);
  EXPECT_EQ(first, std::nullopt);

  const auto second = readClipboardWithTimeout<std::string>(
      desktop,
      [release] {
        release->store(true);
        return std::optional<std::string>("second");
      },
      10000);
  EXPECT_EQ(second, "second");
  // Let the late reader end before the test does.
  EXPECT_TRUE(finished->waitUntil(monotonicClockNow() + std::chrono::seconds(10)));
  EXPECT_EQ(desktop.logLines, std::vector<std::string>{
                                  "[tovrin] Clipboard read timed out after 20ms"});
}

}  // namespace
}  // namespace tovrin
