#ifndef TOVRIN_PLATFORM_ATSPI_ATSPI_READER_H_
#define TOVRIN_PLATFORM_ATSPI_ATSPI_READER_H_

// The selected text of the focused application, read over AT-SPI: find the
// application of a process on the accessibility bus, its focused element,
// and that element's selection. The search runs against AtspiBus, so the
// tests can hand it a tree held in memory.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tovrin {

/// One accessible object: the bus name of its application and its path.
struct AccessibleRef {
  std::string bus;
  std::string path;
  bool operator==(const AccessibleRef&) const = default;
};

/// How a call on the accessibility bus ended.
enum class BusStatus {
  kOk,
  /// No answer before the deadline.
  kTimedOut,
  /// The object, its interface or its application is not there, or the
  /// call failed otherwise.
  kUnavailable,
};

/// The answer to one call: its status and, when kOk, its value.
template <typename T>
struct BusReply {
  BusStatus status = BusStatus::kUnavailable;
  T value{};
};

/// A start and end offset of one selection of a text.
using TextRange = std::pair<int32_t, int32_t>;

/// What a walk asks of one object: its state set and, when asked, its
/// children.
struct ObjectFacts {
  BusReply<std::vector<uint32_t>> states;
  BusReply<std::vector<AccessibleRef>> children;
};

/// A text property of an object.
enum class TextProperty {
  /// Accessible.Name.
  kName,
  /// Application.ToolkitName, of an application's root.
  kToolkitName,
};

/// An object as an application's cache lists it.
struct CachedObject {
  AccessibleRef object, parent;
  std::vector<uint32_t> states;
};

/// The calls the search makes on the accessibility bus. Every call gives up
/// at `deadline` (monotonic clock) at the latest.
class AtspiBus {
 public:
  virtual ~AtspiBus() = default;

  /// The processes of `busNames`, in their order. The calls that ask many
  /// objects at once may send them together, where the bus allows, and
  /// await the replies together; here they are asked one by one.
  virtual std::vector<BusReply<pid_t>> processesOf(
      const std::vector<std::string>& busNames,
      std::chrono::nanoseconds deadline);
  /// Each of the properties asked, of its object.
  virtual std::vector<BusReply<std::string>> properties(
      const std::vector<std::pair<AccessibleRef, TextProperty>>& asked,
      std::chrono::nanoseconds deadline);
  /// The objects that the application at `busName` lists in its cache
  /// (Cache.GetItems), in its order: one call for all. kUnavailable when it
  /// has none.
  virtual BusReply<std::vector<CachedObject>> cachedObjects(
      const std::string& busName, std::chrono::nanoseconds deadline) = 0;
  /// The states of `objects`, with their children when `withChildren`.
  virtual std::vector<ObjectFacts> survey(
      const std::vector<AccessibleRef>& objects, bool withChildren,
      std::chrono::nanoseconds deadline);

  /// The monotonic clock the deadlines are measured on.
  virtual std::chrono::nanoseconds now() = 0;
  /// The applications registered on the bus (the desktop's children).
  virtual BusReply<std::vector<AccessibleRef>> applications(
      std::chrono::nanoseconds deadline) = 0;
  /// The process that owns the connection `busName`.
  virtual BusReply<pid_t> processOf(const std::string& busName,
                                    std::chrono::nanoseconds deadline) = 0;
  /// The first few descendants of `root` in the FOCUSED state, in tree
  /// order, as Collection finds them; kUnavailable when `root` has no
  /// Collection.
  virtual BusReply<std::vector<AccessibleRef>> focusedDescendants(
      const AccessibleRef& root, std::chrono::nanoseconds deadline) = 0;
  virtual BusReply<std::vector<AccessibleRef>> children(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) = 0;
  /// The state set, as the bit words of Accessible.GetState.
  virtual BusReply<std::vector<uint32_t>> states(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) = 0;
  /// The selections of a text (Text.GetNSelections and GetSelection).
  virtual BusReply<std::vector<TextRange>> selections(
      const AccessibleRef& object, std::chrono::nanoseconds deadline) = 0;
  virtual BusReply<std::string> text(const AccessibleRef& object,
                                     TextRange range,
                                     std::chrono::nanoseconds deadline) = 0;
  /// The accessible Name of `object`.
  virtual BusReply<std::string> name(const AccessibleRef& object,
                                     std::chrono::nanoseconds deadline) = 0;
  /// Text.CaretOffset: where the caret is in `object`'s text, -1 when it
  /// is not in it.
  virtual BusReply<int32_t> caretOffset(const AccessibleRef& object,
                                        std::chrono::nanoseconds deadline) = 0;
  /// Application.ToolkitName of the application whose root is `root`.
  virtual BusReply<std::string> toolkitName(
      const AccessibleRef& root, std::chrono::nanoseconds deadline) = 0;
  /// The object that the embedded-object character at `offset` of
  /// `object`'s text stands for (Hypertext.GetLinkIndex, GetLink and the
  /// link's Hyperlink.GetObject). The offset counts as the application's
  /// GetLinkIndex counts: see chromiumSelection.
  virtual BusReply<AccessibleRef> embeddedObject(
      const AccessibleRef& object, int32_t offset,
      std::chrono::nanoseconds deadline) = 0;
};

/// Limits of the search.
struct AtspiReadLimits {
  /// For the whole read, from its start.
  std::chrono::milliseconds budget{500};
  /// How deep, and over how many objects, the walk looks for the focused
  /// element of an application without Collection.
  int maxDepth = 24;
  int maxNodes = 400;
  /// How many top-level windows of an application are asked whether they
  /// are the active one.
  int maxFrames = 16;
  /// How many embedded objects (the paragraphs of a web page, say) a
  /// selection may span, and how deeply they may nest. A selection beyond
  /// that is left to the next source, which takes it whole.
  int maxEmbedded = 256;
  int maxEmbeddedDepth = 8;
};

/// What the read gave: the text, or why there is none.
struct AtspiRead {
  /// kAXErrorSuccess with `text`; kAXErrorAPIDisabled when the bus, the
  /// application or its text interface is not there; kAXErrorNoValue when
  /// nothing is focused or nothing is selected; kAXErrorCannotComplete when
  /// the application did not answer in time.
  AXError error = kAXErrorAPIDisabled;
  std::string text;
  /// The application that answered, e.g. "mousepad (GTK)"; empty when no
  /// application was found.
  std::string source;
};

/// The state bits of the window that has the keyboard (ATSPI_STATE_ACTIVE)
/// and of a focused object (ATSPI_STATE_FOCUSED).
inline constexpr int kAtspiStateActive = 1;
inline constexpr int kAtspiStateFocused = 12;

/// The character that stands for an embedded object in a text, U+FFFC.
inline constexpr std::string_view kEmbeddedObjectCharacter = "\xEF\xBF\xBC";

/// Reads the text selected in the focused element of the focused
/// application: that of process `pid` when the caller knows it (X11 tells
/// the focused window's process), else the one whose window is active
/// (Wayland tells clients nothing of other clients), else, when no window
/// is marked active, the one whose name is `activeAppId` (the app id the
/// compositor gives the activated window; see sameApplicationName). Within
/// an application, the search starts from its active window when it has
/// one.
AtspiRead readSelectedText(AtspiBus& bus, std::optional<pid_t> pid,
                           const AtspiReadLimits& limits = {},
                           std::optional<std::string> activeAppId = {});

/// The part of `text` that Chromium (and Electron) means by the selection
/// `reported`, in code points of `text`, which starts at offset 0 and may be
/// cut anywhere past the selection's end; nullopt when it cannot be told.
/// Chromium counts its text in code points (GetText, GetCharacterCount,
/// CaretOffset, Hyperlink offsets), but hands out each end of a selection
/// as the number of code points in the first N UTF-16 units of the text,
/// N being the end's true code point offset: short by one for each
/// character outside the Basic Multilingual Plane before that point. Where
/// unit N falls inside a surrogate pair it reports the range (0, 0)
/// instead, and nothing can be told from it. Its GetLinkIndex takes the
/// UTF-16 offset of the embedded-object character.
std::optional<TextRange> chromiumSelection(std::string_view text,
                                           TextRange reported);

/// What Chromium reports for the selection `range` of `text`, by the rule
/// above; (0, 0) where it can tell nothing.
TextRange chromiumReport(std::string_view text, TextRange range);

/// Whether an application that AT-SPI calls `name` is the one a Wayland
/// compositor calls `appId`: the same letters and digits, case aside, in
/// the whole app id or its last dot-separated part.
bool sameApplicationName(std::string_view name, std::string_view appId);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_ATSPI_ATSPI_READER_H_
