#include "platform/wayland/kwin_fake_input.h"

#include <wayland-client.h>

#include <chrono>

#include "fake-input-client.h"
#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

class FakeInputKeyboard : public SyntheticKeyboard {
 public:
  FakeInputKeyboard(WaylandConnection& connection,
                    org_kde_kwin_fake_input* fakeInput)
      : connection_(connection), fakeInput_(fakeInput) {}
  ~FakeInputKeyboard() override {
    connection_.flush(Clock::now() + kWaylandReplyTimeout);
  }

  void key(uint32_t key, bool down) override {
    org_kde_kwin_fake_input_keyboard_key(
        fakeInput_, key,
        down ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
  }
  /// KWin takes the modifiers from the keys pressed.
  void modifiers(uint32_t, uint32_t) override {}
  bool send() override {
    return connection_.flush(Clock::now() + kWaylandReplyTimeout);
  }
  bool sync() override {
    return connection_.roundtrip(Clock::now() + kWaylandReplyTimeout);
  }

 private:
  WaylandConnection& connection_;
  org_kde_kwin_fake_input* fakeInput_;
};

}  // namespace

std::unique_ptr<SyntheticKeyboard> createFakeInputKeyboard(
    WaylandConnection& connection) {
  org_kde_kwin_fake_input* fakeInput = connection.fakeInput();
  if (fakeInput == nullptr) return nullptr;
  // KWin ignores the keys of a client that has not authenticated; it does
  // not ask the user.
  org_kde_kwin_fake_input_authenticate(fakeInput, "tovrin",
                                       "copies the selected text");
  return std::make_unique<FakeInputKeyboard>(connection, fakeInput);
}

}  // namespace tovrin
