#ifndef TOVRIN_PLATFORM_WAYLAND_PIPE_READ_H_
#define TOVRIN_PLATFORM_WAYLAND_PIPE_READ_H_

// Reading what another client writes into a pipe, bounded in time and size:
// a Wayland clipboard owner answers a read by writing into the pipe it was
// given, and a frozen or hostile owner must not hold tovrin up.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace tovrin {

struct PipeRead {
  enum class Result {
    kComplete,  // the writer closed its end: `data` is all of it
    kTimedOut,  // nothing came for `inactivity`, or `deadline` passed
    kTooLarge,  // more than the limit came
    kFailed,    // reading failed
  };
  Result result = Result::kFailed;
  std::string data;
};

/// Reads `fd` until its writer closes it. Gives up when nothing comes for
/// `inactivity`, at `deadline` (monotonic clock) however much comes, and
/// past `maxSize` bytes. `fd` is left open.
PipeRead readPipe(int fd, std::chrono::milliseconds inactivity,
                  std::chrono::steady_clock::time_point deadline,
                  size_t maxSize);

/// Writes `data` into `fd` (a pipe a reader gave us) until all is written;
/// false when the reader went away, or took nothing for `inactivity`.
bool writePipe(int fd, std::string_view data,
               std::chrono::milliseconds inactivity);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_PIPE_READ_H_
