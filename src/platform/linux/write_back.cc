#include "platform/linux/write_back.h"

namespace tovrin {

WriteBack::~WriteBack() {
  std::lock_guard<std::mutex> lock(mutex_);
  next_.reset();
}

ServerProcess* WriteBack::server() {
  if (!next_) next_ = start_(copyLockFd_);
  return next_.get();
}

void WriteBack::guard(std::string_view text) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ServerProcess* server = this->server()) server->guard(text);
}

void WriteBack::clearing() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ServerProcess* server = this->server()) server->clearing();
}

void WriteBack::keysPressed(const std::vector<uint8_t>& keys) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ServerProcess* server = this->server()) server->keysDown(keys);
}

void WriteBack::keysReleased() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (next_) next_->keysUp();
}

void WriteBack::shareCopyLock(int fd) {
  std::lock_guard<std::mutex> lock(mutex_);
  copyLockFd_ = fd;
}

bool WriteBack::serve(std::string_view text) {
  std::lock_guard<std::mutex> lock(mutex_);
  using Outcome = ServerProcess::Outcome;
  std::unique_ptr<ServerProcess> server = std::move(next_);
  Outcome outcome = server ? server->serve(text) : Outcome::kGone;
  // One started long ago may have given up waiting: then a new one.
  if (outcome == Outcome::kGone) {
    server = start_(copyLockFd_);
    if (server) outcome = server->serve(text);
  }
  return outcome == Outcome::kOwns;
}

}  // namespace tovrin
