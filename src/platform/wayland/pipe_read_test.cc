#include "platform/wayland/pipe_read.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <functional>
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
  ~Pipe() { close(0), close(1); }
  void close(int end) {
    if (ends[end] >= 0) ::close(ends[end]);
    ends[end] = -1;
  }
  bool write(std::string_view bytes) {
    return ::write(ends[1], bytes.data(), bytes.size()) ==
           static_cast<ssize_t>(bytes.size());
  }
  int ends[2] = {-1, -1};
};

TEST(WaylandPipeReadTest, ReadsUntilTheWriterClosesWithinTheBounds) {
  struct Case {
    const char* name;
    /// Writes into the pipe until it is done or the reader has gone.
    std::function<void(Pipe&)> write;
    std::chrono::milliseconds inactivity, deadline;
    size_t limit;
    Result result;
    std::string data;
  };
  const Case cases[] = {
      {"a writer that closes its end",
       [](Pipe& pipe) {
         for (const char c : {'a', 'b', 'c'}) {
           pipe.write(std::string(40000, c));
           std::this_thread::sleep_for(5ms);
         }
         pipe.close(1);
       },
       60s, 60s, 1 << 20, Result::kComplete,
       std::string(40000, 'a') + std::string(40000, 'b') +
           std::string(40000, 'c')},
      // A frozen owner keeps the pipe open and writes nothing more: it costs
      // the silence allowed, not the whole deadline.
      {"a writer that goes silent", [](Pipe& pipe) { pipe.write("a"); },
       100ms, 60s, 1 << 20, Result::kTimedOut, ""},
      // Never silent for long, never done: only the deadline ends it.
      {"a writer that trickles", [](Pipe& pipe) {
         for (int i = 0; i < 4000 && pipe.write("x"); ++i) {
           std::this_thread::sleep_for(10ms);
         }
       }, 30s, 200ms, 1 << 20, Result::kTimedOut, ""},
      // Past the limit the reader stops reading: the writes fail then.
      {"more than the limit", [](Pipe& pipe) {
         for (int i = 0; i < 8 && pipe.write(std::string(65536, 'z')); ++i) {}
         pipe.close(1);
       }, 60s, 60s, 100000, Result::kTooLarge, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Pipe pipe;
    std::thread writer([&] { c.write(pipe); });
    const auto start = Clock::now();
    const PipeRead read =
        readPipe(pipe.ends[0], c.inactivity, start + c.deadline, c.limit);
    const auto took = Clock::now() - start;
    pipe.close(0);
    writer.join();
    EXPECT_EQ(read.result, c.result);
    // What came before a time-out is not looked at.
    if (c.result != Result::kTimedOut) {
      EXPECT_EQ(read.data, c.data);
    }
    EXPECT_LT(took, 20s);
  }
}

TEST(WaylandPipeReadTest, WritingToAReaderThatStopsReadingEnds) {
  Pipe pipe;
  // Far more than a pipe holds, and nobody reads.
  EXPECT_FALSE(writePipe(pipe.ends[1], std::string(1 << 20, 'y'), 100ms));
  pipe.close(0);
  EXPECT_FALSE(writePipe(pipe.ends[1], "gone", 100ms));
}

}  // namespace
}  // namespace tovrin
