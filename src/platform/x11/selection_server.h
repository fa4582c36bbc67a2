#ifndef TOVRIN_PLATFORM_X11_SELECTION_SERVER_H_
#define TOVRIN_PLATFORM_X11_SELECTION_SERVER_H_

// The owner side of an X11 selection: answering requests, INCR included.

#include <X11/Xlib.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tovrin {

/// How long an owner keeps an INCR transfer open for a requestor that stopped
/// reading its chunks.
inline constexpr std::chrono::milliseconds kX11ServeStallTimeout{5000};

/// A value an owner answers a target with.
struct OfferedTarget {
  Atom target = 0;
  Atom type = 0;
  /// 8, or 32 with `data` holding packed uint32_t items.
  int format = 8;
  std::shared_ptr<const std::string> data;
};

/// The owner side of one selection: answers SelectionRequest events (TARGETS,
/// TIMESTAMP, MULTIPLE and the offered targets, INCR for large values),
/// refuses everything else, and notices SelectionClear. With no offered
/// targets it is an empty owner whose TARGETS are only TARGETS and TIMESTAMP.
/// It never waits: the caller reads events and hands them over.
class SelectionServer {
 public:
  using Clock = std::chrono::steady_clock;

  /// Serves `selection`, which `owner` (a window of `display`) acquired at
  /// `acquired`.
  SelectionServer(Display* display, Window owner, Atom selection, Time acquired,
                  std::vector<OfferedTarget> targets);
  /// Stops listening to the requestors of unfinished transfers.
  ~SelectionServer();
  SelectionServer(const SelectionServer&) = delete;
  SelectionServer& operator=(const SelectionServer&) = delete;

  /// Handles `event` when it is a request to this owner, its SelectionClear
  /// or a step of one of its INCR transfers; false for any other event.
  bool handleEvent(const XEvent& event);
  /// Whether another client took the selection.
  bool lost() const { return lost_; }
  /// Whether INCR transfers are still going on.
  bool transferring() const { return !transfers_.empty(); }
  /// When the most stalled transfer should be given up; nothing without
  /// transfers.
  std::optional<Clock::time_point> nextDeadline() const;
  /// Gives up transfers whose requestor stopped reading before `now`.
  void expireTransfers(Clock::time_point now);

 private:
  struct Transfer {
    Atom type = 0;
    std::shared_ptr<const std::string> data;
    size_t offset = 0;
    Clock::time_point lastActivity;
  };
  using TransferKey = std::pair<Window, Atom>;

  void handleRequest(const XSelectionRequestEvent& request);
  bool answer(Window requestor, Atom target, Atom property);
  bool answerMultiple(Window requestor, Atom property);
  void handlePropertyDeleted(const XPropertyEvent& event);
  void listenTo(Window requestor, bool listen);
  void forget(std::map<TransferKey, Transfer>::iterator transfer);

  Display* display_;
  Window owner_;
  Atom selection_;
  Time acquired_;
  std::vector<OfferedTarget> targets_;
  // Values larger than this many bytes go by INCR.
  size_t chunkSize_;
  bool lost_ = false;
  std::map<TransferKey, Transfer> transfers_;
  // Atoms of the protocol, interned once.
  Atom targetsAtom_, timestampAtom_, multipleAtom_, incrAtom_, atomPairAtom_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_SELECTION_SERVER_H_
