// Runs one hostile TestOwner as a process of its own, for the benchmarks:
//
//   hostile_owner silent|stalls|endless-slow|endless-fast|huge|huge-unannounced
//
// Takes CLIPBOARD on $DISPLAY, prints "owns" and a newline once it does, and
// serves until SIGTERM, SIGINT or SIGHUP.

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/x11/test_owner.h"

int main(int argc, char** argv) {
  using tovrin::testing::Behaviour;
  // In the order of Behaviour.
  const std::string kinds[] = {"",     "silent",          "stalls", "endless-slow", "endless-fast",
                               "huge", "huge-unannounced"};
  int kind = 1;
  while (argc == 2 && kind < 7 && kinds[kind] != argv[1]) ++kind;
  if (argc != 2 || kind == 7) {
    const char* usage = "usage: %s silent|stalls|endless-slow|endless-fast|huge|huge-unannounced\n";
    std::fprintf(stderr, usage, argv[0]);
    return 2;
  }
  // Blocked before the serving thread starts, so that only sigwait sees them.
  sigset_t signals;
  sigemptyset(&signals);
  for (int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const char* display = std::getenv("DISPLAY");
  tovrin::testing::TestOwner owner(display ? display : "", static_cast<Behaviour>(kind));
  if (!owner.owns()) {
    std::fprintf(stderr, "could not take CLIPBOARD\n");
    return 1;
  }
  std::printf("owns\n");
  std::fflush(stdout);
  sigwait(&signals, &kind);
}
