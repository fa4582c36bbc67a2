#include "platform/x11/clipboard_server.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>
#include <unistd.h>

#include <X11/extensions/XTest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/formats.h"
#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char kClipboard[] = "CLIPBOARD";
constexpr const char kUtf8String[] = "UTF8_STRING";
constexpr const char kPlainUtf8[] = "text/plain;charset=utf-8";
constexpr const char kClipboardManager[] = "CLIPBOARD_MANAGER";
constexpr const char kSaveTargets[] = "SAVE_TARGETS";
constexpr const char kSaveTargetsProperty[] = "TOVRIN_SAVE_TARGETS";
constexpr const char kWmPid[] = "_NET_WM_PID";

// Interned when the server's connection opens, in one round trip.
constexpr const char* kAtomNames[] = {kClipboard,
                                      "TARGETS",
                                      "TIMESTAMP",
                                      "MULTIPLE",
                                      "INCR",
                                      "ATOM_PAIR",
                                      kUtf8String,
                                      kPlainUtf8,
                                      kClipboardManager,
                                      kSaveTargets,
                                      kSaveTargetsProperty,
                                      kWmPid,
                                      "TOVRIN_TIMESTAMP"};

// How often a serving child checks that it still owns CLIPBOARD when
// nothing happens (it is told by SelectionClear; this is a safety net).
constexpr std::chrono::seconds kOwnershipCheckPeriod{60};

std::shared_ptr<const std::string> shared(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

std::vector<OfferedTarget> textTargets(Display* display,
                                       std::string_view text) {
  auto utf8 = shared(std::string(text));
  return {
      {internAtom(display, kUtf8String), internAtom(display, kUtf8String), 8, utf8},
      {internAtom(display, kPlainUtf8), internAtom(display, kPlainUtf8), 8, utf8},
      {XA_STRING, XA_STRING, 8, shared(latin1IfRepresentable(text))},
  };
}

// Asks a running clipboard manager to copy the text now, as GTK does when
// an application quits, so that it outlives this process. Its answer is not
// awaited: the server keeps serving meanwhile.
void askClipboardManagerToSave(Display* display, Window window, Time time) {
  Atom manager = internAtom(display, kClipboardManager);
  if (XGetSelectionOwner(display, manager) == None) return;
  long targets[] = {static_cast<long>(internAtom(display, kUtf8String)),
                    static_cast<long>(internAtom(display, kPlainUtf8)),
                    static_cast<long>(XA_STRING)};
  Atom property = internAtom(display, kSaveTargetsProperty);
  XChangeProperty(display, window, property, XA_ATOM, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(targets), 3);
  XConvertSelection(display, manager, internAtom(display, kSaveTargets), property,
                    window, time);
  XFlush(display);
}

class X11ClipboardKeeper : public ClipboardKeeper {
 public:
  explicit X11ClipboardKeeper(std::unique_ptr<SelectionConnection> connection)
      : connection_(std::move(connection)),
        display_(connection_->display()),
        window_(connection_->window()),
        clipboard_(internAtom(display_, kClipboard)) {}

  void releaseKeys(const std::vector<uint8_t>& keys) override;
  bool own(const std::string& text) override;
  void serve() override;

 private:
  std::unique_ptr<SelectionConnection> connection_;
  Display* display_;
  Window window_;
  Atom clipboard_;
  Time acquired_ = CurrentTime;
  std::optional<SelectionServer> server_;
};

void X11ClipboardKeeper::releaseKeys(const std::vector<uint8_t>& keys) {
  // Only keys still down: a key the user holds now was not pressed by us.
  char down[32] = {};
  XQueryKeymap(display_, down);
  // C first, then the modifiers, the reverse of the press.
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    if ((down[*key / 8] & (1 << (*key % 8))) != 0) {
      XTestFakeKeyEvent(display_, *key, False, CurrentTime);
    }
  }
  XSync(display_, False);
}

bool X11ClipboardKeeper::own(const std::string& text) {
  // Tells tools (and tests) which process serves the clipboard.
  long pid = getpid();
  XChangeProperty(display_, window_, internAtom(display_, kWmPid), XA_CARDINAL,
                  32, PropModeReplace, reinterpret_cast<unsigned char*>(&pid),
                  1);
  ConversionDeadline deadline;
  std::optional<Time> acquired =
      acquireSelection(display_, window_, clipboard_, deadline);
  if (!acquired) return false;
  acquired_ = *acquired;
  server_.emplace(display_, window_, clipboard_, acquired_,
                  textTargets(display_, text));
  return true;
}

void X11ClipboardKeeper::serve() {
  askClipboardManagerToSave(display_, window_, acquired_);
  for (;;) {
    while (XPending(display_) > 0) {
      XEvent event;
      XNextEvent(display_, &event);
      server_->handleEvent(event);
    }
    if (connection_->broken()) return;
    auto now = Clock::now();
    server_->expireTransfers(now);
    if (server_->lost() && !server_->transferring()) return;
    auto wake = now + kOwnershipCheckPeriod;
    if (auto transferEnd = server_->nextDeadline()) {
      wake = std::min(wake, *transferEnd);
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake - now);
    pollfd fd = {ConnectionNumber(display_), POLLIN, 0};
    int ready = poll(&fd, 1,
                     static_cast<int>(std::max<int64_t>(
                         0, std::min<int64_t>(wait.count(), INT_MAX))));
    if (ready == 0 && !server_->transferring() &&
        XGetSelectionOwner(display_, clipboard_) != window_) {
      return;
    }
  }
}

}  // namespace

std::unique_ptr<ServerProcess> startX11ClipboardServer(
    const std::string& displayName, int lockFd) {
  return ServerProcess::start(
      [displayName]() -> std::unique_ptr<ClipboardKeeper> {
        // ServerProcess bounds the opening with an alarm: no thread of its
        // own for it in the serving process.
        auto connection = SelectionConnection::open(
            displayName,
            std::vector<const char*>(std::begin(kAtomNames),
                                     std::end(kAtomNames)),
            std::nullopt);
        if (!connection) return nullptr;
        return std::make_unique<X11ClipboardKeeper>(std::move(connection));
      },
      lockFd);
}

}  // namespace tovrin
