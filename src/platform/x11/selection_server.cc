#include "platform/x11/selection_server.h"

#include <X11/Xatom.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdint>

#include "platform/x11/display.h"
#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

// Larger answers go by INCR; GTK uses the same bound.
constexpr size_t kMaxChunkSize = 262144;

}  // namespace

SelectionServer::SelectionServer(Display* display, Window owner, Atom selection,
                                 Time acquired,
                                 std::vector<OfferedTarget> targets)
    : display_(display),
      owner_(owner),
      selection_(selection),
      acquired_(acquired),
      targets_(std::move(targets)),
      targetsAtom_(internAtom(display, "TARGETS")),
      timestampAtom_(internAtom(display, "TIMESTAMP")),
      multipleAtom_(internAtom(display, "MULTIPLE")),
      incrAtom_(internAtom(display, "INCR")),
      atomPairAtom_(internAtom(display, "ATOM_PAIR")) {
  long maxRequest = XExtendedMaxRequestSize(display);
  if (maxRequest == 0) maxRequest = XMaxRequestSize(display);
  size_t maxBytes = static_cast<size_t>(maxRequest) * 4;
  chunkSize_ = std::min(kMaxChunkSize, maxBytes > 200 ? maxBytes - 100 : 100);
}

SelectionServer::~SelectionServer() {
  while (!transfers_.empty()) forget(transfers_.begin());
  xcb_flush(xcbOf(display_));
}

bool SelectionServer::handleEvent(const XEvent& event) {
  switch (event.type) {
    case SelectionRequest:
      if (event.xselectionrequest.owner != owner_ ||
          event.xselectionrequest.selection != selection_) {
        return false;
      }
      handleRequest(event.xselectionrequest);
      return true;
    case SelectionClear:
      if (event.xselectionclear.window != owner_ ||
          event.xselectionclear.selection != selection_) {
        return false;
      }
      lost_ = true;
      return true;
    case PropertyNotify:
      if (event.xproperty.state != PropertyDelete ||
          transfers_.count({event.xproperty.window, event.xproperty.atom}) ==
              0) {
        return false;
      }
      handlePropertyDeleted(event.xproperty);
      return true;
    default:
      return false;
  }
}

std::optional<SelectionServer::Clock::time_point>
SelectionServer::nextDeadline() const {
  std::optional<Clock::time_point> earliest;
  for (const auto& [key, transfer] : transfers_) {
    auto end = transfer.lastActivity + kX11ServeStallTimeout;
    if (!earliest || end < *earliest) earliest = end;
  }
  return earliest;
}

void SelectionServer::expireTransfers(Clock::time_point now) {
  for (auto it = transfers_.begin(); it != transfers_.end();) {
    auto next = std::next(it);
    if (it->second.lastActivity + kX11ServeStallTimeout <= now) forget(it);
    it = next;
  }
  xcb_flush(xcbOf(display_));
}

void SelectionServer::handleRequest(const XSelectionRequestEvent& request) {
  // Obsolete requestors leave the property None and mean the target's name.
  Atom property = request.property == None ? request.target : request.property;
  bool answered = false;
  // The selection is no longer ours to answer for, or the request predates
  // our ownership.
  bool stale =
      lost_ || (request.time != CurrentTime && request.time < acquired_);
  if (!stale) {
    answered = request.target == multipleAtom_
                   ? answerMultiple(request.requestor, property)
                   : answer(request.requestor, request.target, property);
  }
  // The notice is 32 bytes on the wire; XCB copies that much.
  union {
    xcb_selection_notify_event_t event;
    char bytes[32];
  } notice = {};
  notice.event.response_type = XCB_SELECTION_NOTIFY;
  notice.event.time = static_cast<xcb_timestamp_t>(request.time);
  notice.event.requestor = static_cast<xcb_window_t>(request.requestor);
  notice.event.selection = static_cast<xcb_atom_t>(request.selection);
  notice.event.target = static_cast<xcb_atom_t>(request.target);
  notice.event.property = static_cast<xcb_atom_t>(answered ? property : None);
  xcb_connection_t* connection = xcbOf(display_);
  // Errors (the requestor may be gone already) are dropped with the reply.
  xcb_discard_reply(
      connection,
      xcb_send_event_checked(connection, 0,
                             static_cast<xcb_window_t>(request.requestor),
                             XCB_EVENT_MASK_NO_EVENT, notice.bytes)
          .sequence);
  xcb_flush(connection);
}

bool SelectionServer::answer(Window requestor, Atom target, Atom property) {
  xcb_connection_t* connection = xcbOf(display_);
  auto write = [&](Atom type, int format, const void* data, size_t items) {
    xcb_discard_reply(
        connection,
        xcb_change_property_checked(
            connection, XCB_PROP_MODE_REPLACE,
            static_cast<xcb_window_t>(requestor),
            static_cast<xcb_atom_t>(property), static_cast<xcb_atom_t>(type),
            static_cast<uint8_t>(format), static_cast<uint32_t>(items), data)
            .sequence);
  };
  if (target == targetsAtom_) {
    std::vector<uint32_t> atoms = {static_cast<uint32_t>(targetsAtom_),
                                   static_cast<uint32_t>(timestampAtom_)};
    if (!targets_.empty()) {
      atoms.push_back(static_cast<uint32_t>(multipleAtom_));
    }
    for (const auto& offered : targets_) {
      atoms.push_back(static_cast<uint32_t>(offered.target));
    }
    write(XA_ATOM, 32, atoms.data(), atoms.size());
    return true;
  }
  if (target == timestampAtom_) {
    auto time = static_cast<uint32_t>(acquired_);
    write(XA_INTEGER, 32, &time, 1);
    return true;
  }
  auto offered = std::find_if(
      targets_.begin(), targets_.end(),
      [target](const OfferedTarget& t) { return t.target == target; });
  if (offered == targets_.end() || !offered->data) return false;
  const std::string& data = *offered->data;
  size_t unit = offered->format == 32 ? 4 : 1;
  if (data.size() <= chunkSize_) {
    write(offered->type, offered->format, data.data(), data.size() / unit);
    return true;
  }
  if (offered->format != 8) return false;
  // Large values go by INCR: listen for the requestor deleting the property
  // before announcing, so that no deletion can be missed.
  TransferKey key{requestor, property};
  if (transfers_.count(key) != 0) forget(transfers_.find(key));
  listenTo(requestor, true);
  auto size = static_cast<uint32_t>(std::min<size_t>(data.size(), UINT32_MAX));
  write(incrAtom_, 32, &size, 1);
  transfers_[key] = Transfer{offered->type, offered->data, 0, Clock::now()};
  return true;
}

bool SelectionServer::answerMultiple(Window requestor, Atom property) {
  xcb_connection_t* connection = xcbOf(display_);
  auto value = readProperty(display_, requestor, property);
  if (!value || !value->exists()) return false;
  std::vector<uint32_t> pairs = value->values32();
  if (pairs.empty()) return false;
  for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
    Atom target = pairs[i];
    Atom pairProperty = pairs[i + 1];
    if (target == multipleAtom_ || pairProperty == None ||
        !answer(requestor, target, pairProperty)) {
      pairs[i + 1] = XCB_ATOM_NONE;
    }
  }
  xcb_discard_reply(connection,
                    xcb_change_property_checked(
                        connection, XCB_PROP_MODE_REPLACE,
                        static_cast<xcb_window_t>(requestor),
                        static_cast<xcb_atom_t>(property),
                        static_cast<xcb_atom_t>(atomPairAtom_), 32,
                        static_cast<uint32_t>(pairs.size()), pairs.data())
                        .sequence);
  return true;
}

void SelectionServer::handlePropertyDeleted(const XPropertyEvent& event) {
  auto it = transfers_.find({event.window, event.atom});
  Transfer& transfer = it->second;
  const std::string& data = *transfer.data;
  size_t length = std::min(chunkSize_, data.size() - transfer.offset);
  xcb_connection_t* connection = xcbOf(display_);
  // The last chunk has length zero and ends the transfer.
  xcb_discard_reply(connection, xcb_change_property_checked(
                                    connection, XCB_PROP_MODE_REPLACE,
                                    static_cast<xcb_window_t>(event.window),
                                    static_cast<xcb_atom_t>(event.atom),
                                    static_cast<xcb_atom_t>(transfer.type), 8,
                                    static_cast<uint32_t>(length),
                                    data.data() + transfer.offset)
                                    .sequence);
  if (length == 0) {
    forget(it);
  } else {
    transfer.offset += length;
    transfer.lastActivity = Clock::now();
  }
  xcb_flush(connection);
}

void SelectionServer::listenTo(Window requestor, bool listen) {
  // Our own windows keep the events they were created with.
  if (requestor == owner_) return;
  xcb_connection_t* connection = xcbOf(display_);
  uint32_t mask = listen ? XCB_EVENT_MASK_PROPERTY_CHANGE : 0;
  xcb_discard_reply(connection,
                    xcb_change_window_attributes_checked(
                        connection, static_cast<xcb_window_t>(requestor),
                        XCB_CW_EVENT_MASK, &mask)
                        .sequence);
}

void SelectionServer::forget(
    std::map<TransferKey, Transfer>::iterator transfer) {
  Window requestor = transfer->first.first;
  transfers_.erase(transfer);
  bool stillUsed = std::any_of(transfers_.begin(), transfers_.end(),
                               [requestor](const auto& entry) {
                                 return entry.first.first == requestor;
                               });
  if (!stillUsed) listenTo(requestor, false);
}

}  // namespace tovrin
