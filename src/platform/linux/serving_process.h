#ifndef TOVRIN_PLATFORM_LINUX_SERVING_PROCESS_H_
#define TOVRIN_PLATFORM_LINUX_SERVING_PROCESS_H_

// The process that serves text written to the clipboard. On X11 and on
// Wayland alike the clipboard's content lives only as long as the client
// that offers it answers for it, and tovrin exits right after writing, so
// the text is handed to a detached process of its own: it serves the text
// until another client takes the clipboard or the display goes away. How it
// does so on a display is its ClipboardKeeper's business; here is the
// process around it.
//
// From the clear to the write-back it also watches over the copy run: it
// knows the user's saved text and the keys pressed, and learns of this
// process's death from the end of their socket. A run killed meanwhile (by
// a host's timeout, SIGKILL included) leaves neither a key held nor the user
// without their clipboard text: the server releases the keys and serves the
// saved text itself.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovrin {

/// Closes a file descriptor on every path.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept;
  UniqueFd& operator=(UniqueFd&& other) noexcept;

  int get() const { return fd_; }
  void reset();

 private:
  int fd_;
};

/// What a serving process does on its side of the fork, once detached. It is
/// made there by the factory given to ServerProcess::start.
class ClipboardKeeper {
 public:
  virtual ~ClipboardKeeper() = default;
  /// Lets go of `keys` (codes as ServerProcess::keysDown was given them)
  /// that a parent which died left pressed; only keys still down.
  virtual void releaseKeys(const std::vector<uint8_t>& keys) = 0;
  /// Takes the clipboard with `text`; false when it could not.
  virtual bool own(const std::string& text) = 0;
  /// Serves the text until another client takes the clipboard or the
  /// display goes away; returns then.
  virtual void serve() = 0;
};
/// Connects to the display on the serving process's side; null when it
/// cannot. Called after the fork, in a process with one thread.
using ClipboardKeeperFactory =
    std::function<std::unique_ptr<ClipboardKeeper>()>;

/// How long the serving process and its parent wait for each other's next
/// message, and how long opening the display may take there.
inline constexpr std::chrono::milliseconds kServerReplyTimeout{1000};
inline constexpr std::chrono::milliseconds kServerOpenTimeout{1000};

/// A process that will serve the clipboard, detached from this one (double
/// fork, new session, stdio on /dev/null). It is started ahead of need,
/// because starting a process costs more than anything else in setString():
/// it opens its display and waits for the text. Destroying this object
/// without handing text over ends it.
class ServerProcess {
 public:
  /// Starts the process, which makes its keeper with `open`; null when it
  /// cannot be started. `lockFd`, when open, is the copy-run lock: the
  /// process holds it too, until it serves, so that it outlasts this
  /// process if need be.
  static std::unique_ptr<ServerProcess> start(ClipboardKeeperFactory open,
                                              int lockFd = -1);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  enum class Outcome {
    kOwns,    // the process owns the clipboard with the text
    kGone,    // the process had ended (e.g. tired of waiting)
    kFailed,  // it could not take the clipboard, or did not say in time
  };

  /// The user's text, to serve should this process die after clearing().
  void guard(std::string_view savedText);
  /// Sent before the clipboard is cleared: from now on only the saved text
  /// stands for the user's clipboard.
  void clearing();
  /// Sent before `keys` (key codes of the display, as its keeper releases
  /// them) are pressed, and keysUp() after they are released: keys this
  /// process may die holding.
  void keysDown(const std::vector<uint8_t>& keys);
  void keysUp();

  /// Hands `text` over and waits until the process owns the clipboard with
  /// it, giving up after kServerReplyTimeout without progress.
  Outcome serve(std::string_view text);

 private:
  ServerProcess(UniqueFd socket, pid_t intermediate)
      : socket_(std::move(socket)), intermediate_(intermediate) {}

  bool order(char kind, std::string_view payload);
  bool send(const char* data, size_t size);
  Outcome awaitOwnership();
  void reapIntermediate();

  UniqueFd socket_;
  pid_t intermediate_;
  pid_t server_ = -1;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_SERVING_PROCESS_H_
