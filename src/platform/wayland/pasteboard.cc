#include "platform/wayland/pasteboard.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "platform/linux/formats.h"
#include "platform/wayland/clipboard_keeper.h"
#include "platform/wayland/connection.h"
#include "platform/wayland/offers.h"
#include "platform/wayland/pipe_read.h"
#include "wlr-data-control-unstable-v1-client.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

// An offer lists what its owner says; a hostile owner could say a lot.
constexpr size_t kMaxOfferedTypes = 256;
constexpr size_t kMaxTypeLength = 1024;

}  // namespace

struct WaylandPasteboardState {
  explicit WaylandPasteboardState(std::string socketPath)
      : socket(std::move(socketPath)) {}
  ~WaylandPasteboardState() {
    for (auto& [offer, types] : offers) zwlr_data_control_offer_v1_destroy(offer);
    if (emptySource != nullptr) zwlr_data_control_source_v1_destroy(emptySource);
    if (device != nullptr) zwlr_data_control_device_v1_destroy(device);
  }

  const std::string socket;

  // The connection, the offers and our empty ownership.
  std::mutex mutex;
  std::shared_ptr<WaylandConnection> connection;        // by mutex
  zwlr_data_control_device_v1* device = nullptr;        // by mutex
  std::map<zwlr_data_control_offer_v1*, std::vector<std::string>>
      offers;                                           // by mutex
  zwlr_data_control_offer_v1* selection = nullptr;      // by mutex
  /// Counts the clipboard's changes: an offer given up on is known by it.
  uint64_t generation = 0;                              // by mutex
  std::vector<uint64_t> givenUp;                        // by mutex
  zwlr_data_control_source_v1* emptySource = nullptr;   // by mutex

  // The read bookkeeping, as on X11: read time counts while at least one
  // read runs, so that reads overlapping on worker threads count once.
  std::mutex readMutex;
  int activeReads = 0;                                      // by readMutex
  Clock::time_point busySince;                              // by readMutex
  Clock::duration readTimeSpent = Clock::duration::zero();  // by readMutex

  Clock::duration beginRead() {
    std::lock_guard<std::mutex> lock(readMutex);
    const Clock::time_point now = Clock::now();
    Clock::duration spent = readTimeSpent;
    if (activeReads > 0) spent += now - busySince;
    if (activeReads++ == 0) busySince = now;
    return std::max(Clock::duration::zero(),
                    Clock::duration(kWaylandPasteboardReadBudget) - spent);
  }
  void endRead() {
    std::lock_guard<std::mutex> lock(readMutex);
    if (--activeReads == 0) readTimeSpent += Clock::now() - busySince;
  }

  void forget(zwlr_data_control_offer_v1* offer) {  // by mutex
    if (offer == nullptr) return;
    offers.erase(offer);
    zwlr_data_control_offer_v1_destroy(offer);
  }

  static void onOfferType(void* data, zwlr_data_control_offer_v1* offer,
                          const char* type) {
    auto* state = static_cast<WaylandPasteboardState*>(data);
    const auto found = state->offers.find(offer);
    if (found == state->offers.end()) return;
    std::vector<std::string>& types = found->second;
    if (types.size() < kMaxOfferedTypes &&
        std::string_view(type).size() <= kMaxTypeLength) {
      types.emplace_back(type);
    }
  }
  static void onDataOffer(void* data, zwlr_data_control_device_v1*,
                          zwlr_data_control_offer_v1* offer) {
    static const zwlr_data_control_offer_v1_listener kListener = {onOfferType};
    auto* state = static_cast<WaylandPasteboardState*>(data);
    state->offers[offer];
    zwlr_data_control_offer_v1_add_listener(offer, &kListener, state);
  }
  static void onSelection(void* data, zwlr_data_control_device_v1*,
                          zwlr_data_control_offer_v1* offer) {
    auto* state = static_cast<WaylandPasteboardState*>(data);
    if (state->selection != offer) state->forget(state->selection);
    state->selection = offer;
    ++state->generation;
  }
  static void onFinished(void* data, zwlr_data_control_device_v1*) {
    auto* state = static_cast<WaylandPasteboardState*>(data);
    state->forget(state->selection);
    state->selection = nullptr;
    ++state->generation;
  }
  static void onPrimarySelection(void* data, zwlr_data_control_device_v1*,
                                 zwlr_data_control_offer_v1* offer) {
    // PRIMARY is not the clipboard: its offers are dropped at once.
    static_cast<WaylandPasteboardState*>(data)->forget(offer);
  }

  static void onEmptySend(void*, zwlr_data_control_source_v1*, const char*,
                          int32_t fd) {
    // The empty clipboard has nothing to give: the reader sees its end.
    close(fd);
  }
  static void onEmptyCancelled(void* data,
                               zwlr_data_control_source_v1* source) {
    auto* state = static_cast<WaylandPasteboardState*>(data);
    zwlr_data_control_source_v1_destroy(source);
    if (state->emptySource == source) state->emptySource = nullptr;
  }
};

namespace {

/// One read: what the current offer is asked for, and the deadline of the
/// answer, which ends no later than the pasteboard's read budget.
class Reader {
 public:
  explicit Reader(std::shared_ptr<WaylandPasteboardState> state)
      : state_(std::move(state)) {
    const auto total = std::min(
        {std::chrono::duration_cast<std::chrono::milliseconds>(
             state_->beginRead()),
         kWaylandPasteboardReadBudget / 2});
    deadline_ = Clock::now() + total;
    stopped_ = total <= std::chrono::milliseconds::zero();
  }
  ~Reader() { state_->endRead(); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// The current offer's types, after the compositor told of every change
  /// made before now; nothing when there is no offer to read.
  std::optional<std::vector<std::string>> types() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (!refresh()) return std::nullopt;
    return state_->offers[state_->selection];
  }

  /// The bytes of the first of the current offer's types that `choose`
  /// picks, with the type; nothing when it has none of them or did not
  /// answer in time.
  template <typename Choose>
  std::optional<std::pair<std::string, std::string>> read(Choose choose) {
    int ends[2] = {-1, -1};
    std::string type;
    uint64_t generation = 0;
    {
      std::lock_guard<std::mutex> lock(state_->mutex);
      if (!refresh()) return std::nullopt;
      const std::vector<std::string> wanted =
          choose(state_->offers[state_->selection]);
      if (wanted.empty()) return std::nullopt;
      type = wanted.front();
      if (pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
      // libwayland sends a duplicate of the write end: ours closes now, so
      // that the read ends when the owner closes its own.
      zwlr_data_control_offer_v1_receive(state_->selection, type.c_str(),
                                         ends[1]);
      close(ends[1]);
      generation = state_->generation;
      if (!state_->connection->flush(deadline_)) {
        close(ends[0]);
        return std::nullopt;
      }
    }
    PipeRead read =
        readPipe(ends[0], kWaylandReplyTimeout, deadline_, kWaylandMaxValueSize);
    close(ends[0]);
    if (read.result != PipeRead::Result::kComplete) {
      // Later reads would wait out the same owner again.
      std::lock_guard<std::mutex> lock(state_->mutex);
      state_->givenUp.push_back(generation);
      return std::nullopt;
    }
    return std::make_pair(std::move(type), std::move(read.data));
  }

 private:
  /// Brings the offers up to date; false when there is nothing to read.
  bool refresh() {  // by mutex
    if (stopped_ || !state_->connection) return false;
    const Clock::time_point replyBy =
        std::min(deadline_, Clock::now() + kWaylandReplyTimeout);
    if (!state_->connection->roundtrip(replyBy)) {
      stopped_ = true;
      return false;
    }
    // Our own empty clipboard cannot answer while this process waits.
    if (state_->selection == nullptr || state_->emptySource != nullptr) {
      return false;
    }
    const auto& givenUp = state_->givenUp;
    return std::find(givenUp.begin(), givenUp.end(), state_->generation) ==
           givenUp.end();
  }

  std::shared_ptr<WaylandPasteboardState> state_;
  Clock::time_point deadline_;
  bool stopped_ = false;
};


}  // namespace

WaylandPasteboard::WaylandPasteboard(
    std::shared_ptr<WaylandPasteboardState> state)
    : state_(std::move(state)),
      writeBack_([socket = state_->socket](int lockFd) {
        return startWaylandClipboardServer(socket, lockFd);
      }) {}

WaylandPasteboard::~WaylandPasteboard() {
  std::lock_guard<std::mutex> lock(state_->mutex);
  if (state_->emptySource != nullptr && state_->connection) {
    zwlr_data_control_source_v1_destroy(state_->emptySource);
    state_->emptySource = nullptr;
    state_->connection->flush(Clock::now() + kWaylandReplyTimeout);
  }
}

std::optional<std::vector<std::string>> WaylandPasteboard::types() {
  Reader reader(state_);
  return reader.types();
}

std::optional<std::string> WaylandPasteboard::stringForType(
    PasteboardType type) {
  if (type == PasteboardType::kRTF) return std::nullopt;
  Reader reader(state_);
  auto read = reader.read([type](const std::vector<std::string>& offered) {
    return typesToRead(type, offered);
  });
  if (!read) return std::nullopt;
  return textFromOffer(read->first, std::move(read->second));
}

std::optional<std::string> WaylandPasteboard::dataForType(PasteboardType type) {
  if (type != PasteboardType::kRTF) return stringForType(type);
  Reader reader(state_);
  auto read = reader.read([](const std::vector<std::string>& offered) {
    return typesToRead(PasteboardType::kRTF, offered);
  });
  if (!read) return std::nullopt;
  return std::move(read->second);
}

std::optional<PropertyList> WaylandPasteboard::propertyListForType(
    std::string_view) {
  return std::nullopt;
}

std::optional<std::vector<PasteboardURLObject>>
WaylandPasteboard::readFileURLObjects() {
  Reader reader(state_);
  auto read = reader.read([](const std::vector<std::string>& offered) {
    return onlyIfOffered(offered, kMimeUriList);
  });
  if (!read) return std::nullopt;
  return fileURLObjectsFromUriList(read->second);
}

std::optional<std::vector<PasteboardItem>> WaylandPasteboard::pasteboardItems() {
  Reader reader(state_);
  auto read = reader.read([](const std::vector<std::string>& offered) {
    return onlyIfOffered(offered, kMimeGnomeCopiedFiles);
  });
  if (!read) return std::nullopt;
  return itemsFromGnomeCopiedFiles(read->second);
}

void WaylandPasteboard::guardString(std::string_view text) {
  writeBack_.guard(text);
}

void WaylandPasteboard::clearContents() {
  // The text is put back after every capture: the process that will serve
  // it starts now, while the application copies.
  writeBack_.clearing();
  std::lock_guard<std::mutex> lock(state_->mutex);
  WaylandConnection* connection = state_->connection.get();
  if (connection == nullptr || state_->device == nullptr) return;
  if (state_->emptySource != nullptr) {
    zwlr_data_control_source_v1_destroy(state_->emptySource);
  }
  static const zwlr_data_control_source_v1_listener kListener = {
      &WaylandPasteboardState::onEmptySend,
      &WaylandPasteboardState::onEmptyCancelled};
  state_->emptySource =
      zwlr_data_control_manager_v1_create_data_source(connection->dataControl());
  zwlr_data_control_source_v1_add_listener(state_->emptySource, &kListener,
                                           state_.get());
  zwlr_data_control_device_v1_set_selection(state_->device, state_->emptySource);
  connection->roundtrip(Clock::now() + kWaylandReplyTimeout);
}

bool WaylandPasteboard::withConnection(
    const std::function<void(WaylandConnection&)>& work) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  if (!state_->connection) return false;
  work(*state_->connection);
  return true;
}

bool WaylandPasteboard::setString(std::string_view text, PasteboardType type) {
  if (type != PasteboardType::kString) return false;
  return writeBack_.serve(text);
}

std::unique_ptr<WaylandPasteboard> createWaylandPasteboard(
    const std::string& socket, std::shared_ptr<WaylandConnection> adopted) {
  // The path of the compositor that answered, so that the serving child
  // reaches the same one even if the environment changes.
  auto state = std::make_shared<WaylandPasteboardState>(waylandSocketPath(socket));
  state->connection = adopted ? std::move(adopted)
                              : WaylandConnection::open(state->socket);
  WaylandConnection* connection = state->connection.get();
  if (connection == nullptr || connection->dataControl() == nullptr ||
      connection->seat() == nullptr) {
    return nullptr;
  }
  static const zwlr_data_control_device_v1_listener kListener = {
      &WaylandPasteboardState::onDataOffer, &WaylandPasteboardState::onSelection,
      &WaylandPasteboardState::onFinished,
      &WaylandPasteboardState::onPrimarySelection};
  state->device = zwlr_data_control_manager_v1_get_data_device(
      connection->dataControl(), connection->seat());
  zwlr_data_control_device_v1_add_listener(state->device, &kListener,
                                           state.get());
  if (!connection->roundtrip(Clock::now() + kWaylandReplyTimeout)) return nullptr;
  return std::unique_ptr<WaylandPasteboard>(new WaylandPasteboard(state));
}

}  // namespace tovrin
