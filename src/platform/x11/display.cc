#include "platform/x11/display.h"

#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace tovrin {
namespace {

/// What the opening thread and the waiter share; the last of the two to let
/// go closes a display that nobody took.
struct Opening {
  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
  Display* display = nullptr;

  ~Opening() {
    if (display != nullptr) XCloseDisplay(display);
  }
};

}  // namespace

Display* openDisplayWithin(const std::string& displayName,
                           std::chrono::milliseconds timeout) {
  // Without a name there is nothing to wait for, and no thread to start.
  const char* fromEnvironment = std::getenv("DISPLAY");
  if (displayName.empty() &&
      (fromEnvironment == nullptr || fromEnvironment[0] == '\0')) {
    return nullptr;
  }
  auto opening = std::make_shared<Opening>();
  const auto open = [opening, displayName] {
    Display* display =
        XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str());
    // The handshake alone proves little: a proxy may accept it and stall.
    if (display != nullptr) XSync(display, False);
    const std::lock_guard lock(opening->mutex);
    opening->finished = true;
    opening->display = display;
    opening->done.notify_one();
  };
  try {
    std::thread(open).detach();
  } catch (const std::system_error&) {
    return nullptr;
  }
  std::unique_lock lock(opening->mutex);
  if (!opening->done.wait_for(lock, timeout,
                              [&] { return opening->finished; })) {
    return nullptr;
  }
  return std::exchange(opening->display, nullptr);
}

}  // namespace tovrin
