#include "platform/x11/pasteboard.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <initializer_list>
#include <iterator>
#include <mutex>
#include <utility>

#include "platform/linux/formats.h"
#include "platform/linux/write_back.h"
#include "platform/x11/clipboard_server.h"
#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"
#include "text/text.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;
using Result = SelectionConversion::Result;

constexpr const char kClipboard[] = "CLIPBOARD";
constexpr const char kTargets[] = "TARGETS";
constexpr const char kUtf8String[] = "UTF8_STRING";
constexpr const char kPlainUtf8[] = "text/plain;charset=utf-8";
constexpr const char kHtml[] = "text/html";
constexpr const char kRtf[] = "text/rtf";
constexpr const char kApplicationRtf[] = "application/rtf";
constexpr const char kUriList[] = "text/uri-list";
constexpr const char kGnomeCopiedFiles[] = "x-special/gnome-copied-files";

// Interned when a connection of the pool or of the empty ownership opens,
// in one round trip.
constexpr const char* kAtomNames[] = {kClipboard,
                                      kTargets,
                                      "TIMESTAMP",
                                      "MULTIPLE",
                                      "INCR",
                                      "ATOM_PAIR",
                                      kUtf8String,
                                      kPlainUtf8,
                                      kHtml,
                                      kRtf,
                                      kApplicationRtf,
                                      kUriList,
                                      kGnomeCopiedFiles,
                                      "TOVRIN_SELECTION",
                                      "TOVRIN_TIMESTAMP"};

std::unique_ptr<SelectionConnection> openConnection(
    const std::string& displayName) {
  return SelectionConnection::open(
      displayName,
      std::vector<const char*>(std::begin(kAtomNames), std::end(kAtomNames)));
}

// Idle connections kept for the next operations; more are opened while
// operations overlap.
constexpr size_t kIdleConnections = 2;

}  // namespace

struct X11PasteboardState {
  explicit X11PasteboardState(std::string name)
      : displayName(std::move(name)) {}

  /// An idle connection, or a new one; null when the display does not open.
  std::unique_ptr<SelectionConnection> take() {
    {
      std::lock_guard<std::mutex> lock(poolMutex);
      if (!idle.empty()) {
        auto connection = std::move(idle.back());
        idle.pop_back();
        return connection;
      }
    }
    return openConnection(displayName);
  }

  /// Keeps a retired connection open until the pasteboard goes. Closed, its
  /// window ids would go to the next client to connect, perhaps our own next
  /// connection, and an owner still writing to the old requestor window
  /// would write into that one's transfers.
  void park(std::unique_ptr<SelectionConnection> connection) {
    std::lock_guard<std::mutex> lock(poolMutex);
    retired.push_back(std::move(connection));
  }

  void giveBack(std::unique_ptr<SelectionConnection> connection) {
    std::unique_ptr<SelectionConnection> surplus;
    std::lock_guard<std::mutex> lock(poolMutex);
    if (idle.size() < kIdleConnections) {
      idle.push_back(std::move(connection));
    } else {
      surplus = std::move(connection);  // closed after the lock is released
    }
  }

  /// Answers what came for the empty ownership, unless another thread is at
  /// it already.
  void serveOwnerRequests() {
    std::unique_lock<std::mutex> lock(ownerMutex, std::try_to_lock);
    if (lock.owns_lock()) drainOwnerEvents();
  }

  // Never blocks: reads only what has arrived.
  void drainOwnerEvents() {
    if (!ownerConnection) return;
    Display* display = ownerConnection->display();
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      if (ownerServer) ownerServer->handleEvent(event);
    }
    if (ownerServer) ownerServer->expireTransfers(Clock::now());
  }

  void closeOwner() {
    ownerWindow = None;
    ownerServer.reset();
    ownerConnection.reset();
  }

  /// Starts a read: how long it may take, zero when the reads of this
  /// pasteboard have used up kX11PasteboardReadBudget.
  Clock::duration beginRead() {
    std::lock_guard<std::mutex> lock(readMutex);
    Clock::time_point now = Clock::now();
    Clock::duration left = readTimeLeft(now);
    if (activeReads++ == 0) busySince = now;
    return left;
  }

  void endRead() {
    std::lock_guard<std::mutex> lock(readMutex);
    if (--activeReads == 0) readTimeSpent += Clock::now() - busySince;
  }

  /// Remembers an owner that did not answer in time or sent too much: it is
  /// not asked again while it owns CLIPBOARD.
  void giveUpOn(Window owner) {
    std::lock_guard<std::mutex> lock(readMutex);
    if (std::find(givenUp.begin(), givenUp.end(), owner) == givenUp.end()) {
      givenUp.push_back(owner);
    }
  }

  /// The owners a read does not ask: those given up on, and our own empty
  /// ownership, which cannot answer while this process waits.
  std::vector<Window> skippedOwners() {
    std::vector<Window> skipped;
    {
      std::lock_guard<std::mutex> lock(readMutex);
      skipped = givenUp;
    }
    skipped.push_back(ownerWindow.load());
    return skipped;
  }

  Clock::duration readTimeLeft(Clock::time_point now) const {  // by readMutex
    Clock::duration spent = readTimeSpent;
    if (activeReads > 0) spent += now - busySince;
    return std::max(Clock::duration::zero(),
                    Clock::duration(kX11PasteboardReadBudget) - spent);
  }

  const std::string displayName;

  std::mutex poolMutex;
  std::vector<std::unique_ptr<SelectionConnection>> idle;     // by poolMutex
  std::vector<std::unique_ptr<SelectionConnection>> retired;  // by poolMutex

  // Readers only ever try this lock, and hold it without waiting.
  std::mutex ownerMutex;
  std::unique_ptr<SelectionConnection> ownerConnection;  // by ownerMutex
  std::unique_ptr<SelectionServer> ownerServer;          // by ownerMutex
  /// The window of the empty ownership, for readers to recognize it.
  std::atomic<Window> ownerWindow{None};

  // The read bookkeeping. Read time is counted while at least one read
  // runs, so that reads overlapping on worker threads count once.
  std::mutex readMutex;
  std::vector<Window> givenUp;                      // by readMutex
  int activeReads = 0;                              // by readMutex
  Clock::time_point busySince;                      // by readMutex
  Clock::duration readTimeSpent = Clock::duration::zero();  // by readMutex
};

namespace {

/// A connection lent to one operation. It goes back to the pool unless the
/// operation ended in a state that later ones must not inherit (an owner
/// that may still answer, a broken connection).
class Lease {
 public:
  explicit Lease(std::shared_ptr<X11PasteboardState> state)
      : state_(std::move(state)), connection_(state_->take()) {}
  ~Lease() {
    if (!connection_ || connection_->broken()) return;
    if (reusable_) {
      state_->giveBack(std::move(connection_));
    } else {
      state_->park(std::move(connection_));
    }
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  explicit operator bool() const { return connection_ != nullptr; }
  Display* display() const { return connection_->display(); }
  Window window() const { return connection_->window(); }
  void retire() { reusable_ = false; }
  /// Retires the connection after an abandoned transfer, whose owner may go
  /// on writing to the window it was given.
  void retireAfterAbandoning() {
    retire();
    if (connection_) connection_->renewWindow();
  }

 private:
  std::shared_ptr<X11PasteboardState> state_;
  std::unique_ptr<SelectionConnection> connection_;
  bool reusable_ = true;
};

/// One read operation: a lent connection and the deadline of its waits,
/// which ends no later than the pasteboard's read budget.
class Reader {
 public:
  explicit Reader(std::shared_ptr<X11PasteboardState> state)
      : state_(state), lease_(std::move(state)) {
    // No read takes more than half the budget: after an owner that is given
    // up on, the next one (the application's copy) still gets its turn.
    auto total = std::min(
        {std::chrono::duration_cast<std::chrono::milliseconds>(
             state_->beginRead()),
         kX11TransferTotalTimeout, kX11PasteboardReadBudget / 2});
    deadline_ = ConversionDeadline(kX11ConversionTimeout, total);
    stopped_ = total <= std::chrono::milliseconds::zero();
    state_->serveOwnerRequests();
  }
  ~Reader() { state_->endRead(); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// Converts CLIPBOARD to `target`. Our own empty ownership and owners
  /// given up on are refused at once, without asking them.
  SelectionConversion convert(const char* target) {
    if (!lease_ || stopped_) return failed(Result::kFailed);
    Display* display = lease_.display();
    SelectionConversion conversion = convertSelection(
        display, lease_.window(), internAtom(display, kClipboard),
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

  /// The first format-8 value among `targets` whose type `accept` takes.
  template <typename Accept>
  std::optional<std::string> firstText(
      std::initializer_list<const char*> targets, Accept accept) {
    for (const char* target : targets) {
      SelectionConversion conversion = convert(target);
      if (conversion.result == Result::kConverted && conversion.format == 8 &&
          accept(target, conversion.typeName)) {
        return std::move(conversion.data);
      }
      if (stopped_) break;
    }
    return std::nullopt;
  }

  Display* display() const { return lease_.display(); }

 private:
  static SelectionConversion failed(Result result) {
    SelectionConversion conversion;
    conversion.result = result;
    return conversion;
  }

  std::shared_ptr<X11PasteboardState> state_;
  Lease lease_;
  ConversionDeadline deadline_;
  bool stopped_ = false;
};

// Some owners (xclip) answer every target with their one value: a value is
// taken only under the type that was asked for.
bool sameType(const char* target, const std::string& type) {
  return type == target;
}

bool utf8TextType(const char* target, const std::string& type) {
  return type == target || type == kUtf8String || type == kPlainUtf8;
}

}  // namespace

X11Pasteboard::X11Pasteboard(std::string displayName)
    : state_(std::make_shared<X11PasteboardState>(std::move(displayName))),
      writeBack_([name = state_->displayName](int lockFd) {
        return startX11ClipboardServer(name, lockFd);
      }) {}

X11Pasteboard::~X11Pasteboard() {
  std::lock_guard<std::mutex> lock(state_->ownerMutex);
  state_->closeOwner();
}

std::optional<std::vector<std::string>> X11Pasteboard::types() {
  Reader reader(state_);
  SelectionConversion conversion = reader.convert(kTargets);
  if (conversion.result != Result::kConverted || conversion.format != 32) {
    return std::nullopt;
  }
  std::vector<Atom> atoms;
  for (uint32_t value : conversion.values32()) atoms.push_back(value);
  std::vector<std::string> names;
  for (auto& name : atomNames(reader.display(), atoms)) {
    if (name) names.push_back(std::move(*name));
  }
  return names;
}

std::optional<std::string> X11Pasteboard::stringForType(PasteboardType type) {
  Reader reader(state_);
  switch (type) {
    case PasteboardType::kString: {
      SelectionConversion conversion = reader.convert(kUtf8String);
      std::string text;
      if (conversion.result == Result::kConverted && conversion.format == 8 &&
          utf8TextType(kUtf8String, conversion.typeName)) {
        text = std::move(conversion.data);
      } else {
        // GTK puts CRLF line ends into this target but not into UTF8_STRING.
        auto plain = reader.firstText({kPlainUtf8}, utf8TextType);
        if (!plain) return std::nullopt;
        text = crlfToLf(*plain);
      }
      dropOneTrailingNul(text);
      return toValidUtf8(text);
    }
    case PasteboardType::kHTML: {
      auto html = reader.firstText({kHtml}, sameType);
      if (!html) return std::nullopt;
      return decodeHtml(*html);
    }
    case PasteboardType::kRTF:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> X11Pasteboard::dataForType(PasteboardType type) {
  switch (type) {
    case PasteboardType::kRTF: {
      Reader reader(state_);
      return reader.firstText({kRtf, kApplicationRtf}, sameType);
    }
    case PasteboardType::kString:
    case PasteboardType::kHTML:
      return stringForType(type);
  }
  return std::nullopt;
}

std::optional<PropertyList> X11Pasteboard::propertyListForType(
    std::string_view) {
  return std::nullopt;
}

std::optional<std::vector<PasteboardURLObject>>
X11Pasteboard::readFileURLObjects() {
  Reader reader(state_);
  auto uriList = reader.firstText({kUriList}, sameType);
  if (!uriList) return std::nullopt;
  return fileURLObjectsFromUriList(*uriList);
}

std::optional<std::vector<PasteboardItem>> X11Pasteboard::pasteboardItems() {
  Reader reader(state_);
  auto copied = reader.firstText({kGnomeCopiedFiles}, sameType);
  if (!copied) return std::nullopt;
  return itemsFromGnomeCopiedFiles(*copied);
}

void X11Pasteboard::guardString(std::string_view text) {
  writeBack_.guard(text);
}

void X11Pasteboard::clearContents() {
  std::shared_ptr<X11PasteboardState> state = state_;
  // The text is put back after every capture: the process that will serve
  // it starts now, while the application copies, and from here on watches
  // over the run.
  writeBack_.clearing();
  {
    std::lock_guard<std::mutex> lock(state->ownerMutex);
    if (state->ownerConnection && state->ownerConnection->broken()) {
      state->closeOwner();
    }
    if (!state->ownerConnection) {
      state->ownerConnection = openConnection(state->displayName);
      if (!state->ownerConnection) return;
      state->ownerWindow = state->ownerConnection->window();
    }
    state->drainOwnerEvents();
    state->ownerServer.reset();
    Display* display = state->ownerConnection->display();
    Window window = state->ownerConnection->window();
    Atom clipboard = internAtom(display, kClipboard);
    ConversionDeadline deadline;
    std::optional<Time> acquired =
        acquireSelection(display, window, clipboard, deadline);
    if (acquired) {
      state->ownerServer = std::make_unique<SelectionServer>(
          display, window, clipboard, *acquired, std::vector<OfferedTarget>{});
    }
  }
}

bool X11Pasteboard::setString(std::string_view text, PasteboardType type) {
  if (type != PasteboardType::kString) return false;
  const bool served = writeBack_.serve(text);
  // Takes in the SelectionClear of the empty ownership, if it had it.
  state_->serveOwnerRequests();
  return served;
}

std::unique_ptr<X11Pasteboard> createX11Pasteboard() {
  return createX11Pasteboard(std::string());
}

std::unique_ptr<X11Pasteboard> createX11Pasteboard(
    const std::string& displayName) {
  auto connection = openConnection(displayName);
  if (!connection) return nullptr;
  // The name of the display that opened, so that the serving child opens
  // the same one even if the environment changes.
  std::string name = DisplayString(connection->display());
  auto pasteboard = std::make_unique<X11Pasteboard>(name);
  pasteboard->state_->giveBack(std::move(connection));
  return pasteboard;
}

}  // namespace tovrin
