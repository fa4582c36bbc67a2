#include "platform/wayland/clipboard_keeper.h"

#include <unistd.h>

#include <chrono>
#include <vector>

#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"
#include "platform/wayland/offers.h"
#include "platform/wayland/pipe_read.h"
#include "wlr-data-control-unstable-v1-client.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

/// How long a serving process waits for the compositor when nothing
/// happens before it checks that the connection still stands.
constexpr std::chrono::seconds kIdleCheckPeriod{60};

class WaylandClipboardKeeper : public ClipboardKeeper {
 public:
  explicit WaylandClipboardKeeper(std::unique_ptr<WaylandConnection> connection)
      : connection_(std::move(connection)) {}
  ~WaylandClipboardKeeper() override {
    if (source_ != nullptr) zwlr_data_control_source_v1_destroy(source_);
    if (device_ != nullptr) zwlr_data_control_device_v1_destroy(device_);
  }

  /// A virtual keyboard's keys are its own, and sway lets go of them when
  /// the client that pressed them goes away; KWin 5.27 keeps the keys of
  /// a fake input client that went away held. The same keys are released
  /// on a keyboard of ours (a virtual one with the seat's keymap, so that
  /// the focused application keeps the user's layout, or KWin's fake
  /// input); a release of a key that is up is ignored.
  void releaseKeys(const std::vector<uint8_t>& keys) override {
    if (keys.empty()) return;
    const std::optional<CopyKeys> copyKeys = seatCopyKeys(*connection_);
    if (!copyKeys) return;
    auto keyboard = createSyntheticKeyboard(*connection_, *copyKeys);
    if (!keyboard) return;
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
      keyboard->key(*key, false);
    }
    keyboard->modifiers(0);
    keyboard->sync();
  }

  bool own(const std::string& text) override {
    zwlr_data_control_manager_v1* manager = connection_->dataControl();
    if (manager == nullptr || connection_->seat() == nullptr) return false;
    text_ = text;
    device_ = zwlr_data_control_manager_v1_get_data_device(manager,
                                                           connection_->seat());
    source_ = zwlr_data_control_manager_v1_create_data_source(manager);
    static const zwlr_data_control_source_v1_listener kListener = {
        &WaylandClipboardKeeper::onSend, &WaylandClipboardKeeper::onCancelled};
    zwlr_data_control_source_v1_add_listener(source_, &kListener, this);
    for (const std::string& type : servedTextTypes()) {
      zwlr_data_control_source_v1_offer(source_, type.c_str());
    }
    zwlr_data_control_device_v1_set_selection(device_, source_);
    if (!connection_->roundtrip(Clock::now() + kWaylandReplyTimeout) ||
        cancelled_) {
      return false;
    }
    holdSeatKeyboard();
    return true;
  }

  void serve() override {
    while (!cancelled_) {
      if (!connection_->dispatchUntil([this] { return cancelled_; },
                                      Clock::now() + kIdleCheckPeriod) &&
          connection_->broken()) {
        return;
      }
    }
  }

 private:
  static void onSend(void* data, zwlr_data_control_source_v1*,
                     const char* type, int32_t fd) {
    auto* self = static_cast<WaylandClipboardKeeper*>(data);
    // A reader that stops reading is given up on; the next one is served.
    writePipe(fd, servedTextFor(type, self->text_), kWaylandReplyTimeout);
    close(fd);
  }
  static void onCancelled(void* data, zwlr_data_control_source_v1*) {
    static_cast<WaylandClipboardKeeper*>(data)->cancelled_ = true;
  }

  /// sway has no current keyboard once the virtual keyboard that typed the
  /// copy goes away with tovrin, until the next key press; an application
  /// that starts meanwhile gets a keyboard without a keymap (Chromium ends
  /// there and then). A keyboard of ours with the keymap the seat has now,
  /// made after the keystroke, becomes the seat's and stays while we serve;
  /// the user's next key press takes the seat back.
  void holdSeatKeyboard() {
    if (connection_->virtualKeyboard() == nullptr) return;
    CopyKeys keys;
    std::optional<std::string> keymap =
        seatKeymap(*connection_, Clock::now() + kWaylandReplyTimeout);
    if (!keymap) return;
    keys.keymap = std::move(*keymap);
    seatKeyboard_ = VirtualKeyboard::create(*connection_, keys);
    if (seatKeyboard_) seatKeyboard_->sync();
  }

  std::unique_ptr<WaylandConnection> connection_;
  std::unique_ptr<VirtualKeyboard> seatKeyboard_;
  zwlr_data_control_device_v1* device_ = nullptr;
  zwlr_data_control_source_v1* source_ = nullptr;
  std::string text_;
  bool cancelled_ = false;
};

}  // namespace

std::unique_ptr<ServerProcess> startWaylandClipboardServer(
    const std::string& socket, int lockFd) {
  return ServerProcess::start(
      [socket]() -> std::unique_ptr<ClipboardKeeper> {
        auto connection = WaylandConnection::open(socket, kServerOpenTimeout);
        if (!connection) return nullptr;
        return std::make_unique<WaylandClipboardKeeper>(std::move(connection));
      },
      lockFd);
}

}  // namespace tovrin
