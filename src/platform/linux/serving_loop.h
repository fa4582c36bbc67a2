#ifndef TOVRIN_PLATFORM_LINUX_SERVING_LOOP_H_
#define TOVRIN_PLATFORM_LINUX_SERVING_LOOP_H_

// The serving process's side of ServerProcess (serving_process.cc is the
// parent's), and the messages the two sides exchange over their socket.
// Used by serving_process.cc only.

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/linux/serving_process.h"

namespace tovrin {
namespace serving {

using Clock = std::chrono::steady_clock;

// What the processes of a ServerProcess tell the parent. Each message is
// shorter than PIPE_BUF, so it arrives whole.
struct ChildMessage {
  char kind;
  int32_t pid;
};
constexpr char kServerStarted = 'P';  // from the intermediate: the server pid
constexpr char kServerOwns = 'O';     // the server owns the clipboard
constexpr char kServerFailed = 'F';

// What the parent tells its server process, each a kind byte, a 64-bit
// length and that many bytes.
constexpr char kOrderSaved = 'S';     // the user's text, to restore if need be
constexpr char kOrderClearing = 'C';  // the clipboard is being cleared
constexpr char kOrderKeys = 'K';      // key codes about to be pressed
constexpr char kOrderKeysUp = 'U';    // ... and released again
constexpr char kOrderServe = 'W';     // the text to serve now
constexpr char kOrderDone = 'D';      // the run ended; nothing to do

/// Sends the parent a ChildMessage; async-signal-safe.
void report(int fd, char kind, int32_t pid);

/// Waits until `fd` is ready for `events`, at most until `deadline`.
bool waitFor(int fd, short events, Clock::time_point deadline);

enum class Transfer { kDone, kClosed, kTimedOut };

/// Reads exactly `size` bytes; waits for the first one until
/// `firstDeadline`, then gives up after kServerReplyTimeout without
/// progress.
Transfer receiveAll(int fd, char* buffer, size_t size,
                    Clock::time_point firstDeadline);

/// Becomes the serving process, in the child of the second fork: detaches
/// from the parent's signals and descriptors, keeping only `socketFd` and
/// `lockFd`, makes its keeper with `open`, follows the parent's orders and
/// serves. Never returns.
[[noreturn]] void runServingProcess(int socketFd, int lockFd,
                                    const ClipboardKeeperFactory& open);

}  // namespace serving
}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_SERVING_LOOP_H_
