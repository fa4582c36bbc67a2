#ifndef TOVRIN_PLATFORM_ATSPI_SESSION_H_
#define TOVRIN_PLATFORM_ATSPI_SESSION_H_

// The accessibility bus of the user's session, as the Linux backends use
// it: found without cost when it cannot be there, asked within a deadline
// when it can.

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "platform/atspi/atspi_reader.h"

namespace tovrin {

/// Where to look for the accessibility bus. `published` is an address a
/// backend found on its own (X11: the root window's AT_SPI_BUS); the
/// environment's AT_SPI_BUS_ADDRESS comes before it, and the session bus's
/// org.a11y.Bus after it.
class AccessibilitySession {
 public:
  explicit AccessibilitySession(std::optional<std::string> published);

  /// Whether a bus may be there at all. Answered from the environment and
  /// the file system: libsystemd is loaded only when this is true.
  bool mayBeThere() const;

  /// Whether the accessibility bus answers within `timeout`.
  bool reachable(std::chrono::milliseconds timeout) const;

  /// Turns on toolkit accessibility for the session, within `timeout`;
  /// true when it is on.
  bool enableToolkitAccessibility(std::chrono::milliseconds timeout) const;

  /// The text selected in the focused application (see readSelectedText),
  /// connecting included, within `budget`.
  AtspiRead readSelection(std::optional<pid_t> pid,
                          std::chrono::milliseconds budget,
                          std::optional<std::string> activeAppId = {}) const;

 private:
  std::optional<std::string> address_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_ATSPI_SESSION_H_
