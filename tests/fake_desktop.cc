#include "fake_desktop.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "cli/output.h"

namespace tovrin {

void PrintTo(const Response& response, std::ostream* out) {
  *out << encodeResponse(response).value_or("<not encodable>");
}

}  // namespace tovrin

namespace tovrin::testing {
namespace {

/// Every handle the desktop hands out, which counts itself among the live
/// ones while it exists; a copy run's lock records its release.
struct FakeHandle : AXObject, EventSource, KeyboardEvent, CopyRunLock {
  FakeHandle(std::shared_ptr<int> counter, std::optional<std::string> text = {},
             std::function<void(uint64_t flags, int tap)> deliver = {})
      : counter(std::move(counter)), text(std::move(text)), deliver(std::move(deliver)) {
    ++*this->counter;
  }
  ~FakeHandle() override {
    --*counter;
    if (release) release();
  }
  std::optional<std::string> stringValue() const override { return text; }
  void setFlags(uint64_t newFlags) override { flags = newFlags; }
  void post(int tap) override { deliver(flags, tap); }
  std::shared_ptr<int> counter;
  std::optional<std::string> text;
  std::function<void(uint64_t flags, int tap)> deliver;
  std::function<void()> release;
  uint64_t flags = 0;
};

}  // namespace

/// Signalled at most once, as every bounded read's semaphore is.
class FakeDesktop::FakeSemaphore : public Semaphore {
 public:
  explicit FakeSemaphore(FakeDesktop& desktop) : desktop_(desktop) {}
  void signal() override { signalledAt_ = desktop_.currentClock(); }
  bool waitUntil(std::chrono::nanoseconds deadline) override {
    desktop_.runPendingWork();
    double& clock = desktop_.clock_;
    const double until = std::chrono::duration<double>(deadline).count();
    // A signal that came in time, or before the wait began, is taken.
    const bool taken = signalledAt_ && (*signalledAt_ <= until || *signalledAt_ <= clock);
    clock = std::max(clock, taken ? *std::exchange(signalledAt_, std::nullopt) : until);
    return taken;
  }

 private:
  FakeDesktop& desktop_;
  std::optional<double> signalledAt_;
};

FakeDesktop::FakeDesktop() : liveHandles_(std::make_shared<int>(0)) {}

void FakeDesktop::record(std::string operation, bool spendsTime) {
  if (spendsTime) sleep(operationSeconds + extraSeconds[operation]);
  operations.push_back(std::move(operation));
}

PasteboardContents& FakeDesktop::currentPasteboard() {
  if (!contents_) contents_ = pasteboard;
  if (copyLandsAt_ && currentClock() >= *copyLandsAt_) {
    contents_ = *copyResult;
    copyLandsAt_.reset();
  }
  return *contents_;
}

AXObjectHandle FakeDesktop::createSystemWideElement() {
  return std::make_unique<FakeHandle>(liveHandles_);
}

AXAttributeResult FakeDesktop::copyAttributeValue(const AXObject&,
                                                  std::string_view attribute) {
  record(std::string(attribute));
  const FakeAttribute& answer =
      attribute == "AXFocusedUIElement" ? focusedElement : selectedText;
  AXAttributeResult result{answer.error, nullptr};
  if (const auto* text = std::get_if<std::string>(&answer.value)) {
    result.value = std::make_unique<FakeHandle>(liveHandles_, *text);
  } else if (std::holds_alternative<FakeAttribute::NonString>(answer.value)) {
    result.value = std::make_unique<FakeHandle>(liveHandles_);
  }
  return result;
}

uint64_t FakeDesktop::modifierFlags() {
  record("modifierFlags", false);
  uint64_t flags = 0;
  for (const auto& [from, state] : modifierTimeline) {
    if (from <= clock_ + 1e-9) flags = state;
  }
  return flags;
}

EventSourceHandle FakeDesktop::createEventSource(int stateId) {
  record("eventSource " + std::to_string(stateId), false);
  return std::make_unique<FakeHandle>(liveHandles_);
}

KeyboardEventHandle FakeDesktop::createKeyboardEvent(EventSource*,
                                                     uint16_t virtualKey,
                                                     bool keyDown) {
  if (keyDown ? failKeyDownCreation : failKeyUpCreation) return nullptr;
  return std::make_unique<FakeHandle>(
      liveHandles_, std::nullopt, [this, virtualKey, keyDown](uint64_t flags, int tap) {
        record(std::string(keyDown ? "keyDown " : "keyUp ") +
               std::to_string(virtualKey) + " flags " + std::to_string(flags) +
               " tap " + std::to_string(tap));
        // Applications act on the key press of the shortcut.
        if (keyDown && virtualKey == kVirtualKeyC &&
            flags == kEventFlagMaskCommand && copyResult) {
          copyLandsAt_ = clock_ + copyDelay;
        }
      });
}

CopyRunLockHandle FakeDesktop::lockCopyRun(std::chrono::milliseconds timeout) {
  const double limit = clock_ + std::chrono::duration<double>(timeout).count();
  clock_ = std::max(clock_, std::min(limit, otherCopyRunSeconds));
  if (otherCopyRunSeconds > limit) return nullptr;
  record("lock", false);
  auto lock = std::make_unique<FakeHandle>(liveHandles_);
  lock->release = [this] { record("unlock", false); };
  return lock;
}

std::chrono::nanoseconds FakeDesktop::monotonicNow() {
  return std::chrono::nanoseconds(std::llround(currentClock() * 1e9));
}

std::shared_ptr<Semaphore> FakeDesktop::createSemaphore() {
  return std::make_shared<FakeSemaphore>(*this);
}

void FakeDesktop::runPendingWork() {
  for (auto& [submitted, work] : std::exchange(pendingWork_, {})) {
    workerClock_ = submitted;
    work();
    workerClock_.reset();
  }
}

// tovrin reads plain text and HTML as strings, RTF as data, and file names
// as a property list; any other read finds nothing.
std::optional<std::string> FakeDesktop::stringForType(PasteboardType type) {
  const bool html = type == PasteboardType::kHTML;
  record(html ? "html" : type == PasteboardType::kString ? "string" : "string of RTF");
  return html ? currentPasteboard().html
              : type == PasteboardType::kString ? currentPasteboard().string : std::nullopt;
}

std::optional<std::string> FakeDesktop::dataForType(PasteboardType type) {
  record(type == PasteboardType::kRTF ? "rtf" : "data of another type");
  return type == PasteboardType::kRTF ? currentPasteboard().rtf : std::nullopt;
}

std::optional<PropertyList> FakeDesktop::propertyListForType(std::string_view type) {
  record("propertyList " + std::string(type));
  return type == "NSFilenamesPboardType" ? currentPasteboard().filenames : std::nullopt;
}

bool FakeDesktop::setString(std::string_view text, PasteboardType type) {
  record("setString " + std::string(text));
  if (type != PasteboardType::kString) return false;
  currentPasteboard().string = std::string(text);
  currentPasteboard().types = std::vector<std::string>{"public.utf8-plain-text"};
  return true;
}

}  // namespace tovrin::testing
