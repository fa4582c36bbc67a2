#ifndef TOVRIN_CLIPBOARD_BOUNDED_READ_H_
#define TOVRIN_CLIPBOARD_BOUNDED_READ_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/platform.h"

namespace tovrin {

/// Runs one clipboard read on a worker thread and waits for its answer at
/// most `timeoutMs` milliseconds. Gives the reader's answer when it came in
/// time; nothing (and a log line) when the deadline passed first.
///
/// `reader` takes no arguments, returns std::optional<T>, and must be safe
/// to run on another thread: it carries what it needs (the pasteboard) by
/// shared ownership. A reader that misses the deadline is neither cancelled
/// nor joined; it finishes on its own, writes into a result slot that only
/// it still holds, and its answer is seen by nobody.
template <typename T, typename Reader>
std::optional<T> readClipboardWithTimeout(Platform& platform, Reader reader,
                                          int64_t timeoutMs = 2000) {
  const std::shared_ptr<Semaphore> done = platform.createSemaphore();
  const auto slot = std::make_shared<std::optional<T>>();
  platform.dispatchAsync([done, slot, reader = std::move(reader)]() mutable {
    // Written once, before the signal; the waiter reads it only after a
    // successful wait, so the semaphore orders the two.
    *slot = reader();
    done->signal();
  });
  // The deadline is taken after the submission, as the wait's own budget.
  const auto deadline =
      platform.monotonicNow() + std::chrono::milliseconds(timeoutMs);
  if (done->waitUntil(deadline)) return *slot;
  platform.log("[tovrin] Clipboard read timed out after " +
               std::to_string(timeoutMs) + "ms");
  return std::nullopt;
}

}  // namespace tovrin

#endif  // TOVRIN_CLIPBOARD_BOUNDED_READ_H_
