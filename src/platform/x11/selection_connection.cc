#include "platform/x11/selection_connection.h"

#include <X11/Xatom.h>
#include <xcb/xcb.h>

#include <mutex>

#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

// The property whose zero-length appends give server timestamps.
constexpr const char kTimestampProperty[] = "TOVRIN_TIMESTAMP";

// Replaces Xlib's default I/O error handler, which exits, with one that
// returns. Connections not opened here keep their default exit handler, so
// they still end the process when they break. A handler installed by someone
// else is left alone.
void keepProcessOnBrokenConnections() {
  static std::once_flag once;
  std::call_once(once, [] {
    // Setting null installs the default and hands back what was there.
    XIOErrorHandler current = XSetIOErrorHandler(nullptr);
    XIOErrorHandler xlibDefault = XSetIOErrorHandler(current);
    if (current == xlibDefault) {
      XSetIOErrorHandler([](Display*) { return 0; });
    }
  });
}

}  // namespace

ConversionDeadline::ConversionDeadline(std::chrono::milliseconds inactivity,
                                       std::chrono::milliseconds total)
    : inactivity_(inactivity),
      end_(Clock::now() + total),
      lastProgress_(Clock::now()) {}

void ConversionDeadline::progressed() { lastProgress_ = Clock::now(); }

ConversionDeadline::Clock::time_point ConversionDeadline::current() const {
  return std::min(lastProgress_ + inactivity_, end_);
}

bool x11ConnectionBroken(Display* display) {
  return xcb_connection_has_error(xcbOf(display)) != 0;
}

Window createSelectionWindow(Display* display) {
  XSetWindowAttributes attributes = {};
  attributes.event_mask = PropertyChangeMask;
  attributes.override_redirect = True;
  return XCreateWindow(display, DefaultRootWindow(display), -10, -10, 1, 1, 0,
                       0, InputOnly, CopyFromParent,
                       CWEventMask | CWOverrideRedirect, &attributes);
}

std::optional<Time> serverTime(Display* display, Window window,
                               ConversionDeadline& deadline) {
  Atom property = internAtom(display, kTimestampProperty);
  unsigned char nothing = 0;
  XChangeProperty(display, window, property, XA_STRING, 8, PropModeAppend,
                  &nothing, 0);
  XFlush(display);
  auto isNotice = [window, property](const XEvent& event) {
    return event.type == PropertyNotify && event.xproperty.window == window &&
           event.xproperty.atom == property;
  };
  XEvent event;
  if (waitForSelectionEvent(display, deadline.current(), isNotice, &event) !=
      SelectionWait::kEvent) {
    return std::nullopt;
  }
  deadline.progressed();
  return event.xproperty.time;
}

std::optional<Time> acquireSelection(Display* display, Window owner,
                                     Atom selection,
                                     ConversionDeadline& deadline) {
  std::optional<Time> time = serverTime(display, owner, deadline);
  if (!time) return std::nullopt;
  XSetSelectionOwner(display, selection, owner, *time);
  if (XGetSelectionOwner(display, selection) != owner) return std::nullopt;
  return time;
}

std::unique_ptr<SelectionConnection> SelectionConnection::open(
    const std::string& displayName, const std::vector<const char*>& atomNames,
    std::optional<std::chrono::milliseconds> openTimeout) {
  // When a connection breaks, Xlib calls the process's I/O error handler
  // (the default one exits) and then the connection's exit handler (the
  // default one exits too; openDisplayWithin replaces it). Ours return:
  // every later call on the connection fails fast, which broken() reports.
  keepProcessOnBrokenConnections();
  Display* display = nullptr;
  if (openTimeout) {
    display = openDisplayWithin(displayName, *openTimeout, atomNames);
  } else {
    display = XOpenDisplay(displayName.empty() ? nullptr : displayName.c_str());
    if (display == nullptr) return nullptr;
    XSetIOErrorExitHandler(display, [](Display*, void*) {}, nullptr);
    if (!atomNames.empty()) internAtoms(display, atomNames);
  }
  if (display == nullptr) return nullptr;
  Window window = createSelectionWindow(display);
  return std::unique_ptr<SelectionConnection>(
      new SelectionConnection(display, window));
}

SelectionConnection::~SelectionConnection() {
  if (!broken()) XDestroyWindow(display_, window_);
  XCloseDisplay(display_);
}

bool SelectionConnection::broken() const {
  return x11ConnectionBroken(display_);
}

void SelectionConnection::renewWindow() {
  if (broken()) return;
  XDestroyWindow(display_, window_);
  window_ = createSelectionWindow(display_);
  XFlush(display_);
}

}  // namespace tovrin
