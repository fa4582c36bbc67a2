#ifndef TOVRIN_PLATFORM_WAYLAND_CONNECTION_H_
#define TOVRIN_PLATFORM_WAYLAND_CONNECTION_H_

// A connection to a Wayland compositor with the globals tovrin uses, and
// waits on it that end at a deadline. libwayland's own roundtrip blocks
// until the compositor answers: a frozen compositor would hang the host.

#include <wayland-client.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/wayland/data_control.h"

struct org_kde_kwin_fake_input;
struct org_kde_plasma_window_management;
struct zwlr_data_control_manager_v1;
struct zwlr_foreign_toplevel_manager_v1;
struct zwp_virtual_keyboard_manager_v1;

namespace tovrin {

/// How long opening a connection, globals included, may take.
inline constexpr std::chrono::milliseconds kWaylandOpenTimeout{1000};
/// How long one exchange with the compositor may take.
inline constexpr std::chrono::milliseconds kWaylandReplyTimeout{1000};

/// The path of the compositor's socket named `socket` (empty:
/// $WAYLAND_DISPLAY, else wayland-0), resolved against $XDG_RUNTIME_DIR.
std::string waylandSocketPath(const std::string& socket);

/// One connection; not shared between threads without a lock of the
/// user's own.
class WaylandConnection {
 public:
  using Clock = std::chrono::steady_clock;

  /// Connects to `socket` (empty: $WAYLAND_DISPLAY) and learns the globals
  /// within `timeout`; null when there is no compositor there or it does
  /// not answer. The first seat is taken.
  static std::unique_ptr<WaylandConnection> open(
      const std::string& socket,
      std::chrono::milliseconds timeout = kWaylandOpenTimeout);
  ~WaylandConnection();
  WaylandConnection(const WaylandConnection&) = delete;
  WaylandConnection& operator=(const WaylandConnection&) = delete;

  wl_display* display() const { return display_; }
  /// The path of the compositor's socket.
  const std::string& socketPath() const { return socketPath_; }
  /// The seat, its data-control and virtual-keyboard managers and the
  /// toplevel list; each null when the compositor does not offer it. The
  /// data-control manager is ext's when offered, else wlr's, spoken
  /// through the wlr glue either way (see data_control.h).
  wl_seat* seat() const { return seat_; }
  zwlr_data_control_manager_v1* dataControl() const { return dataControl_; }
  zwp_virtual_keyboard_manager_v1* virtualKeyboard() const {
    return virtualKeyboard_;
  }
  /// Whether the seat has a keyboard now (a physical one, or another
  /// client's virtual one).
  bool seatHasKeyboard() const {
    return (seatCapabilities_ & WL_SEAT_CAPABILITY_KEYBOARD) != 0;
  }
  /// Bound on first use: binding it makes the compositor list every window.
  zwlr_foreign_toplevel_manager_v1* toplevels();
  /// KWin's fake input, which KWin offers only to programs its installed
  /// .desktop files authorize; bound on first use, null when not offered.
  org_kde_kwin_fake_input* fakeInput();
  /// Whether the compositor is KWin (it offers its Plasma shell interface
  /// to every client).
  bool kwin() const { return kwin_; }
  /// KWin's window list, authorized the same way; bound on first use.
  org_kde_plasma_window_management* plasmaWindows();
  bool plasmaWindowsOffered() const { return plasmaWindowsName_ != 0; }

  /// Sends what is queued and waits until the compositor has handled it
  /// and its answers are dispatched; false at the deadline or when the
  /// connection broke.
  bool roundtrip(Clock::time_point deadline);
  /// Dispatches events until `done()` holds; false at the deadline or when
  /// the connection broke.
  bool dispatchUntil(const std::function<bool()>& done,
                     Clock::time_point deadline);
  /// Sends what is queued, waiting at most until `deadline` for room.
  bool flush(Clock::time_point deadline);
  /// Whether the connection failed (the compositor went away, a protocol
  /// error).
  bool broken() const;

 private:
  explicit WaylandConnection(wl_display* display) : display_(display) {}
  /// Reads and dispatches what arrives before `deadline`; false when the
  /// deadline passed with nothing, or the connection broke.
  bool dispatchOnce(Clock::time_point deadline);
  static void onGlobal(void* data, wl_registry* registry, uint32_t name,
                       const char* interface, uint32_t version);
  static void onGlobalRemove(void*, wl_registry*, uint32_t) {}

  wl_display* display_;
  std::string socketPath_;
  wl_registry* registry_ = nullptr;
  wl_seat* seat_ = nullptr;
  zwlr_data_control_manager_v1* dataControl_ = nullptr;
  zwp_virtual_keyboard_manager_v1* virtualKeyboard_ = nullptr;
  zwlr_foreign_toplevel_manager_v1* toplevels_ = nullptr;
  DataControlChoice dataControlChoice_;
  org_kde_kwin_fake_input* fakeInput_ = nullptr;
  org_kde_plasma_window_management* plasmaWindows_ = nullptr;
  uint32_t fakeInputName_ = 0;
  bool kwin_ = false;
  uint32_t plasmaWindowsName_ = 0;
  uint32_t plasmaWindowsVersion_ = 0;
  uint32_t seatCapabilities_ = 0;
  uint32_t toplevelsName_ = 0;
  uint32_t toplevelsVersion_ = 0;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_CONNECTION_H_
