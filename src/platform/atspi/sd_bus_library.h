#ifndef TOVRIN_PLATFORM_ATSPI_SD_BUS_LIBRARY_H_
#define TOVRIN_PLATFORM_ATSPI_SD_BUS_LIBRARY_H_

// sd-bus as loaded from libsystemd at run time: its function table, the
// connection and message handles that release on every path, and the one
// method call, bounded in time, that every bus operation of tovrin makes.

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <cstdio>
#include <cstdlib>

#include "platform/atspi/atspi_reader.h"
#include "platform/atspi/sd_bus.h"

namespace tovrin {

/// The longest one bus call waits, whatever its deadline.
inline constexpr std::chrono::milliseconds kSdBusCallTimeout{250};

struct SdBusLibrary {
  decltype(&sd_bus_new) busNew = nullptr;
  decltype(&sd_bus_set_address) setAddress = nullptr;
  decltype(&sd_bus_set_bus_client) setBusClient = nullptr;
  decltype(&sd_bus_start) start = nullptr;
  decltype(&sd_bus_open_user) openUser = nullptr;
  decltype(&sd_bus_is_ready) isReady = nullptr;
  decltype(&sd_bus_process) process = nullptr;
  decltype(&sd_bus_wait) wait = nullptr;
  decltype(&sd_bus_close) close = nullptr;
  decltype(&sd_bus_unref) unref = nullptr;
  decltype(&sd_bus_message_new_method_call) newMethodCall = nullptr;
  decltype(&sd_bus_message_set_auto_start) setAutoStart = nullptr;
  decltype(&sd_bus_message_append) append = nullptr;
  decltype(&sd_bus_call) call = nullptr;
  decltype(&sd_bus_message_unref) messageUnref = nullptr;
  decltype(&sd_bus_message_read) read = nullptr;
  decltype(&sd_bus_message_enter_container) enterContainer = nullptr;
  decltype(&sd_bus_message_exit_container) exitContainer = nullptr;
  decltype(&sd_bus_error_free) errorFree = nullptr;
  decltype(&sd_bus_error_has_name) errorHasName = nullptr;
  // For the remote-desktop sessions of GNOME's compositor: signals, file
  // descriptors and dictionaries.
  decltype(&sd_bus_get_fd) getFd = nullptr;
  decltype(&sd_bus_send) send = nullptr;
  decltype(&sd_bus_get_events) getEvents = nullptr;
  decltype(&sd_bus_add_match_async) addMatchAsync = nullptr;
  decltype(&sd_bus_message_is_signal) isSignal = nullptr;
  decltype(&sd_bus_message_skip) skip = nullptr;
  decltype(&sd_bus_message_open_container) openContainer = nullptr;
  decltype(&sd_bus_message_close_container) closeContainer = nullptr;
  decltype(&sd_bus_message_append_strv) appendStrv = nullptr;
  // For calls sent together.
  decltype(&sd_bus_call_async) callAsync = nullptr;
  decltype(&sd_bus_slot_unref) slotUnref = nullptr;
  decltype(&sd_bus_message_ref) messageRef = nullptr;
  decltype(&sd_bus_message_get_error) getError = nullptr;

  /// libsystemd's functions, or null when it cannot be loaded. The library
  /// stays loaded for the life of the process: it keeps caches per thread
  /// whose destructors must still find their code at thread exit.
  static std::unique_ptr<SdBusLibrary> load();
};

/// A bus connection, closed and released on every path.
class SdBusConnection {
 public:
  SdBusConnection(const SdBusLibrary& library, sd_bus* bus)
      : library_(library), bus_(bus) {}
  ~SdBusConnection();
  SdBusConnection(const SdBusConnection&) = delete;
  SdBusConnection& operator=(const SdBusConnection&) = delete;
  sd_bus* get() const { return bus_; }

  /// Drives the connection (authentication, Hello) until it is ready.
  BusStatus waitReady(std::chrono::nanoseconds deadline) const;

 private:
  const SdBusLibrary& library_;
  sd_bus* bus_;
};

/// A message, released on every path.
class SdBusMessage {
 public:
  explicit SdBusMessage(const SdBusLibrary& library) : library_(library) {}
  ~SdBusMessage() {
    if (message_ != nullptr) library_.messageUnref(message_);
  }
  SdBusMessage(const SdBusMessage&) = delete;
  SdBusMessage& operator=(const SdBusMessage&) = delete;
  sd_bus_message* get() const { return message_; }
  sd_bus_message** out() { return &message_; }
  const SdBusLibrary& library() const { return library_; }

 private:
  const SdBusLibrary& library_;
  sd_bus_message* message_ = nullptr;
};

/// Method calls sent together, their replies awaited together: one round
/// trip for all of them. Each waits at most kSdBusCallTimeout and never
/// past the deadline of wait().
class SdBusBatch {
 public:
  SdBusBatch(const SdBusLibrary& library, sd_bus* bus)
      : library_(library), bus_(bus) {}
  ~SdBusBatch();
  SdBusBatch(const SdBusBatch&) = delete;
  SdBusBatch& operator=(const SdBusBatch&) = delete;

  /// Sends `member` with the arguments `append` adds; its index.
  template <typename Append>
  size_t add(const std::string& destination, const std::string& path,
             const char* interface, const char* member,
             std::chrono::nanoseconds deadline, Append append) {
    calls_.push_back(std::make_unique<Call>(library_));
    Call& call = *calls_.back();
    SdBusMessage message(library_);
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(
        std::min<std::chrono::nanoseconds>(deadline - monotonicNow(),
                                           kSdBusCallTimeout));
    if (micros.count() <= 0) {
      call.status = BusStatus::kTimedOut;
    } else if (library_.newMethodCall(bus_, message.out(), destination.c_str(),
                                      path.c_str(), interface, member) >= 0 &&
               library_.setAutoStart(message.get(), 0) >= 0 &&
               append(message.get()) >= 0 &&
               library_.callAsync(bus_, &call.slot, message.get(), &Call::done,
                                  &call,
                                  static_cast<uint64_t>(micros.count())) >= 0) {
      call.pending = true;
    }
    return calls_.size() - 1;
  }

  /// Waits for every reply until `deadline`; the calls left without one
  /// have timed out.
  void wait(std::chrono::nanoseconds deadline);

  BusStatus status(size_t index) const { return calls_[index]->status; }
  sd_bus_message* reply(size_t index) const {
    return calls_[index]->reply.get();
  }

 private:
  struct Call {
    explicit Call(const SdBusLibrary& library) : reply(library) {}
    static int done(sd_bus_message* message, void* userdata, sd_bus_error*);
    sd_bus_slot* slot = nullptr;
    bool pending = false;
    BusStatus status = BusStatus::kUnavailable;
    SdBusMessage reply;
  };

  const SdBusLibrary& library_;
  sd_bus* bus_;
  std::vector<std::unique_ptr<Call>> calls_;
};

/// The session bus, ready; null when it is not there by `deadline`.
std::unique_ptr<SdBusConnection> openSessionBus(
    const SdBusLibrary& library, std::chrono::nanoseconds deadline);

/// Calls `member`, with the arguments `append` adds, and waits for the reply
/// in `reply` at most kSdBusCallTimeout and never past `deadline`.
template <typename Append>
BusStatus callMethod(const SdBusLibrary& library, sd_bus* bus,
                     const std::string& destination, const std::string& path,
                     const char* interface, const char* member,
                     std::chrono::nanoseconds deadline, SdBusMessage& reply,
                     Append append) {
  const auto remaining = std::min<std::chrono::nanoseconds>(
      deadline - monotonicNow(), kSdBusCallTimeout);
  // sd_bus_call takes 0 for its default of 25 s: a spent budget never
  // reaches it.
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(remaining);
  if (micros.count() <= 0) return BusStatus::kTimedOut;
  SdBusMessage call(library);
  if (library.newMethodCall(bus, call.out(), destination.c_str(), path.c_str(),
                            interface, member) < 0) {
    return BusStatus::kUnavailable;
  }
  // Reading a selection must not start services on the bus as a side
  // effect: one that is not running has nothing to tell.
  library.setAutoStart(call.get(), 0);
  if (append(call.get()) < 0) return BusStatus::kUnavailable;
  sd_bus_error error{};  // SD_BUS_ERROR_NULL, a C compound literal
  const int r = library.call(bus, call.get(),
                             static_cast<uint64_t>(micros.count()), &error,
                             reply.out());
  const bool timedOut =
      r == -ETIMEDOUT ||
      library.errorHasName(&error, "org.freedesktop.DBus.Error.NoReply") > 0 ||
      library.errorHasName(&error, "org.freedesktop.DBus.Error.Timeout") > 0;
  library.errorFree(&error);
  if (r >= 0) return BusStatus::kOk;
  return timedOut ? BusStatus::kTimedOut : BusStatus::kUnavailable;
}

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_ATSPI_SD_BUS_LIBRARY_H_
