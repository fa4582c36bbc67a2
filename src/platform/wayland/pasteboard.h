#ifndef TOVRIN_PLATFORM_WAYLAND_PASTEBOARD_H_
#define TOVRIN_PLATFORM_WAYLAND_PASTEBOARD_H_

// The general pasteboard on wlroots compositors: the seat's clipboard
// through the data-control protocol, which reads and owns the clipboard
// without a window.
//
// The pasteboard keeps one connection that follows the clipboard's offers.
// A read asks the current offer for one MIME type through a pipe and reads
// that pipe with deadlines; the pipe is read outside the connection's lock,
// so a reader that a frozen owner holds up on a worker thread never holds
// up the next read. Every read gives up after kWaylandReplyTimeout without
// data and after half of kWaylandPasteboardReadBudget in all; an offer that
// did not answer in time or sent more than kWaylandMaxValueSize is given up
// on until the clipboard changes.
//
// clearContents() makes this process the owner of an empty clipboard, so a
// clipboard manager cannot put old content back where the application's
// copy is awaited. setString() hands the text to a detached child process
// that owns the clipboard and serves it until another client takes it.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/write_back.h"
#include "platform/platform.h"

namespace tovrin {

/// The read time one WaylandPasteboard may spend in all; one read takes at
/// most half of it (the same bounds as the X11 pasteboard's).
inline constexpr std::chrono::milliseconds kWaylandPasteboardReadBudget{4000};
/// The most one read takes in.
inline constexpr size_t kWaylandMaxValueSize = size_t{64} << 20;

class WaylandConnection;
struct WaylandPasteboardState;

/// The clipboard of the first seat of one compositor. All operations may be
/// called from any thread, also concurrently.
class WaylandPasteboard : public Pasteboard {
 public:
  /// Gives up this process's empty ownership, and ends the serving process
  /// started ahead if it got no text.
  ~WaylandPasteboard() override;
  WaylandPasteboard(const WaylandPasteboard&) = delete;
  WaylandPasteboard& operator=(const WaylandPasteboard&) = delete;

  /// The MIME types of the clipboard's offer, in the offer's order; nothing
  /// when the clipboard is empty, given up on, or our own empty ownership.
  std::optional<std::vector<std::string>> types() override;
  /// kString: text/plain;charset=utf-8, else UTF8_STRING, else text/plain,
  /// CRLF made LF for the text/plain types. kHTML: text/html, UTF-8 or
  /// UTF-16 with a byte-order mark. Invalid UTF-8 becomes U+FFFD and one
  /// trailing NUL is dropped. Nothing for the other types.
  std::optional<std::string> stringForType(PasteboardType type) override;
  /// kRTF: the bytes of text/rtf, else application/rtf. kString and kHTML:
  /// the same UTF-8 as stringForType.
  std::optional<std::string> dataForType(PasteboardType type) override;
  /// Always nothing: Wayland clients offer no property lists.
  std::optional<PropertyList> propertyListForType(
      std::string_view type) override;
  /// The file: URLs of text/uri-list as paths.
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects() override;
  /// One item per URI of x-special/gnome-copied-files.
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override;

  /// Hands `text` to the process started ahead to serve the write-back,
  /// which serves it itself should this process die between
  /// clearContents() and setString().
  void guardString(std::string_view text) override;
  /// Makes this process the owner of a clipboard that offers nothing, and
  /// starts the process that setString() will hand text to.
  void clearContents() override;
  /// kString only: a detached process (own session, stdio on /dev/null, own
  /// connection) owns the clipboard with `text` and serves it until another
  /// client takes it. Returns once that process owns the clipboard.
  bool setString(std::string_view text, PasteboardType type) override;

  /// Runs `work` on the pasteboard's connection while no read uses it;
  /// false when there is no connection.
  bool withConnection(const std::function<void(WaylandConnection&)>& work);

  /// The write-back's serving process, which the copy run tells of the
  /// keys it presses (evdev codes) and shares its lock with.
  WriteBack& writeBack() { return writeBack_; }

 private:
  friend std::unique_ptr<WaylandPasteboard> createWaylandPasteboard(
      const std::string& socket, std::shared_ptr<WaylandConnection> connection);
  explicit WaylandPasteboard(std::shared_ptr<WaylandPasteboardState> state);

  std::shared_ptr<WaylandPasteboardState> state_;
  WriteBack writeBack_;
};

/// The pasteboard of the compositor at `socket` (empty: $WAYLAND_DISPLAY);
/// null when it does not answer or offers no data-control. It speaks over
/// `connection` when given one (to that compositor), and nobody else may
/// make exchanges on it from then on; else over a connection of its own.
/// KWin checks each new connection of a program it authorizes for about
/// 17 ms (it reads the program's whole file): one fewer counts.
std::unique_ptr<WaylandPasteboard> createWaylandPasteboard(
    const std::string& socket,
    std::shared_ptr<WaylandConnection> connection = nullptr);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_PASTEBOARD_H_
