#include "fake_desktop.h"

#include <algorithm>
#include <cmath>

#include "cli/output.h"
#include "text/url_uriparser.h"

namespace tovrin {

void PrintTo(const Response& response, std::ostream* out) {
  *out << encodeResponse(response).value_or("<not encodable>");
}

}  // namespace tovrin

namespace tovrin::testing {
namespace {

/// Counts itself among the desktop's live handles while it exists.
class LiveCount {
 public:
  explicit LiveCount(std::shared_ptr<int> counter)
      : counter_(std::move(counter)) {
    ++*counter_;
  }
  ~LiveCount() { --*counter_; }
  LiveCount(const LiveCount&) = delete;
  LiveCount& operator=(const LiveCount&) = delete;

 private:
  std::shared_ptr<int> counter_;
};

class FakeAXObject : public AXObject {
 public:
  FakeAXObject(std::shared_ptr<int> counter, std::optional<std::string> text)
      : live_(std::move(counter)), text_(std::move(text)) {}
  std::optional<std::string> stringValue() const override { return text_; }

 private:
  LiveCount live_;
  std::optional<std::string> text_;
};

class FakeEventSource : public EventSource {
 public:
  explicit FakeEventSource(std::shared_ptr<int> counter)
      : live_(std::move(counter)) {}

 private:
  LiveCount live_;
};

}  // namespace

class FakeDesktop::FakePasteboard : public Pasteboard {
 public:
  explicit FakePasteboard(FakeDesktop& desktop) : desktop_(desktop) {}

  PasteboardContents& contents() {
    if (!contents_) contents_ = desktop_.pasteboard;
    if (desktop_.copyLandsAt_ &&
        desktop_.currentClock() >= *desktop_.copyLandsAt_) {
      contents_ = *desktop_.copyResult;
      desktop_.copyLandsAt_.reset();
    }
    return *contents_;
  }

  std::optional<std::vector<std::string>> types() override {
    record("types");
    return contents().types;
  }
  std::optional<std::string> stringForType(PasteboardType type) override {
    switch (type) {
      case PasteboardType::kString:
        record("string");
        return contents().string;
      case PasteboardType::kHTML:
        record("html");
        desktop_.sleep(desktop_.htmlReadSeconds);
        return contents().html;
      case PasteboardType::kRTF:
        break;
    }
    record("string of another type");
    return std::nullopt;
  }
  std::optional<std::string> dataForType(PasteboardType type) override {
    if (type != PasteboardType::kRTF) {
      record("data of another type");
      return std::nullopt;
    }
    record("rtf");
    desktop_.sleep(desktop_.rtfReadSeconds);
    return contents().rtf;
  }
  std::optional<PropertyList> propertyListForType(
      std::string_view type) override {
    record("propertyList " + std::string(type));
    if (type != "NSFilenamesPboardType") return std::nullopt;
    return contents().filenames;
  }
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects()
      override {
    record("urlObjects");
    return contents().urlObjects;
  }
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override {
    record("items");
    return contents().items;
  }
  void guardString(std::string_view text) override {
    record("guard " + std::string(text));
  }
  void clearContents() override {
    record("clear");
    contents() = PasteboardContents();
  }
  bool setString(std::string_view text, PasteboardType type) override {
    record("setString " + std::string(text));
    if (type != PasteboardType::kString) return false;
    PasteboardContents& now = contents();
    now.string = std::string(text);
    now.types = std::vector<std::string>{"public.utf8-plain-text"};
    return true;
  }

 private:
  void record(std::string operation) {
    desktop_.operations.push_back(std::move(operation));
    desktop_.spendOperation();
  }

  FakeDesktop& desktop_;
  std::optional<PasteboardContents> contents_;
};

class FakeDesktop::FakeSemaphore : public Semaphore {
 public:
  explicit FakeSemaphore(FakeDesktop& desktop) : desktop_(desktop) {}

  void signal() override { signals_.push_back(desktop_.currentClock()); }

  bool waitUntil(std::chrono::nanoseconds deadline) override {
    desktop_.runPendingWork();
    const double until = std::chrono::duration<double>(deadline).count();
    const auto first = std::min_element(signals_.begin(), signals_.end());
    // A signal that came in time, or before the wait began, is taken.
    if (first != signals_.end() &&
        (*first <= until || *first <= desktop_.clock_)) {
      desktop_.clock_ = std::max(desktop_.clock_, *first);
      signals_.erase(first);
      return true;
    }
    desktop_.clock_ = std::max(desktop_.clock_, until);
    return false;
  }

 private:
  FakeDesktop& desktop_;
  std::vector<double> signals_;
};

namespace {

class FakeKeyboardEvent : public KeyboardEvent {
 public:
  FakeKeyboardEvent(std::shared_ptr<int> counter, PostedKeyEvent event,
                    std::function<void(const PostedKeyEvent&)> deliver)
      : live_(std::move(counter)),
        event_(event),
        deliver_(std::move(deliver)) {}

  void setFlags(uint64_t flags) override { event_.flags = flags; }
  void post(int tap) override {
    event_.tap = tap;
    deliver_(event_);
  }

 private:
  LiveCount live_;
  PostedKeyEvent event_;
  std::function<void(const PostedKeyEvent&)> deliver_;
};

}  // namespace

FakeDesktop::FakeDesktop()
    : liveHandles_(std::make_shared<int>(0)),
      pasteboard_(std::make_shared<FakePasteboard>(*this)) {}

FakeDesktop::~FakeDesktop() = default;

const PasteboardContents& FakeDesktop::currentPasteboard() const {
  return pasteboard_->contents();
}

bool FakeDesktop::isProcessTrusted() {
  trustCalls.emplace_back("AXIsProcessTrusted");
  spendOperation();
  return trusted;
}

bool FakeDesktop::isProcessTrustedWithPrompt() {
  trustCalls.emplace_back("AXIsProcessTrustedWithOptions");
  spendOperation();
  return trusted;
}

AXObjectHandle FakeDesktop::createSystemWideElement() {
  return std::make_unique<FakeAXObject>(liveHandles_, std::nullopt);
}

AXAttributeResult FakeDesktop::copyAttributeValue(const AXObject&,
                                                  std::string_view attribute) {
  attributeQueries.emplace_back(attribute);
  spendOperation();
  const FakeAttribute& answer =
      attribute == "AXFocusedUIElement" ? focusedElement : selectedText;
  AXAttributeResult result;
  result.error = answer.error;
  if (const auto* text = std::get_if<std::string>(&answer.value)) {
    result.value = std::make_unique<FakeAXObject>(liveHandles_, *text);
  } else if (std::holds_alternative<FakeAttribute::NonString>(answer.value)) {
    result.value = std::make_unique<FakeAXObject>(liveHandles_, std::nullopt);
  }
  return result;
}

std::optional<std::string> FakeDesktop::frontmostApplicationBundleIdentifier() {
  ++frontmostQueries;
  spendOperation();
  return frontmostApplication;
}

uint64_t FakeDesktop::modifierFlags() {
  ++modifierReads;
  operations.emplace_back("modifierFlags");
  uint64_t flags = 0;
  for (const auto& [from, state] : modifierTimeline) {
    if (from <= clock_ + 1e-9) flags = state;
  }
  return flags;
}

EventSourceHandle FakeDesktop::createEventSource(int stateId) {
  eventSourceStates.push_back(stateId);
  return std::make_unique<FakeEventSource>(liveHandles_);
}

KeyboardEventHandle FakeDesktop::createKeyboardEvent(EventSource*,
                                                     uint16_t virtualKey,
                                                     bool keyDown) {
  if (keyDown ? failKeyDownCreation : failKeyUpCreation) return nullptr;
  return std::make_unique<FakeKeyboardEvent>(
      liveHandles_, PostedKeyEvent{virtualKey, keyDown, 0, -1},
      [this](const PostedKeyEvent& event) { deliverKeyEvent(event); });
}

void FakeDesktop::deliverKeyEvent(const PostedKeyEvent& event) {
  postedEvents.push_back(event);
  operations.emplace_back(event.keyDown ? "keyDown" : "keyUp");
  spendOperation();
  // Applications act on the key press of the shortcut.
  if (event.keyDown && event.virtualKey == kVirtualKeyC &&
      event.flags == kEventFlagMaskCommand && copyResult) {
    copyLandsAt_ = clock_ + copyDelay;
  }
}

CopyRunLockHandle FakeDesktop::lockCopyRun(std::chrono::milliseconds timeout) {
  class Lock : public CopyRunLock {
   public:
    explicit Lock(std::vector<std::string>& operations)
        : operations_(operations) {}
    ~Lock() override { operations_.emplace_back("unlock"); }

   private:
    std::vector<std::string>& operations_;
  };
  const double limit = clock_ + std::chrono::duration<double>(timeout).count();
  if (otherCopyRunSeconds > limit) {
    clock_ = std::max(clock_, limit);
    return nullptr;
  }
  clock_ = std::max(clock_, otherCopyRunSeconds);
  operations.emplace_back("lock");
  return std::make_unique<Lock>(operations);
}

std::shared_ptr<Pasteboard> FakeDesktop::generalPasteboard() {
  return pasteboard_;
}

std::optional<std::string> FakeDesktop::convertRtfToHtml(std::string_view rtf) {
  if (rtfConverter) return rtfConverter(rtf);
  return std::nullopt;
}

std::optional<ParsedURL> FakeDesktop::parseURL(std::string_view text) {
  return parseURLWithUriparser(text);
}

void FakeDesktop::sleep(double seconds) {
  if (seconds > 0) currentClock() += seconds;
}

std::chrono::nanoseconds FakeDesktop::monotonicNow() {
  return std::chrono::nanoseconds(std::llround(currentClock() * 1e9));
}

std::shared_ptr<Semaphore> FakeDesktop::createSemaphore() {
  return std::make_shared<FakeSemaphore>(*this);
}

void FakeDesktop::dispatchAsync(std::function<void()> work) {
  pendingWork_.emplace_back(currentClock(), std::move(work));
}

void FakeDesktop::runPendingWork() {
  auto pending = std::move(pendingWork_);
  pendingWork_.clear();
  for (auto& [submitted, work] : pending) {
    workerClock_ = submitted;
    work();
    workerClock_.reset();
  }
}

double& FakeDesktop::currentClock() {
  return workerClock_ ? *workerClock_ : clock_;
}

void FakeDesktop::log(std::string_view line) { logLines.emplace_back(line); }

void FakeDesktop::writeOutput(std::string_view text) { output.append(text); }

}  // namespace tovrin::testing
