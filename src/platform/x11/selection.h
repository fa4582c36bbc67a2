#ifndef TOVRIN_PLATFORM_X11_SELECTION_H_
#define TOVRIN_PLATFORM_X11_SELECTION_H_

// X11 selections, both sides: converting a selection (with INCR transfers)
// as a requestor, and answering requests as an owner.
//
// Nothing here waits without a deadline: every wait polls the connection's
// socket until a ConversionDeadline passes. Calls that may fail because of
// another client (a requestor window that vanished, an unknown atom) go
// through XCB with their errors collected per request, so they never reach
// Xlib's process-wide error handler, which exits by default.
//
// A Display* is used by one thread at a time; these functions never lock.

#include <X11/Xlib.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/x11/display.h"

namespace tovrin {

/// How long one clipboard operation waits for an owner that stopped
/// answering (a frozen or busy application). Any answer restarts the wait.
inline constexpr std::chrono::milliseconds kX11ConversionTimeout{1000};
/// The longest one operation may take even while the owner keeps answering,
/// e.g. an INCR transfer that trickles in.
inline constexpr std::chrono::milliseconds kX11TransferTotalTimeout{4000};
/// The largest value one conversion takes in, in bytes. Clipboard text,
/// HTML and RTF of real documents stay far below it (a 300-page book is
/// about 1 MiB of text, its HTML a few MiB); an owner that announces or
/// sends more is broken or hostile, and the transfer is abandoned so that
/// memory stays bounded whatever the owner does.
inline constexpr size_t kX11MaxValueSize = size_t{64} << 20;

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

/// What converting a selection to a target gave.
struct SelectionConversion {
  enum class Result {
    kConverted,  // the owner answered with a value
    kNoOwner,    // nobody owns the selection
    kRefused,    // the owner answered that it cannot convert (property None)
    kTimedOut,   // the owner did not answer before the deadline
    kTooLarge,   // the value is larger than the limit
    kFailed,     // the answer was unreadable or the connection broke
  };
  Result result = Result::kFailed;
  /// The owner that was asked; None when nobody was.
  Window owner = None;
  /// Atom name of the value's type, e.g. "UTF8_STRING" or "ATOM"; after an
  /// INCR transfer, the type of its chunks.
  std::string typeName;
  /// 8, 16 or 32.
  int format = 0;
  /// The value. Format 8: the bytes. Formats 16 and 32: the items packed as
  /// consecutive native-endian uint16_t / uint32_t (Xlib hands format 32
  /// items out as one `long` each; they are packed down to 32 bits here).
  std::string data;

  /// The items of a format-32 value (atoms, integers); empty otherwise.
  std::vector<uint32_t> values32() const;
};

/// Asks the owner of `selection` to convert it to `target` into a property
/// of `requestor`, waits for the answer and reads it, following INCR
/// transfers. `requestor` must be a window of this connection (see
/// createSelectionWindow); it is made to select PropertyChangeMask. Events of
/// other windows stay queued. The waits count against `deadline`, which an
/// operation shares among its conversions; it is checked before every event
/// is taken, so an owner that floods the connection is cut off on time too.
///
/// A transfer that passes the deadline or `maxSize` is abandoned:
/// the property is deleted and `requestor` stops selecting
/// PropertyChangeMask, so that no more chunks are queued for this
/// connection. The owner may still answer or send chunks later: after
/// kTimedOut or kTooLarge use a fresh requestor window (or connection) for
/// the next conversion.
///
/// When one of `skippedOwners` owns the selection, the result is kRefused at
/// once, without a request: a window of this process that cannot answer
/// while the caller waits (its events are handled by the same thread), or
/// owners the caller has given up on.
SelectionConversion convertSelection(
    Display* display, Window requestor, Atom selection, Atom target,
    ConversionDeadline& deadline, std::span<const Window> skippedOwners = {},
    size_t maxSize = kX11MaxValueSize);

/// The names of `atoms` in one round trip; nothing for an atom the server
/// does not know (owners may send any number).
std::vector<std::optional<std::string>> atomNames(
    Display* display, const std::vector<Atom>& atoms);

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

#endif  // TOVRIN_PLATFORM_X11_SELECTION_H_
