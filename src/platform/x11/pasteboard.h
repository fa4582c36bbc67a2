#ifndef TOVRIN_PLATFORM_X11_PASTEBOARD_H_
#define TOVRIN_PLATFORM_X11_PASTEBOARD_H_

// The general pasteboard on X11: the CLIPBOARD selection.
//
// Reads convert CLIPBOARD from its current owner, each operation on an X
// connection of its own taken from a small pool, so that a reader that timed
// out on a frozen owner and still runs on a worker thread never shares a
// connection (or a lock) with the next read. Every operation gives up after
// kX11ConversionTimeout without an answer, and a transfer that never ends
// after half of kX11PasteboardReadBudget or kX11MaxValueSize.
//
// clearContents() makes this process the owner of an empty CLIPBOARD, so a
// clipboard manager cannot put old content back where the application's copy
// is awaited. setString() hands the text to a detached child process that
// owns CLIPBOARD and serves it until another client takes it.
//
// A value counts only under the type that was asked for: some owners
// (xclip) answer every target with their one value.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/write_back.h"
#include "platform/platform.h"

namespace tovrin {

/// The read time one X11Pasteboard may spend in all; one read takes at most
/// half of it. A get-selection run reads up to seven times (the saved text,
/// file URLs, GNOME items, the text polls, TARGETS, HTML, RTF) around 0.3 s
/// of pauses and the write-back of the saved text; with this budget it
/// answers within about 5 s whatever the owners do, and an owner given up
/// on at the save still leaves 2 s for the application's copy. Reads of
/// answering owners take milliseconds, so only hostile or frozen owners
/// ever use it up.
inline constexpr std::chrono::milliseconds kX11PasteboardReadBudget{4000};

/// What an X11Pasteboard shares with its running operations.
struct X11PasteboardState;

/// The CLIPBOARD selection of one X display as tovrin's pasteboard. All
/// operations may be called from any thread, also concurrently.
///
/// An object lives for one run, and its reads share one budget: together
/// they spend at most kX11PasteboardReadBudget (time during which several
/// reads overlap counts once), each at most half of it; past it, reads
/// return nothing at once. An owner that did not answer in time or sent
/// more than kX11MaxValueSize is given up on: while that window owns
/// CLIPBOARD, later reads return nothing at once, without asking it. A new
/// owner (the application's copy) is asked as usual.
class X11Pasteboard : public Pasteboard {
 public:
  /// The pasteboard of `displayName` (empty: $DISPLAY); use
  /// createX11Pasteboard, which checks that the display opens.
  explicit X11Pasteboard(std::string displayName);
  /// Gives up this process's (empty) ownership of CLIPBOARD, if it has it,
  /// and ends the serving process started ahead if it got no text. Text
  /// handed out with setString() stays served by its process.
  ~X11Pasteboard() override;
  X11Pasteboard(const X11Pasteboard&) = delete;
  X11Pasteboard& operator=(const X11Pasteboard&) = delete;

  /// The TARGETS of CLIPBOARD's owner, in its order; nothing when there is
  /// no owner, it refuses, or it is this process's empty ownership.
  std::optional<std::vector<std::string>> types() override;
  /// kString: UTF8_STRING, else text/plain;charset=utf-8 with CRLF made LF
  /// (STRING is never read: applications put Latin-1, UTF-8 or escapes
  /// there). kHTML: text/html, UTF-8 or UTF-16 with a byte-order mark.
  /// Invalid UTF-8 becomes U+FFFD and one trailing NUL is dropped. Nothing
  /// for the other types.
  std::optional<std::string> stringForType(PasteboardType type) override;
  /// kRTF: the bytes of text/rtf, else application/rtf. kString and kHTML:
  /// the same UTF-8 as stringForType.
  std::optional<std::string> dataForType(PasteboardType type) override;
  /// Always nothing: X11 owners offer no property lists.
  std::optional<PropertyList> propertyListForType(
      std::string_view type) override;
  /// The file: URLs of text/uri-list as paths; nothing when the owner has
  /// no uri-list.
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects() override;
  /// One item per URI of x-special/gnome-copied-files; nothing when the
  /// owner does not offer it.
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override;

  /// Hands `text` to the process started ahead to serve the write-back (it
  /// is started now if need be), which serves it itself should this
  /// process die between clearContents() and setString().
  void guardString(std::string_view text) override;
  /// Makes this process the owner of CLIPBOARD with no content. Requests to
  /// it are refused (TARGETS lists only TARGETS and TIMESTAMP) whenever an
  /// operation of this object runs; reads return nothing at once while it
  /// lasts. The application's copy then takes CLIPBOARD over. Also starts
  /// the process that setString() will hand text to, since the text is put
  /// back after every capture and starting a process is the slow part; it
  /// ends by itself if no text comes.
  void clearContents() override;
  /// kString only: a detached process (own session, stdio on /dev/null, own
  /// connection) owns CLIPBOARD with `text` and serves it until another
  /// client takes it or the display goes away; a clipboard manager, if one
  /// runs, is asked to save it. Returns once that process owns CLIPBOARD;
  /// false when it could not within kServerReplyTimeout.
  bool setString(std::string_view text, PasteboardType type) override;

  /// The write-back's serving process, which the copy run tells of the
  /// keys it presses (X key codes) and shares its lock with.
  WriteBack& writeBack() { return writeBack_; }

 private:
  friend std::unique_ptr<X11Pasteboard> createX11Pasteboard(
      const std::string& displayName);

  // Shared with operations still running, so that a late reader outlives
  // nothing it uses.
  std::shared_ptr<X11PasteboardState> state_;
  WriteBack writeBack_;
};

/// The pasteboard of the display named by $DISPLAY; null when none opens.
std::unique_ptr<X11Pasteboard> createX11Pasteboard();
/// The pasteboard of `displayName`; null when it does not open.
std::unique_ptr<X11Pasteboard> createX11Pasteboard(
    const std::string& displayName);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_PASTEBOARD_H_
