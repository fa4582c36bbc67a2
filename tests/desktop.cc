#include "tests/desktop.h"

#include <thread>

namespace tovrin::testing {

bool Desktop::waitFor(Selection selection, const std::string& text,
                      std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  do {
    if (read(selection) == text) return true;
    std::this_thread::sleep_for(50ms);
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

std::optional<pid_t> Desktop::spawnOnWayland(const Application& application) {
  SpawnOptions options;
  options.environment = {"GDK_BACKEND=wayland", "QT_QPA_PLATFORM=wayland"};
  options.environment.insert(options.environment.end(),
                             application.environment.begin(),
                             application.environment.end());
  return spawn(application.argv, options);
}

}  // namespace tovrin::testing
