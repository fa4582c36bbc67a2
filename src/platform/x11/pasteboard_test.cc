#include "platform/x11/pasteboard.h"

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
// clang-format on


#include <X11/Xlib.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/x11/selection.h"
#include "tests/x11/clipboard_fixture.h"
#include "tests/x11/hostile_owner.h"
#include "tests/x11/test_owner.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using namespace std::string_literals;
using tovrin::testing::ClipboardX11Test;
using tovrin::testing::HostileOwner;
using tovrin::testing::Hostility;
using tovrin::testing::readAgainst;
using tovrin::testing::pathsOf;
using tovrin::testing::Strings;
using tovrin::testing::TestOwner;
using tovrin::testing::timed;
using tovrin::testing::urlsOf;
using tovrin::testing::waitUntil;

// A bound for "at once" that still holds on a busy machine, yet is well
// under the conversion timeout that a wrong implementation would wait out.
constexpr milliseconds kPromptly{700};
// A bound for reads that must give up on an owner that never answers.
constexpr milliseconds kGivesUp{3000};

class PasteboardX11Test : public ClipboardX11Test {};

TEST_F(PasteboardX11Test, ReadsWhatEachKindOfOwnerOffers) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  {
    SCOPED_TRACE("UTF8_STRING with a stray byte");
    pid_t xclip = xclipOwns("UTF8_STRING", "line 1\r\nl\xC3\xA9ne \xFF 2");
    EXPECT_EQ(pasteboard->types().value_or(Strings{}),
              (Strings{"TARGETS", "UTF8_STRING"}));
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString),
              "line 1\r\nl\xC3\xA9ne \xEF\xBF\xBD 2");
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML), std::nullopt);
    EXPECT_EQ(pasteboard->readFileURLObjects(), std::nullopt);
    EXPECT_EQ(pasteboard->pasteboardItems(), std::nullopt);
    xvfb().terminate(xclip);
  }
  {
    SCOPED_TRACE("text/html in UTF-16 with a byte-order mark");
    pid_t xclip =
        xclipOwns("text/html", "\xFF\xFE<\0i\0>\0\xE9\0<\0/\0i\0>\0"s);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML),
              "<i>\xC3\xA9</i>");
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    xvfb().terminate(xclip);
  }
  {
    SCOPED_TRACE("text/rtf, raw");
    const std::string rtf = "{\\rtf1\\ansi caf\\'e9}\r\n";
    pid_t xclip = xclipOwns("text/rtf", rtf);
    EXPECT_EQ(pasteboard->dataForType(PasteboardType::kRTF), rtf);
    xvfb().terminate(xclip);
  }
  {
    SCOPED_TRACE("application/rtf when text/rtf is missing");
    pid_t xclip = xclipOwns("application/rtf", "{\\rtf1 x}");
    EXPECT_EQ(pasteboard->dataForType(PasteboardType::kRTF), "{\\rtf1 x}");
    xvfb().terminate(xclip);
  }
  {
    SCOPED_TRACE("text/uri-list as pcmanfm sends it");
    pid_t xclip = xclipOwns("text/uri-list",
                            "file:///tmp/a%20b\r\nhttps://example.com/\r\n"
                            "file:///tmp/dir/\r\n\0"s);
    auto urls = pasteboard->readFileURLObjects();
    ASSERT_TRUE(urls);
    EXPECT_EQ(pathsOf(*urls), (Strings{"/tmp/a b", "/tmp/dir"}));
    EXPECT_EQ(pasteboard->pasteboardItems(), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    xvfb().terminate(xclip);
  }
  {
    SCOPED_TRACE("x-special/gnome-copied-files");
    pid_t xclip = xclipOwns("x-special/gnome-copied-files",
                            "copy\nfile:///tmp/a%20b\nfile:///tmp/c\0"s);
    auto items = pasteboard->pasteboardItems();
    ASSERT_TRUE(items);
    EXPECT_EQ(urlsOf(*items), (Strings{"file:///tmp/a%20b", "file:///tmp/c"}));
    EXPECT_EQ(pasteboard->readFileURLObjects(), std::nullopt);
    xvfb().terminate(xclip);
  }
  EXPECT_EQ(pasteboard->propertyListForType("NSFilenamesPboardType"),
            std::nullopt);
}

TEST_F(PasteboardX11Test, PlainTextFallsBackToCharsetTargetButNeverToString) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  {
    TestOwner owner(
        xvfb().display(),
        {{"text/plain;charset=utf-8", "one\r\ntwo\r\n"}, {"STRING", "wrong"}});
    ASSERT_TRUE(owner.owns());
    EXPECT_EQ(pasteboard->types().value_or(Strings{}),
              (Strings{"TARGETS", "TIMESTAMP", "MULTIPLE",
                       "text/plain;charset=utf-8", "STRING"}));
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "one\ntwo\n");
  }
  {
    TestOwner owner(xvfb().display(), {{"STRING", "caf\xE9"}});
    ASSERT_TRUE(owner.owns());
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
  }
  {
    // UTF8_STRING wins over the charset target, and keeps its CR LF.
    TestOwner owner(xvfb().display(), {{"text/plain;charset=utf-8", "b\r\n"},
                                       {"UTF8_STRING", "a\r\n"}});
    ASSERT_TRUE(owner.owns());
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "a\r\n");
  }
}

TEST_F(PasteboardX11Test, NoOwnerGivesNothingAtOnce) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_EQ(clipboardOwner(), static_cast<Window>(None));
  auto elapsed = timed([&] {
    EXPECT_EQ(pasteboard->types(), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML), std::nullopt);
    EXPECT_EQ(pasteboard->dataForType(PasteboardType::kRTF), std::nullopt);
    EXPECT_EQ(pasteboard->readFileURLObjects(), std::nullopt);
    EXPECT_EQ(pasteboard->pasteboardItems(), std::nullopt);
  });
  EXPECT_LT(elapsed, kPromptly);
}

TEST_F(PasteboardX11Test, ReadsLargeTextThroughIncr) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  // xclip sends values above 1 MB in INCR chunks.
  std::string large;
  for (int i = 0; large.size() < 5 * 1024 * 1024; ++i) {
    large += "line " + std::to_string(i) + " \xC3\xA9\n";
  }
  pid_t xclip = xclipOwns("UTF8_STRING", large);
  auto text = pasteboard->stringForType(PasteboardType::kString);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), large.size());
  EXPECT_TRUE(*text == large);
  xvfb().terminate(xclip);
}

TEST_F(PasteboardX11Test, FrozenOwnerIsGivenUpOn) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  pid_t xclip = xclipOwns("UTF8_STRING", "frozen");
  ASSERT_TRUE(xvfb().signal(xclip, SIGSTOP));
  auto elapsed = timed([&] {
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
  });
  EXPECT_LT(elapsed, kGivesUp);
  elapsed = timed([&] { EXPECT_EQ(pasteboard->types(), std::nullopt); });
  EXPECT_LT(elapsed, kGivesUp);
  ASSERT_TRUE(xvfb().signal(xclip, SIGCONT));
  xvfb().terminate(xclip);
}

TEST_F(PasteboardX11Test, LateAnswersDoNotConfuseLaterReads) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  TestOwner owner(xvfb().display(),
                  {{"UTF8_STRING", "late"}, {"text/html", "<p>late</p>"}});
  ASSERT_TRUE(owner.owns());
  owner.pause(true);
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
  // Now it answers the request it held back, to a reader that gave up.
  owner.pause(false);
  ASSERT_TRUE(waitUntil([&] { return owner.requestsSeen() == 1; }, kGivesUp));
  // This pasteboard gave up on that owner; another one takes CLIPBOARD.
  TestOwner next(xvfb().display(),
                 {{"UTF8_STRING", "next"}, {"text/html", "<p>next</p>"}});
  ASSERT_TRUE(next.owns());
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML), "<p>next</p>");
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "next");
}

TEST_F(PasteboardX11Test, IncrTransferThatStallsIsGivenUpOn) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  // Announces INCR for 2 MB, then never sends a chunk.
  TestOwner owner(xvfb().display(),
                  {{"UTF8_STRING", std::string(2 * 1024 * 1024, 'x')}},
                  /*freezeAfterFirstRequest=*/true);
  ASSERT_TRUE(owner.owns());
  auto elapsed = timed([&] {
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
  });
  EXPECT_LT(elapsed, kGivesUp);
  EXPECT_EQ(owner.requestsSeen(), 1);
}

TEST_F(PasteboardX11Test, ClearedClipboardIsOwnedEmptyUntilTheNextCopy) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  pid_t xclip = xclipOwns("UTF8_STRING", "old content");
  pasteboard->clearContents();
  EXPECT_TRUE(waitUntil([&] { return !xvfb().running(xclip); }, seconds(5)))
      << "the previous owner was not told it lost CLIPBOARD";
  EXPECT_NE(clipboardOwner(), static_cast<Window>(None));

  auto elapsed = timed([&] {
    EXPECT_EQ(pasteboard->types(), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    EXPECT_EQ(pasteboard->readFileURLObjects(), std::nullopt);
  });
  EXPECT_LT(elapsed, kPromptly);

  // Other clients are answered whenever this process handles events; here
  // it keeps reading while they ask.
  auto ask = [&](const std::string& target) {
    auto reader =
        std::async(std::launch::async, [&] { return xclipReads(target); });
    while (reader.wait_for(milliseconds(5)) != std::future_status::ready) {
      pasteboard->types();
    }
    return reader.get();
  };
  EXPECT_EQ(ask("UTF8_STRING"), std::nullopt);
  EXPECT_EQ(ask("TARGETS"), "TARGETS\nTIMESTAMP\n");

  // The application's copy takes CLIPBOARD over.
  pid_t copy = xclipOwns("UTF8_STRING", "new copy");
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "new copy");
  xvfb().terminate(copy);
}

TEST_F(PasteboardX11Test, EmptyOwnerSurvivesRequestorsThatVanish) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  pasteboard->clearContents();
  {
    // A requestor that asks and is gone before it is answered.
    auto requestor = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(requestor);
    Display* x = requestor->display();
    for (const char* target : {"TARGETS", "UTF8_STRING", "TIMESTAMP"}) {
      Window window = createSelectionWindow(x);
      XConvertSelection(x, XInternAtom(x, "CLIPBOARD", False),
                        XInternAtom(x, target, False),
                        XInternAtom(x, "P", False), window, CurrentTime);
      XDestroyWindow(x, window);
    }
    XSync(x, False);
  }
  // Answering them must not end this process (Xlib's default handler would).
  EXPECT_EQ(pasteboard->types(), std::nullopt);
  pid_t copy = xclipOwns("UTF8_STRING", "still here");
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "still here");
  xvfb().terminate(copy);
}

TEST_F(PasteboardX11Test, ReadsFromSeveralThreadsAtOnce) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "shared text"},
                                     {"text/html", "<b>shared</b>"}});
  ASSERT_TRUE(owner.owns());
  std::atomic<int> wrong{0};
  auto readMany = [&] {
    for (int i = 0; i < 40; ++i) {
      if (pasteboard->stringForType(PasteboardType::kString) != "shared text")
        ++wrong;
      if (pasteboard->stringForType(PasteboardType::kHTML) != "<b>shared</b>")
        ++wrong;
      auto types = pasteboard->types();
      if (!types || types->size() != 5) ++wrong;
    }
  };
  std::thread worker(readMany);
  readMany();
  worker.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST_F(PasteboardX11Test, LateReaderOnFrozenOwnerDoesNotHoldUpTheNextOnes) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  pid_t xclip = xclipOwns("UTF8_STRING", "frozen");
  ASSERT_TRUE(xvfb().signal(xclip, SIGSTOP));
  std::atomic<bool> lateDone{false};
  std::optional<std::string> lateResult = "unset";
  std::thread late([&] {
    lateResult = pasteboard->stringForType(PasteboardType::kString);
    lateDone = true;
  });
  // Let the late reader get stuck on the frozen owner first.
  std::this_thread::sleep_for(milliseconds(100));
  pasteboard->clearContents();
  EXPECT_EQ(pasteboard->types(), std::nullopt);
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
  EXPECT_FALSE(lateDone.load())
      << "the main thread's operations waited for the stuck reader";
  late.join();
  EXPECT_EQ(lateResult, std::nullopt);
  ASSERT_TRUE(xvfb().signal(xclip, SIGCONT));
  xvfb().terminate(xclip);
}

TEST_F(PasteboardX11Test, HostileOwnerIsGivenUpOnUntilANewOwnerCopies) {
  const std::pair<const char*, Hostility> cases[] = {
      {"never answers", Hostility::kSilent},
      {"slow chunks without end", Hostility::kEndlessSlow},
      {"a flood of chunks", Hostility::kEndlessFast},
      {"announces 128 MiB", Hostility::kHuge},
  };
  for (const auto& [name, hostility] : cases) {
    SCOPED_TRACE(name);
    auto pasteboard = newPasteboard();
    ASSERT_TRUE(pasteboard);
    auto owner = std::make_unique<HostileOwner>(xvfb().display(), hostility);
    ASSERT_TRUE(owner->owns());
    std::optional<std::string> saved = "unset";
    milliseconds took = readAgainst(
        owner,
        [&] { saved = pasteboard->stringForType(PasteboardType::kString); },
        seconds(10));
    EXPECT_EQ(saved, std::nullopt);
    // One read takes at most half the pasteboard's budget. A flood swamps
    // the X server itself, so the round trip that notices the deadline may
    // come late on a busy machine: bounded all the same, well under what an
    // unbounded read takes (it never ends).
    const milliseconds slack =
        hostility == Hostility::kEndlessFast ? kGivesUp : kPromptly;
    EXPECT_LT(took, kX11PasteboardReadBudget / 2 + slack);
    ASSERT_TRUE(owner);
    if (hostility == Hostility::kHuge) {
      // Given up at the announcement: only what deleting it asked for came.
      EXPECT_LE(owner->bytesSent(), size_t{2 * 262144});
    }

    // The rest of a capture, against the same owner.
    const int asked = owner->requestsSeen();
    auto elapsed = timed([&] {
      EXPECT_EQ(pasteboard->readFileURLObjects(), std::nullopt);
      EXPECT_EQ(pasteboard->pasteboardItems(), std::nullopt);
      EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString),
                std::nullopt);
      EXPECT_EQ(pasteboard->types(), std::nullopt);
      EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML), std::nullopt);
      EXPECT_EQ(pasteboard->dataForType(PasteboardType::kRTF), std::nullopt);
    });
    EXPECT_LT(elapsed, kPromptly);
    EXPECT_EQ(owner->requestsSeen(), asked);

    // The application's copy is a new owner, read as usual, unless the
    // flood on a busy machine has all but used up the pasteboard's budget:
    // then the read ends with it.
    TestOwner copy(xvfb().display(), {{"UTF8_STRING", "copied"}});
    ASSERT_TRUE(copy.owns());
    const bool budgetLeft = took + elapsed + kPromptly < kX11PasteboardReadBudget;
    std::optional<std::string> copied;
    milliseconds copyTook = timed(
        [&] { copied = pasteboard->stringForType(PasteboardType::kString); });
    if (budgetLeft) {
      EXPECT_EQ(copied, "copied")
          << "read after " << (took + elapsed).count() << " ms of reads";
    } else {
      EXPECT_LT(copyTook, kPromptly);
    }
  }
}

TEST_F(PasteboardX11Test, ReadsOfOnePasteboardShareOneBudget) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  // Each a new owner, so none is skipped as given up on. The earlier ones
  // stay connected: the server would give a new client the ids of one that
  // left, and the next owner's window would be the last one's again.
  std::vector<std::unique_ptr<HostileOwner>> owners;
  milliseconds total{0};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE("owner " + std::to_string(i + 1));
    owners.push_back(std::make_unique<HostileOwner>(xvfb().display(),
                                                    Hostility::kEndlessSlow));
    ASSERT_TRUE(owners.back()->owns());
    std::optional<std::string> text = "unset";
    total += readAgainst(
        owners.back(),
        [&] { text = pasteboard->stringForType(PasteboardType::kString); },
        seconds(10));
    EXPECT_EQ(text, std::nullopt);
  }
  EXPECT_LT(total, kX11PasteboardReadBudget + kPromptly);
}

}  // namespace
}  // namespace tovrin
