#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/system.h"

namespace tovrin {
namespace {

class PosixSemaphore : public Semaphore {
 public:
  void signal() override {
    {
      const std::lock_guard lock(mutex_);
      ++count_;
    }
    available_.notify_one();
  }

  bool waitUntil(std::chrono::nanoseconds deadline) override {
    const std::chrono::steady_clock::time_point until(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            deadline));
    std::unique_lock lock(mutex_);
    if (!available_.wait_until(lock, until, [this] { return count_ > 0; })) {
      return false;
    }
    --count_;
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable available_;
  long count_ = 0;
};

}  // namespace

std::shared_ptr<Semaphore> createSystemSemaphore() {
  return std::make_shared<PosixSemaphore>();
}

void dispatchToWorker(std::function<void()> work) {
  // A detached thread of our own: nobody joins it, so a reader that misses
  // its deadline never holds up the end of the process. What it touches it
  // owns through shared pointers.
  try {
    std::thread(std::move(work)).detach();
  } catch (const std::system_error&) {
    // No thread could be started: the work never runs, and its waiter
    // meets its deadline as with a reader that never answers.
  }
}

}  // namespace tovrin
