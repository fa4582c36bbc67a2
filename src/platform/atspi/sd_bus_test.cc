#include "platform/atspi/sd_bus.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <future>
#include <memory>
#include <thread>

#include "platform/system.h"

namespace tovrin {
namespace {

using namespace std::chrono_literals;

/// Whether connecting to `address` gives up by itself, with no connection,
/// well after its deadline of 100 ms but before a test would hang on it.
/// The attempt runs on a thread of its own, left behind should it hang.
bool connectionRefusedInTime(const std::string& address) {
  auto done = std::make_shared<std::promise<bool>>();
  std::future<bool> refused = done->get_future();
  std::thread([done, address] {
    done->set_value(SdAtspiBus::connect(address, monotonicClockNow() + 100ms) ==
                    nullptr);
  }).detach();
  return refused.wait_for(5s) == std::future_status::ready && refused.get();
}

TEST(SdAtspiBusTest, ABusThatIsMissingOrSilentIsGivenUp) {
  EXPECT_TRUE(connectionRefusedInTime("unix:path=/nonexistent/bus"));

  // A socket that takes connections and never says a word: without a
  // deadline of its own, sd-bus would wait 90 s for the greeting.
  const std::string name = "tovrin-silent-bus-" + std::to_string(getpid());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(listener, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // In the abstract namespace: it goes with the socket.
  std::snprintf(address.sun_path + 1, sizeof(address.sun_path) - 1, "%s",
                name.c_str());
  const socklen_t size = offsetof(sockaddr_un, sun_path) + 1 + name.size();
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener, 4), 0);
  EXPECT_TRUE(connectionRefusedInTime("unix:abstract=" + name));
  close(listener);
}

}  // namespace
}  // namespace tovrin
