// tovrin-kwin-input SOCKET: KWin's fake input and window list for tovrin,
// on the compositor at the socket path SOCKET. What it says and takes on
// its standard streams is told in kwin_input.h; it is kept small because
// KWin reads the whole file of the program on each of its connections.
//
// It ends at the end of its input, after kIdleLimit without a line, or
// when KWin goes away; before it ends, it releases every key it pressed
// and did not release: KWin keeps the keys of a fake input client that
// went away held.

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>

#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"
#include "platform/wayland/kwin_fake_input.h"
#include "platform/wayland/kwin_windows.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

/// tovrin sends its lines within a run, which ends within seconds.
constexpr int kIdleLimitMs = 10'000;
constexpr size_t kMaxLineLength = 64;

void answer(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  for (const unsigned char c : bytes) {
    result += kDigits[c >> 4];
    result += kDigits[c & 15];
  }
  return result;
}

int run(const char* socket) {
  std::unique_ptr<WaylandConnection> connection =
      WaylandConnection::open(socket);
  if (!connection) return 1;
  std::unique_ptr<SyntheticKeyboard> keyboard =
      createFakeInputKeyboard(*connection);
  // The list is bound when asked for: bound, KWin sends every window.
  const bool windows = connection->plasmaWindowsOffered();
  answer(std::string("ready ") + (keyboard ? "1" : "0") +
         (windows ? " 1" : " 0"));

  std::set<uint32_t> down;
  std::string pending;
  bool open = true;
  while (open) {
    pollfd input = {0, POLLIN, 0};
    char buffer[512];
    ssize_t count = 0;
    if (poll(&input, 1, kIdleLimitMs) > 0) {
      count = read(0, buffer, sizeof buffer);
    }
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    pending.append(buffer, static_cast<size_t>(count));
    for (size_t end; open && (end = pending.find('\n')) != std::string::npos;) {
      const std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      unsigned key = 0;
      int pressed = 0;
      if (line == "active") {
        const ActivatedToplevel active = activatedPlasmaWindow(
            *connection, Clock::now() + kWaylandReplyTimeout);
        answer(active.appId ? "active " + hex(*active.appId) : "active");
      } else if (line == "sync") {
        open = connection->roundtrip(Clock::now() + kWaylandReplyTimeout);
        answer(open ? "ok" : "failed");
      } else if (keyboard &&
                 std::sscanf(line.c_str(), "key %u %d", &key, &pressed) == 2) {
        keyboard->key(key, pressed != 0);
        if (pressed != 0) {
          down.insert(key);
        } else {
          down.erase(key);
        }
        open = keyboard->send();
      }
    }
    if (pending.size() > kMaxLineLength) break;
  }
  for (auto key = down.rbegin(); key != down.rend(); ++key) {
    keyboard->key(*key, false);
  }
  connection->roundtrip(Clock::now() + kWaylandReplyTimeout);
  return 0;
}

}  // namespace
}  // namespace tovrin

int main(int argc, char** argv) {
  // A tovrin that went away must not end us before the keys are up.
  signal(SIGPIPE, SIG_IGN);
  if (argc != 2) {
    std::fputs("usage: tovrin-kwin-input SOCKET\n", stderr);
    return 2;
  }
  return tovrin::run(argv[1]);
}
