#include "platform/gnome/remote_desktop.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/atspi/sd_bus_library.h"

namespace tovrin {
namespace {

/// Signals of sd-bus's own making, sealed and read from the start as they
/// arrive: a bus that is never connected makes them.
class SignalMaker {
 public:
  SignalMaker() : library_(SdBusLibrary::load()) {
    void* handle = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr || !library_) return;
    setFd_ = reinterpret_cast<decltype(setFd_)>(dlsym(handle, "sd_bus_set_fd"));
    newSignal_ = reinterpret_cast<decltype(newSignal_)>(
        dlsym(handle, "sd_bus_message_new_signal"));
    seal_ =
        reinterpret_cast<decltype(seal_)>(dlsym(handle, "sd_bus_message_seal"));
    rewind_ = reinterpret_cast<decltype(rewind_)>(
        dlsym(handle, "sd_bus_message_rewind"));
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    peer_ = ends[1];
    if (library_->busNew(&bus_) < 0 || setFd_(bus_, ends[0], ends[0]) < 0 ||
        library_->start(bus_) < 0) {
      return;
    }
    ready_ = newSignal_ != nullptr && seal_ != nullptr && rewind_ != nullptr;
  }
  ~SignalMaker() {
    if (bus_ != nullptr) {
      library_->close(bus_);
      library_->unref(bus_);
    }
    if (peer_ >= 0) close(peer_);
  }

  bool ready() const { return ready_; }
  const SdBusLibrary& library() const { return *library_; }

  /// A SelectionOwnerChanged whose body `append` writes; null on failure.
  sd_bus_message* make(const std::function<int(sd_bus_message*)>& append) {
    sd_bus_message* m = nullptr;
    if (newSignal_(bus_, &m, "/org/gnome/Mutter/RemoteDesktop/Session/u1",
                   "org.gnome.Mutter.RemoteDesktop.Session",
                   "SelectionOwnerChanged") < 0) {
      return nullptr;
    }
    if (append(m) < 0 || seal_(m, ++cookie_, 0) < 0 || rewind_(m, 1) < 0) {
      library_->messageUnref(m);
      return nullptr;
    }
    return m;
  }

 private:
  std::unique_ptr<SdBusLibrary> library_;
  sd_bus* bus_ = nullptr;
  int peer_ = -1;
  bool ready_ = false;
  uint64_t cookie_ = 0;
  int (*setFd_)(sd_bus*, int, int) = nullptr;
  int (*newSignal_)(sd_bus*, sd_bus_message**, const char*, const char*,
                    const char*) = nullptr;
  int (*seal_)(sd_bus_message*, uint64_t, uint64_t) = nullptr;
  int (*rewind_)(sd_bus_message*, int) = nullptr;
};

TEST(MutterRemoteDesktopTest, OwnerChangesAreReadInEitherShape) {
  SignalMaker maker;
  ASSERT_TRUE(maker.ready());
  const SdBusLibrary& library = maker.library();
  std::vector<std::string> many;
  for (int i = 0; i < 300; ++i) many.push_back("type/" + std::to_string(i));
  const struct Row {
    const char* what;
    std::function<int(sd_bus_message*)> body;
    bool read;
    std::vector<std::string> types;
    bool ours;
  } rows[] = {
      {"the types in a tuple, as Mutter 43 sends them",
       [&](sd_bus_message* m) {
         return library.append(m, "a{sv}", 2, "mime-types", "(as)", 2,
                               "text/plain", "text/html", "session-is-owner",
                               "b", 1);
       },
       true,
       {"text/plain", "text/html"},
       true},
      {"the types as the interface describes them, another key skipped",
       [&](sd_bus_message* m) {
         return library.append(m, "a{sv}", 3, "x-other", "u", 7u, "mime-types",
                               "as", 1, "UTF8_STRING", "session-is-owner", "b",
                               0);
       },
       true,
       {"UTF8_STRING"},
       false},
      {"no owner: an empty dictionary",
       [&](sd_bus_message* m) { return library.append(m, "a{sv}", 0); },
       true,
       {},
       false},
      {"a hostile owner's list, bounded",
       [&](sd_bus_message* m) {
         std::vector<char*> strv;
         for (auto& type : many) strv.push_back(type.data());
         strv.push_back(nullptr);
         return library.openContainer(m, 'a', "{sv}") < 0 ||
                        library.openContainer(m, 'e', "sv") < 0 ||
                        library.append(m, "s", "mime-types") < 0 ||
                        library.openContainer(m, 'v', "as") < 0 ||
                        library.appendStrv(m, strv.data()) < 0 ||
                        library.closeContainer(m) < 0 ||
                        library.closeContainer(m) < 0
                    ? -1
                    : library.closeContainer(m);
       },
       true, std::vector<std::string>(many.begin(), many.begin() + 256), false},
      {"another shape altogether",
       [&](sd_bus_message* m) { return library.append(m, "s", "owner"); },
       false,
       {},
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    sd_bus_message* m = maker.make(row.body);
    ASSERT_NE(m, nullptr);
    MutterClipboardOwner owner;
    EXPECT_EQ(readClipboardOwner(library, m, owner), row.read);
    if (row.read) {
      EXPECT_EQ(owner.types, row.types);
      EXPECT_EQ(owner.ours, row.ours);
    }
    library.messageUnref(m);
  }
}

}  // namespace
}  // namespace tovrin
