// Runs one hostile TestOwner as a process of its own, for the benchmarks:
//
//   hostile_owner silent|endless-slow|endless-fast|huge|huge-unannounced
//
// Takes CLIPBOARD on $DISPLAY, prints "owns" and a newline once it does, and
// serves until SIGTERM, SIGINT or SIGHUP.

#include <signal.h>

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

#include "tests/x11/test_owner.h"

int main(int argc, char** argv) {
  using tovrin::testing::Behaviour;
  const std::pair<std::string_view, Behaviour> kinds[] = {
      {"silent", Behaviour::kSilent},
      {"endless-slow", Behaviour::kEndlessSlow},
      {"endless-fast", Behaviour::kEndlessFast},
      {"huge", Behaviour::kHuge},
      {"huge-unannounced", Behaviour::kHugeUnannounced}};
  const auto* kind = std::find_if(std::begin(kinds), std::end(kinds), [&](auto& k) {
    return argc == 2 && k.first == argv[1];
  });
  if (kind == std::end(kinds)) {
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
  tovrin::testing::TestOwner owner(display ? display : "", kind->second);
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
