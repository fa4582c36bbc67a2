#include "platform/x11/pasteboard.h"

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
// clang-format on

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "platform/x11/selection.h"
#include "tests/xvfb_session.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using namespace std::string_literals;
using tovrin::testing::processEnded;
using tovrin::testing::SpawnOptions;
using tovrin::testing::XvfbTest;

// A bound for "at once" that still holds on a busy machine, yet is well
// under the conversion timeout that a wrong implementation would wait out.
constexpr milliseconds kPromptly{700};
// A bound for reads that must give up on an owner that never answers.
constexpr milliseconds kGivesUp{3000};

std::vector<std::string> pathsOf(const std::vector<PasteboardURLObject>& urls) {
  std::vector<std::string> paths;
  for (const auto& url : urls) {
    EXPECT_TRUE(url.isURL);
    paths.push_back(url.path);
  }
  return paths;
}

std::vector<std::string> urlsOf(const std::vector<PasteboardItem>& items) {
  std::vector<std::string> urls;
  for (const auto& item : items)
    urls.push_back(item.fileURLString.value_or("-"));
  return urls;
}

// ---------------------------------------------------------------------------
// Decoders

TEST(DecodeHtmlTest, FollowsTheByteOrderMark) {
  // "<b>é😀</b>" in UTF-16 LE and BE, with a trailing NUL.
  const std::string le =
      "\xFF\xFE<\0b\0>\0\xE9\0\x3D\xD8\x00\xDE<\0/\0b\0>\0\0\0"s;
  const std::string be =
      "\xFE\xFF\0<\0b\0>\0\xE9\xD8\x3D\xDE\x00\0<\0/\0b\0>\0\0"s;
  const std::string expected = "<b>\xC3\xA9\xF0\x9F\x98\x80</b>";
  EXPECT_EQ(decodeHtml(le), expected);
  EXPECT_EQ(decodeHtml(be), expected);
  EXPECT_EQ(decodeHtml("\xEF\xBB\xBF<p>x</p>"), "<p>x</p>");
  EXPECT_EQ(decodeHtml("<p>x</p>"), "<p>x</p>");
}

TEST(DecodeHtmlTest, DropsOneTrailingNulAndReplacesBrokenUnits) {
  EXPECT_EQ(decodeHtml("<p>\0\0"s), "<p>\0"s);
  const std::string r = "\xEF\xBF\xBD";
  // A lone high surrogate, then an odd last byte.
  EXPECT_EQ(decodeHtml("\xFF\xFE\x3D\xD8"
                       "a\0"
                       "b"s),
            r + "a" + r);
  EXPECT_EQ(decodeHtml("<i>\xE9</i>"), "<i>" + r + "</i>");
}

TEST(CrlfToLfTest, TurnsOnlyPairsIntoLineFeeds) {
  EXPECT_EQ(crlfToLf("a\r\nb\rc\n\r\n\r"), "a\nb\rc\n\n\r");
}

TEST(UriListTest, ReadsLinesOfEitherEndingAndSkipsComments) {
  EXPECT_EQ(uriListEntries("# a comment\r\nfile:///a\r\n\r\nhttp://x/y\n"
                           "file:///b"),
            (Strings{"file:///a", "http://x/y", "file:///b"}));
  EXPECT_EQ(uriListEntries("file:///c\r\n\0"s), (Strings{"file:///c"}));
  EXPECT_TRUE(uriListEntries("").empty());
}

TEST(UriListTest, KeepsOnlyFileURLsAsDecodedPaths) {
  // As pcmanfm sends it: CRLF line ends and a trailing NUL.
  const std::string list =
      "file:///home/u/a%20b.txt\r\n"
      "http://example.com/page\r\n"
      "file://localhost/etc/hosts\r\n"
      "file://otherhost/share\r\n"
      "not a url\r\n"
      "FILE:///tmp/dir/\r\n\0"s;
  EXPECT_EQ(pathsOf(fileURLObjectsFromUriList(list)),
            (Strings{"/home/u/a b.txt", "/etc/hosts", "/tmp/dir"}));
}

TEST(GnomeCopiedFilesTest, GivesOneItemPerURIAfterTheOperation) {
  EXPECT_EQ(
      urlsOf(itemsFromGnomeCopiedFiles("copy\nfile:///a\nfile:///b%20c\0"s)),
      (Strings{"file:///a", "file:///b%20c"}));
  EXPECT_EQ(urlsOf(itemsFromGnomeCopiedFiles("cut\r\nfile:///x\r\n")),
            (Strings{"file:///x"}));
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("copy").empty());
}

TEST(GnomeCopiedFilesTest, OtherFirstLinesGiveNoItems) {
  EXPECT_TRUE(itemsFromGnomeCopiedFiles(
                  "x-special/nautilus-clipboard\ncopy\nfile:///a\n")
                  .empty());
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("file:///a\nfile:///b").empty());
  EXPECT_TRUE(itemsFromGnomeCopiedFiles("").empty());
}

TEST(Latin1IfRepresentableTest, EncodesLatin1TextAndLeavesTheRest) {
  EXPECT_EQ(latin1IfRepresentable("caf\xC3\xA9 \xC2\xA0!"), "caf\xE9 \xA0!");
  EXPECT_EQ(latin1IfRepresentable("5 \xE2\x82\xAC"), "5 \xE2\x82\xAC");
  EXPECT_EQ(latin1IfRepresentable("ascii"), "ascii");
}

// ---------------------------------------------------------------------------
// Against a real X server

bool waitUntil(const std::function<bool()>& condition, milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

template <typename F>
milliseconds timed(F&& work) {
  auto start = Clock::now();
  work();
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

/// An application owning CLIPBOARD with the given targets, answering from a
/// thread of its own through the owner side under test.
class TestOwner {
 public:
  struct Target {
    std::string name;
    std::string data;
  };

  /// Owns CLIPBOARD with `targets`; stops answering after its first request
  /// when `freezeAfterFirstRequest`, like an application that hangs.
  TestOwner(const std::string& display, const std::vector<Target>& targets,
            bool freezeAfterFirstRequest = false)
      : freeze_(freezeAfterFirstRequest) {
    connection_ = SelectionConnection::open(display);
    if (!connection_) return;
    Display* x = connection_->display();
    std::vector<OfferedTarget> offered;
    for (const auto& target : targets) {
      Atom atom = XInternAtom(x, target.name.c_str(), False);
      offered.push_back(OfferedTarget{
          atom, atom, 8, std::make_shared<const std::string>(target.data)});
    }
    Atom clipboard = XInternAtom(x, "CLIPBOARD", False);
    ConversionDeadline deadline;
    auto acquired =
        acquireSelection(x, connection_->window(), clipboard, deadline);
    if (!acquired) return;
    server_ = std::make_unique<SelectionServer>(
        x, connection_->window(), clipboard, *acquired, std::move(offered));
    if (pipe(stop_) != 0) return;
    thread_ = std::thread([this] { serve(); });
  }

  ~TestOwner() {
    if (thread_.joinable()) {
      char byte = 0;
      EXPECT_EQ(write(stop_[1], &byte, 1), 1);
      thread_.join();
    }
    for (int fd : stop_) {
      if (fd >= 0) close(fd);
    }
    server_.reset();
    connection_.reset();
  }

  bool owns() const { return thread_.joinable(); }
  int requestsSeen() const { return requests_; }
  /// Stops or resumes answering, like SIGSTOP and SIGCONT would.
  void pause(bool paused) { paused_ = paused; }

 private:
  void serve() {
    Display* x = connection_->display();
    for (;;) {
      pollfd fds[2] = {{stop_[0], POLLIN, 0}, {ConnectionNumber(x), POLLIN, 0}};
      if (poll(fds, 2, paused_ ? 10 : 1000) < 0) return;
      if (fds[0].revents != 0) return;
      if (paused_ || (freeze_ && requests_ > 0)) continue;
      while (XPending(x) > 0) {
        XEvent event;
        XNextEvent(x, &event);
        if (event.type == SelectionRequest) ++requests_;
        server_->handleEvent(event);
        if (freeze_ && requests_ > 0) break;
      }
    }
  }

  bool freeze_;
  std::atomic<bool> paused_{false};
  std::atomic<int> requests_{0};
  std::unique_ptr<SelectionConnection> connection_;
  std::unique_ptr<SelectionServer> server_;
  int stop_[2] = {-1, -1};
  std::thread thread_;
};

class PasteboardX11Test : public XvfbTest {
 protected:
  void SetUp() override {
    XvfbTest::SetUp();
    if (IsSkipped()) return;
    probe_ = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(probe_);
  }

  void TearDown() override {
    probe_.reset();
    XvfbTest::TearDown();
  }

  std::unique_ptr<X11Pasteboard> newPasteboard() {
    auto pasteboard = createX11Pasteboard(xvfb().display());
    EXPECT_TRUE(pasteboard);
    return pasteboard;
  }

  Atom atom(const char* name) {
    return XInternAtom(probe_->display(), name, False);
  }

  Window clipboardOwner() {
    return XGetSelectionOwner(probe_->display(), atom("CLIPBOARD"));
  }

  /// Starts xclip owning CLIPBOARD with `data` under `target` and waits
  /// until it owns it.
  pid_t xclipOwns(const std::string& target, const std::string& data) {
    Window before = clipboardOwner();
    SpawnOptions options;
    options.input = data;
    auto pid = xvfb().spawn(
        {"xclip", "-quiet", "-selection", "clipboard", "-t", target, "-i"},
        options);
    EXPECT_TRUE(pid);
    if (!pid) return -1;
    EXPECT_TRUE(waitUntil(
        [&] {
          Window owner = clipboardOwner();
          return owner != None && owner != before;
        },
        seconds(5)))
        << "xclip did not take CLIPBOARD";
    return *pid;
  }

  /// What `xclip -o` reads from CLIPBOARD as `target`; nothing when xclip
  /// fails or hangs.
  std::optional<std::string> xclipReads(const std::string& target) {
    auto result = xvfb().run(
        {"xclip", "-o", "-selection", "clipboard", "-t", target}, seconds(5));
    if (!result || result->exit.code != 0) return std::nullopt;
    return result->output;
  }

  /// The process id that the current CLIPBOARD owner's window names.
  pid_t clipboardOwnerPid() {
    Window owner = clipboardOwner();
    if (owner == None) return -1;
    Atom type = None;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(probe_->display(), owner, atom("_NET_WM_PID"), 0, 1,
                           False, XA_CARDINAL, &type, &format, &items, &after,
                           &data) != Success ||
        data == nullptr) {
      return -1;
    }
    pid_t pid =
        items == 1 ? static_cast<pid_t>(*reinterpret_cast<unsigned long*>(data))
                   : -1;
    XFree(data);
    return pid;
  }

  std::unique_ptr<SelectionConnection> probe_;
};

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
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kHTML), "<p>late</p>");
  EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), "late");
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

TEST_F(PasteboardX11Test, WrittenTextOutlivesThePasteboardAndItsProcess) {
  const std::string text = "caf\xC3\xA9 line\nsecond";
  {
    auto pasteboard = newPasteboard();
    ASSERT_TRUE(pasteboard);
    pasteboard->clearContents();
    EXPECT_TRUE(pasteboard->setString(text, PasteboardType::kString));
    EXPECT_FALSE(pasteboard->setString(text, PasteboardType::kHTML));
  }
  EXPECT_EQ(xclipReads("UTF8_STRING"), text);
  EXPECT_EQ(xclipReads("text/plain;charset=utf-8"), text);
  EXPECT_EQ(xclipReads("STRING"), "caf\xE9 line\nsecond");
  EXPECT_EQ(xclipReads("TARGETS"),
            "TARGETS\nTIMESTAMP\nMULTIPLE\nUTF8_STRING\n"
            "text/plain;charset=utf-8\nSTRING\n");
  auto reader = newPasteboard();
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->stringForType(PasteboardType::kString), text);

  // The serving process ends once another client takes CLIPBOARD.
  pid_t server = clipboardOwnerPid();
  ASSERT_GT(server, 0);
  EXPECT_NE(server, getpid());
  EXPECT_FALSE(processEnded(server));
  pid_t copy = xclipOwns("UTF8_STRING", "taken over");
  EXPECT_TRUE(waitUntil([&] { return processEnded(server); }, kGivesUp));
  xvfb().terminate(copy);
}

/// A clipboard manager as the freedesktop convention has it: owns
/// CLIPBOARD_MANAGER and, asked to convert it to SAVE_TARGETS, copies the
/// targets listed in the requestor's property from CLIPBOARD.
class FakeClipboardManager {
 public:
  explicit FakeClipboardManager(const std::string& display) {
    connection_ = SelectionConnection::open(display);
    if (!connection_) return;
    Display* x = connection_->display();
    ConversionDeadline deadline;
    if (!acquireSelection(x, connection_->window(),
                          XInternAtom(x, "CLIPBOARD_MANAGER", False),
                          deadline)) {
      return;
    }
    thread_ = std::thread([this] { serve(); });
  }
  ~FakeClipboardManager() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }

  bool runs() const { return thread_.joinable(); }
  bool saved() const { return saved_; }
  /// What it was asked to save, and what it copied; read once saved().
  const std::vector<std::string>& requestedTargets() const {
    return requested_;
  }
  const std::string& savedText() const { return text_; }

 private:
  void serve() {
    Display* x = connection_->display();
    Atom manager = XInternAtom(x, "CLIPBOARD_MANAGER", False);
    Atom saveTargets = XInternAtom(x, "SAVE_TARGETS", False);
    while (!stop_ && !saved_) {
      XEvent event;
      if (XCheckTypedEvent(x, SelectionRequest, &event) == False) {
        pollfd fd = {ConnectionNumber(x), POLLIN, 0};
        poll(&fd, 1, 20);
        continue;
      }
      const XSelectionRequestEvent& request = event.xselectionrequest;
      if (request.selection != manager || request.target != saveTargets) {
        continue;
      }
      Atom type = None;
      int format = 0;
      unsigned long items = 0, after = 0;
      unsigned char* data = nullptr;
      XGetWindowProperty(x, request.requestor, request.property, 0, 64, False,
                         XA_ATOM, &type, &format, &items, &after, &data);
      std::vector<Atom> atoms;
      if (data != nullptr) {
        atoms.assign(reinterpret_cast<Atom*>(data),
                     reinterpret_cast<Atom*>(data) + items);
        XFree(data);
      }
      for (auto& name : atomNames(x, atoms)) {
        requested_.push_back(name.value_or("?"));
      }
      text_ = convertSelection(
                  x, connection_->window(), XInternAtom(x, "CLIPBOARD", False),
                  XInternAtom(x, "UTF8_STRING", False), milliseconds(1000))
                  .data;
      XEvent reply = {};
      reply.xselection.type = SelectionNotify;
      reply.xselection.requestor = request.requestor;
      reply.xselection.selection = request.selection;
      reply.xselection.target = request.target;
      reply.xselection.property = request.property;
      reply.xselection.time = request.time;
      XSendEvent(x, request.requestor, False, NoEventMask, &reply);
      XFlush(x);
      saved_ = true;
    }
  }

  std::unique_ptr<SelectionConnection> connection_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> saved_{false};
  std::vector<std::string> requested_;
  std::string text_;
};

TEST_F(PasteboardX11Test, WrittenTextIsHandedToAClipboardManager) {
  FakeClipboardManager manager(xvfb().display());
  ASSERT_TRUE(manager.runs());
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString("keep me", PasteboardType::kString));
  ASSERT_TRUE(waitUntil([&] { return manager.saved(); }, kGivesUp));
  EXPECT_EQ(manager.requestedTargets(),
            (Strings{"UTF8_STRING", "text/plain;charset=utf-8", "STRING"}));
  EXPECT_EQ(manager.savedText(), "keep me");
}

TEST_F(PasteboardX11Test, LargeWrittenTextIsServedThroughIncr) {
  std::string large;
  for (int i = 0; large.size() < 3 * 1024 * 1024; ++i) {
    large += "row " + std::to_string(i) + "\n";
  }
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString(large, PasteboardType::kString));
  auto text = pasteboard->stringForType(PasteboardType::kString);
  ASSERT_TRUE(text);
  EXPECT_TRUE(*text == large);
  auto viaXclip = xclipReads("UTF8_STRING");
  ASSERT_TRUE(viaXclip);
  EXPECT_TRUE(*viaXclip == large);
}

#if defined(__SANITIZE_THREAD__)
#define TOVRIN_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TOVRIN_THREAD_SANITIZER 1
#endif
#endif

TEST_F(PasteboardX11Test, DisplayGoingAwayEndsTheServerButNotUs) {
#ifdef TOVRIN_THREAD_SANITIZER
  // On a broken connection libX11 unlocks the display's mutex once more than
  // it locked it (harmless with glibc's default mutexes), which
  // ThreadSanitizer reports.
  GTEST_SKIP() << "libX11's recovery from a broken connection upsets TSan";
#endif
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString("bye", PasteboardType::kString));
  pid_t server = clipboardOwnerPid();
  ASSERT_GT(server, 0);
  pasteboard->clearContents();  // an owner connection, a server started ahead
  probe_.reset();
  xvfb().stopServer();
  EXPECT_TRUE(waitUntil([&] { return processEnded(server); }, kGivesUp));
  // Xlib would end this process on a broken connection by default.
  auto elapsed = timed([&] {
    EXPECT_EQ(pasteboard->types(), std::nullopt);
    EXPECT_EQ(pasteboard->stringForType(PasteboardType::kString), std::nullopt);
    pasteboard->clearContents();
    EXPECT_FALSE(pasteboard->setString("lost", PasteboardType::kString));
  });
  EXPECT_LT(elapsed, kGivesUp);
  pasteboard.reset();
}

/// Runs `tool` in a child process of its own, with standard output on a
/// pipe, as a host runs tovrin; reads that pipe to its end.
struct ToolRun {
  bool outputEnded = false;  // the pipe's end came within the bound
  std::string output;
  int exitCode = -1;
};

ToolRun runTool(const std::function<int()>& tool) {
  ToolRun run;
  int output[2];
  if (pipe(output) != 0) return run;
  pid_t pid = fork();
  if (pid < 0) return run;
  if (pid == 0) {
    close(output[0]);
    dup2(output[1], STDOUT_FILENO);
    close(output[1]);
    _exit(tool());
  }
  close(output[1]);
  auto deadline = Clock::now() + kGivesUp;
  while (!run.outputEnded && Clock::now() < deadline) {
    pollfd fd = {output[0], POLLIN, 0};
    if (poll(&fd, 1, 100) <= 0) continue;
    char buffer[256];
    ssize_t count = read(output[0], buffer, sizeof buffer);
    if (count <= 0) {
      run.outputEnded = true;
    } else {
      run.output.append(buffer, static_cast<size_t>(count));
    }
  }
  close(output[0]);
  int status = 0;
  if (!run.outputEnded) kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
  return run;
}

void say(const char* line) {
  ssize_t written = write(STDOUT_FILENO, line, strlen(line));
  (void)written;
}

/// The processes whose parent is this one.
std::vector<pid_t> ownChildren() {
  std::vector<pid_t> children;
  std::ifstream list("/proc/self/task/" + std::to_string(gettid()) +
                     "/children");
  pid_t pid = 0;
  while (list >> pid) children.push_back(pid);
  return children;
}

/// Waits until every descendant of this (subreaper) process has ended.
bool allDescendantsEnded(milliseconds timeout) {
  return waitUntil(
      [] {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        return ownChildren().empty();
      },
      timeout);
}

TEST_F(PasteboardX11Test, HostReadingOurOutputSeesItsEndPromptly) {
  // Like the desktop program that starts tovrin: it reads tovrin's output to
  // its end, which must come when tovrin exits, not when the server does.
  std::string display = xvfb().display();
  ToolRun run = runTool([&] {
    auto pasteboard = createX11Pasteboard(display);
    if (!pasteboard) return 2;
    pasteboard->clearContents();
    bool written = pasteboard->setString("from tool", PasteboardType::kString);
    say(written ? "{\"ok\":true}\n" : "{\"ok\":false}\n");
    return 0;
  });
  EXPECT_TRUE(run.outputEnded) << "the output pipe stayed open";
  EXPECT_EQ(run.output, "{\"ok\":true}\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(xclipReads("UTF8_STRING"), "from tool");
}

TEST_F(PasteboardX11Test, ServerProcessStartedAheadEndsWhenNotNeeded) {
  std::string display = xvfb().display();
  ToolRun run = runTool([&] {
    // Orphans of this process become its children, so it can see them end.
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) return 2;
    auto pasteboard = createX11Pasteboard(display);
    if (!pasteboard) return 2;
    pasteboard->clearContents();
    if (!waitUntil([] { return !ownChildren().empty(); }, kGivesUp)) return 3;
    pasteboard.reset();
    return allDescendantsEnded(kGivesUp) ? 0 : 4;
  });
  EXPECT_TRUE(run.outputEnded);
  EXPECT_EQ(run.exitCode, 0) << "2: setup, 3: nothing started, 4: lingered";
}

TEST_F(PasteboardX11Test, ServerProcessThatEndedEarlyIsReplaced) {
  std::string display = xvfb().display();
  ToolRun run = runTool([&] {
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) return 2;
    auto pasteboard = createX11Pasteboard(display);
    if (!pasteboard) return 2;
    pasteboard->clearContents();
    // The intermediate process ends at once; the server becomes ours.
    std::vector<pid_t> servers;
    waitUntil(
        [&] {
          while (waitpid(-1, nullptr, WNOHANG) > 0) {
          }
          servers = ownChildren();
          return servers.size() == 1;
        },
        kGivesUp);
    if (servers.size() != 1) return 3;
    kill(servers.front(), SIGKILL);
    waitpid(servers.front(), nullptr, 0);
    bool written = pasteboard->setString("replaced", PasteboardType::kString);
    return written ? 0 : 4;
  });
  EXPECT_EQ(run.exitCode, 0) << "2: setup, 3: no server seen, 4: not written";
  EXPECT_EQ(xclipReads("UTF8_STRING"), "replaced");
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

TEST_F(PasteboardX11Test, ConvertSelectionTellsWhatHappened) {
  Display* x = probe_->display();
  Window requestor = probe_->window();
  using Result = SelectionConversion::Result;
  EXPECT_EQ(convertSelection(x, requestor, atom("CLIPBOARD"),
                             atom("UTF8_STRING"), milliseconds(1000))
                .result,
            Result::kNoOwner);
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString("value", PasteboardType::kString));

  SelectionConversion text = convertSelection(
      x, requestor, atom("CLIPBOARD"), atom("UTF8_STRING"), milliseconds(1000));
  EXPECT_EQ(text.result, Result::kConverted);
  EXPECT_EQ(text.typeName, "UTF8_STRING");
  EXPECT_EQ(text.format, 8);
  EXPECT_EQ(text.data, "value");

  SelectionConversion targets = convertSelection(
      x, requestor, atom("CLIPBOARD"), atom("TARGETS"), milliseconds(1000));
  EXPECT_EQ(targets.typeName, "ATOM");
  ASSERT_EQ(targets.format, 32);
  EXPECT_EQ(targets.values32().size(), 6u);
  EXPECT_EQ(targets.values32().front(), atom("TARGETS"));

  SelectionConversion timestamp = convertSelection(
      x, requestor, atom("CLIPBOARD"), atom("TIMESTAMP"), milliseconds(1000));
  EXPECT_EQ(timestamp.typeName, "INTEGER");
  ASSERT_EQ(timestamp.values32().size(), 1u);
  EXPECT_NE(timestamp.values32().front(), 0u);

  EXPECT_EQ(convertSelection(x, requestor, atom("CLIPBOARD"), atom("image/png"),
                             milliseconds(1000))
                .result,
            Result::kRefused);
}

TEST_F(PasteboardX11Test, ServesSeveralTargetsInOneMultipleRequest) {
  auto pasteboard = newPasteboard();
  ASSERT_TRUE(pasteboard);
  ASSERT_TRUE(pasteboard->setString("multi", PasteboardType::kString));
  Display* x = probe_->display();
  Window requestor = probe_->window();
  long pairs[] = {
      static_cast<long>(atom("UTF8_STRING")), static_cast<long>(atom("FIRST")),
      static_cast<long>(atom("image/png")), static_cast<long>(atom("SECOND"))};
  XChangeProperty(x, requestor, atom("TOVRIN_SELECTION"), atom("ATOM_PAIR"), 32,
                  PropModeReplace, reinterpret_cast<unsigned char*>(pairs), 4);
  // convertSelection deletes its property first; ask by hand instead.
  XConvertSelection(x, atom("CLIPBOARD"), atom("MULTIPLE"),
                    atom("TOVRIN_SELECTION"), requestor, CurrentTime);
  XFlush(x);
  XEvent event;
  bool answered = waitUntil(
      [&] {
        return XCheckTypedWindowEvent(x, requestor, SelectionNotify, &event) ==
               True;
      },
      seconds(3));
  ASSERT_TRUE(answered);
  EXPECT_EQ(event.xselection.property, atom("TOVRIN_SELECTION"));
  auto read = [&](Atom property, int* format) {
    Atom type = None;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(x, requestor, property, 0, 1024, False, AnyPropertyType,
                       &type, format, &items, &after, &data);
    std::vector<long> values;
    std::string bytes;
    if (data != nullptr && *format == 32) {
      values.assign(reinterpret_cast<long*>(data),
                    reinterpret_cast<long*>(data) + items);
    } else if (data != nullptr) {
      bytes.assign(reinterpret_cast<char*>(data), items);
    }
    if (data != nullptr) XFree(data);
    return std::make_pair(values, bytes);
  };
  int format = 0;
  auto [answer, unused] = read(atom("TOVRIN_SELECTION"), &format);
  ASSERT_EQ(answer.size(), 4u);
  EXPECT_EQ(answer[1], static_cast<long>(atom("FIRST")));
  EXPECT_EQ(answer[3], static_cast<long>(None));  // refused
  auto [none, first] = read(atom("FIRST"), &format);
  EXPECT_EQ(first, "multi");
}

}  // namespace
}  // namespace tovrin
