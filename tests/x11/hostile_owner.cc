#include "tests/x11/hostile_owner.h"

#include <X11/Xatom.h>
#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "platform/x11/xcb_util.h"

namespace tovrin::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kSlowPause{20};
// The fast kind checks after this many chunks that its requestor is still
// there, which also keeps it from running far ahead of the server.
constexpr int kFastBurst = 16;

}  // namespace

struct HostileOwner::Transfer {
  Window requestor = None;
  Atom property = None;
  // Set once the requestor deleted the INCR announcement.
  bool started = false;
  size_t sent = 0;
  Clock::time_point nextChunk;
  std::string chunk;
};

std::optional<Hostility> hostilityNamed(std::string_view name) {
  if (name == "silent") return Hostility::kSilent;
  if (name == "endless-slow") return Hostility::kEndlessSlow;
  if (name == "endless-fast") return Hostility::kEndlessFast;
  if (name == "huge") return Hostility::kHuge;
  if (name == "huge-unannounced") return Hostility::kHugeUnannounced;
  return std::nullopt;
}

HostileOwner::HostileOwner(const std::string& display, Hostility hostility,
                           size_t chunkSize)
    : hostility_(hostility), chunkSize_(chunkSize) {
  if (chunkSize_ == 0) {
    chunkSize_ = hostility == Hostility::kEndlessSlow ? 1024 : 262144;
  }
  connection_ = SelectionConnection::open(display);
  if (!connection_) return;
  Display* x = connection_->display();
  ConversionDeadline deadline;
  if (!acquireSelection(x, connection_->window(),
                        XInternAtom(x, "CLIPBOARD", False), deadline)) {
    return;
  }
  if (pipe(stop_) != 0) return;
  thread_ = std::thread([this] { serve(); });
}

HostileOwner::~HostileOwner() {
  if (thread_.joinable()) {
    char byte = 0;
    if (write(stop_[1], &byte, 1) == 1) thread_.join();
  }
  for (int fd : stop_) {
    if (fd >= 0) close(fd);
  }
  connection_.reset();
}

Window HostileOwner::window() const {
  return connection_ ? connection_->window() : None;
}

void HostileOwner::serve() {
  Display* x = connection_->display();
  for (;;) {
    int timeout = 1000;
    if (transfer_ && transfer_->started) {
      if (hostility_ == Hostility::kEndlessFast) timeout = 0;
      if (hostility_ == Hostility::kEndlessSlow) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(
            transfer_->nextChunk - Clock::now());
        timeout = static_cast<int>(std::max<int64_t>(0, left.count()));
      }
    }
    // The silent kind never looks at its connection.
    pollfd fds[2] = {{stop_[0], POLLIN, 0}, {ConnectionNumber(x), POLLIN, 0}};
    int count = hostility_ == Hostility::kSilent ? 1 : 2;
    if (poll(fds, count, timeout) < 0) return;
    if (fds[0].revents != 0) return;
    if (hostility_ == Hostility::kSilent) continue;
    while (XPending(x) > 0) {
      XEvent event;
      XNextEvent(x, &event);
      if (event.type == SelectionRequest) {
        ++requests_;
        answer(event.xselectionrequest);
      } else if (event.type == PropertyNotify && transfer_ &&
                 event.xproperty.state == PropertyDelete &&
                 event.xproperty.window == transfer_->requestor &&
                 event.xproperty.atom == transfer_->property) {
        if (!transfer_->started) {
          transfer_->started = true;
          transfer_->nextChunk = Clock::now();
        }
        if (paced()) send(*transfer_);
      }
    }
    if (transfer_ && transfer_->started && !paced() &&
        (hostility_ == Hostility::kEndlessFast ||
         Clock::now() >= transfer_->nextChunk)) {
      send(*transfer_);
    }
  }
}

void HostileOwner::answer(const XSelectionRequestEvent& request) {
  xcb_connection_t* connection = xcbOf(connection_->display());
  Atom property = request.property == None ? request.target : request.property;
  auto requestor = static_cast<xcb_window_t>(request.requestor);
  // One transfer at a time: a new request drops the one before.
  transfer_ = std::make_unique<Transfer>();
  transfer_->requestor = request.requestor;
  transfer_->property = property;
  transfer_->chunk.assign(chunkSize_, 'x');
  uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_discard_reply(
      connection, xcb_change_window_attributes_checked(connection, requestor,
                                                       XCB_CW_EVENT_MASK, &mask)
                      .sequence);
  auto announced = static_cast<uint32_t>(
      hostility_ == Hostility::kHuge ? kHugeSize : chunkSize_);
  Atom incr = XInternAtom(connection_->display(), "INCR", False);
  xcb_discard_reply(connection,
                    xcb_change_property_checked(
                        connection, XCB_PROP_MODE_REPLACE, requestor,
                        static_cast<xcb_atom_t>(property),
                        static_cast<xcb_atom_t>(incr), 32, 1, &announced)
                        .sequence);
  union {
    xcb_selection_notify_event_t event;
    char bytes[32];
  } notice = {};
  notice.event.response_type = XCB_SELECTION_NOTIFY;
  notice.event.time = static_cast<xcb_timestamp_t>(request.time);
  notice.event.requestor = requestor;
  notice.event.selection = static_cast<xcb_atom_t>(request.selection);
  notice.event.target = static_cast<xcb_atom_t>(request.target);
  notice.event.property = static_cast<xcb_atom_t>(property);
  xcb_discard_reply(
      connection, xcb_send_event_checked(connection, 0, requestor,
                                         XCB_EVENT_MASK_NO_EVENT, notice.bytes)
                      .sequence);
  xcb_flush(connection);
}

void HostileOwner::send(Transfer& transfer) {
  xcb_connection_t* connection = xcbOf(connection_->display());
  Atom type = XInternAtom(connection_->display(), "UTF8_STRING", False);
  auto write = [&](uint8_t mode, size_t length) {
    return xcb_change_property_checked(
        connection, mode, static_cast<xcb_window_t>(transfer.requestor),
        static_cast<xcb_atom_t>(transfer.property),
        static_cast<xcb_atom_t>(type), 8, static_cast<uint32_t>(length),
        transfer.chunk.data());
  };
  switch (hostility_) {
    case Hostility::kSilent:
      return;
    case Hostility::kHuge:
    case Hostility::kHugeUnannounced: {
      // The last chunk is empty and ends the transfer.
      size_t length = std::min(chunkSize_, kHugeSize - transfer.sent);
      xcb_discard_reply(connection,
                        write(XCB_PROP_MODE_REPLACE, length).sequence);
      xcb_flush(connection);
      transfer.sent += length;
      bytesSent_ += length;
      if (length == 0) transfer_.reset();
      return;
    }
    case Hostility::kEndlessSlow:
    case Hostility::kEndlessFast: {
      bool fast = hostility_ == Hostility::kEndlessFast;
      int chunks = fast ? kFastBurst : 1;
      // Appending lets chunks pile up in a property nobody reads yet.
      uint8_t mode = fast ? XCB_PROP_MODE_APPEND : XCB_PROP_MODE_REPLACE;
      for (int i = 1; i < chunks; ++i) {
        xcb_discard_reply(connection, write(mode, chunkSize_).sequence);
      }
      // A round trip: once the requestor's window is gone, so is the
      // transfer.
      xcb_generic_error_t* error =
          xcb_request_check(connection, write(mode, chunkSize_));
      bytesSent_ += static_cast<size_t>(chunks) * chunkSize_;
      transfer.nextChunk += kSlowPause;
      if (error != nullptr) {
        std::free(error);
        transfer_.reset();
      }
      return;
    }
  }
}

}  // namespace tovrin::testing
