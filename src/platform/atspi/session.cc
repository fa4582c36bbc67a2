#include "platform/atspi/session.h"

#include <unistd.h>

#include <cstdlib>

#include "platform/atspi/sd_bus.h"

namespace tovrin {
namespace {


/// Whether a session bus may be there: sd-bus looks for it at
/// DBUS_SESSION_BUS_ADDRESS, else at $XDG_RUNTIME_DIR/bus.
bool sessionBusMayBeThere() {
  if (std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr) return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  return runtime != nullptr &&
         access((std::string(runtime) + "/bus").c_str(), F_OK) == 0;
}

}  // namespace

AccessibilitySession::AccessibilitySession(
    std::optional<std::string> published) {
  const char* fromEnvironment = std::getenv("AT_SPI_BUS_ADDRESS");
  if (fromEnvironment != nullptr && *fromEnvironment != '\0') {
    address_ = fromEnvironment;
  } else if (published && !published->empty()) {
    address_ = std::move(published);
  }
}

bool AccessibilitySession::mayBeThere() const {
  return address_ || sessionBusMayBeThere();
}

bool AccessibilitySession::reachable(std::chrono::milliseconds timeout) const {
  if (!mayBeThere()) return false;
  return SdAtspiBus::connect(address_, monotonicNow() + timeout) != nullptr;
}

bool AccessibilitySession::enableToolkitAccessibility(
    std::chrono::milliseconds timeout) const {
  // The switch lives on the session bus, whatever address was given.
  if (!sessionBusMayBeThere()) return false;
  return SdAtspiBus::enableToolkitAccessibility(monotonicNow() + timeout) ==
         BusStatus::kOk;
}

AtspiRead AccessibilitySession::readSelection(
    std::optional<pid_t> pid, std::chrono::milliseconds budget,
    std::optional<std::string> activeAppId) const {
  if (!mayBeThere()) return {};
  const std::chrono::nanoseconds start = monotonicNow();
  // Connecting may take half the budget; the search takes what is left.
  const auto bus = SdAtspiBus::connect(address_, start + budget / 2);
  if (!bus) return {};
  AtspiReadLimits limits;
  limits.budget = std::chrono::duration_cast<std::chrono::milliseconds>(
      start + budget - monotonicNow());
  return readSelectedText(*bus, pid, limits, std::move(activeAppId));
}

}  // namespace tovrin
