#include "platform/wayland/pipe_read.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace tovrin {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Result = PipeRead::Result;

/// A pipe whose ends close with the test.
struct Pipe {
  Pipe() {
    // tovrin ignores SIGPIPE from its start: a reader that went away makes
    // a write fail instead.
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  }
  ~Pipe() {
    closeReader();
    closeWriter();
  }
  void closeWriter() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }
  void closeReader() {
    if (ends[0] >= 0) close(ends[0]);
    ends[0] = -1;
  }
  void write(std::string_view bytes) {
    ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
  }
  int ends[2] = {-1, -1};
};

TEST(WaylandPipeReadTest, ReadsUntilTheWriterClosesItsEnd) {
  Pipe pipe;
  std::thread writer([&] {
    for (int i = 0; i < 3; ++i) {
      pipe.write(std::string(40000, static_cast<char>('a' + i)));
      std::this_thread::sleep_for(5ms);
    }
    pipe.closeWriter();
  });
  const PipeRead read = readPipe(pipe.ends[0], 5s, Clock::now() + 10s, 1 << 20);
  writer.join();
  EXPECT_EQ(read.result, Result::kComplete);
  EXPECT_EQ(read.data, std::string(40000, 'a') + std::string(40000, 'b') +
                           std::string(40000, 'c'));
}

TEST(WaylandPipeReadTest, AWriterThatGoesSilentIsGivenUpOn) {
  // A frozen owner keeps the pipe open and writes nothing more: it costs
  // the silence allowed, not the whole deadline.
  Pipe pipe;
  pipe.write("partial");
  const auto start = Clock::now();
  const PipeRead read =
      readPipe(pipe.ends[0], 100ms, Clock::now() + 60s, 1 << 20);
  EXPECT_EQ(read.result, Result::kTimedOut);
  EXPECT_LT(Clock::now() - start, 30s);
}

TEST(WaylandPipeReadTest, AWriterThatTricklesEndsAtTheDeadline) {
  // Never silent for long, never done: only the total deadline ends it.
  Pipe pipe;
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    const auto end = Clock::now() + 40s;
    while (!stop && Clock::now() < end) {
      pipe.write("x");
      std::this_thread::sleep_for(10ms);
    }
  });
  const auto start = Clock::now();
  const PipeRead read =
      readPipe(pipe.ends[0], 30s, Clock::now() + 200ms, 1 << 20);
  const auto took = Clock::now() - start;
  stop = true;
  writer.join();
  EXPECT_EQ(read.result, Result::kTimedOut);
  EXPECT_LT(took, 20s);
}

TEST(WaylandPipeReadTest, MoreThanTheLimitIsRefused) {
  Pipe pipe;
  std::thread writer([&] {
    // Past the limit the reader stops reading: the write fails then.
    const std::string chunk(65536, 'z');
    for (int i = 0; i < 8; ++i) {
      if (::write(pipe.ends[1], chunk.data(), chunk.size()) < 0) break;
    }
    pipe.closeWriter();
  });
  const PipeRead read =
      readPipe(pipe.ends[0], 5s, Clock::now() + 10s, 100000);
  pipe.closeReader();
  writer.join();
  EXPECT_EQ(read.result, Result::kTooLarge);
  EXPECT_TRUE(read.data.empty());
}

TEST(WaylandPipeReadTest, WritingToAReaderThatStopsReadingEnds) {
  Pipe pipe;
  // Far more than a pipe holds, and nobody reads.
  EXPECT_FALSE(writePipe(pipe.ends[1], std::string(1 << 20, 'y'), 100ms));
  pipe.closeReader();
  EXPECT_FALSE(writePipe(pipe.ends[1], "gone", 100ms));
}

}  // namespace
}  // namespace tovrin
