#ifndef TOVRIN_PLATFORM_X11_PASTEBOARD_STATE_H_
#define TOVRIN_PLATFORM_X11_PASTEBOARD_STATE_H_

// What the operations of one X11Pasteboard share, and the bounded read
// they are made of: the pool of connections they borrow, the read budget
// they spend together, the owners given up on, and this process's empty
// ownership of CLIPBOARD. Used by pasteboard.cc only.

#include <X11/Xlib.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"

namespace tovrin {

struct X11PasteboardState {
  using Clock = std::chrono::steady_clock;

  /// The state of the pasteboard of `name`, whose connections intern
  /// `atomNames` when they open.
  X11PasteboardState(std::string name, std::vector<const char*> atomNames)
      : displayName(std::move(name)), atomNames_(std::move(atomNames)) {}

  /// A new connection to the display; null when it does not open.
  std::unique_ptr<SelectionConnection> open() const;
  /// An idle connection, or a new one; null when the display does not open.
  std::unique_ptr<SelectionConnection> take();
  /// Keeps a retired connection open until the pasteboard goes. Closed, its
  /// window ids would go to the next client to connect, perhaps our own next
  /// connection, and an owner still writing to the old requestor window
  /// would write into that one's transfers.
  void park(std::unique_ptr<SelectionConnection> connection);
  void giveBack(std::unique_ptr<SelectionConnection> connection);

  /// Answers what came for the empty ownership, unless another thread is at
  /// it already.
  void serveOwnerRequests();
  // Never blocks: reads only what has arrived.
  void drainOwnerEvents();
  void closeOwner();

  /// Starts a read: how long it may take, zero when the reads of this
  /// pasteboard have used up kX11PasteboardReadBudget.
  Clock::duration beginRead();
  void endRead();
  /// Remembers an owner that did not answer in time or sent too much: it is
  /// not asked again while it owns CLIPBOARD.
  void giveUpOn(Window owner);
  /// The owners a read does not ask: those given up on, and our own empty
  /// ownership, which cannot answer while this process waits.
  std::vector<Window> skippedOwners();

  const std::string displayName;

  std::mutex poolMutex;
  std::vector<std::unique_ptr<SelectionConnection>> idle;     // by poolMutex
  std::vector<std::unique_ptr<SelectionConnection>> retired;  // by poolMutex

  // Readers only ever try this lock, and hold it without waiting.
  std::mutex ownerMutex;
  std::unique_ptr<SelectionConnection> ownerConnection;  // by ownerMutex
  std::unique_ptr<SelectionServer> ownerServer;          // by ownerMutex
  /// The window of the empty ownership, for readers to recognize it.
  std::atomic<Window> ownerWindow{None};

  // The read bookkeeping. Read time is counted while at least one read
  // runs, so that reads overlapping on worker threads count once.
  std::mutex readMutex;
  std::vector<Window> givenUp;                      // by readMutex
  int activeReads = 0;                              // by readMutex
  Clock::time_point busySince;                      // by readMutex
  Clock::duration readTimeSpent = Clock::duration::zero();  // by readMutex

 private:
  Clock::duration readTimeLeft(Clock::time_point now) const;  // by readMutex

  const std::vector<const char*> atomNames_;
};

/// A connection lent to one operation. It goes back to the pool unless the
/// operation ended in a state that later ones must not inherit (an owner
/// that may still answer, a broken connection).
class X11ConnectionLease {
 public:
  explicit X11ConnectionLease(std::shared_ptr<X11PasteboardState> state)
      : state_(std::move(state)), connection_(state_->take()) {}
  ~X11ConnectionLease();
  X11ConnectionLease(const X11ConnectionLease&) = delete;
  X11ConnectionLease& operator=(const X11ConnectionLease&) = delete;

  explicit operator bool() const { return connection_ != nullptr; }
  Display* display() const { return connection_->display(); }
  Window window() const { return connection_->window(); }
  void retire() { reusable_ = false; }
  /// Retires the connection after an abandoned transfer, whose owner may go
  /// on writing to the window it was given.
  void retireAfterAbandoning();

 private:
  std::shared_ptr<X11PasteboardState> state_;
  std::unique_ptr<SelectionConnection> connection_;
  bool reusable_ = true;
};

/// One read operation: a lent connection and the deadline of its waits,
/// which ends no later than the pasteboard's read budget.
class X11ClipboardReader {
 public:
  explicit X11ClipboardReader(std::shared_ptr<X11PasteboardState> state);
  ~X11ClipboardReader() { state_->endRead(); }
  X11ClipboardReader(const X11ClipboardReader&) = delete;
  X11ClipboardReader& operator=(const X11ClipboardReader&) = delete;

  /// Converts CLIPBOARD to `target`. Our own empty ownership and owners
  /// given up on are refused at once, without asking them.
  SelectionConversion convert(const char* target);

  /// The first format-8 value among `targets` whose type `accept` takes.
  template <typename Accept>
  std::optional<std::string> firstText(
      std::initializer_list<const char*> targets, Accept accept) {
    for (const char* target : targets) {
      SelectionConversion conversion = convert(target);
      if (conversion.result == SelectionConversion::Result::kConverted &&
          conversion.format == 8 && accept(target, conversion.typeName)) {
        return std::move(conversion.data);
      }
      if (stopped_) break;
    }
    return std::nullopt;
  }

  Display* display() const { return lease_.display(); }

 private:
  std::shared_ptr<X11PasteboardState> state_;
  X11ConnectionLease lease_;
  ConversionDeadline deadline_;
  bool stopped_ = false;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_PASTEBOARD_STATE_H_
