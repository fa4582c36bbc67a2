#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include "platform/system.h"

namespace tovrin {

void writeLogLine(std::string_view line) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm localTime{};
  localtime_r(&now.tv_sec, &localTime);
  const std::string text =
      formatLogLine(localTime, now.tv_nsec / 1000000, static_cast<long>(getpid()),
                    static_cast<long>(gettid()), line);
  // One write, so that lines of concurrent writers never interleave.
  writeAll(STDERR_FILENO, text);
}

}  // namespace tovrin
