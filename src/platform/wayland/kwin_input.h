#ifndef TOVRIN_PLATFORM_WAYLAND_KWIN_INPUT_H_
#define TOVRIN_PLATFORM_WAYLAND_KWIN_INPUT_H_

// KWin's fake input and window list, reached through tovrin-kwin-input, a
// small program of ours (kwin_input_main.cc). KWin offers both only to the
// programs that an installed .desktop file names, and checks such a program
// on every connection by reading its whole file: about 19 ms for tovrin,
// well under one for the helper. tovrin's package authorizes the helper,
// and tovrin connects unchecked.
//
// The two speak over the helper's standard streams, a line each way:
//   helper: "ready K W"    once connected; K and W are 1 when KWin lets it
//                          type and list windows, 0 when not
//   "active"           ->  "active" and the active window's app id in hex
//                          ("active" alone: no window is active)
//   "key CODE 1|0"         presses or releases the evdev key CODE
//   "sync"             ->  "ok" once KWin has handled the keys, "failed"
// At the end of its input the helper releases the keys still down, and
// ends.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/wayland/toplevels.h"

namespace tovrin {

class SyntheticKeyboard;

/// How long the helper may take to start and connect.
inline constexpr std::chrono::milliseconds kKWinInputStartTimeout{1000};

/// A running helper on one compositor.
class KWinInput {
 public:
  using Clock = std::chrono::steady_clock;

  /// The folder where the package installs the helper, as seen from this
  /// program's file (/usr/bin/tovrin: /usr/libexec/tovrin).
  static std::string installedFolder();
  /// The helper's path: beside this program's file, else in
  /// installedFolder(); nothing when neither holds it.
  static std::optional<std::string> helperPath();
  /// Starts the helper at `path` on the compositor at the socket path
  /// `socket`; null when it does not start and answer in time.
  static std::shared_ptr<KWinInput> start(const std::string& path,
                                          const std::string& socket);
  /// Closes the helper's input, which lets go of its keys and ends.
  ~KWinInput();
  KWinInput(const KWinInput&) = delete;
  KWinInput& operator=(const KWinInput&) = delete;

  bool keysOffered() const { return keys_; }
  bool windowsOffered() const { return windows_; }

  /// KWin's active window, asked within `deadline`.
  ActivatedToplevel activeWindow(Clock::time_point deadline);
  /// Queues a press or release of the evdev `key`.
  bool key(uint32_t key, bool down);
  /// Waits until KWin has handled the keys.
  bool sync();
  /// A keyboard on the helper's fake input; it keeps the helper running.
  static std::unique_ptr<SyntheticKeyboard> keyboard(
      std::shared_ptr<KWinInput> input);

 private:
  KWinInput(pid_t pid, int socket) : pid_(pid), socket_(socket) {}
  bool send(const std::string& line);
  /// The helper's next line; nothing at the deadline or its end.
  std::optional<std::string> receive(Clock::time_point deadline);

  pid_t pid_;
  int socket_;  // the helper's input and output
  std::string pending_;
  bool keys_ = false;
  bool windows_ = false;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_KWIN_INPUT_H_
