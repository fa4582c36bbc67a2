#include "platform/x11/selection.h"

#include <X11/Xatom.h>
#include <xcb/xcb.h>

#include <algorithm>

#include "platform/x11/display.h"
#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

// The property of the requestor window that owners write their answers to.
constexpr const char kTransferProperty[] = "TOVRIN_SELECTION";

// Drops the queued events of `window`: answers to earlier conversions that
// must not be taken for answers to the next one.
void discardEventsOf(Display* display, Window window) {
  auto ofWindow = [window](const XEvent& event) {
    return event.xany.window == window;
  };
  XEvent event;
  while (XCheckIfEvent(display, &event,
                       &selectionEventMatches<decltype(ofWindow)>,
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

SelectionConversion::Result resultOf(SelectionWait wait) {
  return wait == SelectionWait::kTimedOut
             ? SelectionConversion::Result::kTimedOut
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
    SelectionWait wait =
        waitForSelectionEvent(display, deadline.current(), isNewValue, &event);
    if (wait == SelectionWait::kTimedOut) return abandon(resultOf(wait));
    if (wait != SelectionWait::kEvent) return failure(resultOf(wait));
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

}  // namespace

std::vector<uint32_t> SelectionConversion::values32() const {
  if (format != 32) return {};
  return unpack32(data);
}

SelectionConversion convertSelection(Display* display, Window requestor,
                                     Atom selection, Atom target,
                                     ConversionDeadline& deadline,
                                     std::span<const Window> skippedOwners,
                                     size_t maxSize) {
  if (x11ConnectionBroken(display)) {
    return failure(SelectionConversion::Result::kFailed);
  }
  // A round trip: every event the server sent before it is queued now, so
  // the leftovers of earlier conversions can be dropped.
  Window owner = XGetSelectionOwner(display, selection);
  if (owner == None) {
    return failure(x11ConnectionBroken(display)
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
  SelectionWait wait =
      waitForSelectionEvent(display, deadline.current(), isAnswer, &event);
  if (wait != SelectionWait::kEvent) return answeredBy(failure(resultOf(wait)));
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

}  // namespace tovrin
