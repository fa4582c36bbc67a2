#include "platform/x11/pasteboard_state.h"

#include <algorithm>

#include "platform/x11/display.h"
#include "platform/x11/pasteboard.h"

namespace tovrin {
namespace {

using Clock = X11PasteboardState::Clock;
using Result = SelectionConversion::Result;

// Idle connections kept for the next operations; more are opened while
// operations overlap.
constexpr size_t kIdleConnections = 2;

SelectionConversion failed(Result result) {
  SelectionConversion conversion;
  conversion.result = result;
  return conversion;
}

}  // namespace

std::unique_ptr<SelectionConnection> X11PasteboardState::open() const {
  return SelectionConnection::open(displayName, atomNames_);
}

std::unique_ptr<SelectionConnection> X11PasteboardState::take() {
  {
    std::lock_guard<std::mutex> lock(poolMutex);
    if (!idle.empty()) {
      auto connection = std::move(idle.back());
      idle.pop_back();
      return connection;
    }
  }
  return open();
}

void X11PasteboardState::park(std::unique_ptr<SelectionConnection> connection) {
  std::lock_guard<std::mutex> lock(poolMutex);
  retired.push_back(std::move(connection));
}

void X11PasteboardState::giveBack(
    std::unique_ptr<SelectionConnection> connection) {
  std::unique_ptr<SelectionConnection> surplus;
  std::lock_guard<std::mutex> lock(poolMutex);
  if (idle.size() < kIdleConnections) {
    idle.push_back(std::move(connection));
  } else {
    surplus = std::move(connection);  // closed after the lock is released
  }
}

void X11PasteboardState::serveOwnerRequests() {
  std::unique_lock<std::mutex> lock(ownerMutex, std::try_to_lock);
  if (lock.owns_lock()) drainOwnerEvents();
}

void X11PasteboardState::drainOwnerEvents() {
  if (!ownerConnection) return;
  Display* display = ownerConnection->display();
  while (XPending(display) > 0) {
    XEvent event;
    XNextEvent(display, &event);
    if (ownerServer) ownerServer->handleEvent(event);
  }
  if (ownerServer) ownerServer->expireTransfers(Clock::now());
}

void X11PasteboardState::closeOwner() {
  ownerWindow = None;
  ownerServer.reset();
  ownerConnection.reset();
}

Clock::duration X11PasteboardState::beginRead() {
  std::lock_guard<std::mutex> lock(readMutex);
  Clock::time_point now = Clock::now();
  Clock::duration left = readTimeLeft(now);
  if (activeReads++ == 0) busySince = now;
  return left;
}

void X11PasteboardState::endRead() {
  std::lock_guard<std::mutex> lock(readMutex);
  if (--activeReads == 0) readTimeSpent += Clock::now() - busySince;
}

void X11PasteboardState::giveUpOn(Window owner) {
  std::lock_guard<std::mutex> lock(readMutex);
  if (std::find(givenUp.begin(), givenUp.end(), owner) == givenUp.end()) {
    givenUp.push_back(owner);
  }
}

std::vector<Window> X11PasteboardState::skippedOwners() {
  std::vector<Window> skipped;
  {
    std::lock_guard<std::mutex> lock(readMutex);
    skipped = givenUp;
  }
  skipped.push_back(ownerWindow.load());
  return skipped;
}

Clock::duration X11PasteboardState::readTimeLeft(Clock::time_point now) const {
  Clock::duration spent = readTimeSpent;
  if (activeReads > 0) spent += now - busySince;
  return std::max(Clock::duration::zero(),
                  Clock::duration(kX11PasteboardReadBudget) - spent);
}

X11ConnectionLease::~X11ConnectionLease() {
  if (!connection_ || connection_->broken()) return;
  if (reusable_) {
    state_->giveBack(std::move(connection_));
  } else {
    state_->park(std::move(connection_));
  }
}

void X11ConnectionLease::retireAfterAbandoning() {
  retire();
  if (connection_) connection_->renewWindow();
}

X11ClipboardReader::X11ClipboardReader(
    std::shared_ptr<X11PasteboardState> state)
    : state_(state), lease_(std::move(state)) {
  // No read takes more than half the budget: after an owner that is given
  // up on, the next one (the application's copy) still gets its turn.
  auto total =
      std::min({std::chrono::duration_cast<std::chrono::milliseconds>(
                    state_->beginRead()),
                kX11TransferTotalTimeout, kX11PasteboardReadBudget / 2});
  deadline_ = ConversionDeadline(kX11ConversionTimeout, total);
  stopped_ = total <= std::chrono::milliseconds::zero();
  state_->serveOwnerRequests();
}

SelectionConversion X11ClipboardReader::convert(const char* target) {
  if (!lease_ || stopped_) return failed(Result::kFailed);
  Display* display = lease_.display();
  SelectionConversion conversion = convertSelection(
      display, lease_.window(), internAtom(display, "CLIPBOARD"),
      internAtom(display, target), deadline_, state_->skippedOwners());
  if (conversion.result == Result::kTimedOut ||
      conversion.result == Result::kTooLarge) {
    // Later reads would wait out the same owner again.
    if (conversion.owner != None) state_->giveUpOn(conversion.owner);
    lease_.retireAfterAbandoning();
  }
  if (conversion.result == Result::kFailed) lease_.retire();
  if (conversion.result != Result::kConverted &&
      conversion.result != Result::kRefused) {
    // An owner that is gone or does not answer will not answer the next
    // target either.
    stopped_ = true;
  }
  return conversion;
}

}  // namespace tovrin
