#ifndef TOVRIN_TESTS_X11_HOSTILE_OWNER_H_
#define TOVRIN_TESTS_X11_HOSTILE_OWNER_H_

// CLIPBOARD owners that a reader must not trust: one that never answers, and
// ones whose INCR transfers never end or are far too large. Each runs on a
// thread and a connection of its own; the hostile_owner program runs one as
// a process of its own, for the benchmarks.

#include <X11/Xlib.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/x11/selection.h"

namespace tovrin::testing {

/// How a HostileOwner answers requests.
enum class Hostility {
  /// Takes CLIPBOARD and never reads a request.
  kSilent,
  /// Answers every target with INCR, then writes a chunk every 20 ms,
  /// forever: never silent long enough for the inactivity timeout.
  kEndlessSlow,
  /// Answers every target with INCR, then appends chunks as fast as the
  /// server takes them, without waiting for the requestor to delete them:
  /// the requestor's event queue never runs dry.
  kEndlessFast,
  /// Answers every target with an INCR announcing 128 MiB and sends that
  /// much, a chunk per deletion as the protocol has it.
  kHuge,
  /// Like kHuge, but announces the size of one chunk: only what arrives
  /// tells that the value is too large.
  kHugeUnannounced,
};

/// The names the hostile_owner program takes: "silent", "endless-slow",
/// "endless-fast", "huge", "huge-unannounced".
std::optional<Hostility> hostilityNamed(std::string_view name);

/// A CLIPBOARD owner that behaves as `hostility` says.
class HostileOwner {
 public:
  /// Takes CLIPBOARD on `display`. `chunkSize` (bytes) replaces the
  /// default of the endless kinds: 1 KiB slow, 256 KiB fast.
  HostileOwner(const std::string& display, Hostility hostility,
               size_t chunkSize = 0);
  ~HostileOwner();
  HostileOwner(const HostileOwner&) = delete;
  HostileOwner& operator=(const HostileOwner&) = delete;

  bool owns() const { return thread_.joinable(); }
  /// The window that owns CLIPBOARD.
  Window window() const;
  int requestsSeen() const { return requests_; }
  /// The bytes of value written to requestors so far.
  size_t bytesSent() const { return bytesSent_; }

  /// The size a kHuge or kHugeUnannounced owner sends.
  static constexpr size_t kHugeSize = size_t{128} << 20;

 private:
  struct Transfer;

  // Whether chunks go one per deletion, as the protocol has it.
  bool paced() const {
    return hostility_ == Hostility::kHuge ||
           hostility_ == Hostility::kHugeUnannounced;
  }
  void serve();
  void answer(const XSelectionRequestEvent& request);
  void send(Transfer& transfer);

  Hostility hostility_;
  size_t chunkSize_;
  std::unique_ptr<SelectionConnection> connection_;
  std::unique_ptr<Transfer> transfer_;
  std::atomic<int> requests_{0};
  std::atomic<size_t> bytesSent_{0};
  int stop_[2] = {-1, -1};
  std::thread thread_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_X11_HOSTILE_OWNER_H_
