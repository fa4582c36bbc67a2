#include "platform/x11/selection.h"

#include <X11/Xatom.h>
#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <climits>
#include <mutex>

#include "platform/x11/display.h"
#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

// The property of the requestor window that owners write their answers to.
constexpr const char kTransferProperty[] = "TOVRIN_SELECTION";
// The property whose zero-length appends give server timestamps.
constexpr const char kTimestampProperty[] = "TOVRIN_TIMESTAMP";

bool connectionBroken(Display* display) {
  return xcb_connection_has_error(xcbOf(display)) != 0;
}

enum class WaitResult { kEvent, kTimedOut, kBroken };

template <typename Predicate>
Bool matchEvent(Display*, XEvent* event, XPointer arg) {
  return (*reinterpret_cast<const Predicate*>(arg))(*event) ? True : False;
}

// Takes the first event that `predicate` accepts, leaving every other event
// queued for whoever else reads this connection. The deadline comes first:
// an owner that writes faster than we read keeps the queue full, and a wait
// that looked at the clock only when the queue ran dry would never end.
template <typename Predicate>
WaitResult waitForEvent(Display* display, Clock::time_point deadline,
                        const Predicate& predicate, XEvent* event) {
  for (;;) {
    if (connectionBroken(display)) return WaitResult::kBroken;
    auto now = Clock::now();
    if (now >= deadline) return WaitResult::kTimedOut;
    if (XCheckIfEvent(
            display, event, &matchEvent<Predicate>,
            reinterpret_cast<XPointer>(const_cast<Predicate*>(&predicate)))) {
      return WaitResult::kEvent;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    pollfd fd = {ConnectionNumber(display), POLLIN, 0};
    poll(&fd, 1, static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
  }
}

// Drops the queued events of `window`: answers to earlier conversions that
// must not be taken for answers to the next one.
void discardEventsOf(Display* display, Window window) {
  auto ofWindow = [window](const XEvent& event) {
    return event.xany.window == window;
  };
  XEvent event;
  while (XCheckIfEvent(display, &event, &matchEvent<decltype(ofWindow)>,
                       reinterpret_cast<XPointer>(&ofWindow))) {
  }
}

// Reads (and deletes) a part of a selection value when it holds at most
// `room` bytes; a value that comes back incomplete is larger than that, and
// stays where it is.
std::optional<PropertyValue> readValuePart(Display* display, Window window,
                                           Atom property, size_t room) {
  // In the protocol's 4-byte units, one more than `room` needs, so that a
  // part of exactly `room` bytes still comes whole.
  auto units = static_cast<uint32_t>(
      std::min<size_t>(room / 4 + 1, kWholeProperty));
  return readProperty(display, window, property, units, /*remove=*/true);
}

// Gives up a transfer: no more notices of the requestor's properties reach
// this connection, and what the owner put there last is dropped. (Deleting
// may prompt an INCR owner for one more chunk; it lands on a window nobody
// listens to.)
void abandonTransfer(Display* display, Window requestor, Atom property) {
  XSelectInput(display, requestor, NoEventMask);
  XDeleteProperty(display, requestor, property);
  discardEventsOf(display, requestor);
  XFlush(display);
}

// The name of a property's type: an atom the server has accepted, so asking
// cannot fail, and Xlib answers the common ones from its cache.
std::string typeNameOf(Display* display, Atom type) {
  XlibPointer<char> name(XGetAtomName(display, type));
  return name ? std::string(name.get()) : std::string();
}

SelectionConversion failure(SelectionConversion::Result result) {
  SelectionConversion conversion;
  conversion.result = result;
  return conversion;
}

SelectionConversion::Result resultOf(WaitResult wait) {
  return wait == WaitResult::kTimedOut ? SelectionConversion::Result::kTimedOut
                                       : SelectionConversion::Result::kFailed;
}

// Receives the chunks of an INCR transfer whose announcement has just been
// deleted (which asks the owner for the first chunk).
SelectionConversion receiveIncr(Display* display, Window requestor,
                                Atom property, ConversionDeadline& deadline,
                                size_t maxSize) {
  SelectionConversion conversion;
  Atom type = None;
  auto isNewValue = [requestor, property](const XEvent& event) {
    return event.type == PropertyNotify &&
           event.xproperty.window == requestor &&
           event.xproperty.atom == property &&
           event.xproperty.state == PropertyNewValue;
  };
  auto abandon = [&](SelectionConversion::Result result) {
    abandonTransfer(display, requestor, property);
    return failure(result);
  };
  for (;;) {
    XEvent event;
    WaitResult wait =
        waitForEvent(display, deadline.current(), isNewValue, &event);
    if (wait == WaitResult::kTimedOut) return abandon(resultOf(wait));
    if (wait != WaitResult::kEvent) return failure(resultOf(wait));
    auto chunk = readValuePart(display, requestor, property,
                               maxSize - conversion.data.size());
    if (!chunk) return failure(SelectionConversion::Result::kFailed);
    // The notice of a value that was already read (the announcement itself,
    // or a chunk read on an earlier notice) finds the property gone.
    if (!chunk->exists()) continue;
    if (!chunk->complete ||
        chunk->data.size() > maxSize - conversion.data.size()) {
      return abandon(SelectionConversion::Result::kTooLarge);
    }
    deadline.progressed();
    if (chunk->data.empty()) break;
    if (type == None) {
      type = chunk->type;
      conversion.format = chunk->format;
    } else if (chunk->format != conversion.format) {
      return abandon(SelectionConversion::Result::kFailed);
    }
    conversion.data += chunk->data;
  }
  conversion.result = SelectionConversion::Result::kConverted;
  if (type != None) conversion.typeName = typeNameOf(display, type);
  if (conversion.format == 0) conversion.format = 8;
  return conversion;
}

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

std::vector<uint32_t> SelectionConversion::values32() const {
  if (format != 32) return {};
  return unpack32(data);
}

SelectionConversion convertSelection(Display* display, Window requestor,
                                     Atom selection, Atom target,
                                     ConversionDeadline& deadline,
                                     std::span<const Window> skippedOwners,
                                     size_t maxSize) {
  if (connectionBroken(display)) {
    return failure(SelectionConversion::Result::kFailed);
  }
  // A round trip: every event the server sent before it is queued now, so
  // the leftovers of earlier conversions can be dropped.
  Window owner = XGetSelectionOwner(display, selection);
  if (owner == None) {
    return failure(connectionBroken(display)
                       ? SelectionConversion::Result::kFailed
                       : SelectionConversion::Result::kNoOwner);
  }
  auto answeredBy = [owner](SelectionConversion conversion) {
    conversion.owner = owner;
    return conversion;
  };
  if (std::find(skippedOwners.begin(), skippedOwners.end(), owner) !=
      skippedOwners.end()) {
    return answeredBy(failure(SelectionConversion::Result::kRefused));
  }
  Atom property = internAtom(display, kTransferProperty);
  discardEventsOf(display, requestor);
  // An abandoned transfer left the window deaf to property changes.
  XSelectInput(display, requestor, PropertyChangeMask);
  XDeleteProperty(display, requestor, property);
  XConvertSelection(display, selection, target, property, requestor,
                    CurrentTime);
  XFlush(display);

  auto isAnswer = [requestor, selection, target](const XEvent& event) {
    return event.type == SelectionNotify &&
           event.xselection.requestor == requestor &&
           event.xselection.selection == selection &&
           event.xselection.target == target;
  };
  XEvent event;
  WaitResult wait = waitForEvent(display, deadline.current(), isAnswer, &event);
  if (wait != WaitResult::kEvent) return answeredBy(failure(resultOf(wait)));
  deadline.progressed();
  if (event.xselection.property == None) {
    return answeredBy(failure(SelectionConversion::Result::kRefused));
  }
  Atom answered = event.xselection.property;
  // Reading with delete also tells an INCR owner to send the first chunk.
  auto value = readValuePart(display, requestor, answered, maxSize);
  if (!value || !value->exists()) {
    return answeredBy(failure(SelectionConversion::Result::kFailed));
  }
  if (!value->complete || value->data.size() > maxSize) {
    abandonTransfer(display, requestor, answered);
    return answeredBy(failure(SelectionConversion::Result::kTooLarge));
  }
  if (value->type == internAtom(display, "INCR")) {
    // The announced size is a lower bound: past the limit, no chunk is
    // worth waiting for.
    std::vector<uint32_t> size = value->values32();
    if (!size.empty() && size[0] > maxSize) {
      abandonTransfer(display, requestor, answered);
      return answeredBy(failure(SelectionConversion::Result::kTooLarge));
    }
    return answeredBy(
        receiveIncr(display, requestor, answered, deadline, maxSize));
  }
  SelectionConversion conversion;
  conversion.result = SelectionConversion::Result::kConverted;
  conversion.owner = owner;
  conversion.typeName = typeNameOf(display, value->type);
  conversion.format = value->format;
  conversion.data = std::move(value->data);
  return conversion;
}

std::vector<std::optional<std::string>> atomNames(
    Display* display, const std::vector<Atom>& atoms) {
  xcb_connection_t* connection = xcbOf(display);
  std::vector<xcb_get_atom_name_cookie_t> cookies;
  cookies.reserve(atoms.size());
  for (Atom atom : atoms) {
    cookies.push_back(
        xcb_get_atom_name(connection, static_cast<xcb_atom_t>(atom)));
  }
  std::vector<std::optional<std::string>> names;
  names.reserve(atoms.size());
  for (auto cookie : cookies) {
    const auto reply = xcbReply(connection, &xcb_get_atom_name_reply, cookie);
    if (!reply) {
      names.emplace_back();
      continue;
    }
    names.emplace_back(std::string(
        xcb_get_atom_name_name(reply.get()),
        static_cast<size_t>(xcb_get_atom_name_name_length(reply.get()))));
  }
  return names;
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
  if (waitForEvent(display, deadline.current(), isNotice, &event) !=
      WaitResult::kEvent) {
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

bool SelectionConnection::broken() const { return connectionBroken(display_); }

void SelectionConnection::renewWindow() {
  if (broken()) return;
  XDestroyWindow(display_, window_);
  window_ = createSelectionWindow(display_);
  XFlush(display_);
}

}  // namespace tovrin
