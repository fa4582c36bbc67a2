#include "platform/x11/pasteboard.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/x11/selection.h"
#include "text/text.h"
#include "text/utf16.h"
#include "text/url_uriparser.h"

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
constexpr const char kClipboardManager[] = "CLIPBOARD_MANAGER";
constexpr const char kSaveTargets[] = "SAVE_TARGETS";
constexpr const char kSaveTargetsProperty[] = "TOVRIN_SAVE_TARGETS";
constexpr const char kWmPid[] = "_NET_WM_PID";

// Interned when a connection opens, in one round trip.
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
                                      kClipboardManager,
                                      kSaveTargets,
                                      kSaveTargetsProperty,
                                      kWmPid,
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
// How often a serving child checks that it still owns CLIPBOARD when
// nothing happens (it is told by SelectionClear; this is a safety net).
constexpr std::chrono::seconds kOwnershipCheckPeriod{60};
// How long a server process started ahead of need waits for its text.
constexpr std::chrono::seconds kIdleServerLifetime{30};

Atom atom(Display* display, const char* name) {
  return XInternAtom(display, name, False);
}

/// UTF-16 bytes of either order as UTF-8; an odd last byte becomes U+FFFD.
std::string decodeUtf16(std::string_view bytes, bool bigEndian) {
  std::vector<uint16_t> units;
  units.reserve(bytes.size() / 2);
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto first = static_cast<uint8_t>(bytes[i]);
    const auto second = static_cast<uint8_t>(bytes[i + 1]);
    units.push_back(static_cast<uint16_t>(bigEndian ? (first << 8) | second
                                                    : (second << 8) | first));
  }
  std::string out = utf8FromUtf16(units);
  if (bytes.size() % 2 != 0) out.append("\xEF\xBF\xBD");
  return out;
}

void dropOneTrailingNul(std::string& text) {
  if (!text.empty() && text.back() == '\0') text.pop_back();
}

std::string_view withoutTrailingNuls(std::string_view bytes) {
  while (!bytes.empty() && bytes.back() == '\0') bytes.remove_suffix(1);
  return bytes;
}

// Lines ended by LF, each without its CR.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::shared_ptr<const std::string> shared(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

/// Closes a file descriptor on every path.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

// What the processes of a ServerProcess tell the parent. Each message is
// shorter than PIPE_BUF, so it arrives whole.
struct ChildMessage {
  char kind;
  int32_t pid;
};
constexpr char kServerStarted = 'P';  // from the intermediate: the server pid
constexpr char kServerOwns = 'O';     // the server owns CLIPBOARD
constexpr char kServerFailed = 'F';

void report(int fd, char kind, int32_t pid) {
  ChildMessage message;
  std::memset(&message, 0, sizeof message);
  message.kind = kind;
  message.pid = pid;
  ssize_t written = send(fd, &message, sizeof message, MSG_NOSIGNAL);
  (void)written;
}

// Leaves the server only its socket and /dev/null as standard streams, so
// that it holds open neither the host's pipes nor the parent's X connections
// (which would keep the parent's windows alive).
int detachDescriptors(int keepFd) {
  if (keepFd < 3) keepFd = fcntl(keepFd, F_DUPFD, 3);
  int devNull = open("/dev/null", O_RDWR);
  if (devNull >= 0) {
    for (int stream = 0; stream < 3; ++stream) {
      if (devNull != stream) dup2(devNull, stream);
    }
    if (devNull > 2 && devNull != keepFd) close(devNull);
  }
  auto closeFrom = [](unsigned first, unsigned last) {
    if (first > last) return;
    if (close_range(first, last, 0) == 0) return;
    long limit = std::min<long>(sysconf(_SC_OPEN_MAX), 65536);
    for (long fd = first; fd <= std::min<long>(last, limit); ++fd) {
      close(static_cast<int>(fd));
    }
  };
  closeFrom(3, static_cast<unsigned>(keepFd) - 1);
  closeFrom(static_cast<unsigned>(keepFd) + 1, ~0U);
  return keepFd;
}

// The parent's signal handlers and mask mean nothing to the server.
void resetSignals() {
  for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
    struct sigaction action;
    if (sigaction(signalNumber, nullptr, &action) != 0) continue;
    if (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN) {
      signal(signalNumber, SIG_DFL);
    }
  }
  signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

std::vector<OfferedTarget> textTargets(Display* display,
                                       std::string_view text) {
  auto utf8 = shared(std::string(text));
  return {
      {atom(display, kUtf8String), atom(display, kUtf8String), 8, utf8},
      {atom(display, kPlainUtf8), atom(display, kPlainUtf8), 8, utf8},
      {XA_STRING, XA_STRING, 8, shared(latin1IfRepresentable(text))},
  };
}

// Asks a running clipboard manager to copy the text now, as GTK does when
// an application quits, so that it outlives this process. Its answer is not
// awaited: the server keeps serving meanwhile.
void askClipboardManagerToSave(Display* display, Window window, Time time) {
  Atom manager = atom(display, kClipboardManager);
  if (XGetSelectionOwner(display, manager) == None) return;
  long targets[] = {static_cast<long>(atom(display, kUtf8String)),
                    static_cast<long>(atom(display, kPlainUtf8)),
                    static_cast<long>(XA_STRING)};
  Atom property = atom(display, kSaveTargetsProperty);
  XChangeProperty(display, window, property, XA_ATOM, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(targets), 3);
  XConvertSelection(display, manager, atom(display, kSaveTargets), property,
                    window, time);
  XFlush(display);
}

enum class Transfer { kDone, kClosed, kTimedOut };

// Waits until `fd` is ready for `events`, at most until `deadline`.
bool waitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    auto now = Clock::now();
    if (now >= deadline) return false;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    pollfd entry = {fd, events, 0};
    int ready = poll(&entry, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

// Reads exactly `size` bytes; waits for the first one until `firstDeadline`,
// then gives up after kX11ConversionTimeout without progress.
Transfer receiveAll(int fd, char* buffer, size_t size,
                    Clock::time_point firstDeadline) {
  Clock::time_point deadline = firstDeadline;
  size_t done = 0;
  while (done < size) {
    if (!waitFor(fd, POLLIN, deadline)) return Transfer::kTimedOut;
    ssize_t count = recv(fd, buffer + done, size - done, MSG_DONTWAIT);
    if (count == 0) return Transfer::kClosed;
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return Transfer::kClosed;
    }
    done += static_cast<size_t>(count);
    deadline = Clock::now() + kX11ConversionTimeout;
  }
  return Transfer::kDone;
}

// The server process: opens the display, waits for the text (nothing comes
// when the parent never needs it), then owns CLIPBOARD with it until another
// client takes it or the display goes away. Returns its exit status.
int runServer(int socketFd, const std::string& displayName) {
  auto connection = openConnection(displayName);
  if (!connection) {
    report(socketFd, kServerFailed, 0);
    return 1;
  }
  uint64_t size = 0;
  if (receiveAll(socketFd, reinterpret_cast<char*>(&size), sizeof size,
                 Clock::now() + kIdleServerLifetime) != Transfer::kDone) {
    return 0;
  }
  std::string text;
  if (size > text.max_size()) return 1;
  text.resize(static_cast<size_t>(size));
  if (receiveAll(socketFd, text.data(), text.size(),
                 Clock::now() + kX11ConversionTimeout) != Transfer::kDone) {
    return 1;
  }

  Display* display = connection->display();
  Window window = connection->window();
  // Tells tools (and tests) which process serves the clipboard.
  long pid = getpid();
  XChangeProperty(display, window, atom(display, kWmPid), XA_CARDINAL, 32,
                  PropModeReplace, reinterpret_cast<unsigned char*>(&pid), 1);
  ConversionDeadline deadline;
  Atom clipboard = atom(display, kClipboard);
  std::optional<Time> acquired =
      acquireSelection(display, window, clipboard, deadline);
  if (!acquired) {
    report(socketFd, kServerFailed, 0);
    return 1;
  }
  SelectionServer server(display, window, clipboard, *acquired,
                         textTargets(display, text));
  text = std::string();
  report(socketFd, kServerOwns, static_cast<int32_t>(getpid()));
  close(socketFd);
  askClipboardManagerToSave(display, window, *acquired);

  for (;;) {
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      server.handleEvent(event);
    }
    if (connection->broken()) return 0;
    auto now = Clock::now();
    server.expireTransfers(now);
    if (server.lost() && !server.transferring()) return 0;
    auto wake = now + kOwnershipCheckPeriod;
    if (auto transferEnd = server.nextDeadline()) {
      wake = std::min(wake, *transferEnd);
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake - now);
    pollfd fd = {ConnectionNumber(display), POLLIN, 0};
    int ready = poll(&fd, 1,
                     static_cast<int>(std::max<int64_t>(
                         0, std::min<int64_t>(wait.count(), INT_MAX))));
    if (ready == 0 && !server.transferring() &&
        XGetSelectionOwner(display, clipboard) != window) {
      return 0;
    }
  }
}

/// A process that will serve CLIPBOARD, detached from this one (double fork,
/// new session, stdio on /dev/null). It is started ahead of need, because
/// starting a process costs more than anything else in setString(): it opens
/// its display and waits for the text. Destroying this object without
/// handing text over ends it.
class ServerProcess {
 public:
  /// Starts the process; null when it cannot be started.
  static std::unique_ptr<ServerProcess> start(const std::string& displayName) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      return nullptr;
    }
    UniqueFd ours(ends[0]);
    UniqueFd theirs(ends[1]);
    pid_t intermediate = fork();
    if (intermediate < 0) return nullptr;
    if (intermediate == 0) {
      // Other threads of the parent may hold locks that will never be
      // released here: only async-signal-safe calls until the second fork.
      close(ends[0]);
      setsid();
      pid_t server = fork();
      if (server == 0) {
        resetSignals();
        int socketFd = detachDescriptors(ends[1]);
        if (chdir("/") != 0) {
          // Keeping the parent's directory busy is harmless.
        }
        _exit(runServer(socketFd, displayName));
      }
      report(ends[1], server > 0 ? kServerStarted : kServerFailed, server);
      _exit(0);
    }
    return std::unique_ptr<ServerProcess>(
        new ServerProcess(std::move(ours), intermediate));
  }

  ~ServerProcess() {
    // The server sees the end of its socket and ends unless it serves.
    socket_.reset();
    reapIntermediate();
  }

  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  enum class Outcome {
    kOwns,    // the process owns CLIPBOARD with the text
    kGone,    // the process had ended (e.g. tired of waiting)
    kFailed,  // it could not take CLIPBOARD, or did not say in time
  };

  /// Hands `text` over and waits until the process owns CLIPBOARD with it,
  /// giving up after kX11ConversionTimeout without progress.
  Outcome serve(std::string_view text) {
    uint64_t size = text.size();
    Outcome outcome = Outcome::kGone;
    if (send(reinterpret_cast<const char*>(&size), sizeof size) &&
        send(text.data(), text.size())) {
      outcome = awaitOwnership();
    }
    reapIntermediate();
    if (outcome != Outcome::kOwns && server_ > 0) kill(server_, SIGKILL);
    socket_.reset();
    return outcome;
  }

 private:
  ServerProcess(UniqueFd socket, pid_t intermediate)
      : socket_(std::move(socket)), intermediate_(intermediate) {}

  bool send(const char* data, size_t size) {
    auto deadline = Clock::now() + kX11ConversionTimeout;
    size_t done = 0;
    while (done < size) {
      if (!waitFor(socket_.get(), POLLOUT, deadline)) return false;
      ssize_t count = ::send(socket_.get(), data + done, size - done,
                             MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count < 0) {
        if (errno == EINTR || errno == EAGAIN) continue;
        return false;
      }
      done += static_cast<size_t>(count);
      deadline = Clock::now() + kX11ConversionTimeout;
    }
    return true;
  }

  Outcome awaitOwnership() {
    auto deadline = Clock::now() + kX11ConversionTimeout;
    for (;;) {
      ChildMessage message;
      switch (receiveAll(socket_.get(), reinterpret_cast<char*>(&message),
                         sizeof message, deadline)) {
        case Transfer::kDone:
          break;
        case Transfer::kClosed:
          return Outcome::kGone;
        case Transfer::kTimedOut:
          return Outcome::kFailed;
      }
      if (message.kind == kServerStarted) {
        server_ = message.pid;
        continue;
      }
      return message.kind == kServerOwns ? Outcome::kOwns : Outcome::kFailed;
    }
  }

  void reapIntermediate() {
    if (intermediate_ <= 0) return;
    // It exits right after starting the server; the bound only guards
    // against the unforeseen.
    auto deadline = Clock::now() + kX11ConversionTimeout;
    for (;;) {
      pid_t result = waitpid(intermediate_, nullptr, WNOHANG);
      if (result == intermediate_ || (result < 0 && errno != EINTR)) break;
      if (Clock::now() >= deadline) {
        kill(intermediate_, SIGKILL);
        while (waitpid(intermediate_, nullptr, 0) < 0 && errno == EINTR) {
        }
        break;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    intermediate_ = -1;
  }

  UniqueFd socket_;
  pid_t intermediate_;
  pid_t server_ = -1;
};

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

  const std::string displayName;

  std::mutex poolMutex;
  std::vector<std::unique_ptr<SelectionConnection>> idle;  // by poolMutex

  // Readers only ever try this lock, and hold it without waiting.
  std::mutex ownerMutex;
  std::unique_ptr<SelectionConnection> ownerConnection;  // by ownerMutex
  std::unique_ptr<SelectionServer> ownerServer;          // by ownerMutex
  /// The window of the empty ownership, for readers to recognize it.
  std::atomic<Window> ownerWindow{None};

  // Only the writing operations take this one.
  std::mutex serverMutex;
  std::unique_ptr<ServerProcess> nextServer;  // by serverMutex
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
    if (connection_ && reusable_ && !connection_->broken()) {
      state_->giveBack(std::move(connection_));
    }
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  explicit operator bool() const { return connection_ != nullptr; }
  Display* display() const { return connection_->display(); }
  Window window() const { return connection_->window(); }
  void retire() { reusable_ = false; }

 private:
  std::shared_ptr<X11PasteboardState> state_;
  std::unique_ptr<SelectionConnection> connection_;
  bool reusable_ = true;
};

/// One read operation: a lent connection and the deadline of its waits.
class Reader {
 public:
  explicit Reader(std::shared_ptr<X11PasteboardState> state)
      : state_(state), lease_(std::move(state)) {
    state_->serveOwnerRequests();
  }

  /// Converts CLIPBOARD to `target`. Our own empty ownership refuses at
  /// once, without asking ourselves.
  SelectionConversion convert(const char* target) {
    if (!lease_ || stopped_) return failed(Result::kFailed);
    Display* display = lease_.display();
    SelectionConversion conversion = convertSelection(
        display, lease_.window(), atom(display, kClipboard),
        atom(display, target), deadline_, state_->ownerWindow.load());
    if (conversion.result == Result::kTimedOut ||
        conversion.result == Result::kFailed) {
      lease_.retire();
    }
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
    : state_(std::make_shared<X11PasteboardState>(std::move(displayName))) {}

X11Pasteboard::~X11Pasteboard() {
  {
    std::lock_guard<std::mutex> lock(state_->ownerMutex);
    state_->closeOwner();
  }
  std::lock_guard<std::mutex> lock(state_->serverMutex);
  state_->nextServer.reset();
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
    case PasteboardType::kFileURL:
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
    case PasteboardType::kFileURL:
      return std::nullopt;
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

void X11Pasteboard::clearContents() {
  std::shared_ptr<X11PasteboardState> state = state_;
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
    Atom clipboard = atom(display, kClipboard);
    ConversionDeadline deadline;
    std::optional<Time> acquired =
        acquireSelection(display, window, clipboard, deadline);
    if (acquired) {
      state->ownerServer = std::make_unique<SelectionServer>(
          display, window, clipboard, *acquired, std::vector<OfferedTarget>{});
    }
  }
  // The clipboard's text is put back after every capture: the process that
  // will serve it starts now, while the application copies.
  std::lock_guard<std::mutex> lock(state->serverMutex);
  if (!state->nextServer) {
    state->nextServer = ServerProcess::start(state->displayName);
  }
}

bool X11Pasteboard::setString(std::string_view text, PasteboardType type) {
  if (type != PasteboardType::kString) return false;
  std::shared_ptr<X11PasteboardState> state = state_;
  bool served = false;
  {
    std::lock_guard<std::mutex> lock(state->serverMutex);
    using Outcome = ServerProcess::Outcome;
    std::unique_ptr<ServerProcess> server = std::move(state->nextServer);
    Outcome outcome = server ? server->serve(text) : Outcome::kGone;
    // One started long ago may have given up waiting: then a new one.
    if (outcome == Outcome::kGone) {
      server = ServerProcess::start(state->displayName);
      if (server) outcome = server->serve(text);
    }
    served = outcome == Outcome::kOwns;
  }
  // Takes in the SelectionClear of the empty ownership, if it had it.
  state->serveOwnerRequests();
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

std::string decodeHtml(std::string_view bytes) {
  std::string text;
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF &&
      static_cast<uint8_t>(bytes[1]) == 0xFE) {
    text = decodeUtf16(bytes.substr(2), /*bigEndian=*/false);
  } else if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFE &&
             static_cast<uint8_t>(bytes[1]) == 0xFF) {
    text = decodeUtf16(bytes.substr(2), /*bigEndian=*/true);
  } else {
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    text = toValidUtf8(bytes);
  }
  dropOneTrailingNul(text);
  return text;
}

std::string crlfToLf(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out.push_back(text[i]);
  }
  return out;
}

std::vector<std::string> uriListEntries(std::string_view bytes) {
  std::vector<std::string> entries;
  for (std::string_view line : linesOf(withoutTrailingNuls(bytes))) {
    if (line.empty() || line.front() == '#') continue;
    entries.emplace_back(line);
  }
  return entries;
}

std::vector<PasteboardURLObject> fileURLObjectsFromUriList(
    std::string_view bytes) {
  std::vector<PasteboardURLObject> objects;
  for (const std::string& entry : uriListEntries(bytes)) {
    std::optional<ParsedURL> url = parseURLWithUriparser(entry);
    if (!url || !url->isFileURL) continue;
    objects.push_back(PasteboardURLObject{true, std::move(url->path)});
  }
  return objects;
}

std::vector<PasteboardItem> itemsFromGnomeCopiedFiles(std::string_view bytes) {
  std::vector<PasteboardItem> items;
  std::vector<std::string_view> lines = linesOf(withoutTrailingNuls(bytes));
  if (lines.empty() || (lines.front() != "copy" && lines.front() != "cut")) {
    return items;
  }
  for (size_t i = 1; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    items.push_back(PasteboardItem{std::string(lines[i])});
  }
  return items;
}

std::string latin1IfRepresentable(std::string_view text) {
  std::string latin1;
  latin1.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    auto byte = static_cast<uint8_t>(text[i]);
    if (byte < 0x80) {
      latin1.push_back(static_cast<char>(byte));
    } else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < text.size() &&
               (static_cast<uint8_t>(text[i + 1]) & 0xC0) == 0x80) {
      latin1.push_back(static_cast<char>(
          ((byte & 0x03) << 6) | (static_cast<uint8_t>(text[i + 1]) & 0x3F)));
      ++i;
    } else {
      return std::string(text);
    }
  }
  return latin1;
}

}  // namespace tovrin
