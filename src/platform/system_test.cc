#include "platform/system.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace tovrin {
namespace {

TEST(LogLineTest, IsShapedLikeNSLogOnStandardError) {
  std::tm time{};
  time.tm_year = 2026 - 1900;
  time.tm_mon = 10;
  time.tm_mday = 2;
  time.tm_hour = 9;
  time.tm_min = 5;
  time.tm_sec = 7;
  EXPECT_EQ(formatLogLine(time, 42, 1234, 1240, "[tovrin] a %s %n line"),
            "2026-11-02 09:05:07.042 tovrin[1234:1240] [tovrin] a %s %n line\n");
}

TEST(UserFileLockTest, KeepsASecondHolderOutUntilReleased) {
  char directory[] = "/tmp/tovrin-lock-test-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  setenv("XDG_RUNTIME_DIR", directory, 1);
  auto first = lockUserFile("copy.lock", std::chrono::milliseconds(0));
  ASSERT_TRUE(first);
  EXPECT_FALSE(lockUserFile("copy.lock", std::chrono::milliseconds(30)));
  EXPECT_TRUE(lockUserFile("other.lock", std::chrono::milliseconds(0)));
  first.reset();
  EXPECT_TRUE(lockUserFile("copy.lock", std::chrono::milliseconds(0)));
  unsetenv("XDG_RUNTIME_DIR");
  std::filesystem::remove_all(directory);
}

TEST(SystemSemaphoreTest, TakesAnEarlierSignalAndTimesOutWithoutOne) {
  const auto semaphore = createSystemSemaphore();
  semaphore->signal();
  // A signal given before the wait is taken even past the deadline.
  EXPECT_TRUE(semaphore->waitUntil(monotonicClockNow() -
                                   std::chrono::seconds(1)));
  EXPECT_FALSE(semaphore->waitUntil(monotonicClockNow() +
                                    std::chrono::milliseconds(20)));
}

TEST(SystemSemaphoreTest, WorkerResultIsSeenAfterTheSignal) {
  const auto semaphore = createSystemSemaphore();
  auto value = std::make_shared<int>(0);
  dispatchToWorker([semaphore, value] {
    *value = 42;
    semaphore->signal();
  });
  ASSERT_TRUE(semaphore->waitUntil(monotonicClockNow() +
                                   std::chrono::seconds(10)));
  EXPECT_EQ(*value, 42);
}

}  // namespace
}  // namespace tovrin
