#include "tests/x11/clipboard_fixture.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "platform/x11/xcb_util.h"

namespace tovrin::testing {

using std::chrono::milliseconds;
using std::chrono::seconds;

milliseconds readAgainst(std::unique_ptr<TestOwner>& owner, const std::function<void()>& read,
                         milliseconds limit) {
  milliseconds took{0};
  auto reader = std::async(std::launch::async, [&] { took = timed(read); });
  if (reader.wait_for(limit) != std::future_status::ready) {
    ADD_FAILURE() << "the read did not give up within " << limit.count() << " ms";
    owner.reset();
    if (reader.wait_for(seconds(30)) != std::future_status::ready) {
      std::fprintf(stderr, "a read never ended, even without its owner\n");
      std::abort();
    }
  }
  reader.get();
  return took;
}

Strings pathsOf(const std::vector<PasteboardURLObject>& urls) {
  Strings paths;
  for (const auto& url : urls) {
    EXPECT_TRUE(url.isURL);
    paths.push_back(url.path);
  }
  return paths;
}

Strings urlsOf(const std::vector<PasteboardItem>& items) {
  Strings urls;
  for (const auto& item : items) {
    urls.push_back(item.fileURLString.value_or("-"));
  }
  return urls;
}

void X11Test::SetUp() {
  XvfbTest::SetUp();
  if (IsSkipped()) return;
  probe_ = SelectionConnection::open(xvfb().display());
  ASSERT_TRUE(probe_);
}

void X11Test::TearDown() {
  probe_.reset();
  XvfbTest::TearDown();
}

std::unique_ptr<X11Pasteboard> openPasteboard(const std::string& display,
                                              std::chrono::milliseconds timeout) {
  std::unique_ptr<X11Pasteboard> pasteboard;
  waitUntil([&] { return (pasteboard = createX11Pasteboard(display)) != nullptr; }, timeout);
  return pasteboard;
}

Atom X11Test::atom(const char* name) { return XInternAtom(probe_->display(), name, False); }

std::string X11Test::namesOf(const std::vector<uint32_t>& atoms) {
  std::string names;
  for (auto& name : atomNames(display(), {atoms.begin(), atoms.end()})) {
    names += (names.empty() ? "" : " ") + name.value_or("None");
  }
  return names;
}

std::optional<std::string> X11Test::xclipReads(const std::string& target) {
  auto result = xvfb().run({"xclip", "-o", "-selection", "clipboard", "-t", target}, seconds(5));
  if (!result || result->exit.code != 0) return std::nullopt;
  return result->output;
}

pid_t X11Test::clipboardOwnerPid() {
  Window owner = XGetSelectionOwner(display(), atom("CLIPBOARD"));
  auto value = readProperty(display(), owner, atom("_NET_WM_PID"));
  if (!value || value->type != XA_CARDINAL || value->values32().size() != 1) {
    return -1;
  }
  return static_cast<pid_t>(value->values32().front());
}

Window mapTestWindow(Display* display, Window parent, int x, int y, const char* wmClass,
                     long eventMask) {
  Window window =
      XCreateSimpleWindow(display, parent, x, y, 400, 300, 0, 0, WhitePixel(display, 0));
  std::string name = wmClass != nullptr ? wmClass : "";
  XClassHint hint = {name.data(), name.data()};
  if (wmClass != nullptr) XSetClassHint(display, window, &hint);
  XSelectInput(display, window, eventMask);
  XMapWindow(display, window);
  // Without a window manager nothing redirects the map: once the server
  // has the request, the window is viewable.
  XSync(display, False);
  return window;
}

}  // namespace tovrin::testing
