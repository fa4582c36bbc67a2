#include "platform/linux/serving_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include "tests/process.h"

// The serving process with a keeper that stands in for a display: what it
// is asked to do on its side of the fork it leaves as files in a directory
// of the test, since the process keeps no other descriptor of ours.

namespace tovrin {
namespace {

using std::chrono::milliseconds;
namespace fs = std::filesystem;

// A bound for what must happen at once, on a busy machine too.
constexpr milliseconds kGivesUp{3000};

enum class Keeper { kOwns, kCannotOwn, kHangsOpening };

/// Leaves what it is asked to do in `directory`: "released" holds the key
/// codes given to releaseKeys, "owned" the text it took the clipboard with.
/// It serves, or hangs while opening, until the test removes `directory`
/// or for 10 s at most.
class FakeKeeper : public ClipboardKeeper {
 public:
  FakeKeeper(fs::path directory, bool owns)
      : directory_(std::move(directory)), owns_(owns) {}
  static ClipboardKeeperFactory factory(const fs::path& directory,
                                        Keeper keeper) {
    return [=]() -> std::unique_ptr<ClipboardKeeper> {
      if (keeper == Keeper::kHangsOpening) waitWhileTheTestRuns(directory);
      return std::make_unique<FakeKeeper>(directory, keeper == Keeper::kOwns);
    };
  }

  void releaseKeys(const std::vector<uint8_t>& keys) override {
    record("released", std::string(keys.begin(), keys.end()));
  }
  bool own(const std::string& text) override {
    if (owns_) record("owned", text);
    return owns_;
  }
  void serve() override { waitWhileTheTestRuns(directory_); }

 private:
  static void waitWhileTheTestRuns(const fs::path& directory) {
    for (int i = 0; i < 2000 && fs::exists(directory); ++i) {
      std::this_thread::sleep_for(milliseconds(5));
    }
  }
  // Written whole, then named, so that the test never reads half of it.
  void record(const std::string& name, const std::string& content) {
    std::ofstream(directory_ / (name + ".partial"), std::ios::binary)
        << content;
    fs::rename(directory_ / (name + ".partial"), directory_ / name);
  }

  fs::path directory_;
  bool owns_;
};

/// A directory for one test's records, removed with it, and a pipe that
/// stands for the copy-run lock: its write end, handed to the serving
/// process, is let go once no process holds it.
class ServingProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name =
        (fs::temp_directory_path() / "tovrin-serving-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name;
    ASSERT_EQ(pipe(lock_), 0);
  }
  void TearDown() override {
    fs::remove_all(directory_);
    for (const int fd : lock_) close(fd);
  }

  std::unique_ptr<ServerProcess> start(Keeper keeper = Keeper::kOwns) {
    return ServerProcess::start(FakeKeeper::factory(directory_, keeper),
                                lock_[1]);
  }
  /// Whether the lock is let go within `timeout` once the test lets go of
  /// its own hold: nothing writes into the pipe, only its end wakes us.
  bool lockLetGoWithin(milliseconds timeout) {
    close(lock_[1]);
    lock_[1] = -1;
    pollfd entry = {lock_[0], POLLIN, 0};
    return poll(&entry, 1, static_cast<int>(timeout.count())) == 1;
  }
  /// What the keeper left under `name`, and the next run finds none.
  std::optional<std::string> recorded(const std::string& name) {
    std::ifstream file(directory_ / name, std::ios::binary);
    if (!file) return std::nullopt;
    std::string content(std::istreambuf_iterator<char>(file), {});
    fs::remove(directory_ / name);
    return content;
  }

  fs::path directory_;
  int lock_[2] = {-1, -1};
};

TEST_F(ServingProcessTest, AServedEndedOrKilledRunLeavesNoKeyHeldAndTheUserText) {
  using Outcome = ServerProcess::Outcome;
  struct Case {
    const char* name;
    bool cleared, keysUp, killed;  // how far the run got, how it ended
    std::string released;          // the key codes let go of
    std::optional<std::string> owned;
    Keeper keeper = Keeper::kOwns;
    std::optional<Outcome> served = {};  // what serving "caf\xC3\xA9" then gives
  };
  const Case cases[] = {
      // The keeper serves until the test ends: the lock is let go before.
      {"served", true, true, false, "", "caf\xC3\xA9", Keeper::kOwns, Outcome::kOwns},
      {"the keeper cannot own", true, true, false, "", std::nullopt, Keeper::kCannotOwn,
       Outcome::kFailed},
      // Given up in time, the run has ended when asked to serve.
      {"the keeper hangs opening", false, false, false, "", std::nullopt, Keeper::kHangsOpening,
       Outcome::kGone},
      {"killed with keys down", true, false, true, "\x25\x36", "user text"},
      {"killed after the keys", true, true, true, "", "user text"},
      // The clipboard still holds what the user had there.
      {"killed before the clear", false, false, true, "", std::nullopt},
      {"ended without writing", true, false, false, "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto run = [&](const std::function<void()>& killHere) {
      auto process = start(c.keeper);
      if (!process) return;
      process->guard("user text");
      if (c.cleared) {
        process->clearing();
        process->keysDown({0x25, 0x36});
      }
      if (c.keysUp) process->keysUp();
      if (c.killed) killHere();
      if (c.keeper == Keeper::kHangsOpening) {
        EXPECT_TRUE(lockLetGoWithin(kServerOpenTimeout + kGivesUp));
      }
      if (c.served) {
        EXPECT_EQ(process->serve("caf\xC3\xA9"), c.served);
      }
    };
    if (c.killed) {
      EXPECT_TRUE(tovrin::testing::killOnceReached(run, kGivesUp))
          << "the run never got there";
    } else {
      run({});
    }
    ASSERT_TRUE(lockLetGoWithin(kGivesUp));
    EXPECT_EQ(recorded("released").value_or(""), c.released);
    EXPECT_EQ(recorded("owned"), c.owned);
    close(lock_[0]);
    ASSERT_EQ(pipe(lock_), 0);
  }
}

}  // namespace
}  // namespace tovrin
