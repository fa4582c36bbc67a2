#ifndef TOVRIN_PLATFORM_ATSPI_SD_BUS_H_
#define TOVRIN_PLATFORM_ATSPI_SD_BUS_H_

// The accessibility bus spoken to through sd-bus, loaded from libsystemd
// with dlopen on the first read: linking libsystemd would cost every
// command, most of which never read a selection, about 1.7 ms of dynamic
// loading (tovrin itself starts in about 2 ms).

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/atspi/atspi_reader.h"

namespace tovrin {

/// The monotonic clock that the deadlines of bus calls are measured on.
std::chrono::nanoseconds monotonicNow();

/// The functions of sd-bus that tovrin calls, resolved from libsystemd.
struct SdBusLibrary;

/// An AtspiBus on a live connection. Each call waits at most 250 ms and
/// never past its deadline.
class SdAtspiBus : public AtspiBus {
 public:
  /// Connects to the accessibility bus: at `address` when given (from
  /// AT_SPI_BUS_ADDRESS or the X root window's AT_SPI_BUS), else at the
  /// address the session bus's org.a11y.Bus gives. Null when libsystemd or
  /// the bus is not there, or the connection is not up by `deadline`.
  static std::unique_ptr<SdAtspiBus> connect(
      const std::optional<std::string>& address,
      std::chrono::nanoseconds deadline);
  ~SdAtspiBus() override;

  /// Turns on toolkit accessibility for the session (org.a11y.Status
  /// IsEnabled on the session bus), so that applications started afterwards
  /// expose their text. Never the screen-reader switch. kOk when it is on
  /// now.
  static BusStatus enableToolkitAccessibility(std::chrono::nanoseconds deadline);
  SdAtspiBus(const SdAtspiBus&) = delete;
  SdAtspiBus& operator=(const SdAtspiBus&) = delete;

  std::chrono::nanoseconds now() override;
  BusReply<std::vector<AccessibleRef>> applications(
      std::chrono::nanoseconds deadline) override;
  BusReply<pid_t> processOf(const std::string& busName,
                            std::chrono::nanoseconds deadline) override;
  std::vector<BusReply<pid_t>> processesOf(
      const std::vector<std::string>& busNames,
      std::chrono::nanoseconds deadline) override;
  std::vector<BusReply<std::string>> properties(
      const std::vector<std::pair<AccessibleRef, TextProperty>>& asked,
      std::chrono::nanoseconds deadline) override;
  BusReply<std::vector<CachedObject>> cachedObjects(
      const std::string& busName, std::chrono::nanoseconds deadline) override;
  std::vector<ObjectFacts> survey(const std::vector<AccessibleRef>& objects,
                                  bool withChildren,
                                  std::chrono::nanoseconds deadline) override;
  BusReply<std::vector<AccessibleRef>> focusedDescendants(
      const AccessibleRef& root, std::chrono::nanoseconds deadline) override;
  BusReply<std::vector<AccessibleRef>> children(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) override;
  BusReply<std::vector<uint32_t>> states(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) override;
  BusReply<std::vector<TextRange>> selections(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) override;
  BusReply<std::string> text(const AccessibleRef& object, TextRange range,
                             std::chrono::nanoseconds deadline) override;
  BusReply<std::string> name(const AccessibleRef& object,
                             std::chrono::nanoseconds deadline) override;
  BusReply<int32_t> caretOffset(const AccessibleRef& object,
                                std::chrono::nanoseconds deadline) override;
  BusReply<std::string> toolkitName(const AccessibleRef& root,
                                    std::chrono::nanoseconds deadline) override;
  BusReply<AccessibleRef> embeddedObject(
      const AccessibleRef& object, int32_t offset,
      std::chrono::nanoseconds deadline) override;

 private:
  struct Connection;
  explicit SdAtspiBus(std::unique_ptr<Connection> connection);
  std::unique_ptr<Connection> connection_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_ATSPI_SD_BUS_H_
