// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
#include "tests/x11/test_owner.h"
// clang-format on

#include <X11/Xatom.h>
#include <poll.h>
#include <unistd.h>

#include "platform/x11/xcb_util.h"

namespace tovrin::testing {

TestOwner::TestOwner(const std::string& display,
                     const std::vector<Target>& targets,
                     bool freezeAfterFirstRequest)
    : freeze_(freezeAfterFirstRequest) {
  connection_ = SelectionConnection::open(display);
  if (!connection_) return;
  Display* x = connection_->display();
  std::vector<OfferedTarget> offered;
  for (const auto& target : targets) {
    Atom atom = XInternAtom(x, target.name.c_str(), False);
    offered.push_back(OfferedTarget{
        atom, atom, 8, std::make_shared<const std::string>(target.data)});
  }
  Atom clipboard = XInternAtom(x, "CLIPBOARD", False);
  ConversionDeadline deadline;
  auto acquired =
      acquireSelection(x, connection_->window(), clipboard, deadline);
  if (!acquired) return;
  acquired_ = *acquired;
  server_ = std::make_unique<SelectionServer>(
      x, connection_->window(), clipboard, *acquired, std::move(offered));
  if (pipe(stop_) != 0) return;
  thread_ = std::thread([this] { serve(); });
}

TestOwner::~TestOwner() {
  if (thread_.joinable()) {
    char byte = 0;
    EXPECT_EQ(write(stop_[1], &byte, 1), 1);
    thread_.join();
  }
  for (int fd : stop_) {
    if (fd >= 0) close(fd);
  }
  server_.reset();
  connection_.reset();
}

void TestOwner::serve() {
  Display* x = connection_->display();
  for (;;) {
    pollfd fds[2] = {{stop_[0], POLLIN, 0}, {ConnectionNumber(x), POLLIN, 0}};
    if (poll(fds, 2, paused_ ? 10 : 1000) < 0) return;
    if (fds[0].revents != 0) return;
    if (paused_ || (freeze_ && requests_ > 0)) continue;
    while (XPending(x) > 0) {
      XEvent event;
      XNextEvent(x, &event);
      if (event.type == SelectionRequest) ++requests_;
      server_->handleEvent(event);
      if (freeze_ && requests_ > 0) break;
    }
  }
}

FakeClipboardManager::FakeClipboardManager(const std::string& display) {
  connection_ = SelectionConnection::open(display);
  if (!connection_) return;
  Display* x = connection_->display();
  ConversionDeadline deadline;
  if (!acquireSelection(x, connection_->window(),
                        XInternAtom(x, "CLIPBOARD_MANAGER", False), deadline)) {
    return;
  }
  thread_ = std::thread([this] { serve(); });
}

FakeClipboardManager::~FakeClipboardManager() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

void FakeClipboardManager::serve() {
  Display* x = connection_->display();
  Atom manager = XInternAtom(x, "CLIPBOARD_MANAGER", False);
  Atom saveTargets = XInternAtom(x, "SAVE_TARGETS", False);
  while (!stop_ && !saved_) {
    XEvent event;
    if (XCheckTypedEvent(x, SelectionRequest, &event) == False) {
      pollfd fd = {ConnectionNumber(x), POLLIN, 0};
      poll(&fd, 1, 20);
      continue;
    }
    const XSelectionRequestEvent& request = event.xselectionrequest;
    if (request.selection != manager || request.target != saveTargets) {
      continue;
    }
    std::vector<Atom> atoms;
    if (auto listed = readProperty(x, request.requestor, request.property)) {
      for (uint32_t value : listed->values32()) atoms.push_back(value);
    }
    for (auto& name : atomNames(x, atoms)) {
      requested_.push_back(name.value_or("?"));
    }
    ConversionDeadline deadline;
    text_ = convertSelection(x, connection_->window(),
                             XInternAtom(x, "CLIPBOARD", False),
                             XInternAtom(x, "UTF8_STRING", False), deadline)
                .data;
    XEvent reply = {};
    reply.xselection.type = SelectionNotify;
    reply.xselection.requestor = request.requestor;
    reply.xselection.selection = request.selection;
    reply.xselection.target = request.target;
    reply.xselection.property = request.property;
    reply.xselection.time = request.time;
    XSendEvent(x, request.requestor, False, NoEventMask, &reply);
    XFlush(x);
    saved_ = true;
  }
}

}  // namespace tovrin::testing
