#include "tests/desktop.h"

namespace tovrin::testing {

bool Desktop::waitFor(Selection selection, const std::string& text,
                      std::chrono::milliseconds timeout) {
  return waitUntil([&] { return read(selection) == text; }, timeout, 50ms);
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
