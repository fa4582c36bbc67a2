#ifndef TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_
#define TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_

// The process that serves text written to CLIPBOARD. An X11 selection lives
// only as long as its owner answers for it, and tovrin exits right after
// writing, so the text is handed to a detached process of its own: it owns
// CLIPBOARD with the text (UTF8_STRING, text/plain;charset=utf-8 and STRING)
// until another client takes it or the display goes away, and asks a running
// clipboard manager to save it.
//
// From the clear to the write-back it also watches over the copy run: it
// knows the user's saved text and the keys pressed, and learns of this
// process's death from the end of their socket. A run killed meanwhile (by
// a host's timeout, SIGKILL included) leaves neither a key held nor the user
// without their clipboard text: the server releases the keys and serves the
// saved text itself.

#include <sys/types.h>

#include <cstdint>
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

/// A process that will serve CLIPBOARD, detached from this one (double fork,
/// new session, stdio on /dev/null). It is started ahead of need, because
/// starting a process costs more than anything else in setString(): it opens
/// its display and waits for the text. Destroying this object without
/// handing text over ends it.
class ServerProcess {
 public:
  /// Starts the process on `displayName`; null when it cannot be started.
  /// `lockFd`, when open, is the copy-run lock: the process holds it too,
  /// until it serves, so that it outlasts this process if need be.
  static std::unique_ptr<ServerProcess> start(const std::string& displayName,
                                              int lockFd = -1);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  enum class Outcome {
    kOwns,    // the process owns CLIPBOARD with the text
    kGone,    // the process had ended (e.g. tired of waiting)
    kFailed,  // it could not take CLIPBOARD, or did not say in time
  };

  /// The user's text, to serve should this process die after clearing().
  void guard(std::string_view savedText);
  /// Sent before the clipboard is cleared: from now on only the saved text
  /// stands for the user's clipboard.
  void clearing();
  /// Sent before `keys` (X key codes) are pressed, and keysUp() after they
  /// are released: keys this process may die holding.
  void keysDown(const std::vector<uint8_t>& keys);
  void keysUp();

  /// Hands `text` over and waits until the process owns CLIPBOARD with it,
  /// giving up after kX11ConversionTimeout without progress.
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

#endif  // TOVRIN_PLATFORM_X11_CLIPBOARD_SERVER_H_
