#ifndef TOVRIN_PLATFORM_SYSTEM_H_
#define TOVRIN_PLATFORM_SYSTEM_H_

// The operating-system services that every real backend shares: clocks,
// sleeping, standard output, the log writer and worker threads. The log
// writer and the workers have one implementation per system (*_posix.cc,
// *_mac.mm); the rest is portable.

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace tovrin {

/// Blocks the calling thread for `seconds` (nothing for 0 or less).
void sleepSeconds(double seconds);
/// The monotonic clock, unaffected by changes of the wall clock.
std::chrono::nanoseconds monotonicClockNow();
/// Writes `text` to standard output, whole.
void writeStandardOutput(std::string_view text);

/// Writes one diagnostic line to the system log (standard error elsewhere
/// than on macOS), literally.
void writeLogLine(std::string_view line);

/// A counting semaphore on the monotonic clock, starting at zero.
std::shared_ptr<Semaphore> createSystemSemaphore();
/// Runs `work` on a worker thread of user-initiated priority. The process
/// never waits for it to end.
void dispatchToWorker(std::function<void()> work);

/// The services above as the Platform's operations, for real backends to
/// derive from: they add what is particular to their desktop.
class SystemPlatform : public Platform {
 public:
  void sleep(double seconds) override { sleepSeconds(seconds); }
  std::chrono::nanoseconds monotonicNow() override {
    return monotonicClockNow();
  }
  std::shared_ptr<Semaphore> createSemaphore() override {
    return createSystemSemaphore();
  }
  void dispatchAsync(std::function<void()> work) override {
    dispatchToWorker(std::move(work));
  }
  void log(std::string_view line) override { writeLogLine(line); }
  void writeOutput(std::string_view text) override {
    writeStandardOutput(text);
  }
};

/// Writes all of `text` to the file descriptor `fd` in as few writes as it
/// takes (one, normally); false when writing failed.
bool writeAll(int fd, std::string_view text);

/// The line as NSLog writes it to standard error:
/// "YYYY-MM-DD HH:MM:SS.mmm tovrin[PID:TID] " then `line` and a line feed,
/// in local time with the milliseconds truncated.
std::string formatLogLine(const std::tm& localTime, long milliseconds,
                          long pid, long tid, std::string_view line);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_SYSTEM_H_
