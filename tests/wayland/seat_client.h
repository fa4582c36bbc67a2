#ifndef TOVRIN_TESTS_WAYLAND_SEAT_CLIENT_H_
#define TOVRIN_TESTS_WAYLAND_SEAT_CLIENT_H_

// The start of the Wayland test programs: a connection to $WAYLAND_DISPLAY
// with its first seat and the one manager the program works through.

#include <wayland-client.h>

#include <cstdio>
#include <cstring>

namespace tovrin::testing {

struct SeatClient {
  wl_display* display = nullptr;
  wl_seat* seat = nullptr;
  void* manager = nullptr;
  const wl_interface* managerInterface = nullptr;
};

inline void onSeatClientGlobal(void* data, wl_registry* registry, uint32_t name,
                               const char* interface, uint32_t) {
  auto* client = static_cast<SeatClient*>(data);
  if (std::strcmp(interface, wl_seat_interface.name) == 0 &&
      client->seat == nullptr) {
    client->seat = static_cast<wl_seat*>(
        wl_registry_bind(registry, name, &wl_seat_interface, 1));
  } else if (std::strcmp(interface, client->managerInterface->name) == 0) {
    client->manager =
        wl_registry_bind(registry, name, client->managerInterface, 1);
  }
}

inline void onSeatClientGlobalRemove(void*, wl_registry*, uint32_t) {}

/// Connects and binds the first seat and `manager` (version 1); false, after
/// saying why on standard error as `program`, when one of them is missing.
inline bool connectSeatClient(const char* program, const wl_interface& manager,
                              SeatClient& client) {
  static const wl_registry_listener listener = {onSeatClientGlobal,
                                                onSeatClientGlobalRemove};
  client.managerInterface = &manager;
  client.display = wl_display_connect(nullptr);
  if (client.display == nullptr) {
    std::fprintf(stderr, "%s: no Wayland display\n", program);
    return false;
  }
  wl_registry* registry = wl_display_get_registry(client.display);
  wl_registry_add_listener(registry, &listener, &client);
  if (wl_display_roundtrip(client.display) < 0 || client.seat == nullptr ||
      client.manager == nullptr) {
    std::fprintf(stderr, "%s: the compositor offers no seat or no %s\n",
                 program, manager.name);
    return false;
  }
  return true;
}

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_WAYLAND_SEAT_CLIENT_H_
