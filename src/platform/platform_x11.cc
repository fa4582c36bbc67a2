// The X11 backend: the focused application's PRIMARY selection stands for
// the accessibility read, XTest for the synthetic key press, and the
// CLIPBOARD selection for the pasteboard.

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <memory>

#include "platform/platform.h"
#include "platform/system.h"

namespace tovrin {
namespace {

struct DisplayCloser {
  void operator()(Display* display) const { XCloseDisplay(display); }
};
using DisplayHandle = std::unique_ptr<Display, DisplayCloser>;

class X11Platform : public Platform {
 public:
  // Accessibility. X11 has no permission to grant: tovrin can work when the
  // display opens and offers XTEST for the synthetic key press, and there is
  // no prompt to show.
  bool isProcessTrusted() override {
    Display* display = this->display();
    if (display == nullptr) return false;
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    return XTestQueryExtension(display, &eventBase, &errorBase, &major,
                               &minor) != 0;
  }
  bool isProcessTrustedWithPrompt() override { return isProcessTrusted(); }

  AXObjectHandle createSystemWideElement() override { return nullptr; }
  AXAttributeResult copyAttributeValue(const AXObject&,
                                       std::string_view) override {
    return {kAXErrorAPIDisabled, nullptr};
  }

  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    return std::nullopt;
  }
  uint64_t modifierFlags() override { return 0; }
  EventSourceHandle createEventSource(int) override { return nullptr; }
  KeyboardEventHandle createKeyboardEvent(EventSource*, uint16_t,
                                          bool) override {
    return nullptr;
  }

  std::shared_ptr<Pasteboard> generalPasteboard() override { return nullptr; }
  std::optional<std::string> convertRtfToHtml(std::string_view) override {
    return std::nullopt;
  }
  std::optional<ParsedURL> parseURL(std::string_view) override {
    return std::nullopt;
  }

  double now() override { return wallClockNow(); }
  void sleep(double seconds) override { sleepSeconds(seconds); }
  std::chrono::nanoseconds monotonicNow() override {
    return monotonicClockNow();
  }
  std::shared_ptr<Semaphore> createSemaphore() override {
    return createSystemSemaphore();
  }
  void dispatchAsync(std::function<void()> work) override {
    dispatchToWorker(std::move(work));
  }
  void log(std::string_view line) override { writeLogLine(line); }
  void writeOutput(std::string_view text) override {
    writeStandardOutput(text);
  }

 private:
  /// The display named by the environment, opened on first use: commands
  /// that need no display never pay for it.
  Display* display() {
    if (!displayTried_) {
      displayTried_ = true;
      display_.reset(XOpenDisplay(nullptr));
    }
    return display_.get();
  }

  bool displayTried_ = false;
  DisplayHandle display_;
};

}  // namespace

std::unique_ptr<Platform> createPlatform() {
  return std::make_unique<X11Platform>();
}

}  // namespace tovrin
