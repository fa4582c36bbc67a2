#include "platform/linux/serving_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/process.h"

// The serving process with a keeper that stands in for a display: what it
// is asked to do on its side of the fork it leaves as files in a directory
// of the test, since the process keeps no other descriptor of ours.

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;
using tovrin::testing::killOnceReached;

// A bound for what must happen at once, on a busy machine too.
constexpr milliseconds kGivesUp{3000};
// The longest a fake keeper serves, or hangs while opening: the test ends
// it sooner by removing its directory.
constexpr milliseconds kKeeperLifetime{10000};

// Waits in the serving process while the test runs, within `bound`.
void waitWhileTheTestRuns(const fs::path& directory, milliseconds bound) {
  const auto deadline = Clock::now() + bound;
  while (fs::exists(directory) && Clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(5));
  }
}

/// Leaves what it is asked to do in `directory`: "released" holds the key
/// codes given to releaseKeys, "owned" the text it took the clipboard with.
class FakeKeeper : public ClipboardKeeper {
 public:
  FakeKeeper(fs::path directory, bool owns)
      : directory_(std::move(directory)), owns_(owns) {}

  void releaseKeys(const std::vector<uint8_t>& keys) override {
    record("released", std::string(keys.begin(), keys.end()));
  }
  bool own(const std::string& text) override {
    if (owns_) record("owned", text);
    return owns_;
  }
  void serve() override { waitWhileTheTestRuns(directory_, kKeeperLifetime); }

 private:
  // Written whole, then named, so that the test never reads half of it.
  void record(const std::string& name, const std::string& content) {
    const fs::path partial = directory_ / (name + ".partial");
    std::ofstream(partial, std::ios::binary) << content;
    fs::rename(partial, directory_ / name);
  }

  fs::path directory_;
  bool owns_;
};

enum class Opening { kOpens, kHangs };

ClipboardKeeperFactory fakeKeepers(const fs::path& directory,
                                   Opening opening = Opening::kOpens,
                                   bool owns = true) {
  return [=]() -> std::unique_ptr<ClipboardKeeper> {
    if (opening == Opening::kHangs) {
      waitWhileTheTestRuns(directory, kKeeperLifetime);
    }
    return std::make_unique<FakeKeeper>(directory, owns);
  };
}

/// A directory for one test's records, removed with it; its removal ends
/// the fake keepers that still serve.
class ServingProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name =
        (fs::temp_directory_path() / "tovrin-serving-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name;
  }
  void TearDown() override {
    fs::remove_all(directory_);
    closeLock();
  }

  /// What the keeper left under `name`; nothing when it left nothing.
  std::optional<std::string> recorded(const std::string& name) {
    std::ifstream file(directory_ / name, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  /// The write end of a new pipe, which stands for the copy-run lock:
  /// handed to the serving process, it is let go once no process holds it.
  int shareNewLock() {
    closeLock();
    if (pipe(lock_) != 0) ADD_FAILURE() << "no pipe";
    return lock_[1];
  }
  void stopHoldingTheLock() {
    close(lock_[1]);
    lock_[1] = -1;
  }
  void closeLock() {
    for (int& fd : lock_) {
      if (fd >= 0) close(fd);
      fd = -1;
    }
  }
  bool lockLetGoWithin(milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
      const auto left =
          std::chrono::ceil<milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      pollfd entry = {lock_[0], POLLIN, 0};
      if (poll(&entry, 1, static_cast<int>(left.count())) <= 0) continue;
      char byte;
      if (read(lock_[0], &byte, 1) == 0) return true;
    }
  }

  /// A serving process with fake keepers that holds the lock alone, told
  /// what a copy run tells it up to its keystroke: the user's text saved,
  /// the clipboard cleared, keys 0x25 and 0x36 down.
  std::unique_ptr<ServerProcess> startACopyRun() {
    auto process = ServerProcess::start(fakeKeepers(directory_), shareNewLock());
    stopHoldingTheLock();
    if (process) {
      process->guard("user text");
      process->clearing();
      process->keysDown({0x25, 0x36});
    }
    return process;
  }

  fs::path directory_;
  int lock_[2] = {-1, -1};
};

TEST_F(ServingProcessTest, ServedTextIsOwnedAndTheLockLetGoWhileServing) {
  auto process = startACopyRun();
  ASSERT_TRUE(process);
  process->keysUp();
  EXPECT_EQ(process->serve("caf\xC3\xA9"), ServerProcess::Outcome::kOwns);
  EXPECT_EQ(recorded("owned"), "caf\xC3\xA9");
  // The keeper serves until the test ends: the lock is let go before.
  EXPECT_TRUE(lockLetGoWithin(kGivesUp));
  EXPECT_EQ(recorded("released"), std::nullopt);
}

TEST_F(ServingProcessTest, ARunThatEndsWithoutWritingLeavesTheClipboardAlone) {
  auto process = startACopyRun();
  ASSERT_TRUE(process);
  process.reset();
  ASSERT_TRUE(lockLetGoWithin(kGivesUp));
  EXPECT_EQ(recorded("owned"), std::nullopt);
  EXPECT_EQ(recorded("released"), std::nullopt);
}

TEST_F(ServingProcessTest, AKeeperThatCannotOwnFails) {
  auto process = ServerProcess::start(
      fakeKeepers(directory_, Opening::kOpens, false), shareNewLock());
  ASSERT_TRUE(process);
  stopHoldingTheLock();
  EXPECT_EQ(process->serve("text"), ServerProcess::Outcome::kFailed);
  EXPECT_TRUE(lockLetGoWithin(kGivesUp));
}

TEST_F(ServingProcessTest, AnOpeningThatHangsEndsTheServerInTime) {
  auto process = ServerProcess::start(fakeKeepers(directory_, Opening::kHangs),
                                      shareNewLock());
  ASSERT_TRUE(process);
  stopHoldingTheLock();
  EXPECT_TRUE(lockLetGoWithin(kServerOpenTimeout + kGivesUp));
  EXPECT_EQ(process->serve("text"), ServerProcess::Outcome::kGone);
}

// How far a copy run got when its host killed it.
enum class KilledAt { kBeforeTheClear, kWithKeysDown, kAfterTheKeys };

TEST_F(ServingProcessTest, AKilledRunLeavesNoKeyHeldAndTheUserTextBack) {
  struct Case {
    KilledAt stage;
    const char* name;
    std::string released;  // the key codes let go of
    std::optional<std::string> owned;
  };
  const Case cases[] = {
      {KilledAt::kWithKeysDown, "keys down", "\x25\x36", "user text"},
      {KilledAt::kAfterTheKeys, "keys up", "", "user text"},
      // The clipboard still holds what the user had there.
      {KilledAt::kBeforeTheClear, "before the clear", "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int lock = shareNewLock();
    const auto run = [&](const std::function<void()>& killHere) {
      auto process = ServerProcess::start(fakeKeepers(directory_), lock);
      if (!process) return;
      process->guard("user text");
      if (c.stage != KilledAt::kBeforeTheClear) {
        process->clearing();
        process->keysDown({0x25, 0x36});
        if (c.stage == KilledAt::kAfterTheKeys) process->keysUp();
      }
      killHere();
    };
    EXPECT_TRUE(killOnceReached(run, kGivesUp)) << "the run never got there";
    stopHoldingTheLock();
    ASSERT_TRUE(lockLetGoWithin(kGivesUp));
    EXPECT_EQ(recorded("released").value_or(""), c.released);
    EXPECT_EQ(recorded("owned"), c.owned);
    fs::remove(directory_ / "released");
    fs::remove(directory_ / "owned");
  }
}

}  // namespace
}  // namespace tovrin
