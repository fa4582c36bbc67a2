#include "tests/x11/test_owner.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>

#include "platform/x11/xcb_util.h"

namespace tovrin::testing {

using std::chrono::milliseconds;

TestOwner::TestOwner(const std::string& display, Behaviour behaviour,
                     const std::vector<Target>& targets, size_t chunkSize)
    : behaviour_(behaviour),
      chunkSize_(chunkSize != 0 ? chunkSize : behaviour == Behaviour::kEndlessSlow ? 1024 : 262144),
      chunk_(chunkSize_, 'x') {
  connection_ = SelectionConnection::open(display);
  if (!connection_) return;
  Display* x = connection_->display();
  Atom clipboard = XInternAtom(x, "CLIPBOARD", False);
  ConversionDeadline deadline;
  auto acquired = acquireSelection(x, connection_->window(), clipboard, deadline);
  if (!acquired) return;
  acquired_ = *acquired;
  if (behaviour == Behaviour::kServes) {
    std::vector<OfferedTarget> offered;
    for (const auto& target : targets) {
      Atom atom = XInternAtom(x, target.first.c_str(), False);
      offered.push_back(
          OfferedTarget{atom, atom, 8, std::make_shared<const std::string>(target.second)});
    }
    server_ = std::make_unique<SelectionServer>(x, connection_->window(), clipboard, acquired_,
                                                std::move(offered));
  }
  thread_ = std::thread([this] { serve(); });
}

TestOwner::~TestOwner() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

void TestOwner::serve() {
  Display* x = connection_->display();
  const bool fast = behaviour_ == Behaviour::kEndlessFast;
  while (!stop_) {
    const bool streaming = requestor_ != None && started_ && !paced();
    pollfd fd = {ConnectionNumber(x), POLLIN, 0};
    // The silent kind never looks at its connection. Short waits, so that
    // the destructor's stop is seen soon.
    poll(&fd, behaviour_ == Behaviour::kSilent ? 0 : 1, streaming && fast ? 0 : 20);
    if (paused_ || behaviour_ == Behaviour::kSilent) continue;
    while (XPending(x) > 0) {
      XEvent event;
      XNextEvent(x, &event);
      requests_ += event.type == SelectionRequest;
      const XPropertyEvent& change = event.xproperty;
      if (server_) {
        server_->handleEvent(event);
        lost_ = server_->lost();
      } else if (event.type == SelectionRequest) {
        answer(event.xselectionrequest);
      } else if (event.type == PropertyNotify && requestor_ != None &&
                 change.state == PropertyDelete && change.window == requestor_ &&
                 change.atom == property_) {
        if (!started_) nextChunk_ = std::chrono::steady_clock::now();
        started_ = true;
        if (paced()) sendChunk();
      }
    }
    if (streaming && std::chrono::steady_clock::now() >= nextChunk_) {
      sendChunk();
    }
  }
}

// Through XCB with errors discarded: the requestor may be gone by now, and
// Xlib's default error handler would end the process.
void TestOwner::put(uint8_t mode, Atom type, int format, size_t length, const void* data) {
  xcb_connection_t* connection = xcbOf(connection_->display());
  xcb_discard_reply(connection, xcb_change_property_checked(connection, mode, uint32_t(requestor_),
                                                            uint32_t(property_), uint32_t(type),
                                                            uint8_t(format), uint32_t(length), data)
                                    .sequence);
}

void TestOwner::answer(const XSelectionRequestEvent& request) {
  xcb_connection_t* connection = xcbOf(connection_->display());
  requestor_ = request.requestor;
  property_ = request.property == None ? request.target : request.property;
  started_ = false;
  sent_ = 0;
  uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_discard_reply(connection, xcb_change_window_attributes_checked(
                                    connection, uint32_t(requestor_), XCB_CW_EVENT_MASK, &mask)
                                    .sequence);
  auto announced = uint32_t(behaviour_ == Behaviour::kHuge ? kHugeSize : chunkSize_);
  put(XCB_PROP_MODE_REPLACE, XInternAtom(connection_->display(), "INCR", 0), 32, 1, &announced);
  xcb_selection_notify_event_t notice = {XCB_SELECTION_NOTIFY, 0, 0, uint32_t(request.time),
                                         uint32_t(request.requestor), uint32_t(request.selection),
                                         uint32_t(request.target), uint32_t(property_)};
  xcb_discard_reply(connection, xcb_send_event_checked(connection, 0, uint32_t(requestor_),
                                                       XCB_EVENT_MASK_NO_EVENT,
                                                       reinterpret_cast<const char*>(&notice))
                                    .sequence);
  xcb_flush(connection);
}

void TestOwner::sendChunk() {
  if (behaviour_ == Behaviour::kStalls) return;
  Atom type = XInternAtom(connection_->display(), "UTF8_STRING", False);
  if (paced()) {
    // The last chunk is empty and ends the transfer.
    size_t length = std::min(chunkSize_, kHugeSize - sent_);
    put(XCB_PROP_MODE_REPLACE, type, 8, length, chunk_.data());
    xcb_flush(xcbOf(connection_->display()));
    sent_ += length;
    bytesSent_ += length;
    if (length == 0) requestor_ = None;
    return;
  }
  // A flood appends, letting chunks pile up in a property nobody reads yet,
  // and checks after a burst that its requestor is still there, which also
  // keeps it from running far ahead of the server.
  const bool fast = behaviour_ == Behaviour::kEndlessFast;
  for (int i = 0; i < (fast ? 16 : 1); ++i) {
    put(fast ? XCB_PROP_MODE_APPEND : XCB_PROP_MODE_REPLACE, type, 8, chunkSize_, chunk_.data());
    bytesSent_ += chunkSize_;
  }
  if (!fast) nextChunk_ += milliseconds(20);
  // A round trip: once the requestor's window is gone, so is the transfer.
  xcb_connection_t* connection = xcbOf(connection_->display());
  if (!xcbReply(connection, xcb_get_window_attributes_reply,
                xcb_get_window_attributes(connection, uint32_t(requestor_)))) {
    requestor_ = None;
  }
}

}  // namespace tovrin::testing
