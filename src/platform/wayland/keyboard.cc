#include "platform/wayland/keyboard.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/wayland/connection.h"
#include "platform/wayland/kwin_input.h"
#include "virtual-keyboard-unstable-v1-client.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;
/// How long applications are given to take up a keyboard that a seat
/// without one gets from us.
constexpr std::chrono::milliseconds kKeyboardArrivalPause{200};

/// A file holding `text` and a NUL, as keymaps are handed over; -1 on
/// failure.
int keymapFile(const std::string& text) {
  const int fd = memfd_create("tovrin-keymap", MFD_CLOEXEC);
  if (fd < 0) return -1;
  const std::string_view bytes(text.c_str(), text.size() + 1);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
    if (count <= 0) {
      close(fd);
      return -1;
    }
    done += static_cast<size_t>(count);
  }
  return fd;
}

uint32_t milliseconds() {
  return static_cast<uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(
          Clock::now().time_since_epoch())
          .count());
}

}  // namespace

std::unique_ptr<SyntheticKeyboard> createSyntheticKeyboard(
    WaylandConnection& connection, const CopyKeys& keys) {
  if (auto keyboard = VirtualKeyboard::create(connection, keys)) {
    return keyboard;
  }
  if (!connection.kwin()) return nullptr;
  const std::optional<std::string> helper = KWinInput::helperPath();
  if (!helper) return nullptr;
  return KWinInput::keyboard(KWinInput::start(*helper, connection.socketPath()));
}

std::unique_ptr<VirtualKeyboard> VirtualKeyboard::create(
    WaylandConnection& connection, const CopyKeys& keys) {
  if (connection.virtualKeyboard() == nullptr || connection.seat() == nullptr) {
    return nullptr;
  }
  const int fd = keymapFile(keys.keymap);
  if (fd < 0) return nullptr;
  zwp_virtual_keyboard_v1* keyboard =
      zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(
          connection.virtualKeyboard(), connection.seat());
  zwp_virtual_keyboard_v1_keymap(keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1,
                                 fd, static_cast<uint32_t>(keys.keymap.size() + 1));
  close(fd);  // sent as a duplicate
  return std::unique_ptr<VirtualKeyboard>(
      new VirtualKeyboard(connection, keyboard));
}

VirtualKeyboard::~VirtualKeyboard() {
  zwp_virtual_keyboard_v1_destroy(keyboard_);
  connection_.flush(Clock::now() + kWaylandReplyTimeout);
}

void VirtualKeyboard::key(uint32_t key, bool down) {
  zwp_virtual_keyboard_v1_key(keyboard_, milliseconds(), key,
                              down ? WL_KEYBOARD_KEY_STATE_PRESSED
                                   : WL_KEYBOARD_KEY_STATE_RELEASED);
}

void VirtualKeyboard::modifiers(uint32_t depressed, uint32_t layout) {
  zwp_virtual_keyboard_v1_modifiers(keyboard_, depressed, 0, 0, layout);
}

bool VirtualKeyboard::send() {
  return connection_.flush(Clock::now() + kWaylandReplyTimeout);
}

bool VirtualKeyboard::sync() {
  return connection_.roundtrip(Clock::now() + kWaylandReplyTimeout);
}

std::unique_ptr<WaylandCopyKeystroke> WaylandCopyKeystroke::prepare(
    WaylandConnection& connection, CopyShortcut shortcut) {
  std::optional<CopyKeys> keys = seatCopyKeys(connection);
  if (!keys) return nullptr;
  std::unique_ptr<SyntheticKeyboard> keyboard =
      createSyntheticKeyboard(connection, *keys);
  if (!keyboard) return nullptr;
  if (!connection.seatHasKeyboard()) {
    // A seat without a keyboard gets one now, and applications bind it
    // only when they hear of it: keys sent before are lost.
    keyboard->sync();
    std::this_thread::sleep_for(kKeyboardArrivalPause);
  }
  return std::unique_ptr<WaylandCopyKeystroke>(
      new WaylandCopyKeystroke(std::move(keyboard), std::move(*keys), shortcut));
}

WaylandCopyKeystroke::~WaylandCopyKeystroke() { release(); }

std::vector<uint8_t> WaylandCopyKeystroke::shortcutKeys() const {
  if (shortcut_ == CopyShortcut::kNone) return {};
  std::vector<uint8_t> keys = {static_cast<uint8_t>(keys_.control)};
  if (shortcut_ == CopyShortcut::kControlShiftC) {
    keys.push_back(static_cast<uint8_t>(keys_.shift));
  }
  keys.push_back(static_cast<uint8_t>(keys_.c));
  return keys;
}

void WaylandCopyKeystroke::press() {
  if (pressed_ || shortcut_ == CopyShortcut::kNone) return;
  pressed_ = true;
  uint32_t held = keys_.controlMask;
  keyboard_->key(keys_.control, true);
  keyboard_->modifiers(held, keys_.layout);
  if (shortcut_ == CopyShortcut::kControlShiftC) {
    held |= keys_.shiftMask;
    keyboard_->key(keys_.shift, true);
    keyboard_->modifiers(held, keys_.layout);
  }
  keyboard_->key(keys_.c, true);
  // Sent, not waited for: the compositor hands the keys on while the copy
  // pauses for the application anyway.
  keyboard_->send();
}

void WaylandCopyKeystroke::release() {
  if (!pressed_) return;
  pressed_ = false;
  keyboard_->key(keys_.c, false);
  if (shortcut_ == CopyShortcut::kControlShiftC) {
    keyboard_->key(keys_.shift, false);
    keyboard_->modifiers(keys_.controlMask, keys_.layout);
  }
  keyboard_->key(keys_.control, false);
  keyboard_->modifiers(0, keys_.layout);
  keyboard_->send();
}

ReadyKeystroke::~ReadyKeystroke() { keystroke.reset(); }

struct KeystrokePreparation::State {
  std::mutex mutex;
  std::condition_variable ready;
  bool done = false;                      // by mutex
  std::unique_ptr<ReadyKeystroke> result;  // by mutex
};

std::unique_ptr<KeystrokePreparation> KeystrokePreparation::start(
    const std::string& socket, CopyShortcut shortcut) {
  auto state = std::make_shared<State>();
  // Detached: nothing waits for it when the process ends.
  std::thread([state, socket, shortcut] {
    auto ready = std::make_unique<ReadyKeystroke>();
    ready->connection = WaylandConnection::open(socket);
    if (ready->connection) {
      ready->keystroke =
          WaylandCopyKeystroke::prepare(*ready->connection, shortcut);
    }
    if (!ready->keystroke) ready.reset();
    std::lock_guard<std::mutex> lock(state->mutex);
    state->result = std::move(ready);
    state->done = true;
    state->ready.notify_all();
  }).detach();
  return std::unique_ptr<KeystrokePreparation>(new KeystrokePreparation(state));
}

std::unique_ptr<ReadyKeystroke> KeystrokePreparation::take(
    Clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(state_->mutex);
  if (!state_->ready.wait_until(lock, deadline,
                                [this] { return state_->done; })) {
    return nullptr;
  }
  return std::move(state_->result);
}

}  // namespace tovrin
