#include "tests/desktop.h"

namespace tovrin::testing {

bool Desktop::waitFor(Selection selection, const std::string& text,
                      std::chrono::milliseconds timeout) {
  return waitUntil([&] { return read(selection) == text; }, timeout, 50ms);
}

std::optional<pid_t> Desktop::spawnOnWayland(const Application& application) {
  std::vector<std::string> environment = {"GDK_BACKEND=wayland",
                                         "QT_QPA_PLATFORM=wayland"};
  environment.insert(environment.end(), application.environment.begin(),
                     application.environment.end());
  return spawn(application.argv, {.environment = environment});
}

}  // namespace tovrin::testing
