#ifndef TOVRIN_PLATFORM_X11_SELECTION_H_
#define TOVRIN_PLATFORM_X11_SELECTION_H_

// X11 selections on the requestor's side: converting a selection, INCR
// transfers included. The connection, deadlines and waits it stands on are
// in selection_connection.h, the owner's side in selection_server.h.
//
// Calls that may fail because of another client (a requestor window that
// vanished, an unknown atom) go through XCB with their errors collected per
// request, so they never reach Xlib's process-wide error handler, which
// exits by default.

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
#include "platform/x11/selection_connection.h"

namespace tovrin {

/// The largest value one conversion takes in, in bytes. Clipboard text,
/// HTML and RTF of real documents stay far below it (a 300-page book is
/// about 1 MiB of text, its HTML a few MiB); an owner that announces or
/// sends more is broken or hostile, and the transfer is abandoned so that
/// memory stays bounded whatever the owner does.
inline constexpr size_t kX11MaxValueSize = size_t{64} << 20;

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

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_SELECTION_H_
