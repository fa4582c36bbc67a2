#ifndef TOVRIN_TESTS_X11_CLIPBOARD_FIXTURE_H_
#define TOVRIN_TESTS_X11_CLIPBOARD_FIXTURE_H_

// What the X11 tests share: a private X server with a probe connection to
// look at it, xclip as an independent owner and reader, and bounded waits.

// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header.
// clang-format off
#include <gtest/gtest.h>
// clang-format on

#include <X11/Xlib.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/x11/pasteboard.h"
#include "platform/x11/selection.h"
#include "tests/x11/test_owner.h"
#include "tests/xvfb_session.h"

namespace tovrin::testing {

using Strings = std::vector<std::string>;

/// How long `work` took.
template <typename F>
std::chrono::milliseconds timed(F&& work) {
  auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

/// Runs `read` on a thread while `owner` serves, and how long it took. A
/// read that has not given up by `limit` fails the test; the owner is then
/// ended, which stops its flood, so that a reader that only looks at its
/// deadline when no event is queued ends too. A read still running 30 s
/// later ends the test program.
std::chrono::milliseconds readAgainst(std::unique_ptr<TestOwner>& owner,
                                      const std::function<void()>& read,
                                      std::chrono::milliseconds limit);

/// The paths of URL objects (each expected to be a URL).
Strings pathsOf(const std::vector<PasteboardURLObject>& urls);
/// The file-URL texts of items, "-" for an item without one.
Strings urlsOf(const std::vector<PasteboardItem>& items);

/// The pasteboard of `display`, opened again until `timeout` passes: on a
/// machine loaded by sanitizers and parallel tests a connection can take
/// longer than tovrin's one-second bound, which these tests are not about.
std::unique_ptr<X11Pasteboard> openPasteboard(
    const std::string& display, std::chrono::milliseconds timeout = std::chrono::seconds(10));

/// Maps a window of `parent` at x, y (400 x 300), selecting `eventMask`, with
/// WM_CLASS `wmClass` unless that is null, and waits until the server has.
Window mapTestWindow(Display* display, Window parent, int x, int y, const char* wmClass,
                     long eventMask = NoEventMask);

/// A test on its own X server with a probe connection for looking at it.
class X11Test : public XvfbTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  Display* display() { return probe_->display(); }
  Atom atom(const char* name);
  /// The names of `atoms`, separated by spaces; "None" for 0.
  std::string namesOf(const std::vector<uint32_t>& atoms);
  /// What `xclip -o` reads from CLIPBOARD as `target`; nothing when xclip
  /// fails or hangs.
  std::optional<std::string> xclipReads(const std::string& target);
  /// The process id that the current CLIPBOARD owner's window names.
  pid_t clipboardOwnerPid();

  std::unique_ptr<SelectionConnection> probe_;
};

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_X11_CLIPBOARD_FIXTURE_H_
