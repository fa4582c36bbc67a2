#ifndef TOVRIN_TESTS_FAKE_DESKTOP_H_
#define TOVRIN_TESTS_FAKE_DESKTOP_H_

// An in-memory desktop on a virtual clock, for testing every subsystem
// without a real one. Tests script it through its public members, run the
// code under test, then look at what it recorded: log lines, the answer on
// standard output, the desktop operations in order, live handles. The
// desktop is its own general pasteboard.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "platform/platform.h"
#include "response/response.h"
#include "text/url_uriparser.h"

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
  std::optional<std::vector<std::string>> types = {};
  std::optional<std::string> string = {}, html = {}, rtf = {};
  std::optional<std::vector<PasteboardURLObject>> urlObjects = {};
  std::optional<std::vector<PasteboardItem>> items = {};
  std::optional<PropertyList> filenames = {};
};

class FakeDesktop : public Platform, public Pasteboard {
 public:
  FakeDesktop();

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
  bool failKeyDownCreation = false, failKeyUpCreation = false;
  /// The pasteboard as the user left it.
  PasteboardContents pasteboard;
  /// What the frontmost application copies when it receives Command-C, and
  /// how long after the key press it lands. Nothing: the keystroke copies
  /// nothing.
  std::optional<PasteboardContents> copyResult;
  double copyDelay = 0.0;
  /// How long every other query of the desktop takes: trust checks, the
  /// frontmost application, accessibility queries, pasteboard operations,
  /// posting key events. Modifier reads, the lock and event sources take no
  /// time.
  double operationSeconds = 0.0;
  /// How much longer some operations take, by name ("html": the read of HTML).
  std::map<std::string, double> extraSeconds;
  /// The RTF converter; without one, no RTF converts.
  std::function<std::optional<std::string>(std::string_view)> rtfConverter;

  // --- What happened ----------------------------------------------------

  std::vector<std::string> logLines;
  std::string output;
  /// The answer for an interrupted run, as the command set it.
  std::string interruptedAnswer;
  /// Every desktop operation, in order: "AXIsProcessTrusted" (never
  /// prompts), "AXIsProcessTrustedWithOptions" (prompts when not trusted),
  /// "frontmost", the attribute queried ("AXFocusedUIElement", ...),
  /// "modifierFlags", "eventSource STATE", "keyDown|keyUp KEY flags FLAGS
  /// tap TAP" (posted), "lock" and "unlock" (of the copy run's lock), and on
  /// the pasteboard "types", "string", "html", "rtf", "urlObjects", "items",
  /// "propertyList NAME", "guard TEXT", "clear", "setString TEXT".
  std::vector<std::string> operations;
  /// Virtual seconds since the start.
  double elapsed() const { return clock_; }
  /// Handles handed out and not yet released.
  int liveHandles() const { return *liveHandles_; }
  /// The pasteboard's current contents.
  PasteboardContents& currentPasteboard();

  // --- Platform ---------------------------------------------------------

  bool isProcessTrusted() override {
    record("AXIsProcessTrusted");
    return trusted;
  }
  bool isProcessTrustedWithPrompt() override {
    record("AXIsProcessTrustedWithOptions");
    return trusted;
  }
  AXObjectHandle createSystemWideElement() override;
  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override;
  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    record("frontmost");
    return frontmostApplication;
  }
  uint64_t modifierFlags() override;
  EventSourceHandle createEventSource(int stateId) override;
  KeyboardEventHandle createKeyboardEvent(EventSource* source, uint16_t virtualKey,
                                          bool keyDown) override;
  CopyRunLockHandle lockCopyRun(std::chrono::milliseconds timeout) override;
  /// The desktop outlives every run that uses its pasteboard.
  std::shared_ptr<Pasteboard> generalPasteboard() override {
    return {std::shared_ptr<void>(), this};
  }
  std::optional<std::string> convertRtfToHtml(std::string_view rtf) override {
    return rtfConverter ? rtfConverter(rtf) : std::nullopt;
  }
  std::optional<ParsedURL> parseURL(std::string_view text) override {
    return parseURLWithUriparser(text);
  }
  void sleep(double seconds) override { currentClock() += std::max(seconds, 0.0); }
  std::chrono::nanoseconds monotonicNow() override;
  std::shared_ptr<Semaphore> createSemaphore() override;
  void dispatchAsync(std::function<void()> work) override {
    pendingWork_.emplace_back(currentClock(), std::move(work));
  }
  void log(std::string_view line) override { logLines.emplace_back(line); }
  void writeOutput(std::string_view text) override { output.append(text); }
  void setInterruptedAnswer(std::string_view line) override { interruptedAnswer = line; }

  // --- Pasteboard -------------------------------------------------------

  std::optional<std::vector<std::string>> types() override {
    record("types");
    return currentPasteboard().types;
  }
  std::optional<std::string> stringForType(PasteboardType type) override;
  std::optional<std::string> dataForType(PasteboardType type) override;
  std::optional<PropertyList> propertyListForType(std::string_view type) override;
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects() override {
    record("urlObjects");
    return currentPasteboard().urlObjects;
  }
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override {
    record("items");
    return currentPasteboard().items;
  }
  void guardString(std::string_view text) override { record("guard " + std::string(text)); }
  void clearContents() override {
    record("clear");
    currentPasteboard() = PasteboardContents();
  }
  bool setString(std::string_view text, PasteboardType type) override;

 private:
  class FakeSemaphore;

  /// The virtual time of the thread of control that is running: a worker's
  /// own clock while a dispatched work item runs, the main clock otherwise.
  double& currentClock() { return workerClock_ ? *workerClock_ : clock_; }
  /// Runs the dispatched work items, each on its own virtual clock starting
  /// at its submission.
  void runPendingWork();
  /// Records one operation; a query of the desktop lets its time pass.
  void record(std::string operation, bool spendsTime = true);

  double clock_ = 0.0;
  std::optional<double> workerClock_;
  std::vector<std::pair<double, std::function<void()>>> pendingWork_;
  std::shared_ptr<int> liveHandles_;
  std::optional<PasteboardContents> contents_;
  std::optional<double> copyLandsAt_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_FAKE_DESKTOP_H_
