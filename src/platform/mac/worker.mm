#include <dispatch/dispatch.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "platform/system.h"

namespace tovrin {
namespace {

class DispatchSemaphore : public Semaphore {
 public:
  DispatchSemaphore() : semaphore_(dispatch_semaphore_create(0)) {}

  void signal() override { dispatch_semaphore_signal(semaphore_); }

  bool waitUntil(std::chrono::nanoseconds deadline) override {
    // A dispatch time counts from the system's "now", and the deadline is
    // on monotonicClockNow's clock: what is left of it is taken on that
    // clock and handed over as a span from dispatch's own now.
    const std::chrono::nanoseconds now = monotonicClockNow();
    const dispatch_time_t timeout =
        deadline <= now
            ? DISPATCH_TIME_NOW
            : dispatch_time(DISPATCH_TIME_NOW,
                            static_cast<int64_t>((deadline - now).count()));
    return dispatch_semaphore_wait(semaphore_, timeout) == 0;
  }

 private:
  // Created with a count of 0, which never fails.
  dispatch_semaphore_t const semaphore_;
};

}  // namespace

std::shared_ptr<Semaphore> createSystemSemaphore() {
  return std::make_shared<DispatchSemaphore>();
}

void dispatchToWorker(std::function<void()> work) {
  // The block holds its own copy of the work; nothing waits for it when the
  // process ends. What the work touches it owns through shared pointers.
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
    @autoreleasepool {
      work();
    }
  });
}

}  // namespace tovrin
