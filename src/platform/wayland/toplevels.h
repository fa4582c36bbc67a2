#ifndef TOVRIN_PLATFORM_WAYLAND_TOPLEVELS_H_
#define TOVRIN_PLATFORM_WAYLAND_TOPLEVELS_H_

// Which application has the focused window, from the compositor's list of
// toplevel windows (wlroots foreign-toplevel management).

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace tovrin {

class WaylandConnection;

// The names of other programs' windows come from those programs: bounded.
inline constexpr size_t kMaxAppIdLength = 1024;
inline constexpr size_t kMaxToplevels = 4096;

/// What the compositor says of its activated window.
struct ActivatedToplevel {
  /// Whether the compositor lists windows at all.
  bool listed = false;
  /// The app id of the activated window; nothing when no window is
  /// activated or it has no app id.
  std::optional<std::string> appId;
};

/// Asks the compositor, within `deadline`, which window is activated.
ActivatedToplevel activatedToplevel(
    WaylandConnection& connection,
    std::chrono::steady_clock::time_point deadline);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_TOPLEVELS_H_
