#ifndef TOVRIN_PLATFORM_PLATFORM_H_
#define TOVRIN_PLATFORM_PLATFORM_H_

// The one seam between tovrin's logic and the desktop it runs on.
//
// Every operation is shaped after the system call it stands for on macOS
// (Accessibility, CoreGraphics events, AppKit's pasteboard, Foundation), so
// the logic above reads the same on every backend. Backends: macOS
// (mac/platform.mm), X11 (x11/platform.cc), Wayland on wlroots compositors
// (wayland/platform.cc), and the fake desktop that the tests drive.
// `createPlatform()` is defined by mac/platform.mm, and on Linux by
// create_platform_linux.cc, which picks Wayland or X11 when tovrin starts.
//
// Objects that a "Create" or "Copy" operation hands out are owned through
// std::unique_ptr handles: the caller releases them by letting the handle go,
// on every path.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin {

/// Result code of an accessibility query: 0 is success, failures are
/// negative (the values of macOS's AXError).
using AXError = int32_t;
inline constexpr AXError kAXErrorSuccess = 0;
inline constexpr AXError kAXErrorFailure = -25200;
inline constexpr AXError kAXErrorIllegalArgument = -25201;
inline constexpr AXError kAXErrorCannotComplete = -25204;
inline constexpr AXError kAXErrorAttributeUnsupported = -25205;
inline constexpr AXError kAXErrorAPIDisabled = -25211;
inline constexpr AXError kAXErrorNoValue = -25212;

/// An object handed out by the accessibility interface: an element, or the
/// value of an attribute. Destroying it releases it.
class AXObject {
 public:
  virtual ~AXObject() = default;
  /// The object as text when it is a string; nothing when it is not.
  virtual std::optional<std::string> stringValue() const = 0;
};
using AXObjectHandle = std::unique_ptr<AXObject>;

/// What an attribute query gives: its result code and, on success, a value
/// that may still be absent.
struct AXAttributeResult {
  AXError error = kAXErrorFailure;
  AXObjectHandle value;
};

/// Bits of the system-wide modifier state, as NSEvent reports them.
inline constexpr uint64_t kModifierFlagCapsLock = 1ULL << 16;
inline constexpr uint64_t kModifierFlagShift = 1ULL << 17;
inline constexpr uint64_t kModifierFlagControl = 1ULL << 18;
inline constexpr uint64_t kModifierFlagOption = 1ULL << 19;
inline constexpr uint64_t kModifierFlagCommand = 1ULL << 20;

/// Event source states and taps, as CoreGraphics numbers them.
inline constexpr int kEventSourceStateHIDSystemState = 1;
inline constexpr int kHIDEventTap = 0;
/// The virtual key code of the C key on every layout (kVK_ANSI_C).
inline constexpr uint16_t kVirtualKeyC = 8;
/// The Command flag of a keyboard event (kCGEventFlagMaskCommand).
inline constexpr uint64_t kEventFlagMaskCommand = 0x100000;

/// The source that synthetic keyboard events are created from.
class EventSource {
 public:
  virtual ~EventSource() = default;
};
using EventSourceHandle = std::unique_ptr<EventSource>;

/// One synthetic keyboard event: created, given its flags, posted.
class KeyboardEvent {
 public:
  virtual ~KeyboardEvent() = default;
  /// Replaces the event's modifier flags.
  virtual void setFlags(uint64_t flags) = 0;
  /// Delivers the event into the system's input stream at `tap`.
  virtual void post(int tap) = 0;
};
using KeyboardEventHandle = std::unique_ptr<KeyboardEvent>;

/// The kinds of pasteboard entry that tovrin reads or writes by name.
enum class PasteboardType {
  kString,  // plain text (NSPasteboardTypeString)
  kHTML,    // HTML text (NSPasteboardTypeHTML)
  kRTF,     // RTF bytes (NSPasteboardTypeRTF)
};

/// An object read from the pasteboard by asking for URLs: whether it is one,
/// and its path when it is.
struct PasteboardURLObject {
  bool isURL = false;
  std::string path;
};

/// One pasteboard item, as far as tovrin looks into it: its file-URL text.
struct PasteboardItem {
  std::optional<std::string> fileURLString;
};

/// A property list, as far as tovrin looks into one: an array whose elements
/// are all texts, or something else.
struct PropertyList {
  std::optional<std::vector<std::string>> stringArray;
};

/// The system-wide clipboard. The reading operations may be called from a
/// worker thread while the main thread waits, and a late reader may still run
/// when the next read starts: backends make that safe.
class Pasteboard {
 public:
  virtual ~Pasteboard() = default;

  /// The type identifiers on the pasteboard, in the pasteboard's order.
  virtual std::optional<std::vector<std::string>> types() = 0;
  /// The entry of `type` as text; nothing when there is none.
  virtual std::optional<std::string> stringForType(PasteboardType type) = 0;
  /// The entry of `type` as bytes; nothing when there is none.
  virtual std::optional<std::string> dataForType(PasteboardType type) = 0;
  /// The property list stored under the type named `type`.
  virtual std::optional<PropertyList> propertyListForType(
      std::string_view type) = 0;
  /// The objects read when asking for file URLs only (readObjectsForClasses
  /// with NSURL and NSPasteboardURLReadingFileURLsOnlyKey).
  virtual std::optional<std::vector<PasteboardURLObject>>
  readFileURLObjects() = 0;
  /// The pasteboard's items, in order.
  virtual std::optional<std::vector<PasteboardItem>> pasteboardItems() = 0;

  /// Should this process end before the next setString() (killed by its
  /// host, say), `text` becomes the pasteboard's plain text all the same.
  /// The synthetic copy calls it with the saved text before clearing.
  virtual void guardString(std::string_view text) = 0;
  /// Empties the pasteboard.
  virtual void clearContents() = 0;
  /// Makes `text` the pasteboard's entry of `type`; false when it could not.
  virtual bool setString(std::string_view text, PasteboardType type) = 0;
};

/// Held by one copy run from saving the clipboard to writing it back;
/// destroying it lets the next run go.
class CopyRunLock {
 public:
  virtual ~CopyRunLock() = default;
};
using CopyRunLockHandle = std::unique_ptr<CopyRunLock>;

/// A URL as the platform's parser reads it.
struct ParsedURL {
  bool isFileURL = false;
  /// The percent-decoded path; meaningful for file URLs.
  std::string path;
};

/// A counting semaphore that starts at zero, shared by a waiter and a
/// worker. A signal given before the wait is taken at once.
class Semaphore {
 public:
  virtual ~Semaphore() = default;
  virtual void signal() = 0;
  /// Waits for a signal until `deadline` on the monotonic clock; false when
  /// the deadline passed first.
  virtual bool waitUntil(std::chrono::nanoseconds deadline) = 0;
};

/// The platform context that every handler receives.
class Platform {
 public:
  virtual ~Platform() = default;

  // Accessibility.
  /// Whether this process may use the accessibility interface. Shows nothing.
  virtual bool isProcessTrusted() = 0;
  /// The same, and asks the system to prompt the user when not trusted.
  virtual bool isProcessTrustedWithPrompt() = 0;
  /// A new system-wide accessibility element, owned by the caller.
  virtual AXObjectHandle createSystemWideElement() = 0;
  /// Copies the value of `attribute` of `element`; the value is the caller's.
  virtual AXAttributeResult copyAttributeValue(const AXObject& element,
                                               std::string_view attribute) = 0;

  // Applications and input.
  /// The bundle identifier of the frontmost application; nothing when there
  /// is no frontmost application or it has no identifier.
  virtual std::optional<std::string> frontmostApplicationBundleIdentifier() = 0;
  /// The current system-wide modifier state (kModifierFlag* bits).
  virtual uint64_t modifierFlags() = 0;
  /// A new event source of `stateId`; may be null, and is used as it is.
  virtual EventSourceHandle createEventSource(int stateId) = 0;
  /// A new keyboard event from `source` (possibly null); null on failure.
  virtual KeyboardEventHandle createKeyboardEvent(EventSource* source,
                                                  uint16_t virtualKey,
                                                  bool keyDown) = 0;

  // Clipboard and conversions.
  /// Waits at most `timeout` until no other copy run of this user on this
  /// desktop uses the clipboard, then keeps others out while the handle
  /// lives. Null when the time ran out. Two runs that interleaved their
  /// save, clear, copy and restore would take each other's empty or saved
  /// clipboard for the selection, and lose the user's text.
  virtual CopyRunLockHandle lockCopyRun(std::chrono::milliseconds timeout) = 0;
  /// The general pasteboard. Shared, so that a late reader on a worker
  /// thread keeps it alive past the end of `main`.
  virtual std::shared_ptr<Pasteboard> generalPasteboard() = 0;
  /// An HTML document (UTF-8) for the whole text of an RTF document, or
  /// nothing when the bytes are not readable RTF.
  virtual std::optional<std::string> convertRtfToHtml(std::string_view rtf) = 0;
  /// `text` parsed as a URL; nothing when it is not a valid URL.
  virtual std::optional<ParsedURL> parseURL(std::string_view text) = 0;

  // Time and threads.
  /// Blocks the calling thread for `seconds`.
  virtual void sleep(double seconds) = 0;
  /// The monotonic clock. Every duration and deadline is measured on it: a
  /// step of the wall clock (NTP, the user) must not stretch a wait or make
  /// a logged duration negative.
  virtual std::chrono::nanoseconds monotonicNow() = 0;
  virtual std::shared_ptr<Semaphore> createSemaphore() = 0;
  /// Runs `work` on a worker thread of user-initiated priority, later;
  /// returns at once. Nothing waits for the work when the process ends.
  virtual void dispatchAsync(std::function<void()> work) = 0;

  // Output.
  /// Writes one finished diagnostic line (without its line feed). The text
  /// is written literally, never interpreted as a format.
  virtual void log(std::string_view line) = 0;
  /// Writes `text` to standard output and flushes it.
  virtual void writeOutput(std::string_view text) = 0;
  /// The line to write instead, should the process be interrupted (SIGTERM,
  /// SIGINT, SIGHUP) before writeOutput(): a host that stops tovrin at its
  /// own timeout still reads one valid answer.
  virtual void setInterruptedAnswer(std::string_view line) = 0;
};

/// Seconds on the monotonic clock since `start`, an earlier monotonicNow().
inline double secondsSince(Platform& platform, std::chrono::nanoseconds start) {
  return std::chrono::duration<double>(platform.monotonicNow() - start).count();
}

/// The platform of the backend that this build was made with.
std::unique_ptr<Platform> createPlatform();

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_PLATFORM_H_
