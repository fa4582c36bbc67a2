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

void internAtoms(Display* display, const std::vector<const char*>& atomNames) {
  std::vector<char*> names;
  for (const char* name : atomNames) names.push_back(const_cast<char*>(name));
  std::vector<Atom> atoms(names.size());
  XInternAtoms(display, names.data(), static_cast<int>(names.size()), False,
               atoms.data());
}

Display* openDisplayWithin(const std::string& displayName,
                           std::chrono::milliseconds timeout,
                           const std::vector<const char*>& atomNames) {
  // Without a name there is nothing to wait for, and no thread to start.
  const char* fromEnvironment = std::getenv("DISPLAY");
  if (displayName.empty() &&
      (fromEnvironment == nullptr || fromEnvironment[0] == '\0')) {
    return nullptr;
  }
  auto opening = std::make_shared<Opening>();
  const auto open = [opening, displayName, atomNames] {
    Display* display =
        XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str());
    // The handshake alone proves little: a proxy may accept it and stall.
    // One round trip more does, and it may as well intern the atoms.
    if (display != nullptr) {
      XSetIOErrorExitHandler(display, [](Display*, void*) {}, nullptr);
      if (atomNames.empty()) {
        XSync(display, False);
      } else {
        internAtoms(display, atomNames);
      }
    }
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
