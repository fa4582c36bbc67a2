#include "platform/wayland/toplevels.h"

#include <cstring>
#include <memory>
#include <vector>

#include "platform/wayland/connection.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client.h"

namespace tovrin {
namespace {

struct Toplevel {
  zwlr_foreign_toplevel_handle_v1* handle = nullptr;
  std::string appId;
  bool activated = false;
  bool closed = false;
};

struct Listing {
  std::vector<std::unique_ptr<Toplevel>> toplevels;
  bool finished = false;
};

void onTitle(void*, zwlr_foreign_toplevel_handle_v1*, const char*) {}
void onAppId(void* data, zwlr_foreign_toplevel_handle_v1*, const char* appId) {
  static_cast<Toplevel*>(data)->appId.assign(appId,
                                            strnlen(appId, kMaxAppIdLength));
}
void onOutput(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
void onState(void* data, zwlr_foreign_toplevel_handle_v1*, wl_array* states) {
  auto* toplevel = static_cast<Toplevel*>(data);
  toplevel->activated = false;
  const auto* state = static_cast<const uint32_t*>(states->data);
  for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i) {
    if (state[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED) {
      toplevel->activated = true;
    }
  }
}
void onDone(void*, zwlr_foreign_toplevel_handle_v1*) {}
void onClosed(void* data, zwlr_foreign_toplevel_handle_v1*) {
  static_cast<Toplevel*>(data)->closed = true;
}
void onParent(void*, zwlr_foreign_toplevel_handle_v1*,
              zwlr_foreign_toplevel_handle_v1*) {}

constexpr zwlr_foreign_toplevel_handle_v1_listener kToplevelListener = {
    onTitle, onAppId, onOutput, onOutput, onState, onDone, onClosed, onParent};

void onToplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                zwlr_foreign_toplevel_handle_v1* handle) {
  auto* listing = static_cast<Listing*>(data);
  if (listing == nullptr || listing->toplevels.size() >= kMaxToplevels) {
    zwlr_foreign_toplevel_handle_v1_destroy(handle);
    return;
  }
  auto toplevel = std::make_unique<Toplevel>();
  toplevel->handle = handle;
  zwlr_foreign_toplevel_handle_v1_add_listener(handle, &kToplevelListener,
                                               toplevel.get());
  listing->toplevels.push_back(std::move(toplevel));
}
void onFinished(void* data, zwlr_foreign_toplevel_manager_v1*) {
  if (data != nullptr) static_cast<Listing*>(data)->finished = true;
}

constexpr zwlr_foreign_toplevel_manager_v1_listener kManagerListener = {
    onToplevel, onFinished};

}  // namespace

ActivatedToplevel activatedToplevel(
    WaylandConnection& connection,
    std::chrono::steady_clock::time_point deadline) {
  ActivatedToplevel result;
  zwlr_foreign_toplevel_manager_v1* manager = connection.toplevels();
  if (manager == nullptr) return result;
  result.listed = true;
  Listing listing;
  zwlr_foreign_toplevel_manager_v1_add_listener(manager, &kManagerListener,
                                                &listing);
  // The first exchange brings the windows, the second their app ids and
  // states.
  if (connection.roundtrip(deadline) && connection.roundtrip(deadline)) {
    for (const auto& toplevel : listing.toplevels) {
      if (toplevel->activated && !toplevel->closed) {
        if (!toplevel->appId.empty()) result.appId = toplevel->appId;
        break;
      }
    }
  }
  for (const auto& toplevel : listing.toplevels) {
    zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
  }
  // Windows opened from now on are not ours to hear of; those announced
  // before the stop arrives are let go of as they come.
  zwlr_foreign_toplevel_manager_v1_stop(manager);
  wl_proxy_set_user_data(reinterpret_cast<wl_proxy*>(manager), nullptr);
  return result;
}

}  // namespace tovrin
