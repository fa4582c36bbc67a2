#include "platform/wayland/connection.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/wayland/libraries.h"
#include "fake-input-client.h"
#include "plasma-window-management-client.h"
#include "virtual-keyboard-unstable-v1-client.h"
#include "wlr-data-control-unstable-v1-client.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client.h"

namespace tovrin {
namespace {

// The versions this code knows; the compositor may offer less.
constexpr uint32_t kSeatVersion = 5;
constexpr uint32_t kDataControlVersion = 2;
constexpr uint32_t kToplevelsVersion = 3;
// Fake input has keyboard_key from version 4 on.
constexpr uint32_t kFakeInputVersion = 4;
constexpr uint32_t kPlasmaWindowsVersion = 16;

// libwayland writes its complaints (no XDG_RUNTIME_DIR, a protocol error)
// to standard error on its own: they would not be lines of our log.
void silence(const char*, va_list) {}

/// `proxy`, bound to the global `name` first if need be; null when the
/// compositor does not offer it.
template <typename Proxy>
Proxy* bindOnce(wl_registry* registry, Proxy*& proxy, uint32_t name,
                const wl_interface& interface, uint32_t version) {
  if (proxy == nullptr && name != 0) {
    proxy = static_cast<Proxy*>(
        wl_registry_bind(registry, name, &interface, version));
  }
  return proxy;
}

int pollTimeout(WaylandConnection::Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(
      deadline - WaylandConnection::Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
}

}  // namespace

std::string waylandSocketPath(const std::string& socket) {
  std::string name = socket;
  if (name.empty()) {
    const char* display = std::getenv("WAYLAND_DISPLAY");
    name = display != nullptr && display[0] != '\0' ? display : "wayland-0";
  }
  if (name.front() == '/') return name;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || runtime[0] != '/') return name;
  return std::string(runtime) + "/" + name;
}

std::unique_ptr<WaylandConnection> WaylandConnection::open(
    const std::string& socket, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  if (!loadWaylandLibraries()) return nullptr;
  static std::once_flag quiet;
  std::call_once(quiet, [] { wl_log_set_handler_client(silence); });
  wl_display* display =
      wl_display_connect(socket.empty() ? nullptr : socket.c_str());
  if (display == nullptr) return nullptr;
  std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
  connection->socketPath_ = waylandSocketPath(socket);
  connection->registry_ = wl_display_get_registry(display);
  static const wl_registry_listener kListener = {&WaylandConnection::onGlobal,
                                                 &WaylandConnection::onGlobalRemove};
  wl_registry_add_listener(connection->registry_, &kListener, connection.get());
  // The first exchange brings the globals, the second the seat's
  // capabilities.
  if (!connection->roundtrip(deadline)) return nullptr;
  if (connection->seat_ != nullptr && !connection->roundtrip(deadline)) {
    return nullptr;
  }
  return connection;
}

WaylandConnection::~WaylandConnection() {
  if (toplevels_ != nullptr) zwlr_foreign_toplevel_manager_v1_destroy(toplevels_);
  // Neither has a destructor request in the versions KWin 5.27 offers.
  if (fakeInput_ != nullptr) {
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(fakeInput_));
  }
  if (plasmaWindows_ != nullptr) {
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(plasmaWindows_));
  }
  if (dataControl_ != nullptr) zwlr_data_control_manager_v1_destroy(dataControl_);
  if (virtualKeyboard_ != nullptr) {
    zwp_virtual_keyboard_manager_v1_destroy(virtualKeyboard_);
  }
  if (seat_ != nullptr) wl_seat_destroy(seat_);
  if (registry_ != nullptr) wl_registry_destroy(registry_);
  wl_display_disconnect(display_);
}

void WaylandConnection::onGlobal(void* data, wl_registry* registry,
                                 uint32_t name, const char* interface,
                                 uint32_t version) {
  auto* self = static_cast<WaylandConnection*>(data);
  const auto bind = [&](const wl_interface* type, uint32_t known) {
    return wl_registry_bind(registry, name, type, std::min(version, known));
  };
  if (std::strcmp(interface, wl_seat_interface.name) == 0 &&
      self->seat_ == nullptr) {
    self->seat_ = static_cast<wl_seat*>(bind(&wl_seat_interface, kSeatVersion));
    static const wl_seat_listener kSeatListener = {
        [](void* data, wl_seat*, uint32_t capabilities) {
          static_cast<WaylandConnection*>(data)->seatCapabilities_ =
              capabilities;
        },
        [](void*, wl_seat*, const char*) {}};
    wl_seat_add_listener(self->seat_, &kSeatListener, self);
  } else if (self->dataControlChoice_.offered(interface)) {
    // Both are spoken through the wlr glue (see data_control.h).
    if (self->dataControl_ != nullptr) {
      zwlr_data_control_manager_v1_destroy(self->dataControl_);
    }
    self->dataControl_ = static_cast<zwlr_data_control_manager_v1*>(
        bind(self->dataControlChoice_.chosen(), kDataControlVersion));
  } else if (std::strcmp(interface, "org_kde_plasma_shell") == 0) {
    self->kwin_ = true;
  } else if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) ==
                 0 &&
             version >= kFakeInputVersion) {
    self->fakeInputName_ = name;
  } else if (std::strcmp(interface,
                         org_kde_plasma_window_management_interface.name) ==
             0) {
    self->plasmaWindowsName_ = name;
    self->plasmaWindowsVersion_ = std::min(version, kPlasmaWindowsVersion);
  } else if (std::strcmp(interface,
                         zwp_virtual_keyboard_manager_v1_interface.name) == 0) {
    self->virtualKeyboard_ = static_cast<zwp_virtual_keyboard_manager_v1*>(
        bind(&zwp_virtual_keyboard_manager_v1_interface, 1));
  } else if (std::strcmp(interface,
                         zwlr_foreign_toplevel_manager_v1_interface.name) ==
             0) {
    self->toplevelsName_ = name;
    self->toplevelsVersion_ = std::min(version, kToplevelsVersion);
  }
}

zwlr_foreign_toplevel_manager_v1* WaylandConnection::toplevels() {
  return bindOnce(registry_, toplevels_, toplevelsName_,
                  zwlr_foreign_toplevel_manager_v1_interface, toplevelsVersion_);
}

org_kde_kwin_fake_input* WaylandConnection::fakeInput() {
  return bindOnce(registry_, fakeInput_, fakeInputName_,
                  org_kde_kwin_fake_input_interface, kFakeInputVersion);
}

org_kde_plasma_window_management* WaylandConnection::plasmaWindows() {
  return bindOnce(registry_, plasmaWindows_, plasmaWindowsName_,
                  org_kde_plasma_window_management_interface,
                  plasmaWindowsVersion_);
}

bool WaylandConnection::broken() const {
  return wl_display_get_error(display_) != 0;
}

bool WaylandConnection::flush(Clock::time_point deadline) {
  for (;;) {
    if (wl_display_flush(display_) >= 0) return true;
    if (errno != EAGAIN) return false;
    pollfd entry = {wl_display_get_fd(display_), POLLOUT, 0};
    const int ready = poll(&entry, 1, pollTimeout(deadline));
    if (ready == 0) return false;
    if (ready < 0 && errno != EINTR) return false;
  }
}

bool WaylandConnection::dispatchOnce(Clock::time_point deadline) {
  while (wl_display_prepare_read(display_) != 0) {
    if (wl_display_dispatch_pending(display_) < 0) return false;
  }
  if (!flush(deadline)) {
    wl_display_cancel_read(display_);
    return false;
  }
  pollfd entry = {wl_display_get_fd(display_), POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&entry, 1, pollTimeout(deadline));
  } while (ready < 0 && errno == EINTR && Clock::now() < deadline);
  if (ready <= 0) {
    wl_display_cancel_read(display_);
    return false;
  }
  if (wl_display_read_events(display_) < 0) return false;
  return wl_display_dispatch_pending(display_) >= 0;
}

bool WaylandConnection::dispatchUntil(const std::function<bool()>& done,
                                      Clock::time_point deadline) {
  if (wl_display_dispatch_pending(display_) < 0) return false;
  while (!done()) {
    if (!dispatchOnce(deadline)) return false;
  }
  return true;
}

bool WaylandConnection::roundtrip(Clock::time_point deadline) {
  bool answered = false;
  wl_callback* callback = wl_display_sync(display_);
  static const wl_callback_listener kListener = {
      [](void* data, wl_callback*, uint32_t) {
        *static_cast<bool*>(data) = true;
      }};
  wl_callback_add_listener(callback, &kListener, &answered);
  const bool ok = dispatchUntil([&] { return answered; }, deadline);
  wl_callback_destroy(callback);
  return ok;
}

}  // namespace tovrin
