#ifndef TOVRIN_TESTS_FAKE_DESKTOP_H_
#define TOVRIN_TESTS_FAKE_DESKTOP_H_

// An in-memory desktop on a virtual clock, for testing every subsystem
// without a real one. Tests script it through its public members, run the
// code under test, then look at what it recorded: log lines, the answer on
// standard output, the desktop operations in order, posted key events, live
// handles.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/platform.h"

#include <ostream>

#include "response/response.h"

namespace tovrin {
/// Prints a response as the JSON line it becomes, for failure messages.
void PrintTo(const Response& response, std::ostream* out);
}  // namespace tovrin

namespace tovrin::testing {

/// What an attribute query answers: a result code and a value, which may be
/// absent, a string, or some other object.
struct FakeAttribute {
  struct NonString {};
  AXError error = kAXErrorSuccess;
  std::variant<std::monostate, std::string, NonString> value;
};

/// Everything that a pasteboard can hold, as tovrin reads it.
struct PasteboardContents {
  std::optional<std::vector<std::string>> types;
  std::optional<std::string> string;
  std::optional<std::string> html;
  std::optional<std::string> rtf;
  std::optional<std::vector<PasteboardURLObject>> urlObjects;
  std::optional<std::vector<PasteboardItem>> items;
  std::optional<PropertyList> filenames;
};

/// One synthetic key event that the code posted.
struct PostedKeyEvent {
  uint16_t virtualKey = 0;
  bool keyDown = false;
  uint64_t flags = 0;
  int tap = -1;
};

class FakeDesktop : public Platform {
 public:
  FakeDesktop();
  ~FakeDesktop() override;

  // --- The script -------------------------------------------------------

  bool trusted = true;
  /// What the focus query of the system-wide element answers.
  FakeAttribute focusedElement{kAXErrorSuccess, std::string("element")};
  /// What the selected-text query of the focused element answers.
  FakeAttribute selectedText{kAXErrorNoValue, std::monostate()};
  std::optional<std::string> frontmostApplication = "org.example.editor";

  /// The modifier state over virtual time: each step holds from its time
  /// (seconds since the start) until the next step's.
  std::vector<std::pair<double, uint64_t>> modifierTimeline = {{0.0, 0}};

  /// How long another copy run keeps the clipboard from virtual time 0.
  double otherCopyRunSeconds = 0.0;

  bool failKeyDownCreation = false;
  bool failKeyUpCreation = false;

  /// The pasteboard as the user left it.
  PasteboardContents pasteboard;
  /// What the frontmost application copies when it receives Command-C, and
  /// how long after the key-up it lands. Nothing: the keystroke copies
  /// nothing.
  std::optional<PasteboardContents> copyResult;
  double copyDelay = 0.0;
  /// How long the pasteboard takes to answer a read of HTML or RTF.
  double htmlReadSeconds = 0.0;
  double rtfReadSeconds = 0.0;
  /// How long every other query of the desktop takes: trust checks, the
  /// frontmost application, accessibility queries, pasteboard operations,
  /// posting key events. Reading the modifier state takes no time.
  double operationSeconds = 0.0;
  /// The RTF converter; without one, no RTF converts.
  std::function<std::optional<std::string>(std::string_view)> rtfConverter;

  // --- What happened ----------------------------------------------------

  std::vector<std::string> logLines;
  std::string output;
  /// The answer for an interrupted run, as the command set it.
  std::string interruptedAnswer;
  /// Pasteboard operations, modifier reads and posted keys, in order:
  /// "types", "string", "html", "rtf", "urlObjects", "items",
  /// "propertyList NAME", "clear", "setString TEXT", "modifierFlags",
  /// "keyDown", "keyUp", "lock" and "unlock" (of the copy run's lock).
  std::vector<std::string> operations;
  std::vector<PostedKeyEvent> postedEvents;
  /// The trust calls made: "AXIsProcessTrusted" (never prompts) or
  /// "AXIsProcessTrustedWithOptions" (prompts when not trusted).
  std::vector<std::string> trustCalls;
  /// The state each event source was created with.
  std::vector<int> eventSourceStates;
  int frontmostQueries = 0;
  int modifierReads = 0;
  std::vector<std::string> attributeQueries;
  /// Virtual seconds since the start.
  double elapsed() const { return clock_; }
  /// Handles handed out and not yet released.
  int liveHandles() const { return *liveHandles_; }
  /// The pasteboard's current contents.
  const PasteboardContents& currentPasteboard() const;

  // --- Platform ---------------------------------------------------------

  bool isProcessTrusted() override;
  bool isProcessTrustedWithPrompt() override;
  AXObjectHandle createSystemWideElement() override;
  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override;
  std::optional<std::string> frontmostApplicationBundleIdentifier() override;
  uint64_t modifierFlags() override;
  EventSourceHandle createEventSource(int stateId) override;
  KeyboardEventHandle createKeyboardEvent(EventSource* source,
                                          uint16_t virtualKey,
                                          bool keyDown) override;
  CopyRunLockHandle lockCopyRun(std::chrono::milliseconds timeout) override;
  std::shared_ptr<Pasteboard> generalPasteboard() override;
  std::optional<std::string> convertRtfToHtml(std::string_view rtf) override;
  std::optional<ParsedURL> parseURL(std::string_view text) override;
  void sleep(double seconds) override;
  std::chrono::nanoseconds monotonicNow() override;
  std::shared_ptr<Semaphore> createSemaphore() override;
  void dispatchAsync(std::function<void()> work) override;
  void log(std::string_view line) override;
  void writeOutput(std::string_view text) override;
  void setInterruptedAnswer(std::string_view line) override {
    interruptedAnswer = line;
  }

 private:
  class FakePasteboard;
  class FakeSemaphore;
  friend class FakePasteboard;
  friend class FakeSemaphore;

  /// The virtual time of the thread of control that is running: a worker's
  /// own clock while a dispatched work item runs, the main clock otherwise.
  double& currentClock();
  /// Runs the dispatched work items, each on its own virtual clock starting
  /// at its submission.
  void runPendingWork();
  void deliverKeyEvent(const PostedKeyEvent& event);
  /// One query of the desktop: its virtual time passes.
  void spendOperation() { sleep(operationSeconds); }

  double clock_ = 0.0;
  std::optional<double> workerClock_;
  std::vector<std::pair<double, std::function<void()>>> pendingWork_;
  std::shared_ptr<int> liveHandles_;
  std::shared_ptr<FakePasteboard> pasteboard_;
  std::optional<double> copyLandsAt_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_FAKE_DESKTOP_H_
