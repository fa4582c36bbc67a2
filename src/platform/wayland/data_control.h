#ifndef TOVRIN_PLATFORM_WAYLAND_DATA_CONTROL_H_
#define TOVRIN_PLATFORM_WAYLAND_DATA_CONTROL_H_

// The two data-control protocols, spoken through one implementation. ext
// data-control (KWin from Plasma 6.4, and only it from Plasma 6.5; newer
// wlroots) has the requests and events of wlroots' data-control version 2,
// in the same order, under other names. The code speaks through the wlr
// glue; a manager bound as ext makes ext objects (see
// dataControlInterfaceFor), so the compositor and libwayland see the
// protocol it offered.

#include <string_view>

struct wl_interface;

namespace tovrin {

/// The interface a request on an object of `owner` creates its new object
/// with, when the glue asked for `requested`: the ext counterpart of a wlr
/// data-control interface when `owner` is an ext data-control object, else
/// `requested` itself.
const wl_interface* dataControlInterfaceFor(std::string_view owner,
                                            const wl_interface* requested);

/// The wlr data-control interfaces, each with its ext counterpart.
struct DataControlPair {
  const wl_interface* wlr;
  const wl_interface* ext;
};
inline constexpr int kDataControlInterfaces = 4;
extern const DataControlPair kDataControlPairs[kDataControlInterfaces];

/// Which data-control manager to bind as the globals are announced: ext
/// whenever offered, wlr otherwise.
class DataControlChoice {
 public:
  /// Whether the global `interface` should be bound now (replacing the one
  /// bound before, if any).
  bool offered(std::string_view interface);
  /// The manager's interface to bind it with; null for no data-control.
  const wl_interface* chosen() const { return chosen_; }

 private:
  const wl_interface* chosen_ = nullptr;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_DATA_CONTROL_H_
