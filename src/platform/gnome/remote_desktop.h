#ifndef TOVRIN_PLATFORM_GNOME_REMOTE_DESKTOP_H_
#define TOVRIN_PLATFORM_GNOME_REMOTE_DESKTOP_H_

// GNOME's compositor offers neither data-control nor a virtual keyboard:
// its remote-desktop interface on the session bus
// (org.gnome.Mutter.RemoteDesktop) is the one way a program without a
// window reads and owns the clipboard and types keys there. A session of it
// lives as long as the bus connection that created it.
//
// The interface promises no stability between versions: only the versions
// tovrin was tried with are used. Every call waits at most
// kSdBusCallTimeout and never past its deadline.

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tovrin {

/// The versions of the interface tovrin speaks (Mutter 43 has 1).
inline constexpr int kMutterRemoteDesktopNewestVersion = 1;

/// What SelectionOwnerChanged says: the types of the new owner's content,
/// and whether that owner is this session.
struct MutterClipboardOwner {
  std::vector<std::string> types;
  bool ours = false;
};

struct SdBusLibrary;

/// Reads SelectionOwnerChanged's options (a{sv}) from `message`: its
/// "mime-types", at most 256 of at most 1024 bytes each, and its
/// "session-is-owner"; other entries are skipped. False when the message
/// is not of that shape.
bool readClipboardOwner(const SdBusLibrary& library, sd_bus_message* message,
                        MutterClipboardOwner& owner);

/// One remote-desktop session on a bus connection of its own. Not
/// thread-safe: callers serialize.
class MutterRemoteDesktop {
 public:
  /// Connects to the session bus and creates a session; null when the
  /// interface is not there, is of a version tovrin does not know (then
  /// `why` says so), or does not answer by `deadline`.
  static std::unique_ptr<MutterRemoteDesktop> open(
      std::chrono::nanoseconds deadline, std::string* why = nullptr);
  ~MutterRemoteDesktop();
  MutterRemoteDesktop(const MutterRemoteDesktop&) = delete;
  MutterRemoteDesktop& operator=(const MutterRemoteDesktop&) = delete;

  /// Called from dispatch() for each SelectionOwnerChanged and
  /// SelectionTransfer (MIME type, serial) of this session.
  void onOwnerChanged(std::function<void(const MutterClipboardOwner&)> f);
  void onTransfer(std::function<void(const std::string&, uint32_t)> f);

  /// Starts the session, which input needs; GNOME Shell shows an indicator
  /// while it runs.
  bool start(std::chrono::nanoseconds deadline);
  /// Presses or releases the key of `keysym`, whatever the user's layout.
  /// Sent without waiting for the answer: the compositor handles the calls
  /// of a connection in order, after start(), during the copy's pause.
  bool keysym(uint32_t keysym, bool pressed);
  /// Stops the session, without waiting either; destroying it stops it too.
  void stop();

  /// Follows the clipboard; with `types`, owns it with them at once.
  bool enableClipboard(const std::vector<std::string>& types,
                       std::chrono::nanoseconds deadline);
  /// Owns the clipboard with `types` (not empty).
  bool setSelection(const std::vector<std::string>& types,
                    std::chrono::nanoseconds deadline);
  /// The descriptor to write the content of transfer `serial` into; -1 when
  /// there is none. The caller closes it, then calls transferDone.
  int selectionWrite(uint32_t serial, std::chrono::nanoseconds deadline);
  bool transferDone(uint32_t serial, bool success,
                    std::chrono::nanoseconds deadline);
  /// The current content of `type`, read until its writer closes it: gives
  /// up when nothing comes for `inactivity`, at `deadline`, or beyond
  /// `maxSize`. The compositor fills the descriptor while this connection
  /// is dispatched, so the read dispatches it too.
  std::optional<std::string> selectionRead(const std::string& type,
                                           std::chrono::milliseconds inactivity,
                                           std::chrono::nanoseconds deadline,
                                           size_t maxSize);

  /// Handles the signals that came, waiting for more until `done` holds or
  /// `deadline`; false when the connection broke.
  bool dispatch(const std::function<bool()>& done,
                std::chrono::nanoseconds deadline);
  /// Waits until the compositor has answered everything sent before (its
  /// signals included); false when it did not by `deadline`.
  bool roundtrip(std::chrono::nanoseconds deadline);
  /// Handles the signals that have come, without waiting; false when the
  /// connection broke.
  bool dispatchPending();

 private:
  struct State;
  static std::unique_ptr<State> connectKnown(std::chrono::nanoseconds deadline,
                                             std::string* why);
  explicit MutterRemoteDesktop(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_GNOME_REMOTE_DESKTOP_H_
