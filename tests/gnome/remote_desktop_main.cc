// remote_desktop MODE: the user's keyboard and clipboard on a headless
// GNOME compositor, through remote-desktop sessions of tovrin's own code
// (data-control and wl-clipboard do not work there).
//
//   hold        starts a session, presses a key once so that the seat has a
//               keyboard (windows then take the focus), prints "ready", then
//               presses combinations read on stdin ("ctrl+a", "shift+End"),
//               answering "ok" or "error: COMBINATION" for each
//   own TEXT    owns the clipboard with TEXT, prints "ready", and serves it
//               until another program owns the clipboard
//   read        prints the clipboard's text; exit 1 when there is none

#include <unistd.h>

#include <iostream>
#include <map>
#include <string>

#include "platform/atspi/sd_bus.h"
#include "platform/gnome/remote_desktop.h"

namespace {

using namespace std::chrono_literals;
using tovrin::MutterRemoteDesktop;

const char kText[] = "text/plain;charset=utf-8";

std::chrono::nanoseconds in(std::chrono::nanoseconds timeout) {
  return tovrin::monotonicNow() + timeout;
}

/// Presses the keys of `combination`, then releases them the other way
/// round; true once the compositor has handled them.
bool press(MutterRemoteDesktop& session, const std::string& combination) {
  static const std::map<std::string, uint32_t> kKeysyms = {
      {"ctrl", 0xffe3},  {"shift", 0xffe1}, {"alt", 0xffe9},
      {"End", 0xff57},   {"Home", 0xff50},  {"Left", 0xff51},
      {"Right", 0xff53}, {"Up", 0xff52},    {"Down", 0xff54},
      {"Return", 0xff0d}, {"space", 0x20},  {"Escape", 0xff1b},
      {"Shift_L", 0xffe1}};
  std::vector<uint32_t> keys;
  for (size_t start = 0, end = 0; start <= combination.size(); start = end + 1) {
    end = std::min(combination.find('+', start), combination.size());
    const std::string name = combination.substr(start, end - start);
    const auto known = kKeysyms.find(name);
    if (known == kKeysyms.end() && name.size() != 1) return false;
    // A Latin-1 character's keysym is its code.
    keys.push_back(known != kKeysyms.end() ? known->second
                                           : static_cast<unsigned char>(name[0]));
  }
  for (const uint32_t key : keys) session.keysym(key, true);
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    session.keysym(*key, false);
  }
  // The compositor has handled the keys before it answers.
  return session.roundtrip(in(5s));
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  // The interface is on the bus a little after the compositor's socket.
  std::unique_ptr<MutterRemoteDesktop> session;
  for (const auto deadline = in(10s); !session && tovrin::monotonicNow() < deadline;
       usleep(20000)) {
    session = MutterRemoteDesktop::open(in(5s));
  }
  if (!session) {
    std::cerr << "no remote-desktop session\n";
    return 1;
  }
  if (mode == "hold" && session->start(in(5s)) && press(*session, "Shift_L")) {
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
      std::cout << (press(*session, line) ? "ok" : "error: " + line) << std::endl;
    }
    return 0;
  }
  if (mode == "own" && argc == 3) {
    const std::string text = argv[2];
    bool owned = false, replaced = false;
    session->onOwnerChanged([&](const tovrin::MutterClipboardOwner& owner) {
      if (owned && !owner.ours) replaced = true;
      if (owner.ours) owned = true;
    });
    session->onTransfer([&](const std::string&, uint32_t serial) {
      const int fd = session->selectionWrite(serial, in(5s));
      if (fd < 0) return;
      const bool written = write(fd, text.data(), text.size()) ==
                           static_cast<ssize_t>(text.size());
      close(fd);
      session->transferDone(serial, written, in(5s));
    });
    // Enabling with types owns the clipboard once the call returns.
    owned = session->enableClipboard({kText, "text/plain"}, in(5s));
    if (!owned) return 1;
    std::cout << "ready" << std::endl;
    while (!replaced && session->dispatch([&] { return replaced; }, in(1s))) {
    }
    return 0;
  }
  if (mode == "read" && session->enableClipboard({}, in(5s))) {
    const auto text = session->selectionRead(kText, 5s, in(5s), 64 << 20);
    if (text) std::cout << *text;
    return text ? 0 : 1;
  }
  std::cerr << "usage: remote_desktop hold|own TEXT|read\n";
  return 2;
}
