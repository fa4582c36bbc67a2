// Runs one HostileOwner as a process of its own, for the benchmarks:
//
//   hostile_owner silent|endless-slow|endless-fast|huge|huge-unannounced
//
// Takes CLIPBOARD on $DISPLAY, prints "owns" and a newline once it does, and
// serves until SIGTERM, SIGINT or SIGHUP.

#include <signal.h>

#include <cstdio>
#include <cstdlib>

#include "tests/x11/hostile_owner.h"

int main(int argc, char** argv) {
  auto hostility =
      argc == 2 ? tovrin::testing::hostilityNamed(argv[1]) : std::nullopt;
  if (!hostility) {
    std::fprintf(
        stderr,
        "usage: %s silent|endless-slow|endless-fast|huge|huge-unannounced\n",
        argv[0]);
    return 2;
  }
  // Blocked before the serving thread starts, so that only sigwait sees them.
  sigset_t signals;
  sigemptyset(&signals);
  for (int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const char* display = std::getenv("DISPLAY");
  tovrin::testing::HostileOwner owner(display ? display : "", *hostility);
  if (!owner.owns()) {
    std::fprintf(stderr, "could not take CLIPBOARD\n");
    return 1;
  }
  std::printf("owns\n");
  std::fflush(stdout);
  int received = 0;
  sigwait(&signals, &received);
  return 0;
}
