#include "platform/wayland/kwin_input.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>

#include "platform/wayland/connection.h"
#include "platform/wayland/keyboard.h"

extern char** environ;

namespace tovrin {
namespace {

constexpr char kHelperName[] = "tovrin-kwin-input";
/// The longest line the helper sends: an app id of kMaxAppIdLength bytes
/// in hex, and its word.
constexpr size_t kMaxLineLength = 2 * kMaxAppIdLength + 16;
/// How long tovrin waits at its end for the helper to let go of its keys.
constexpr std::chrono::milliseconds kEndTimeout{200};

/// The folder of this program's file; empty when /proc does not tell.
std::filesystem::path selfFolder() {
  std::error_code failed;
  return std::filesystem::read_symlink("/proc/self/exe", failed).parent_path();
}

/// Where the package installs the helper, seen from `self`'s folder.
std::filesystem::path installedFolderOf(const std::filesystem::path& self) {
  return (self / TOVRIN_LIBEXEC_FROM_BIN).lexically_normal();
}

bool executable(const std::string& path) {
  return access(path.c_str(), X_OK) == 0;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// The app id the helper sent in hex; nothing when the line is not one.
std::optional<std::string> fromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = hexDigit(hex[i]);
    const int low = hexDigit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

/// Keys go to the helper as lines, in the order pressed; send() has no more
/// to do, since the helper passes each line on as it reads it.
class HelperKeyboard : public SyntheticKeyboard {
 public:
  explicit HelperKeyboard(std::shared_ptr<KWinInput> input)
      : input_(std::move(input)) {}

  void key(uint32_t key, bool down) override { input_->key(key, down); }
  /// KWin takes the modifiers from the keys pressed.
  void modifiers(uint32_t, uint32_t) override {}
  bool send() override { return true; }
  bool sync() override { return input_->sync(); }

 private:
  std::shared_ptr<KWinInput> input_;
};

}  // namespace

std::string KWinInput::installedFolder() {
  return installedFolderOf(selfFolder()).string();
}

std::optional<std::string> KWinInput::helperPath() {
  const std::filesystem::path self = selfFolder();
  if (self.empty()) return std::nullopt;
  for (const std::filesystem::path& folder : {self, installedFolderOf(self)}) {
    const std::string path = (folder / kHelperName).string();
    if (executable(path)) return path;
  }
  return std::nullopt;
}

std::shared_ptr<KWinInput> KWinInput::start(const std::string& path,
                                            const std::string& socket) {
  const Clock::time_point deadline = Clock::now() + kKWinInputStartTimeout;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    return nullptr;
  }
  // Its standard input and output are its end of the pair; nothing else of
  // ours stays open in it (the copy-run lock least of all).
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  const char* argv[] = {kHelperName, socket.c_str(), nullptr};
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, path.c_str(), &actions, nullptr,
                                  const_cast<char**>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (spawned != 0) {
    close(ends[0]);
    return nullptr;
  }
  std::shared_ptr<KWinInput> input(new KWinInput(pid, ends[0]));
  const std::optional<std::string> ready = input->receive(deadline);
  if (!ready || ready->size() != 9 || ready->compare(0, 6, "ready ") != 0) {
    return nullptr;
  }
  input->keys_ = (*ready)[6] == '1';
  input->windows_ = (*ready)[8] == '1';
  return input;
}

KWinInput::~KWinInput() {
  shutdown(socket_, SHUT_WR);
  // It closes its end once its keys are up.
  const Clock::time_point deadline = Clock::now() + kEndTimeout;
  while (receive(deadline)) {
  }
  close(socket_);
  // One still at work on a frozen compositor ends on its own, its input
  // being closed; init reaps it once we are gone.
  waitpid(pid_, nullptr, WNOHANG);
}

bool KWinInput::send(const std::string& line) {
  const std::string data = line + "\n";
  size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t count = ::send(socket_, data.data() + sent, data.size() - sent,
                                 MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

std::optional<std::string> KWinInput::receive(Clock::time_point deadline) {
  for (;;) {
    const size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    if (pending_.size() > kMaxLineLength) return std::nullopt;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        deadline - Clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd readable = {socket_, POLLIN, 0};
    const int ready = poll(&readable, 1,
                           static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    char buffer[4096];
    const ssize_t count = read(socket_, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    pending_.append(buffer, static_cast<size_t>(count));
  }
}

ActivatedToplevel KWinInput::activeWindow(Clock::time_point deadline) {
  ActivatedToplevel result;
  if (!windows_ || !send("active")) return result;
  const std::optional<std::string> line = receive(deadline);
  if (!line || line->compare(0, 6, "active") != 0) return result;
  result.listed = true;
  if (line->size() > 7) {
    result.appId = fromHex(std::string_view(*line).substr(7));
    if (result.appId && result.appId->empty()) result.appId.reset();
  }
  return result;
}

bool KWinInput::key(uint32_t key, bool down) {
  return send("key " + std::to_string(key) + (down ? " 1" : " 0"));
}

bool KWinInput::sync() {
  return send("sync") &&
         receive(Clock::now() + kWaylandReplyTimeout) == "ok";
}

std::unique_ptr<SyntheticKeyboard> KWinInput::keyboard(
    std::shared_ptr<KWinInput> input) {
  if (!input || !input->keys_) return nullptr;
  return std::make_unique<HelperKeyboard>(std::move(input));
}

}  // namespace tovrin
