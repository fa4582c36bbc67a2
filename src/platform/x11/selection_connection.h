#ifndef TOVRIN_PLATFORM_X11_SELECTION_CONNECTION_H_
#define TOVRIN_PLATFORM_X11_SELECTION_CONNECTION_H_

// What selection work on X11 stands on: a connection of its own with a
// hidden window, the deadline of an operation's waits, the wait for one
// event, and the server time an owner takes a selection at.
//
// Nothing here waits without a deadline: every wait polls the connection's
// socket until a ConversionDeadline passes. A Display* is used by one
// thread at a time; these functions never lock.

#include <X11/Xlib.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/x11/display.h"

namespace tovrin {

/// How long one clipboard operation waits for an owner that stopped
/// answering (a frozen or busy application). Any answer restarts the wait.
inline constexpr std::chrono::milliseconds kX11ConversionTimeout{1000};
/// The longest one operation may take even while the owner keeps answering,
/// e.g. an INCR transfer that trickles in.
inline constexpr std::chrono::milliseconds kX11TransferTotalTimeout{4000};

/// The deadline of one operation's waits: each wait may last `inactivity`
/// since the last progress, and all of them together `total`.
class ConversionDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ConversionDeadline(
      std::chrono::milliseconds inactivity = kX11ConversionTimeout,
      std::chrono::milliseconds total = kX11TransferTotalTimeout);

  /// Records that the other side answered: the inactivity wait starts again.
  void progressed();
  /// When the current wait ends.
  Clock::time_point current() const;
  /// Whether the current wait has ended.
  bool expired() const { return Clock::now() >= current(); }

 private:
  std::chrono::milliseconds inactivity_;
  Clock::time_point end_;
  Clock::time_point lastProgress_;
};

/// Whether the connection to the server is lost.
bool x11ConnectionBroken(Display* display);

/// Whether `predicate` accepts `event`, in the shape XCheckIfEvent calls.
template <typename Predicate>
Bool selectionEventMatches(Display*, XEvent* event, XPointer arg) {
  return (*reinterpret_cast<const Predicate*>(arg))(*event) ? True : False;
}

enum class SelectionWait { kEvent, kTimedOut, kBroken };

/// Takes the first event that `predicate` accepts into `event`, leaving
/// every other event queued for whoever else reads this connection. The
/// deadline comes first: an owner that writes faster than we read keeps the
/// queue full, and a wait that looked at the clock only when the queue ran
/// dry would never end.
template <typename Predicate>
SelectionWait waitForSelectionEvent(Display* display,
                                    std::chrono::steady_clock::time_point
                                        deadline,
                                    const Predicate& predicate,
                                    XEvent* event) {
  for (;;) {
    if (x11ConnectionBroken(display)) return SelectionWait::kBroken;
    auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return SelectionWait::kTimedOut;
    if (XCheckIfEvent(
            display, event, &selectionEventMatches<Predicate>,
            reinterpret_cast<XPointer>(const_cast<Predicate*>(&predicate)))) {
      return SelectionWait::kEvent;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    pollfd fd = {ConnectionNumber(display), POLLIN, 0};
    poll(&fd, 1, static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
  }
}

/// A hidden window for selection work, selected for PropertyChangeMask by
/// this connection. The caller destroys it (or closes the connection).
Window createSelectionWindow(Display* display);

/// The server's current time, read from the PropertyNotify of a zero-length
/// append to a property of `window` (selected for PropertyChangeMask, as
/// createSelectionWindow does); nothing at the deadline.
std::optional<Time> serverTime(Display* display, Window window,
                               ConversionDeadline& deadline);

/// Makes `owner` the owner of `selection` at a real server time (ICCCM
/// forbids CurrentTime for owners); that time, or nothing when the server
/// did not hand the selection over.
std::optional<Time> acquireSelection(Display* display, Window owner,
                                     Atom selection,
                                     ConversionDeadline& deadline);

/// An X connection of its own with a window for selection work. A broken
/// connection (the server went away) never ends the process: operations on
/// it fail and broken() tells.
class SelectionConnection {
 public:
  /// Opens `displayName` (empty: $DISPLAY) and interns `atomNames` in the
  /// same round trip, so that later XInternAtom calls for them are answered
  /// from Xlib's cache. Null when the display does not open within
  /// `openTimeout` (see openDisplayWithin). Without a timeout the opening
  /// starts no thread, for a process forked from a threaded one.
  static std::unique_ptr<SelectionConnection> open(
      const std::string& displayName,
      const std::vector<const char*>& atomNames = {},
      std::optional<std::chrono::milliseconds> openTimeout = kX11OpenTimeout);
  ~SelectionConnection();
  SelectionConnection(const SelectionConnection&) = delete;
  SelectionConnection& operator=(const SelectionConnection&) = delete;

  Display* display() const { return display_; }
  Window window() const { return window_; }
  /// Whether the connection to the server is lost.
  bool broken() const;
  /// Destroys window() for a new one, e.g. after a transfer was abandoned:
  /// an owner that goes on writing to the old window then fails. Closing
  /// the connection would not do: the server hands its ids to the next
  /// client, whose first window may be ours again.
  void renewWindow();

 private:
  SelectionConnection(Display* display, Window window)
      : display_(display), window_(window) {}

  Display* display_;
  Window window_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_SELECTION_CONNECTION_H_
