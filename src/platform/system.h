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

/// Readies the process before anything opens a file or a socket: standard
/// input, output and error are reopened on /dev/null when the host started
/// tovrin without them (else the display connection could take descriptor 1
/// and the answer would go into the X protocol stream), and SIGPIPE is
/// ignored, so that a host that went away makes a write fail instead of
/// ending tovrin halfway through a copy. SIGTERM, SIGINT and SIGHUP write
/// the interrupted answer, if any, and end the process; what a copy run
/// must undo is undone by the process that serves its write-back.
void prepareProcess();

/// Blocks the calling thread for `seconds` (nothing for 0 or less).
void sleepSeconds(double seconds);
/// The monotonic clock, unaffected by changes of the wall clock.
std::chrono::nanoseconds monotonicClockNow();
/// Writes `text` to standard output, whole, unless an interrupted answer
/// was written already.
void writeStandardOutput(std::string_view text);
/// What the handler of SIGTERM, SIGINT and SIGHUP (see prepareProcess)
/// writes to standard output before the process ends by that signal, when
/// no answer was written yet.
void setInterruptedAnswerLine(std::string_view line);

/// Writes one diagnostic line to the system log (standard error elsewhere
/// than on macOS), literally.
void writeLogLine(std::string_view line);

/// A counting semaphore on the monotonic clock, starting at zero.
std::shared_ptr<Semaphore> createSystemSemaphore();
/// Runs `work` on a worker thread of user-initiated priority. The process
/// never waits for it to end.
void dispatchToWorker(std::function<void()> work);

/// An exclusive lock on the file `name` in this user's runtime directory
/// ($XDG_RUNTIME_DIR, else a private directory under /tmp), waited for at
/// most `timeout`. Null when another process held it all that time. When
/// the file cannot be had at all, a lock that locks nothing: a capture
/// without the lock beats no capture. The system drops the lock when the
/// process ends, however it ends.
class FileLock : public CopyRunLock {
 public:
  explicit FileLock(int fd) : fd_(fd) {}
  ~FileLock() override;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  /// The locked file's descriptor; -1 for a lock that locks nothing. A
  /// process that inherits it holds the lock too, until it closes it.
  int fd() const { return fd_; }

 private:
  int fd_;
};
std::unique_ptr<FileLock> lockUserFile(const std::string& name,
                                       std::chrono::milliseconds timeout);

/// The services above as the Platform's operations, for real backends to
/// derive from: they add what is particular to their desktop.
class SystemPlatform : public Platform {
 public:
  CopyRunLockHandle lockCopyRun(std::chrono::milliseconds timeout) override {
    return lockUserFile(copyLockName(), timeout);
  }
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
  void setInterruptedAnswer(std::string_view line) override {
    setInterruptedAnswerLine(line);
  }

 protected:
  /// The lock file of copy runs: one clipboard, one name.
  virtual std::string copyLockName() { return "tovrin-copy.lock"; }
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
