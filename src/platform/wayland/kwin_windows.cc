#include "platform/wayland/kwin_windows.h"

#include <wayland-client.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "plasma-window-management-client.h"
#include "platform/wayland/connection.h"

namespace tovrin {
namespace {

constexpr size_t kMaxUuidLength = 256;
// get_window_by_uuid and window_with_uuid came with these versions.
constexpr uint32_t kUuidVersion = 13;

struct Window {
  org_kde_plasma_window* handle = nullptr;
  std::string appId;
  bool active = false;
  bool unmapped = false;
};

struct Listing {
  std::vector<std::string> uuids;
};

template <typename... Arguments>
void ignore(void*, org_kde_plasma_window*, Arguments...) {}

void onAppId(void* data, org_kde_plasma_window*, const char* appId) {
  static_cast<Window*>(data)->appId.assign(appId,
                                          strnlen(appId, kMaxAppIdLength));
}
void onState(void* data, org_kde_plasma_window*, uint32_t flags) {
  static_cast<Window*>(data)->active =
      (flags & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_ACTIVE) != 0;
}
void onUnmapped(void* data, org_kde_plasma_window*) {
  static_cast<Window*>(data)->unmapped = true;
}

constexpr org_kde_plasma_window_listener kWindowListener = {
    ignore<const char*>,               // title_changed
    onAppId,                           // app_id_changed
    onState,                           // state_changed
    ignore<int32_t>,                   // virtual_desktop_changed
    ignore<const char*>,               // themed_icon_name_changed
    onUnmapped,                        // unmapped
    ignore<>,                          // initial_state
    ignore<org_kde_plasma_window*>,    // parent_window
    ignore<int32_t, int32_t, uint32_t, uint32_t>,  // geometry
    ignore<>,                          // icon_changed
    ignore<uint32_t>,                  // pid_changed
    ignore<const char*>,               // virtual_desktop_entered
    ignore<const char*>,               // virtual_desktop_left
    ignore<const char*, const char*>,  // application_menu
    ignore<const char*>,               // activity_entered
    ignore<const char*>,               // activity_left
    ignore<const char*>,               // resource_name_changed
};

void onWindowWithUuid(void* data, org_kde_plasma_window_management*, uint32_t,
                      const char* uuid) {
  auto* listing = static_cast<Listing*>(data);
  if (listing == nullptr || listing->uuids.size() >= kMaxToplevels) return;
  listing->uuids.emplace_back(uuid, strnlen(uuid, kMaxUuidLength));
}

constexpr org_kde_plasma_window_management_listener kManagerListener = {
    [](void*, org_kde_plasma_window_management*, uint32_t) {},
    [](void*, org_kde_plasma_window_management*, uint32_t) {},
    [](void*, org_kde_plasma_window_management*, wl_array*) {},
    [](void*, org_kde_plasma_window_management*, const char*) {},
    onWindowWithUuid,
};

}  // namespace

ActivatedToplevel activatedPlasmaWindow(
    WaylandConnection& connection,
    std::chrono::steady_clock::time_point deadline) {
  ActivatedToplevel result;
  org_kde_plasma_window_management* manager = connection.plasmaWindows();
  if (manager == nullptr ||
      wl_proxy_get_version(reinterpret_cast<wl_proxy*>(manager)) <
          kUuidVersion) {
    return result;
  }
  result.listed = true;
  Listing listing;
  org_kde_plasma_window_management_add_listener(manager, &kManagerListener,
                                                &listing);
  // The first exchange brings the windows, the second their app ids and
  // states.
  std::vector<std::unique_ptr<Window>> windows;
  if (connection.roundtrip(deadline)) {
    for (const std::string& uuid : listing.uuids) {
      auto window = std::make_unique<Window>();
      window->handle = org_kde_plasma_window_management_get_window_by_uuid(
          manager, uuid.c_str());
      org_kde_plasma_window_add_listener(window->handle, &kWindowListener,
                                         window.get());
      windows.push_back(std::move(window));
    }
    if (connection.roundtrip(deadline)) {
      for (const auto& window : windows) {
        if (window->active && !window->unmapped) {
          if (!window->appId.empty()) result.appId = window->appId;
          break;
        }
      }
    }
  }
  for (const auto& window : windows) {
    org_kde_plasma_window_destroy(window->handle);
  }
  // The manager has no request to stop the list; windows announced from
  // now on are not ours to hear of.
  wl_proxy_set_user_data(reinterpret_cast<wl_proxy*>(manager), nullptr);
  return result;
}

}  // namespace tovrin
