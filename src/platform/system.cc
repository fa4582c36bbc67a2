#include "platform/system.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <thread>

namespace tovrin {

void sleepSeconds(double seconds) {
  if (!(seconds > 0)) return;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

std::chrono::nanoseconds monotonicClockNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

bool writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

void writeStandardOutput(std::string_view text) {
  writeAll(STDOUT_FILENO, text);
}

std::string formatLogLine(const std::tm& localTime, long milliseconds,
                          long pid, long tid, std::string_view line) {
  char prefix[96];
  std::snprintf(prefix, sizeof prefix,
                "%04d-%02d-%02d %02d:%02d:%02d.%03ld tovrin[%ld:%ld] ",
                localTime.tm_year + 1900, localTime.tm_mon + 1,
                localTime.tm_mday, localTime.tm_hour, localTime.tm_min,
                localTime.tm_sec, milliseconds, pid, tid);
  std::string text(prefix);
  text.append(line);
  text.push_back('\n');
  return text;
}

}  // namespace tovrin
