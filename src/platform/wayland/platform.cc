// The Wayland backend, for wlroots compositors and KWin: AT-SPI for the
// direct read, a virtual keyboard (KWin: fake input, through a helper of
// ours) for the copy shortcut, the data-control clipboard for the
// pasteboard, and the compositor's list of windows for the frontmost
// application. Wayland does not tell which client owns PRIMARY, so PRIMARY
// never stands for the focused application's selection here.

#include "platform/wayland/platform.h"

#include <cctype>
#include <memory>
#include <string>

#include "platform/atspi/elements.h"
#include "platform/atspi/session.h"
#include "platform/linux/empty_pasteboard.h"
#include "platform/linux/linux_platform.h"
#include "platform/system.h"
#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"
#include "platform/wayland/kwin_input.h"
#include "platform/wayland/pasteboard.h"
#include "platform/wayland/toplevels.h"
#include "text/text.h"

namespace tovrin {
namespace {

/// The longest an AT-SPI read may take, connecting included.
constexpr std::chrono::milliseconds kAtspiReadBudget{500};
/// How long the permission commands wait for the accessibility bus.
constexpr std::chrono::milliseconds kAccessibilityBusTimeout{250};
/// How long the copy waits for its keystroke to be ready; it takes tens of
/// milliseconds with a compositor that answers.
constexpr std::chrono::milliseconds kKeystrokeWait{2000};

constexpr char kDataControl[] = "zwlr_data_control_manager_v1";
constexpr char kVirtualKeyboard[] = "zwp_virtual_keyboard_manager_v1";

class WaylandEventSource : public EventSource {};

/// A key event of the copy shortcut: the key-down presses it, the key-up
/// releases it. The pasteboard's serving process hears of both, to release
/// the keys should this process die in between.
class WaylandKeyboardEvent : public KeyboardEvent {
 public:
  WaylandKeyboardEvent(WaylandCopyKeystroke& keystroke,
                       WaylandPasteboard& pasteboard, bool keyDown)
      : keystroke_(keystroke), pasteboard_(pasteboard), keyDown_(keyDown) {}

  void setFlags(uint64_t flags) override { flags_ = flags; }
  void post(int) override {
    // The events of the copy shortcut carry Command alone; others are not
    // ours to send.
    if (flags_ != kEventFlagMaskCommand) return;
    if (keyDown_) {
      pasteboard_.writeBack().keysPressed(keystroke_.shortcutKeys());
      keystroke_.press();
    } else {
      keystroke_.release();
      pasteboard_.writeBack().keysReleased();
    }
  }

 private:
  WaylandCopyKeystroke& keystroke_;
  WaylandPasteboard& pasteboard_;
  bool keyDown_;
  uint64_t flags_ = 0;
};

class WaylandPlatform : public LinuxPlatform {
 public:
  explicit WaylandPlatform(std::unique_ptr<WaylandConnection> connection)
      : connection_(std::move(connection)),
        socket_(waylandSocketPath({})),
        accessibility_(std::nullopt) {}
  ~WaylandPlatform() override {
    // Keys still down are released before the connection closes.
    keystroke_.reset();
  }

  // Accessibility. tovrin can work when the compositor lets it own the
  // clipboard and type the copy shortcut, or when the accessibility bus
  // answers.
  bool isProcessTrusted() override {
    if (copyProtocolsOffered()) return true;
    return accessibility_.reachable(kAccessibilityBusTimeout);
  }
  /// Asking also turns on toolkit accessibility, so that applications
  /// started from now on expose their text.
  bool isProcessTrustedWithPrompt() override {
    if (accessibility_.enableToolkitAccessibility(kAccessibilityBusTimeout)) {
      log("[tovrin] Accessibility: toolkit accessibility is on for "
          "applications started from now on");
    }
    return isProcessTrusted();
  }

  AXObjectHandle createSystemWideElement() override {
    return createAtspiSystemWideElement();
  }

  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override {
    return copyAtspiAttribute(
        element, attribute, accessibility_,
        [this] {
          // The compositor names the active application, for toolkits that
          // do not mark their active window.
          return accessibility_.readSelection(
              std::nullopt, kAtspiReadBudget,
              frontmostApplicationBundleIdentifier());
        },
        [this](std::string_view line) { log(line); });
  }

  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    if (!frontmostAsked_) {
      frontmostAsked_ = true;
      const auto deadline =
          std::chrono::steady_clock::now() + kWaylandReplyTimeout;
      ActivatedToplevel active = activatedToplevel(*connection_, deadline);
      if (!active.listed && kwinInput()) {
        active = kwinInput_->activeWindow(deadline);
      }
      frontmost_ = active.appId;
    }
    return frontmost_;
  }

  /// The compositor tells the modifier state only to the focused client.
  /// The virtual keyboard's modifiers are its own, so the keys the user
  /// holds elsewhere do not join the shortcut.
  uint64_t modifierFlags() override { return 0; }

  EventSourceHandle createEventSource(int) override {
    return std::make_unique<WaylandEventSource>();
  }

  KeyboardEventHandle createKeyboardEvent(EventSource*, uint16_t virtualKey,
                                          bool keyDown) override {
    if (virtualKey != kVirtualKeyC) return nullptr;
    // Without the clipboard, a copy would only overwrite the user's text.
    generalPasteboard();
    if (waylandPasteboard_ == nullptr) return nullptr;
    if (!keystroke_) startKeystrokePreparation();
    if (!keystroke_ && preparation_) {
      keystroke_ = preparation_->take(std::chrono::steady_clock::now() +
                                      kKeystrokeWait);
      if (!keystroke_) {
        logMissingProtocols();
        return nullptr;
      }
    }
    if (!keystroke_) return nullptr;
    return std::make_unique<WaylandKeyboardEvent>(*keystroke_->keystroke,
                                                  *waylandPasteboard_, keyDown);
  }

  std::shared_ptr<Pasteboard> generalPasteboard() override {
    if (!pasteboard_) {
      // The pasteboard takes this connection over rather than open one
      // (see createWaylandPasteboard); the frontmost application, the one
      // exchange of ours on it, is known before.
      frontmostApplicationBundleIdentifier();
      std::shared_ptr<WaylandPasteboard> pasteboard =
          createWaylandPasteboard(socket_, connection_);
      waylandPasteboard_ = pasteboard.get();
      pasteboard_ = std::move(pasteboard);
      if (!pasteboard_) {
        logMissingProtocols();
        pasteboard_ = std::make_shared<EmptyPasteboard>();
      }
    }
    return pasteboard_;
  }

  WriteBack* copyRunWriteBack() override {
    return waylandPasteboard_ != nullptr ? &waylandPasteboard_->writeBack()
                                         : nullptr;
  }
  /// The keystroke is made ready while the run saves the clipboard and
  /// pauses before clearing it.
  void prepareCopyRun() override {
    if (waylandPasteboard_ != nullptr) startKeystrokePreparation();
  }
 private:
  void startKeystrokePreparation() {
    if (preparation_ || keystroke_) return;
    const std::string appId =
        frontmostApplicationBundleIdentifier().value_or("");
    if (connection_->virtualKeyboard() == nullptr && kwinInput() &&
        kwinInput_->keysOffered()) {
      keystroke_ = kwinKeystroke(copyShortcutFor({appId}));
      return;
    }
    preparation_ =
        KeystrokePreparation::start(socket_, copyShortcutFor({appId}));
  }

  /// KWin's helper, started on first use where the compositor is KWin;
  /// null elsewhere, or when it is missing or does not start.
  KWinInput* kwinInput() {
    if (!kwinInputTried_ && connection_->kwin()) {
      kwinInputTried_ = true;
      kwinInputPath_ = KWinInput::helperPath();
      if (kwinInputPath_) kwinInput_ = KWinInput::start(*kwinInputPath_, socket_);
    }
    return kwinInput_.get();
  }

  /// The keys go through the helper; the seat's keymap, which tells which
  /// key gives a Latin c, comes over the pasteboard's connection.
  std::unique_ptr<ReadyKeystroke> kwinKeystroke(CopyShortcut shortcut) {
    std::optional<CopyKeys> keys;
    waylandPasteboard_->withConnection(
        [&](WaylandConnection& connection) { keys = seatCopyKeys(connection); });
    std::unique_ptr<SyntheticKeyboard> keyboard =
        KWinInput::keyboard(kwinInput_);
    if (!keys || !keyboard) return nullptr;
    auto ready = std::make_unique<ReadyKeystroke>();
    ready->keystroke = WaylandCopyKeystroke::create(std::move(keyboard),
                                                    std::move(*keys), shortcut);
    return ready;
  }

  bool keysOffered() {
    return connection_->virtualKeyboard() != nullptr ||
           (kwinInput() && kwinInput_->keysOffered());
  }

  bool copyProtocolsOffered() {
    if (connection_->dataControl() != nullptr && keysOffered()) return true;
    logMissingProtocols();
    return false;
  }

  /// Says once which protocol keeps the copy from working: GNOME offers
  /// neither, KWin no virtual keyboard, and its fake input only to the
  /// programs it authorizes.
  void logMissingProtocols() {
    if (missingLogged_) return;
    missingLogged_ = true;
    for (const auto& [offered, name] :
         {std::pair{connection_->dataControl() != nullptr, kDataControl},
          std::pair{keysOffered(), kVirtualKeyboard}}) {
      if (offered) continue;
      log(std::string("[tovrin] Wayland: the compositor does not offer ") +
          name + "; only AT-SPI can read the selection");
    }
    if (connection_->kwin() && !keysOffered()) {
      if (!kwinInputPath_) {
        log("[tovrin] Wayland: tovrin-kwin-input, which types for tovrin "
            "under KWin, is neither beside tovrin nor in " +
            KWinInput::installedFolder());
      } else {
        log("[tovrin] Wayland: KWin offers org_kde_kwin_fake_input only to "
            "programs named by an installed .desktop file that lists it in "
            "X-KDE-Wayland-Interfaces; tovrin's package installs one for " +
            *kwinInputPath_);
      }
    }
  }

  // Copy runs on different compositors use different clipboards.
  std::string copyLockName() override {
    std::string name = "tovrin-copy-wayland";
    for (const char c : socket_) {
      name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name + ".lock";
  }

  /// Shared with the pasteboard, which alone makes exchanges on it once
  /// it exists.
  std::shared_ptr<WaylandConnection> connection_;
  const std::string socket_;
  AccessibilitySession accessibility_;
  bool frontmostAsked_ = false;
  std::optional<std::string> frontmost_;
  bool kwinInputTried_ = false;
  std::optional<std::string> kwinInputPath_;
  std::shared_ptr<KWinInput> kwinInput_;
  std::unique_ptr<KeystrokePreparation> preparation_;
  std::unique_ptr<ReadyKeystroke> keystroke_;
  std::shared_ptr<Pasteboard> pasteboard_;
  WaylandPasteboard* waylandPasteboard_ = nullptr;  // pasteboard_, when one
  bool missingLogged_ = false;
};

}  // namespace

std::unique_ptr<Platform> createWaylandPlatform(
    std::unique_ptr<WaylandConnection> connection) {
  return std::make_unique<WaylandPlatform>(std::move(connection));
}

}  // namespace tovrin
