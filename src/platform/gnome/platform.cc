// The backend for GNOME's compositor (Mutter), which offers no data-control
// and no virtual keyboard: its remote-desktop interface for the clipboard
// and the copy keystroke, AT-SPI for the direct read and for the frontmost
// application (GNOME tells ordinary clients nothing of other windows).

#include "platform/gnome/platform.h"

#include <cctype>
#include <future>

#include "platform/atspi/elements.h"
#include "platform/atspi/sd_bus.h"
#include "platform/atspi/session.h"
#include "platform/gnome/pasteboard.h"
#include "platform/gnome/remote_desktop.h"
#include "platform/linux/copy_shortcut.h"
#include "platform/linux/empty_pasteboard.h"
#include "platform/linux/linux_platform.h"
#include "platform/system.h"
#include "platform/wayland/connection.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr std::chrono::milliseconds kAtspiReadBudget{500};
constexpr std::chrono::milliseconds kAccessibilityBusTimeout{250};
constexpr std::chrono::milliseconds kRemoteDesktopTimeout{1000};

constexpr uint32_t kKeysymControlL = 0xffe3;
constexpr uint32_t kKeysymShiftL = 0xffe1;
constexpr uint32_t kKeysymC = 0x63;

class MutterEventSource : public EventSource {};

/// The copy shortcut on a remote-desktop session of its own, started for
/// the keystroke alone: GNOME Shell shows its indicator while it runs.
class MutterKeyboardEvent : public KeyboardEvent {
 public:
  MutterKeyboardEvent(std::unique_ptr<MutterRemoteDesktop>& session,
                      std::vector<uint32_t> keysyms, bool keyDown)
      : session_(session), keysyms_(std::move(keysyms)), keyDown_(keyDown) {}

  void setFlags(uint64_t flags) override { flags_ = flags; }
  void post(int) override {
    if (flags_ != kEventFlagMaskCommand || !session_) return;
    if (keyDown_) {
      if (!session_->start(tovrin::monotonicNow() + kRemoteDesktopTimeout)) {
        return;
      }
      for (const uint32_t keysym : keysyms_) session_->keysym(keysym, true);
    } else {
      for (auto keysym = keysyms_.rbegin(); keysym != keysyms_.rend();
           ++keysym) {
        session_->keysym(*keysym, false);
      }
      // Stopped as soon as the keys are up, which ends the indicator.
      session_->stop();
    }
  }

 private:
  std::unique_ptr<MutterRemoteDesktop>& session_;
  std::vector<uint32_t> keysyms_;
  bool keyDown_;
  uint64_t flags_ = 0;
};

class MutterPlatform : public LinuxPlatform {
 public:
  MutterPlatform(std::unique_ptr<WaylandConnection> connection,
                 std::unique_ptr<MutterRemoteDesktop> clipboard)
      : connection_(std::move(connection)),
        clipboard_(std::move(clipboard)),
        socket_(waylandSocketPath({})),
        accessibility_(std::nullopt) {}

  /// The copy works through the remote-desktop interface, which answered.
  bool isProcessTrusted() override { return true; }
  bool isProcessTrustedWithPrompt() override {
    if (accessibility_.enableToolkitAccessibility(kAccessibilityBusTimeout)) {
      log("[tovrin] Accessibility: toolkit accessibility is on for "
          "applications started from now on");
    }
    return true;
  }

  AXObjectHandle createSystemWideElement() override {
    return createAtspiSystemWideElement();
  }

  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override {
    return copyAtspiAttribute(
        element, attribute, accessibility_, [this] { return atspiRead(); },
        [this](std::string_view line) { log(line); });
  }

  /// The application whose window is marked active over AT-SPI; the read
  /// that finds it is the one the direct read answers with.
  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    const std::string& source = atspiRead().source;
    const size_t toolkit = source.rfind(" (");
    if (source.empty()) return std::nullopt;
    return source.substr(0, toolkit);
  }

  uint64_t modifierFlags() override { return 0; }

  EventSourceHandle createEventSource(int) override {
    return std::make_unique<MutterEventSource>();
  }

  KeyboardEventHandle createKeyboardEvent(EventSource*, uint16_t virtualKey,
                                          bool keyDown) override {
    if (virtualKey != kVirtualKeyC) return nullptr;
    generalPasteboard();
    if (mutterPasteboard_ == nullptr) return nullptr;
    std::vector<uint32_t> keysyms = {kKeysymControlL, kKeysymC};
    switch (copyShortcutFor(
        {frontmostApplicationBundleIdentifier().value_or("")})) {
      case CopyShortcut::kControlC:
        break;
      case CopyShortcut::kControlShiftC:
        keysyms = {kKeysymControlL, kKeysymShiftL, kKeysymC};
        break;
      case CopyShortcut::kNone:
        return nullptr;
    }
    if (keyDown && !keys_) keys_ = takeKeysSession();
    if (!keys_) return nullptr;
    return std::make_unique<MutterKeyboardEvent>(keys_, std::move(keysyms),
                                                 keyDown);
  }

  std::shared_ptr<Pasteboard> generalPasteboard() override {
    if (!pasteboard_) {
      std::shared_ptr<MutterPasteboard> pasteboard =
          createMutterPasteboard(std::move(clipboard_));
      mutterPasteboard_ = pasteboard.get();
      pasteboard_ = std::move(pasteboard);
      if (!pasteboard_) pasteboard_ = std::make_shared<EmptyPasteboard>();
    }
    return pasteboard_;
  }

  WriteBack* copyRunWriteBack() override {
    return mutterPasteboard_ != nullptr ? &mutterPasteboard_->writeBack()
                                        : nullptr;
  }
  /// The keystroke's session is made while the run saves the clipboard and
  /// pauses; it starts only for the keys.
  void prepareCopyRun() override {
    if (keys_ || preparedKeys_.valid()) return;
    const auto deadline = tovrin::monotonicNow() + kRemoteDesktopTimeout;
    preparedKeys_ = std::async(std::launch::async, [deadline] {
      return MutterRemoteDesktop::open(deadline);
    });
  }

 private:
  std::unique_ptr<MutterRemoteDesktop> takeKeysSession() {
    if (preparedKeys_.valid()) return preparedKeys_.get();
    return MutterRemoteDesktop::open(tovrin::monotonicNow() +
                                     kRemoteDesktopTimeout);
  }

  const AtspiRead& atspiRead() {
    if (!read_) {
      read_ = accessibility_.mayBeThere()
                  ? accessibility_.readSelection(std::nullopt, kAtspiReadBudget)
                  : AtspiRead{};
    }
    return *read_;
  }

  std::string copyLockName() override {
    std::string name = "tovrin-copy-wayland";
    for (const char c : socket_) {
      name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name + ".lock";
  }

  std::unique_ptr<WaylandConnection> connection_;
  /// The session that the pasteboard follows the clipboard with.
  std::unique_ptr<MutterRemoteDesktop> clipboard_;
  const std::string socket_;
  AccessibilitySession accessibility_;
  std::optional<AtspiRead> read_;
  std::future<std::unique_ptr<MutterRemoteDesktop>> preparedKeys_;
  std::unique_ptr<MutterRemoteDesktop> keys_;
  std::shared_ptr<Pasteboard> pasteboard_;
  MutterPasteboard* mutterPasteboard_ = nullptr;  // pasteboard_, when one
};

}  // namespace

std::unique_ptr<Platform> createMutterPlatform(
    std::unique_ptr<WaylandConnection>& connection) {
  std::string why;
  auto clipboard = MutterRemoteDesktop::open(
      tovrin::monotonicNow() + kRemoteDesktopTimeout, &why);
  if (!clipboard) {
    if (!why.empty()) {
      writeLogLine("[tovrin] GNOME: " + why + "; the copy is off");
    }
    return nullptr;
  }
  return std::make_unique<MutterPlatform>(std::move(connection),
                                          std::move(clipboard));
}

}  // namespace tovrin
