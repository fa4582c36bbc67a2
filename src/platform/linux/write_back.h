#ifndef TOVRIN_PLATFORM_LINUX_WRITE_BACK_H_
#define TOVRIN_PLATFORM_LINUX_WRITE_BACK_H_

// A Linux pasteboard's write-back: the serving process that will own the
// clipboard with the saved text, started ahead of need, and what the copy
// run tells it meanwhile, so that it can finish the run should this
// process die (see ServerProcess).

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "platform/linux/serving_process.h"
#include "platform/system.h"

namespace tovrin {

/// All operations may be called from any thread.
class WriteBack {
 public:
  /// Starts a serving process that holds the copy-run lock `lockFd` (-1:
  /// none) until it serves; null when it cannot be started.
  using Start = std::function<std::unique_ptr<ServerProcess>(int lockFd)>;
  explicit WriteBack(Start start) : start_(std::move(start)) {}
  /// Ends the process started ahead if it got no text.
  ~WriteBack();
  WriteBack(const WriteBack&) = delete;
  WriteBack& operator=(const WriteBack&) = delete;

  /// The user's text, served by the process should this one die after
  /// clearing() (it is started now if need be).
  void guard(std::string_view text);
  /// Sent before the clipboard is cleared; starts the process if need be,
  /// since the text is put back after every capture and starting a process
  /// is the slow part.
  void clearing();
  /// `keys` are about to be pressed, and keysReleased() they are up again:
  /// should this process die in between, the serving process releases them.
  void keysPressed(const std::vector<uint8_t>& keys);
  void keysReleased();
  /// The copy-run lock's descriptor while the run holds it, -1 after.
  void shareCopyLock(int fd);
  /// Hands `text` to a serving process (a new one if the one started ahead
  /// had given up waiting); true once it owns the clipboard with it.
  bool serve(std::string_view text);

 private:
  ServerProcess* server();  // by mutex_

  const Start start_;
  std::mutex mutex_;
  std::unique_ptr<ServerProcess> next_;  // by mutex_
  int copyLockFd_ = -1;                  // by mutex_
};

/// The copy-run lock, shared with the write-back's serving process while
/// the run holds it.
class SharedCopyRunLock : public CopyRunLock {
 public:
  SharedCopyRunLock(std::unique_ptr<FileLock> lock, WriteBack* writeBack)
      : lock_(std::move(lock)), writeBack_(writeBack) {
    if (writeBack_ != nullptr) writeBack_->shareCopyLock(lock_->fd());
  }
  ~SharedCopyRunLock() override {
    if (writeBack_ != nullptr) writeBack_->shareCopyLock(-1);
  }

 private:
  std::unique_ptr<FileLock> lock_;
  WriteBack* writeBack_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_WRITE_BACK_H_
