#include "platform/x11/pasteboard.h"

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
// clang-format on

#include <X11/Xlib.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/x11/selection.h"
#include "tests/x11/clipboard_fixture.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using namespace std::string_literals;
using tovrin::testing::Behaviour;
using tovrin::testing::Strings;
using tovrin::testing::TestOwner;
using tovrin::testing::timed;
using Text = std::optional<std::string>;
using Opt = std::optional<Strings>;

// A bound for "at once" that still holds on a busy machine, yet is well
// under the conversion timeout that a wrong implementation would wait out.
constexpr milliseconds kPromptly{700};

class PasteboardX11Test : public testing::X11Test {
 protected:
  void SetUp() override {
    X11Test::SetUp();
    if (IsSkipped()) return;
    pasteboard_ = testing::openPasteboard(xvfb().display());
    ASSERT_TRUE(pasteboard_);
  }
  void TearDown() override {
    pasteboard_.reset();
    X11Test::TearDown();
  }
  Text text() { return pasteboard_->stringForType(PasteboardType::kString); }

  /// What each read of the pasteboard gives: text, HTML, RTF, file paths,
  /// items' URLs and types, "-" for nothing.
  std::string reads() {
    const auto joined = [](const std::optional<Strings>& parts) {
      std::string all;
      for (const auto& part : parts.value_or(Strings{"-"})) {
        all += (all.empty() ? "" : " ") + part;
      }
      return all;
    };
    auto items = pasteboard_->pasteboardItems();
    auto urls = pasteboard_->readFileURLObjects();
    return text().value_or("-") + "|" +
           pasteboard_->stringForType(PasteboardType::kHTML).value_or("-") + "|" +
           pasteboard_->dataForType(PasteboardType::kRTF).value_or("-") + "|" +
           joined(urls ? testing::pathsOf(*urls) : Opt()) + "|" +
           joined(items ? testing::urlsOf(*items) : Opt()) + "|" + joined(pasteboard_->types());
  }

  std::unique_ptr<X11Pasteboard> pasteboard_;
};

// Each read from two threads at once, as the capture does.
TEST_F(PasteboardX11Test, ReadsWhatEachKindOfOwnerOffers) {
  const std::string kTargets = "|TARGETS TIMESTAMP MULTIPLE ";
  const std::pair<std::vector<TestOwner::Target>, std::string> rows[] = {
      {{}, "-|-|-|-|-|-"},
      {{{"UTF8_STRING", "line 1\r\nl\xC3\xA9ne \xFF 2"}},
       "line 1\r\nl\xC3\xA9ne \xEF\xBF\xBD 2|-|-|-|-" + kTargets + "UTF8_STRING"},
      // UTF8_STRING over the charset target, which is over STRING.
      {{{"text/plain;charset=utf-8", "b\r\n"}, {"UTF8_STRING", "a\r\n"}},
       "a\r\n|-|-|-|-" + kTargets + "text/plain;charset=utf-8 UTF8_STRING"},
      {{{"text/plain;charset=utf-8", "1\r\n2\r\n"}, {"STRING", "wrong"}},
       "1\n2\n|-|-|-|-" + kTargets + "text/plain;charset=utf-8 STRING"},
      {{{"STRING", "caf\xE9"}}, "-|-|-|-|-" + kTargets + "STRING"},
      // UTF-16 with a byte-order mark.
      {{{"text/html", "\xFF\xFE<\0i\0>\0\xE9\0<\0/\0i\0>\0"s}},
       "-|<i>\xC3\xA9</i>|-|-|-" + kTargets + "text/html"},
      {{{"text/rtf", "{\\rtf1\\ansi caf\\'e9}\r\n"}},
       "-|-|{\\rtf1\\ansi caf\\'e9}\r\n|-|-" + kTargets + "text/rtf"},
      {{{"application/rtf", "{\\rtf1 x}"}}, "-|-|{\\rtf1 x}|-|-" + kTargets + "application/rtf"},
      // As pcmanfm sends it.
      {{{"text/uri-list", "file:///tmp/a%20b\r\nhttps://example.com/\r\nfile:///tmp/d/\r\n\0"s}},
       "-|-|-|/tmp/a b /tmp/d|-" + kTargets + "text/uri-list"},
      {{{"x-special/gnome-copied-files", "copy\nfile:///tmp/a%20b\nfile:///tmp/c\0"s}},
       "-|-|-|-|file:///tmp/a%20b file:///tmp/c" + kTargets + "x-special/gnome-copied-files"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.second);
    std::optional<TestOwner> owner;
    if (!row.first.empty()) owner.emplace(xvfb().display(), row.first);
    ASSERT_TRUE(!owner || owner->owns());
    milliseconds took = timed([&] {
      auto other = std::async(std::launch::async, [&] { return reads(); });
      EXPECT_EQ(reads(), row.second);
      EXPECT_EQ(other.get(), row.second);
    });
    // Nothing to wait for without an owner.
    EXPECT_TRUE(owner || took < kPromptly) << took.count() << " ms";
  }
}

// The application owning CLIPBOARD is frozen when the capture begins.
TEST_F(PasteboardX11Test, ClearedClipboardIsOwnedEmptyUntilTheNextCopy) {
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "old content"}});
  ASSERT_TRUE(owner.owns());
  owner.pause(true);
  auto late = std::async(std::launch::async, [&] { return text(); });
  // Let the late reader get stuck on the frozen owner first.
  std::this_thread::sleep_for(milliseconds(100));
  pasteboard_->clearContents();
  milliseconds took = timed([&] { EXPECT_EQ(reads(), "-|-|-|-|-|-"); });
  EXPECT_LT(took, kPromptly);
  EXPECT_NE(late.wait_for(milliseconds(0)), std::future_status::ready)
      << "the main thread's operations waited for the stuck reader";
  EXPECT_EQ(late.get(), std::nullopt);
  // Now it answers the request it held back, to a reader that gave up, and
  // learns that it lost CLIPBOARD.
  owner.pause(false);
  EXPECT_TRUE(testing::waitUntil([&] { return owner.lost(); }, seconds(5)))
      << "the previous owner was not told it lost CLIPBOARD";
  EXPECT_EQ(owner.requestsSeen(), 1);
  // The application's copy takes CLIPBOARD over.
  TestOwner next(xvfb().display(), {{"UTF8_STRING", "next"}, {"text/html", "<p>next</p>"}});
  ASSERT_TRUE(next.owns());
  EXPECT_EQ(reads(), "next|<p>next</p>|-|-|-|TARGETS TIMESTAMP MULTIPLE UTF8_STRING text/html");

  // Other clients are answered whenever this process handles events; here
  // it keeps reading while they ask.
  pasteboard_->clearContents();
  auto ask = [&](const std::string& target) {
    auto reader = std::async(std::launch::async, [&] { return xclipReads(target); });
    while (reader.wait_for(milliseconds(5)) != std::future_status::ready) {
      pasteboard_->types();
    }
    return reader.get();
  };
  EXPECT_EQ(ask("UTF8_STRING"), std::nullopt);
  EXPECT_EQ(ask("TARGETS"), "TARGETS\nTIMESTAMP\n");

  // Requestors that ask and are gone before they are answered: answering
  // them must not end this process (Xlib's default handler would).
  Display* x = display();
  for (const char* target : {"TARGETS", "UTF8_STRING", "TIMESTAMP"}) {
    Window window = createSelectionWindow(x);
    XConvertSelection(x, atom("CLIPBOARD"), atom(target), atom("P"), window, CurrentTime);
    XDestroyWindow(x, window);
  }
  XSync(x, False);
  EXPECT_EQ(pasteboard_->types(), std::nullopt);
  EXPECT_NE(XGetSelectionOwner(x, atom("CLIPBOARD")), static_cast<Window>(None));
}

TEST_F(PasteboardX11Test, HostileOwnerIsGivenUpOnUntilANewOwnerCopies) {
  for (Behaviour behaviour :
       {Behaviour::kSilent, Behaviour::kEndlessSlow, Behaviour::kEndlessFast, Behaviour::kHuge}) {
    SCOPED_TRACE(static_cast<int>(behaviour));
    pasteboard_ = testing::openPasteboard(xvfb().display());
    ASSERT_TRUE(pasteboard_);
    auto owner = std::make_unique<TestOwner>(xvfb().display(), behaviour);
    ASSERT_TRUE(owner->owns());
    Text saved = "unset";
    milliseconds took = testing::readAgainst(owner, [&] { saved = text(); }, seconds(10));
    EXPECT_EQ(saved, std::nullopt);
    // One read takes at most half the pasteboard's budget. A flood swamps
    // the X server itself, so the round trip that notices the deadline may
    // come late on a busy machine: bounded all the same, well under what an
    // unbounded read takes (it never ends).
    EXPECT_LT(took, kX11PasteboardReadBudget / 2 +
                        (behaviour == Behaviour::kEndlessFast ? 4 : 1) * kPromptly);
    ASSERT_TRUE(owner);

    // The rest of a capture, against the same owner, asks it nothing.
    const int asked = owner->requestsSeen();
    milliseconds rest = timed([&] { EXPECT_EQ(reads(), "-|-|-|-|-|-"); });
    EXPECT_LT(rest, kPromptly);
    EXPECT_EQ(owner->requestsSeen(), asked);

    // The application's copy is a new owner, read as usual, unless the
    // flood on a busy machine has all but used up the pasteboard's budget.
    TestOwner copy(xvfb().display(), {{"UTF8_STRING", "copied"}});
    ASSERT_TRUE(copy.owns());
    if (took + rest + kPromptly < kX11PasteboardReadBudget) {
      EXPECT_EQ(text(), "copied") << "after " << (took + rest).count() << " ms";
    }
  }
}

TEST_F(PasteboardX11Test, ReadsOfOnePasteboardShareOneBudget) {
  // Each a new owner, so none is skipped as given up on. The earlier ones
  // stay connected: the server would give a new client the ids of one that
  // left, and the next owner's window would be the last one's again.
  std::vector<std::unique_ptr<TestOwner>> owners;
  milliseconds total{0};
  for (int i = 0; i < 3; ++i) {
    owners.push_back(std::make_unique<TestOwner>(xvfb().display(), Behaviour::kEndlessSlow));
    ASSERT_TRUE(owners.back()->owns());
    Text read = "unset";
    total += testing::readAgainst(owners.back(), [&] { read = text(); }, seconds(10));
    EXPECT_EQ(read, std::nullopt);
  }
  EXPECT_LT(total, kX11PasteboardReadBudget + kPromptly);
}

}  // namespace
}  // namespace tovrin
