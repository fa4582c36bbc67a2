// The X11 backend: the focused application's selection, read over AT-SPI
// or else from PRIMARY, stands for the accessibility read; XTest for the
// synthetic key press, and the CLIPBOARD selection for the pasteboard.

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/atspi/atspi_reader.h"
#include "platform/atspi/session.h"
#include "platform/linux/empty_pasteboard.h"
#include "platform/x11/platform.h"
#include "platform/x11/desktop.h"
#include "platform/x11/keyboard.h"
#include "platform/x11/pasteboard.h"
#include "platform/platform.h"
#include "platform/x11/selection.h"
#include "platform/linux/linux_platform.h"
#include "platform/system.h"
#include "text/text.h"

namespace tovrin {
namespace {

/// What the accessibility queries hand out on X11: the system-wide element,
/// an application window, or a text.
class X11AXObject : public AXObject {
 public:
  /// kActiveApplication stands for the focused element when no X11 window
  /// has the focus (a Wayland session, say): the accessibility bus knows
  /// which application is active.
  enum class Kind { kSystemWide, kWindow, kActiveApplication, kText };

  X11AXObject(Kind kind, Window window, std::string text = {})
      : kind_(kind), window_(window), text_(std::move(text)) {}

  std::optional<std::string> stringValue() const override {
    if (kind_ != Kind::kText) return std::nullopt;
    return text_;
  }
  Kind kind() const { return kind_; }
  Window window() const { return window_; }

 private:
  Kind kind_;
  Window window_;
  std::string text_;
};

class X11EventSource : public EventSource {};

/// The longest the direct read of PRIMARY may take in all.
constexpr std::chrono::milliseconds kPrimaryReadTotal{1000};
/// The longest an AT-SPI read may take, connecting included.
constexpr std::chrono::milliseconds kAtspiReadBudget{500};
/// How long the permission commands wait for the accessibility bus.
constexpr std::chrono::milliseconds kAccessibilityBusTimeout{250};

class X11Platform;

/// A key event of the copy shortcut: the key-down presses it, the key-up
/// releases it. The pasteboard's serving process hears of both, to release
/// the keys should this process die in between.
class X11KeyboardEvent : public KeyboardEvent {
 public:
  X11KeyboardEvent(CopyKeystroke& keystroke, X11Pasteboard* pasteboard,
                   bool keyDown)
      : keystroke_(keystroke), pasteboard_(pasteboard), keyDown_(keyDown) {}

  void setFlags(uint64_t flags) override { flags_ = flags; }
  void post(int) override {
    // The events of the copy shortcut carry Command alone; others are not
    // ours to send.
    if (flags_ != kEventFlagMaskCommand) return;
    if (keyDown_) {
      if (pasteboard_ != nullptr) {
        const std::vector<KeyCode> keys = keystroke_.shortcutKeys();
        pasteboard_->writeBack().keysPressed(
            std::vector<uint8_t>(keys.begin(), keys.end()));
      }
      keystroke_.press();
    } else {
      keystroke_.release();
      if (pasteboard_ != nullptr) pasteboard_->writeBack().keysReleased();
    }
  }

 private:
  CopyKeystroke& keystroke_;
  X11Pasteboard* pasteboard_;
  bool keyDown_;
  uint64_t flags_ = 0;
};

class X11Platform : public LinuxPlatform {
 public:
  ~X11Platform() override {
    // Keys still down are released before the connection closes.
    keystroke_.reset();
  }

  // Accessibility. Linux has no permission to grant, and no prompt to show:
  // tovrin can work when the display opens and offers XTEST for the
  // synthetic key press, or when the accessibility bus answers.
  bool isProcessTrusted() override {
    if (Display* display = this->display()) {
      int eventBase = 0, errorBase = 0, major = 0, minor = 0;
      if (XTestQueryExtension(display, &eventBase, &errorBase, &major,
                              &minor) != 0) {
        return true;
      }
    }
    return accessibility().reachable(kAccessibilityBusTimeout);
  }
  /// Asking also turns on toolkit accessibility, so that applications
  /// started from now on expose their text.
  bool isProcessTrustedWithPrompt() override {
    if (accessibility().enableToolkitAccessibility(kAccessibilityBusTimeout)) {
      log("[tovrin] Accessibility: toolkit accessibility is on for "
          "applications started from now on");
    }
    return isProcessTrusted();
  }

  AXObjectHandle createSystemWideElement() override {
    return std::make_unique<X11AXObject>(X11AXObject::Kind::kSystemWide, 0);
  }

  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override {
    const auto* object = dynamic_cast<const X11AXObject*>(&element);
    if (object == nullptr) return {kAXErrorIllegalArgument, nullptr};
    Display* display = this->display();
    if (object->kind() == X11AXObject::Kind::kSystemWide &&
        attribute == "AXFocusedUIElement") {
      const Window window = display ? focusedWindow(display) : 0;
      if (window != 0) {
        return {kAXErrorSuccess, std::make_unique<X11AXObject>(
                                     X11AXObject::Kind::kWindow, window)};
      }
      if (accessibility().mayBeThere()) {
        return {kAXErrorSuccess,
                std::make_unique<X11AXObject>(
                    X11AXObject::Kind::kActiveApplication, None)};
      }
      return {display ? kAXErrorNoValue : kAXErrorAPIDisabled, nullptr};
    }
    if (attribute != "AXSelectedText") {
      return {kAXErrorAttributeUnsupported, nullptr};
    }
    if (object->kind() == X11AXObject::Kind::kWindow && display != nullptr) {
      return selectedTextOf(display, object->window());
    }
    if (object->kind() == X11AXObject::Kind::kActiveApplication) {
      const AtspiRead read = readThroughAtspi(std::nullopt);
      if (read.error != kAXErrorSuccess) return {read.error, nullptr};
      return atspiText(read, None);
    }
    return {kAXErrorAttributeUnsupported, nullptr};
  }

  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    Display* display = this->display();
    if (display == nullptr) return std::nullopt;
    const Window window = focusedWindow(display);
    if (window == 0) return std::nullopt;
    return applicationIdentifier(display, window);
  }

  uint64_t modifierFlags() override {
    Display* display = this->display();
    return display == nullptr ? 0 : currentModifierFlags(display);
  }

  EventSourceHandle createEventSource(int) override {
    return std::make_unique<X11EventSource>();
  }

  KeyboardEventHandle createKeyboardEvent(EventSource*, uint16_t virtualKey,
                                          bool keyDown) override {
    if (virtualKey != kVirtualKeyC) return nullptr;
    CopyKeystroke* keystroke = copyKeystroke();
    if (keystroke == nullptr) return nullptr;
    return std::make_unique<X11KeyboardEvent>(*keystroke, x11Pasteboard_,
                                              keyDown);
  }

  std::shared_ptr<Pasteboard> generalPasteboard() override {
    if (!pasteboard_) {
      std::shared_ptr<X11Pasteboard> pasteboard = createX11Pasteboard();
      x11Pasteboard_ = pasteboard.get();
      pasteboard_ = std::move(pasteboard);
    }
    if (!pasteboard_) pasteboard_ = std::make_shared<EmptyPasteboard>();
    return pasteboard_;
  }

  WriteBack* copyRunWriteBack() override {
    return x11Pasteboard_ != nullptr ? &x11Pasteboard_->writeBack() : nullptr;
  }

 private:
  /// The display named by the environment, opened on first use: commands
  /// that need no display never pay for it.
  Display* display() {
    if (!connectionTried_) {
      connectionTried_ = true;
      connection_ = SelectionConnection::open(
          "", {"_NET_ACTIVE_WINDOW", "_GTK_APPLICATION_ID", "UTF8_STRING",
               "text/plain;charset=utf-8", "AT_SPI_BUS"});
    }
    return connection_ ? connection_->display() : nullptr;
  }

  /// The focused window's selection: what its application tells over
  /// AT-SPI, else PRIMARY. AT-SPI goes first because an application keeps
  /// its selection after another program takes PRIMARY (Chromium does).
  AXAttributeResult selectedTextOf(Display* display, Window window) {
    const std::optional<pid_t> process = windowProcessId(display, window);
    if (process) {
      const AtspiRead read = readThroughAtspi(process);
      if (read.error == kAXErrorSuccess) return atspiText(read, window);
      // An application that did not answer in time would keep the PRIMARY
      // read waiting as well.
      if (read.error == kAXErrorCannotComplete) {
        return {kAXErrorCannotComplete, nullptr};
      }
    }
    return primarySelectionOf(display, window, process);
  }

  /// The text of a successful AT-SPI read, with the line that names its
  /// source.
  AXAttributeResult atspiText(const AtspiRead& read, Window window) {
    // The name is the application's own: escaped like any other.
    log("[tovrin] Accessibility: read through AT-SPI from " +
        escapeForLog(read.source));
    return {kAXErrorSuccess,
            std::make_unique<X11AXObject>(X11AXObject::Kind::kText, window,
                                          toValidUtf8(read.text))};
  }

  /// The selection of process `pid` (the active application when none is
  /// given) over AT-SPI, within 500 ms in all.
  AtspiRead readThroughAtspi(std::optional<pid_t> pid) {
    return accessibility().readSelection(pid, kAtspiReadBudget);
  }

  /// The accessibility bus of this session, looked for on first use.
  const AccessibilitySession& accessibility() {
    if (!accessibility_) {
      Display* display = this->display();
      accessibility_.emplace(display ? atspiBusProperty(display)
                                     : std::nullopt);
    }
    return *accessibility_;
  }

  /// The accessibility bus address that at-spi-bus-launcher publishes on
  /// the root window, for clients outside its session bus.
  static std::optional<std::string> atspiBusProperty(Display* display) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    // Interned when the display opened: answered from Xlib's cache.
    const Atom property = XInternAtom(display, "AT_SPI_BUS", False);
    if (property == None ||
        XGetWindowProperty(display, DefaultRootWindow(display), property, 0,
                           1024, False, XA_STRING, &type, &format, &count,
                           &remaining, &data) != Success) {
      return std::nullopt;
    }
    std::optional<std::string> address;
    if (data != nullptr && format == 8 && count > 0) {
      address.emplace(reinterpret_cast<const char*>(data), count);
    }
    if (data != nullptr) XFree(data);
    return address;
  }

  /// PRIMARY, but only while a window of the focused window's process owns
  /// it. PRIMARY holds the last selection made anywhere, and another
  /// program's text is not what the user selected in the focused one.
  AXAttributeResult primarySelectionOf(Display* display, Window window,
                                       std::optional<pid_t> focusedProcess) {
    const Atom primary = XA_PRIMARY;
    const Window owner = XGetSelectionOwner(display, primary);
    if (owner == None || !focusedProcess) return {kAXErrorNoValue, nullptr};
    const auto ownerProcess = windowProcessId(display, owner);
    if (!ownerProcess || ownerProcess != focusedProcess) {
      return {kAXErrorNoValue, nullptr};
    }
    // A selection of a few megabytes arrives in tens of milliseconds; an
    // owner that trickles longer than this leaves time for the copy, so that
    // get-selection answers within about five seconds whatever it meets.
    ConversionDeadline deadline(kX11ConversionTimeout, kPrimaryReadTotal);
    for (const char* target : {"UTF8_STRING", "text/plain;charset=utf-8"}) {
      const SelectionConversion conversion = convertSelection(
          display, connection_->window(), primary,
          XInternAtom(display, target, False), deadline);
      switch (conversion.result) {
        case SelectionConversion::Result::kConverted:
          if (conversion.format != 8) break;
          return {kAXErrorSuccess,
                  std::make_unique<X11AXObject>(X11AXObject::Kind::kText,
                                                window,
                                                toValidUtf8(conversion.data))};
        case SelectionConversion::Result::kTimedOut:
        case SelectionConversion::Result::kTooLarge:
          return {kAXErrorCannotComplete, nullptr};
        case SelectionConversion::Result::kNoOwner:
          return {kAXErrorNoValue, nullptr};
        case SelectionConversion::Result::kRefused:
          break;
        case SelectionConversion::Result::kFailed:
          return {kAXErrorFailure, nullptr};
      }
    }
    return {kAXErrorNoValue, nullptr};
  }

  CopyKeystroke* copyKeystroke() {
    if (!keystroke_) {
      Display* display = this->display();
      if (display == nullptr) return nullptr;
      const Window window = focusedWindow(display);
      const auto names =
          window == 0 ? std::nullopt : windowClass(display, window);
      keystroke_ = CopyKeystroke::prepare(display, copyShortcutFor(names));
    }
    return keystroke_.get();
  }

  // Copy runs on different displays use different clipboards.
  std::string copyLockName() override {
    std::string name = "tovrin-copy";
    Display* display = this->display();
    for (const char c : std::string(display ? DisplayString(display) : "")) {
      name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name + ".lock";
  }

  bool connectionTried_ = false;
  std::optional<AccessibilitySession> accessibility_;
  std::unique_ptr<SelectionConnection> connection_;
  std::unique_ptr<CopyKeystroke> keystroke_;
  std::shared_ptr<Pasteboard> pasteboard_;
  X11Pasteboard* x11Pasteboard_ = nullptr;  // pasteboard_, when it is one
};

}  // namespace

std::unique_ptr<Platform> createX11Platform() {
  return std::make_unique<X11Platform>();
}

}  // namespace tovrin
