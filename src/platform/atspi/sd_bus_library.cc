#include "platform/atspi/sd_bus_library.h"

#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <type_traits>

namespace tovrin {

std::unique_ptr<SdBusLibrary> SdBusLibrary::load() {
  void* handle = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return nullptr;
  auto library = std::make_unique<SdBusLibrary>();
  bool complete = true;
  auto resolve = [&](auto& function, const char* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(
        dlsym(handle, name));
    complete = complete && function != nullptr;
  };
  resolve(library->busNew, "sd_bus_new");
  resolve(library->setAddress, "sd_bus_set_address");
  resolve(library->setBusClient, "sd_bus_set_bus_client");
  resolve(library->start, "sd_bus_start");
  resolve(library->openUser, "sd_bus_open_user");
  resolve(library->isReady, "sd_bus_is_ready");
  resolve(library->process, "sd_bus_process");
  resolve(library->wait, "sd_bus_wait");
  resolve(library->close, "sd_bus_close");
  resolve(library->unref, "sd_bus_unref");
  resolve(library->newMethodCall, "sd_bus_message_new_method_call");
  resolve(library->setAutoStart, "sd_bus_message_set_auto_start");
  resolve(library->append, "sd_bus_message_append");
  resolve(library->call, "sd_bus_call");
  resolve(library->messageUnref, "sd_bus_message_unref");
  resolve(library->read, "sd_bus_message_read");
  resolve(library->enterContainer, "sd_bus_message_enter_container");
  resolve(library->exitContainer, "sd_bus_message_exit_container");
  resolve(library->errorFree, "sd_bus_error_free");
  resolve(library->errorHasName, "sd_bus_error_has_name");
  resolve(library->getFd, "sd_bus_get_fd");
  resolve(library->send, "sd_bus_send");
  resolve(library->getEvents, "sd_bus_get_events");
  resolve(library->addMatchAsync, "sd_bus_add_match_async");
  resolve(library->isSignal, "sd_bus_message_is_signal");
  resolve(library->skip, "sd_bus_message_skip");
  resolve(library->openContainer, "sd_bus_message_open_container");
  resolve(library->closeContainer, "sd_bus_message_close_container");
  resolve(library->appendStrv, "sd_bus_message_append_strv");
  resolve(library->callAsync, "sd_bus_call_async");
  resolve(library->slotUnref, "sd_bus_slot_unref");
  resolve(library->messageRef, "sd_bus_message_ref");
  resolve(library->getError, "sd_bus_message_get_error");
  if (!complete) return nullptr;
  return library;
}

SdBusConnection::~SdBusConnection() {
  if (bus_ != nullptr) {
    // Closed without flushing: flushing waits without a deadline.
    library_.close(bus_);
    library_.unref(bus_);
  }
}

BusStatus SdBusConnection::waitReady(std::chrono::nanoseconds deadline) const {
  for (;;) {
    int r = library_.isReady(bus_);
    if (r > 0) return BusStatus::kOk;
    if (r < 0) return BusStatus::kUnavailable;
    r = library_.process(bus_, nullptr);
    if (r < 0) return BusStatus::kUnavailable;
    if (r > 0) continue;
    const auto remaining = deadline - monotonicNow();
    if (remaining <= std::chrono::nanoseconds(0)) return BusStatus::kTimedOut;
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(remaining);
    if (library_.wait(bus_, static_cast<uint64_t>(micros.count()) + 1) < 0) {
      return BusStatus::kUnavailable;
    }
  }
}

SdBusBatch::~SdBusBatch() {
  // A call still pending is cancelled with its slot.
  for (const auto& call : calls_) {
    if (call->slot != nullptr) library_.slotUnref(call->slot);
  }
}

int SdBusBatch::Call::done(sd_bus_message* message, void* userdata,
                           sd_bus_error*) {
  auto* call = static_cast<Call*>(userdata);
  // The reply's library is the batch's: it is what made the call.
  const SdBusLibrary& library = call->reply.library();
  const sd_bus_error* error = library.getError(message);
  if (error == nullptr) {
    call->status = BusStatus::kOk;
    *call->reply.out() = library.messageRef(message);
  } else {
    const bool timedOut =
        library.errorHasName(error, "org.freedesktop.DBus.Error.NoReply") > 0 ||
        library.errorHasName(error, "org.freedesktop.DBus.Error.Timeout") > 0;
    call->status = timedOut ? BusStatus::kTimedOut : BusStatus::kUnavailable;
  }
  call->pending = false;
  return 1;
}

void SdBusBatch::wait(std::chrono::nanoseconds deadline) {
  const auto pending = [this] {
    return std::any_of(calls_.begin(), calls_.end(),
                       [](const auto& call) { return call->pending; });
  };
  while (pending()) {
    const int r = library_.process(bus_, nullptr);
    if (r > 0) continue;
    const auto remaining = deadline - monotonicNow();
    if (r < 0 || remaining <= std::chrono::nanoseconds(0)) break;
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(remaining);
    if (library_.wait(bus_, static_cast<uint64_t>(micros.count()) + 1) < 0) {
      break;
    }
  }
  for (const auto& call : calls_) {
    if (!call->pending) continue;
    call->pending = false;
    call->status = BusStatus::kTimedOut;
  }
}

std::unique_ptr<SdBusConnection> openSessionBus(
    const SdBusLibrary& library, std::chrono::nanoseconds deadline) {
  sd_bus* raw = nullptr;
  if (library.openUser(&raw) < 0) return nullptr;
  auto session = std::make_unique<SdBusConnection>(library, raw);
  if (session->waitReady(deadline) != BusStatus::kOk) return nullptr;
  return session;
}

std::chrono::nanoseconds monotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::seconds(now.tv_sec) +
         std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace tovrin
