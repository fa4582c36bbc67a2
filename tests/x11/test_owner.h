#ifndef TOVRIN_TESTS_X11_TEST_OWNER_H_
#define TOVRIN_TESTS_X11_TEST_OWNER_H_

// A CLIPBOARD owner on a thread and a connection of its own: an application
// answering through the owner side under test, or an owner that a reader must
// not trust. The hostile_owner program runs one as a process of its own, for
// the benchmarks.

#include <X11/Xlib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"

namespace tovrin::testing {

enum class Behaviour {
  /// Answers through SelectionServer with the targets it was given.
  kServes,
  /// Never reads a request.
  kSilent,
  /// Answers every target with INCR, then never sends a chunk.
  kStalls,
  /// INCR, then a chunk every 20 ms, forever: never silent long enough for
  /// the inactivity timeout.
  kEndlessSlow,
  /// INCR, then chunks appended as fast as the server takes them, without
  /// waiting for deletions: the requestor's event queue never runs dry.
  kEndlessFast,
  /// INCR announcing kHugeSize, then that much, a chunk per deletion.
  kHuge,
  /// Like kHuge, but announces one chunk: only what arrives tells that the
  /// value is too large.
  kHugeUnannounced,
};

class TestOwner {
 public:
  /// A target's name and its value.
  using Target = std::pair<std::string, std::string>;

  /// Takes CLIPBOARD on `display`. `chunkSize` (bytes) replaces the INCR
  /// kinds' default: 1 KiB for kEndlessSlow, 256 KiB for the others.
  TestOwner(const std::string& display, Behaviour behaviour,
            const std::vector<Target>& targets = {}, size_t chunkSize = 0);
  TestOwner(const std::string& display, const std::vector<Target>& targets)
      : TestOwner(display, Behaviour::kServes, targets) {}
  ~TestOwner();

  bool owns() const { return thread_.joinable(); }
  /// The server time at which it took CLIPBOARD.
  Time acquired() const { return acquired_; }
  int requestsSeen() const { return requests_; }
  /// Whether another client took CLIPBOARD (kServes only).
  bool lost() const { return lost_; }
  /// The bytes of value written by the INCR kinds so far.
  size_t bytesSent() const { return bytesSent_; }
  /// Stops or resumes answering, like SIGSTOP and SIGCONT would.
  void pause(bool paused) { paused_ = paused; }

  static constexpr size_t kHugeSize = size_t{128} << 20;

 private:
  bool paced() const { return behaviour_ >= Behaviour::kHuge; }
  void serve();
  void answer(const XSelectionRequestEvent& request);
  void sendChunk();
  /// Writes the transfer's property.
  void put(uint8_t mode, Atom type, int format, size_t length, const void* data);

  Behaviour behaviour_;
  size_t chunkSize_;
  std::string chunk_;
  Time acquired_ = CurrentTime;
  std::atomic<bool> paused_{false}, stop_{false}, lost_{false};
  std::atomic<int> requests_{0};
  std::atomic<size_t> bytesSent_{0};
  // The one INCR transfer of the hostile kinds: a new request drops it.
  Window requestor_ = None;
  Atom property_ = None;
  bool started_ = false;  // the requestor deleted the INCR announcement
  size_t sent_ = 0;
  std::chrono::steady_clock::time_point nextChunk_;
  std::unique_ptr<SelectionConnection> connection_;
  std::unique_ptr<SelectionServer> server_;
  std::thread thread_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_X11_TEST_OWNER_H_
