#include "platform/gnome/pasteboard.h"

#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "platform/atspi/sd_bus.h"
#include "platform/gnome/remote_desktop.h"
#include "platform/linux/formats.h"
#include "platform/wayland/offers.h"
#include "platform/wayland/pasteboard.h"
#include "platform/wayland/pipe_read.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;

/// How long one answer of the compositor may take, and one read in all.
constexpr milliseconds kReplyTimeout{1000};
constexpr milliseconds kReadTimeout = kWaylandPasteboardReadBudget / 2;
/// How long a serving process waits before it checks its connection.
constexpr std::chrono::seconds kIdleCheckPeriod{60};

std::chrono::nanoseconds in(milliseconds timeout) {
  return monotonicNow() + timeout;
}

/// Serves the written-back text from a session of its own until another
/// program owns the clipboard or the bus goes away.
class MutterClipboardKeeper : public ClipboardKeeper {
 public:
  explicit MutterClipboardKeeper(std::unique_ptr<MutterRemoteDesktop> session)
      : session_(std::move(session)) {
    session_->onOwnerChanged([this](const MutterClipboardOwner& owner) {
      if (owned_ && !owner.ours) replaced_ = true;
      if (owner.ours) owned_ = true;
    });
    session_->onTransfer([this](const std::string& type, uint32_t serial) {
      const int fd = session_->selectionWrite(serial, in(kReplyTimeout));
      if (fd < 0) return;
      // A reader that stops reading is given up on; the next one is served.
      const bool written =
          writePipe(fd, servedTextFor(type, text_), kReplyTimeout);
      close(fd);
      session_->transferDone(serial, written, in(kReplyTimeout));
    });
  }

  /// Keys pressed through a remote-desktop session are released by the
  /// compositor when the session's connection goes away with its process.
  void releaseKeys(const std::vector<uint8_t>&) override {}

  bool own(const std::string& text) override {
    text_ = text;
    // Owned once the call returns: enabling with types tells the session
    // of no owner change, its own included.
    owned_ = session_->enableClipboard(servedTextTypes(), in(kReplyTimeout));
    return owned_;
  }

  void serve() override {
    while (!replaced_) {
      if (!session_->dispatch([this] { return replaced_; },
                              in(kIdleCheckPeriod)) ||
          !session_->roundtrip(in(kReplyTimeout))) {
        return;
      }
    }
  }

 private:
  std::unique_ptr<MutterRemoteDesktop> session_;
  std::string text_;
  bool owned_ = false;
  bool replaced_ = false;
};

std::unique_ptr<ServerProcess> startMutterClipboardServer(int lockFd) {
  return ServerProcess::start(
      []() -> std::unique_ptr<ClipboardKeeper> {
        auto session = MutterRemoteDesktop::open(in(kServerOpenTimeout));
        if (!session) return nullptr;
        return std::make_unique<MutterClipboardKeeper>(std::move(session));
      },
      lockFd);
}

}  // namespace

struct MutterPasteboardState {
  std::mutex mutex;
  std::unique_ptr<MutterRemoteDesktop> session;  // by mutex
  MutterClipboardOwner owner;                    // by mutex
  bool hasOwner = false;                         // by mutex
  /// Our empty ownership, from clearContents() until another owner.
  bool clearing = false;  // by mutex
  /// The clipboard's changes; an owner that did not answer is not asked
  /// again until the next.
  uint64_t generation = 0;        // by mutex
  uint64_t givenUp = UINT64_MAX;  // by mutex
};

MutterPasteboard::MutterPasteboard(std::shared_ptr<MutterPasteboardState> state)
    : state_(std::move(state)), writeBack_([](int lockFd) {
        return startMutterClipboardServer(lockFd);
      }) {}

MutterPasteboard::~MutterPasteboard() = default;

std::optional<std::vector<std::string>> MutterPasteboard::types() {
  std::lock_guard<std::mutex> lock(state_->mutex);
  // The signals that have come say who owns the clipboard: the copy's
  // owner change comes when the application is done, not in answer to
  // anything of ours, so a round trip would not bring it sooner.
  if (!state_->session->dispatchPending()) return std::nullopt;
  if (!state_->hasOwner || state_->clearing || state_->owner.ours) {
    return std::nullopt;
  }
  return state_->owner.types;
}

std::optional<std::pair<std::string, std::string>> MutterPasteboard::read(
    const std::function<
        std::vector<std::string>(const std::vector<std::string>&)>& choose) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  if (!state_->session->dispatchPending()) return std::nullopt;
  if (!state_->hasOwner || state_->clearing || state_->owner.ours ||
      state_->givenUp == state_->generation) {
    return std::nullopt;
  }
  const std::vector<std::string> wanted = choose(state_->owner.types);
  if (wanted.empty()) return std::nullopt;
  auto bytes = state_->session->selectionRead(
      wanted.front(), kReplyTimeout, in(kReadTimeout), kWaylandMaxValueSize);
  if (!bytes) {
    // Later reads would wait out the same owner again.
    state_->givenUp = state_->generation;
    return std::nullopt;
  }
  return std::make_pair(wanted.front(), std::move(*bytes));
}

std::optional<std::string> MutterPasteboard::stringForType(
    PasteboardType type) {
  if (type == PasteboardType::kRTF) return std::nullopt;
  auto read = this->read([type](const std::vector<std::string>& offered) {
    return typesToRead(type, offered);
  });
  if (!read) return std::nullopt;
  return textFromOffer(read->first, std::move(read->second));
}

std::optional<std::string> MutterPasteboard::dataForType(PasteboardType type) {
  if (type != PasteboardType::kRTF) return stringForType(type);
  auto read = this->read([](const std::vector<std::string>& offered) {
    return typesToRead(PasteboardType::kRTF, offered);
  });
  if (!read) return std::nullopt;
  return std::move(read->second);
}

std::optional<std::vector<PasteboardURLObject>>
MutterPasteboard::readFileURLObjects() {
  auto read = this->read([](const std::vector<std::string>& offered) {
    return onlyIfOffered(offered, kMimeUriList);
  });
  if (!read) return std::nullopt;
  return fileURLObjectsFromUriList(read->second);
}

std::optional<std::vector<PasteboardItem>> MutterPasteboard::pasteboardItems() {
  auto read = this->read([](const std::vector<std::string>& offered) {
    return onlyIfOffered(offered, kMimeGnomeCopiedFiles);
  });
  if (!read) return std::nullopt;
  return itemsFromGnomeCopiedFiles(read->second);
}

void MutterPasteboard::clearContents() {
  writeBack_.clearing();
  std::lock_guard<std::mutex> lock(state_->mutex);
  // An offer the compositor must have a type for; asked, it gives nothing.
  // The next read's round trip brings the owner change.
  if (state_->session->setSelection({kMimePlainUtf8}, in(kReplyTimeout))) {
    state_->clearing = true;
  }
}

bool MutterPasteboard::setString(std::string_view text, PasteboardType type) {
  if (type != PasteboardType::kString) return false;
  return writeBack_.serve(text);
}

std::unique_ptr<MutterPasteboard> createMutterPasteboard(
    std::unique_ptr<MutterRemoteDesktop> session) {
  if (!session) return nullptr;
  auto state = std::make_shared<MutterPasteboardState>();
  state->session = std::move(session);
  MutterRemoteDesktop& followed = *state->session;
  MutterPasteboardState* raw = state.get();
  // Called with the state's mutex held, from within the session's calls.
  followed.onOwnerChanged([raw](const MutterClipboardOwner& owner) {
    raw->owner = owner;
    raw->hasOwner = !owner.types.empty();
    if (!owner.ours) raw->clearing = false;
    ++raw->generation;
  });
  followed.onTransfer([raw](const std::string&, uint32_t serial) {
    // The empty clipboard has nothing to give: the reader sees its end.
    const int fd = raw->session->selectionWrite(serial, in(kReplyTimeout));
    if (fd >= 0) close(fd);
    raw->session->transferDone(serial, false, in(kReplyTimeout));
  });
  if (!followed.enableClipboard({}, in(kReplyTimeout)) ||
      !followed.roundtrip(in(kReplyTimeout))) {
    return nullptr;
  }
  return std::unique_ptr<MutterPasteboard>(new MutterPasteboard(state));
}

}  // namespace tovrin
