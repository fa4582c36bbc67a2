#include "platform/gnome/remote_desktop.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>

#include "platform/atspi/sd_bus_library.h"

namespace tovrin {
namespace {

constexpr char kService[] = "org.gnome.Mutter.RemoteDesktop";
constexpr char kPath[] = "/org/gnome/Mutter/RemoteDesktop";
constexpr char kSessionInterface[] = "org.gnome.Mutter.RemoteDesktop.Session";

int noArguments(sd_bus_message*) { return 0; }

/// Appends an a{sv} that holds "mime-types" when `types` are given.
int appendOptions(const SdBusLibrary& library, sd_bus_message* m,
                  const std::vector<std::string>& types) {
  if (library.openContainer(m, 'a', "{sv}") < 0) return -1;
  if (!types.empty()) {
    std::vector<char*> strv;
    for (const std::string& type : types) {
      strv.push_back(const_cast<char*>(type.c_str()));
    }
    strv.push_back(nullptr);
    if (library.openContainer(m, 'e', "sv") < 0 ||
        library.append(m, "s", "mime-types") < 0 ||
        library.openContainer(m, 'v', "as") < 0 ||
        library.appendStrv(m, strv.data()) < 0 ||
        library.closeContainer(m) < 0 || library.closeContainer(m) < 0) {
      return -1;
    }
  }
  return library.closeContainer(m);
}

std::chrono::microseconds until(std::chrono::nanoseconds deadline) {
  return std::chrono::duration_cast<std::chrono::microseconds>(deadline -
                                                               monotonicNow());
}

}  // namespace

bool readClipboardOwner(const SdBusLibrary& library, sd_bus_message* m,
                        MutterClipboardOwner& owner) {
  if (library.enterContainer(m, 'a', "{sv}") < 0) return false;
  while (library.enterContainer(m, 'e', "sv") > 0) {
    const char* key = nullptr;
    if (library.read(m, "s", &key) < 0) return false;
    if (std::strcmp(key, "mime-types") == 0) {
      // Mutter 43 sends the list inside a tuple, "(as)"; "as" is what
      // the interface describes.
      const bool tuple = library.enterContainer(m, 'v', "(as)") >= 0;
      if ((!tuple && library.enterContainer(m, 'v', "as") < 0) ||
          (tuple && library.enterContainer(m, 'r', "as") < 0) ||
          library.enterContainer(m, 'a', "s") < 0) {
        return false;
      }
      const char* type = nullptr;
      while (library.read(m, "s", &type) > 0) {
        // A hostile peer's list is bounded.
        if (owner.types.size() < 256 && std::strlen(type) <= 1024) {
          owner.types.emplace_back(type);
        }
      }
      if (library.exitContainer(m) < 0 ||
          (tuple && library.exitContainer(m) < 0) ||
          library.exitContainer(m) < 0) {
        return false;
      }
    } else if (std::strcmp(key, "session-is-owner") == 0) {
      int ours = 0;
      if (library.read(m, "v", "b", &ours) < 0) return false;
      owner.ours = ours != 0;
    } else if (library.skip(m, "v") < 0) {
      return false;
    }
    if (library.exitContainer(m) < 0) return false;
  }
  return library.exitContainer(m) >= 0;
}

struct MutterRemoteDesktop::State {
  std::unique_ptr<SdBusLibrary> library;
  std::unique_ptr<SdBusConnection> bus;
  std::string session;
  std::function<void(const MutterClipboardOwner&)> ownerChanged;
  std::function<void(const std::string&, uint32_t)> transfer;
  bool broken = false;
  bool stopped = false;

  template <typename Append>
  BusStatus call(const std::string& path, const char* interface,
                 const char* member, std::chrono::nanoseconds deadline,
                 SdBusMessage& reply, Append append) {
    return callMethod(*library, bus->get(), kService, path, interface, member,
                      deadline, reply, append);
  }
  /// The interface's Version property, into `reply`.
  BusStatus version(std::chrono::nanoseconds deadline, SdBusMessage& reply) {
    return call(kPath, "org.freedesktop.DBus.Properties", "Get", deadline,
                reply, [&](sd_bus_message* m) {
                  return library->append(m, "ss", kService, "Version");
                });
  }
  bool sessionCall(const char* member, std::chrono::nanoseconds deadline,
                   const std::function<int(sd_bus_message*)>& append) {
    SdBusMessage reply(*library);
    return call(session, kSessionInterface, member, deadline, reply, append) ==
           BusStatus::kOk;
  }

  /// Sends a session call without waiting for its answer. A connection
  /// writes what it can at once; a full socket is not waited for.
  bool send(const char* member,
            const std::function<int(sd_bus_message*)>& append) {
    SdBusMessage call(*library);
    if (library->newMethodCall(bus->get(), call.out(), kService,
                               session.c_str(), kSessionInterface,
                               member) < 0 ||
        append(call.get()) < 0) {
      return false;
    }
    return library->send(bus->get(), call.get(), nullptr) >= 0;
  }

  static int onSignal(sd_bus_message* m, void* data, sd_bus_error*) {
    auto* state = static_cast<State*>(data);
    const SdBusLibrary& library = *state->library;
    if (library.isSignal(m, kSessionInterface, "SelectionOwnerChanged") > 0) {
      MutterClipboardOwner owner;
      if (readClipboardOwner(library, m, owner) && state->ownerChanged) {
        state->ownerChanged(owner);
      }
    } else if (library.isSignal(m, kSessionInterface, "SelectionTransfer") >
               0) {
      const char* type = nullptr;
      uint32_t serial = 0;
      if (library.read(m, "su", &type, &serial) >= 0 && state->transfer) {
        state->transfer(type, serial);
      }
    }
    return 0;
  }

  /// Handles what has come; false when the connection broke.
  bool processPending() {
    for (;;) {
      const int r = library->process(bus->get(), nullptr);
      if (r < 0) {
        broken = true;
        return false;
      }
      if (r == 0) return true;
    }
  }
};

std::unique_ptr<MutterRemoteDesktop::State> MutterRemoteDesktop::connectKnown(
    std::chrono::nanoseconds deadline, std::string* why) {
  auto state = std::make_unique<State>();
  state->library = SdBusLibrary::load();
  if (!state->library) return nullptr;
  state->bus = openSessionBus(*state->library, deadline);
  if (!state->bus) return nullptr;
  const SdBusLibrary& library = *state->library;
  SdBusMessage version(library);
  if (state->version(deadline, version) != BusStatus::kOk) return nullptr;
  int32_t number = 0;
  if (library.read(version.get(), "v", "i", &number) < 0 || number < 1 ||
      number > kMutterRemoteDesktopNewestVersion) {
    if (why != nullptr) {
      *why = "its remote-desktop interface is of version " +
             std::to_string(number) + ", which tovrin does not know";
    }
    return nullptr;
  }
  return state;
}

std::unique_ptr<MutterRemoteDesktop> MutterRemoteDesktop::open(
    std::chrono::nanoseconds deadline, std::string* why) {
  auto state = connectKnown(deadline, why);
  if (!state) return nullptr;
  const SdBusLibrary& library = *state->library;
  SdBusMessage created(library);
  const char* path = nullptr;
  if (state->call(kPath, kService, "CreateSession", deadline, created,
                  noArguments) != BusStatus::kOk ||
      library.read(created.get(), "o", &path) < 0 || path == nullptr) {
    return nullptr;
  }
  state->session = path;
  // By path, which names this session alone: sd-bus checks a sender
  // locally against the unique name, never against the service's name.
  const std::string match = std::string("type='signal',interface='") +
                            kSessionInterface + "',path='" + state->session +
                            "'";
  // Asynchronous, so that a frozen bus cannot hold this up; the bus
  // handles it before the calls that follow.
  if (library.addMatchAsync(state->bus->get(), nullptr, match.c_str(),
                            &State::onSignal, nullptr, state.get()) < 0) {
    return nullptr;
  }
  return std::unique_ptr<MutterRemoteDesktop>(
      new MutterRemoteDesktop(std::move(state)));
}

MutterRemoteDesktop::MutterRemoteDesktop(std::unique_ptr<State> state)
    : state_(std::move(state)) {}

MutterRemoteDesktop::~MutterRemoteDesktop() {
  // The compositor closes the session when its connection goes; Stop is
  // said all the same, so that its indicator goes at once.
  if (!state_->broken && !state_->stopped) {
    state_->sessionCall("Stop", monotonicNow() + kSdBusCallTimeout,
                        noArguments);
  }
}

void MutterRemoteDesktop::onOwnerChanged(
    std::function<void(const MutterClipboardOwner&)> f) {
  state_->ownerChanged = std::move(f);
}

void MutterRemoteDesktop::onTransfer(
    std::function<void(const std::string&, uint32_t)> f) {
  state_->transfer = std::move(f);
}

bool MutterRemoteDesktop::start(std::chrono::nanoseconds deadline) {
  return state_->sessionCall("Start", deadline, noArguments);
}

bool MutterRemoteDesktop::keysym(uint32_t keysym, bool pressed) {
  return state_->send("NotifyKeyboardKeysym", [&](sd_bus_message* m) {
    return state_->library->append(m, "ub", keysym, pressed ? 1 : 0);
  });
}

void MutterRemoteDesktop::stop() {
  if (state_->send("Stop", noArguments)) state_->stopped = true;
}

bool MutterRemoteDesktop::enableClipboard(const std::vector<std::string>& types,
                                          std::chrono::nanoseconds deadline) {
  return state_->sessionCall("EnableClipboard", deadline,
                             [&](sd_bus_message* m) {
                               return appendOptions(*state_->library, m, types);
                             });
}

bool MutterRemoteDesktop::setSelection(const std::vector<std::string>& types,
                                       std::chrono::nanoseconds deadline) {
  return state_->sessionCall("SetSelection", deadline, [&](sd_bus_message* m) {
    return appendOptions(*state_->library, m, types);
  });
}

int MutterRemoteDesktop::selectionWrite(uint32_t serial,
                                        std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *state_->library;
  SdBusMessage reply(library);
  if (state_->call(state_->session, kSessionInterface, "SelectionWrite",
                   deadline, reply, [&](sd_bus_message* m) {
                     return library.append(m, "u", serial);
                   }) != BusStatus::kOk) {
    return -1;
  }
  int fd = -1;
  // The message owns its descriptor: ours is a duplicate.
  if (library.read(reply.get(), "h", &fd) < 0) return -1;
  return fcntl(fd, F_DUPFD_CLOEXEC, 3);
}

bool MutterRemoteDesktop::transferDone(uint32_t serial, bool success,
                                       std::chrono::nanoseconds deadline) {
  return state_->sessionCall(
      "SelectionWriteDone", deadline, [&](sd_bus_message* m) {
        return state_->library->append(m, "ub", serial, success ? 1 : 0);
      });
}

std::optional<std::string> MutterRemoteDesktop::selectionRead(
    const std::string& type, std::chrono::milliseconds inactivity,
    std::chrono::nanoseconds deadline, size_t maxSize) {
  const SdBusLibrary& library = *state_->library;
  SdBusMessage reply(library);
  if (state_->call(state_->session, kSessionInterface, "SelectionRead",
                   deadline, reply, [&](sd_bus_message* m) {
                     return library.append(m, "s", type.c_str());
                   }) != BusStatus::kOk) {
    return std::nullopt;  // e.g. "No selection owner available"
  }
  int borrowed = -1;
  if (library.read(reply.get(), "h", &borrowed) < 0) return std::nullopt;
  const int fd = fcntl(borrowed, F_DUPFD_CLOEXEC, 3);
  if (fd < 0) return std::nullopt;
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);

  std::string data;
  std::chrono::nanoseconds lastProgress = monotonicNow();
  bool complete = false;
  while (!complete) {
    if (!state_->processPending()) break;
    const auto now = monotonicNow();
    const auto stopAt = std::min(deadline, lastProgress + inactivity);
    if (now >= stopAt) break;
    pollfd fds[2] = {
        {fd, POLLIN, 0},
        {library.getFd(state_->bus->get()),
         static_cast<short>(library.getEvents(state_->bus->get())), 0}};
    const auto wait =
        std::chrono::duration_cast<std::chrono::milliseconds>(stopAt - now);
    if (poll(fds, 2, static_cast<int>(wait.count()) + 1) < 0 &&
        errno != EINTR) {
      break;
    }
    if ((fds[0].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
    char buffer[65536];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      data.append(buffer, static_cast<size_t>(n));
      lastProgress = monotonicNow();
      if (data.size() > maxSize) break;
    } else if (n == 0) {
      complete = true;
    } else if (errno != EAGAIN && errno != EINTR) {
      break;
    }
  }
  close(fd);
  if (!complete) return std::nullopt;
  return data;
}

bool MutterRemoteDesktop::dispatch(const std::function<bool()>& done,
                                   std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *state_->library;
  for (;;) {
    if (!state_->processPending()) return false;
    if (done()) return true;
    const auto remaining = until(deadline);
    if (remaining.count() <= 0) return true;
    if (library.wait(state_->bus->get(),
                     static_cast<uint64_t>(remaining.count()) + 1) < 0) {
      state_->broken = true;
      return false;
    }
  }
}

bool MutterRemoteDesktop::roundtrip(std::chrono::nanoseconds deadline) {
  // Properties are answered in order with the session's signals.
  SdBusMessage reply(*state_->library);
  return state_->version(deadline, reply) == BusStatus::kOk &&
         state_->processPending();
}

bool MutterRemoteDesktop::dispatchPending() { return state_->processPending(); }

}  // namespace tovrin
