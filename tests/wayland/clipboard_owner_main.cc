// clipboard_owner --type MIME --data TEXT [--type MIME --data TEXT]...
//                 [--frozen] [--on-signal]
//
// Takes the clipboard of $WAYLAND_DISPLAY's seat through data-control,
// offering exactly the given types, and serves them until another client
// takes it: then it exits. Prints "ready" once the compositor has made it
// the owner. TEXT may hold \r, \n, \t, \\ and \xHH.
//
//   --frozen     never answers a read: holds the descriptor open and writes
//                nothing, as a hung application does.
//   --on-signal  takes the clipboard only when SIGUSR1 arrives, e.g. from a
//                compositor key binding, as an application copies when its
//                shortcut is pressed. Prints "waiting" once connected.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <wayland-client.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tests/wayland/seat_client.h"
#include "wlr-data-control-unstable-v1-client.h"

namespace {

struct Owner {
  std::vector<std::pair<std::string, std::string>> offers;
  bool frozen = false;
  std::vector<int> heldReads;
  bool cancelled = false;
};

void writeAll(int fd, const std::string& data) {
  // A reader may take its time: write it all, however slowly it reads.
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  size_t done = 0;
  while (done < data.size()) {
    const ssize_t written = write(fd, data.data() + done, data.size() - done);
    if (written <= 0) break;
    done += static_cast<size_t>(written);
  }
}

void onSend(void* data, zwlr_data_control_source_v1*, const char* mimeType,
            int32_t fd) {
  auto* owner = static_cast<Owner*>(data);
  if (owner->frozen) {
    owner->heldReads.push_back(fd);
    return;
  }
  for (const auto& [type, content] : owner->offers) {
    if (type == mimeType) {
      writeAll(fd, content);
      break;
    }
  }
  close(fd);
}

void onCancelled(void* data, zwlr_data_control_source_v1*) {
  static_cast<Owner*>(data)->cancelled = true;
}

const zwlr_data_control_source_v1_listener kSourceListener = {onSend,
                                                              onCancelled};

std::string unescape(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      result += text[i];
      continue;
    }
    const char next = text[++i];
    if (next == 'r') {
      result += '\r';
    } else if (next == 'n') {
      result += '\n';
    } else if (next == 't') {
      result += '\t';
    } else if (next == 'x' && i + 2 < text.size()) {
      result += static_cast<char>(
          std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      result += next;
    }
  }
  return result;
}

int usage() {
  std::fprintf(stderr,
               "usage: clipboard_owner --type MIME --data TEXT ... "
               "[--frozen] [--on-signal]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Owner owner;
  bool onSignal = false;
  std::string pendingType;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--frozen") {
      owner.frozen = true;
    } else if (arg == "--on-signal") {
      onSignal = true;
    } else if (arg == "--type" && i + 1 < argc) {
      pendingType = argv[++i];
    } else if (arg == "--data" && i + 1 < argc && !pendingType.empty()) {
      owner.offers.emplace_back(std::exchange(pendingType, {}),
                                unescape(argv[++i]));
    } else {
      return usage();
    }
  }
  if (owner.offers.empty() || !pendingType.empty()) return usage();

  // Blocked before anything else, so that an early signal waits for us.
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  sigprocmask(SIG_BLOCK, &usr1, nullptr);
  const int signals = signalfd(-1, &usr1, SFD_CLOEXEC);

  tovrin::testing::SeatClient client;
  if (!tovrin::testing::connectSeatClient(
          "clipboard_owner", zwlr_data_control_manager_v1_interface, client)) {
    return 1;
  }
  wl_display* display = client.display;
  auto* manager = static_cast<zwlr_data_control_manager_v1*>(client.manager);
  zwlr_data_control_device_v1* device =
      zwlr_data_control_manager_v1_get_data_device(manager, client.seat);

  if (onSignal) {
    std::printf("waiting\n");
    std::fflush(stdout);
    for (;;) {
      pollfd fds[2] = {{signals, POLLIN, 0},
                       {wl_display_get_fd(display), POLLIN, 0}};
      wl_display_flush(display);
      if (poll(fds, 2, -1) < 0) continue;
      if (fds[0].revents != 0) break;
      // Offers of other clients' selections come and go meanwhile.
      if (fds[1].revents != 0 && wl_display_dispatch(display) < 0) return 1;
    }
  }

  zwlr_data_control_source_v1* source =
      zwlr_data_control_manager_v1_create_data_source(manager);
  zwlr_data_control_source_v1_add_listener(source, &kSourceListener, &owner);
  for (const auto& [type, content] : owner.offers) {
    zwlr_data_control_source_v1_offer(source, type.c_str());
  }
  zwlr_data_control_device_v1_set_selection(device, source);
  if (wl_display_roundtrip(display) < 0) return 1;
  std::printf("ready\n");
  std::fflush(stdout);

  while (!owner.cancelled) {
    if (wl_display_dispatch(display) < 0) return 1;
  }
  for (int fd : owner.heldReads) close(fd);
  zwlr_data_control_source_v1_destroy(source);
  zwlr_data_control_device_v1_destroy(device);
  wl_display_roundtrip(display);
  wl_display_disconnect(display);
  return 0;
}
