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

}  // namespace tovrin::testing
