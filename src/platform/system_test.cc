#include "platform/system.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>

namespace tovrin {
namespace {

TEST(LogLineTest, IsShapedLikeNSLogOnStandardError) {
  std::tm time{};
  ASSERT_TRUE(strptime("2026-11-02 09:05:07", "%Y-%m-%d %H:%M:%S", &time));
  EXPECT_EQ(formatLogLine(time, 42, 1234, 1240, "[tovrin] a %s %n line"),
            "2026-11-02 09:05:07.042 tovrin[1234:1240] [tovrin] a %s %n "
            "line\n");
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

TEST(SystemSemaphoreTest, SeesTheWorkersResultAndAnEarlierSignalOrTimesOut) {
  using namespace std::chrono_literals;
  const auto semaphore = createSystemSemaphore();
  auto value = std::make_shared<int>(0);
  dispatchToWorker([semaphore, value] {
    *value = 42;
    semaphore->signal();
  });
  ASSERT_TRUE(semaphore->waitUntil(monotonicClockNow() + 10s));
  EXPECT_EQ(*value, 42);
  semaphore->signal();
  // A signal given before the wait is taken even past the deadline.
  EXPECT_TRUE(semaphore->waitUntil(monotonicClockNow() - 1s));
  EXPECT_FALSE(semaphore->waitUntil(monotonicClockNow() + 20ms));
}

}  // namespace
}  // namespace tovrin
