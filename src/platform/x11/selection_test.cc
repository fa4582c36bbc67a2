// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/selection.h"
// clang-format on

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/x11/xcb_util.h"
#include "tests/x11/clipboard_fixture.h"
#include "tests/x11/hostile_owner.h"
#include "tests/x11/test_owner.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tovrin::testing::ClipboardX11Test;
using tovrin::testing::HostileOwner;
using tovrin::testing::Hostility;
using tovrin::testing::readAgainst;
using tovrin::testing::TestOwner;
using tovrin::testing::waitUntil;
using Result = SelectionConversion::Result;

class SelectionX11Test : public ClipboardX11Test {
 protected:
  SelectionConversion convert(const char* target) {
    ConversionDeadline deadline;
    return convertSelection(probe_->display(), probe_->window(),
                            atom("CLIPBOARD"), atom(target), deadline);
  }

  /// Asks the CLIPBOARD owner by hand, with a request time of our choosing,
  /// for `target` into `property` of the probe's window; the answer's
  /// property (None when refused), or nothing without an answer.
  std::optional<Atom> askByHand(const char* target, const char* property,
                                Time time) {
    Display* x = probe_->display();
    Window requestor = probe_->window();
    XConvertSelection(x, atom("CLIPBOARD"), atom(target), atom(property),
                      requestor, time);
    XFlush(x);
    XEvent event;
    if (!waitUntil(
            [&] {
              return XCheckTypedWindowEvent(x, requestor, SelectionNotify,
                                            &event) == True;
            },
            seconds(3))) {
      return std::nullopt;
    }
    return event.xselection.property;
  }

  /// A property of the probe's window, read whole.
  PropertyValue probeProperty(const char* property) {
    return readProperty(probe_->display(), probe_->window(), atom(property))
        .value_or(PropertyValue{});
  }
};

TEST_F(SelectionX11Test, ConvertSelectionTellsWhatHappened) {
  EXPECT_EQ(convert("UTF8_STRING").result, Result::kNoOwner);
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "value"}});
  ASSERT_TRUE(owner.owns());

  SelectionConversion text = convert("UTF8_STRING");
  EXPECT_EQ(text.result, Result::kConverted);
  EXPECT_EQ(text.typeName, "UTF8_STRING");
  EXPECT_EQ(text.format, 8);
  EXPECT_EQ(text.data, "value");

  SelectionConversion targets = convert("TARGETS");
  EXPECT_EQ(targets.typeName, "ATOM");
  ASSERT_EQ(targets.format, 32);
  EXPECT_EQ(
      targets.values32(),
      (std::vector<uint32_t>{static_cast<uint32_t>(atom("TARGETS")),
                             static_cast<uint32_t>(atom("TIMESTAMP")),
                             static_cast<uint32_t>(atom("MULTIPLE")),
                             static_cast<uint32_t>(atom("UTF8_STRING"))}));

  SelectionConversion timestamp = convert("TIMESTAMP");
  EXPECT_EQ(timestamp.typeName, "INTEGER");
  EXPECT_EQ(timestamp.values32(),
            (std::vector<uint32_t>{static_cast<uint32_t>(owner.acquired())}));

  EXPECT_EQ(convert("image/png").result, Result::kRefused);
}

TEST_F(SelectionX11Test, ServesSeveralTargetsInOneMultipleRequest) {
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "multi"}});
  ASSERT_TRUE(owner.owns());
  long pairs[] = {
      static_cast<long>(atom("UTF8_STRING")), static_cast<long>(atom("FIRST")),
      static_cast<long>(atom("image/png")), static_cast<long>(atom("SECOND"))};
  XChangeProperty(probe_->display(), probe_->window(), atom("TOVRIN_SELECTION"),
                  atom("ATOM_PAIR"), 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(pairs), 4);
  // convertSelection deletes its property first; ask by hand instead.
  EXPECT_EQ(askByHand("MULTIPLE", "TOVRIN_SELECTION", CurrentTime),
            atom("TOVRIN_SELECTION"));
  EXPECT_EQ(probeProperty("TOVRIN_SELECTION").values32(),
            (std::vector<uint32_t>{static_cast<uint32_t>(atom("UTF8_STRING")),
                                   static_cast<uint32_t>(atom("FIRST")),
                                   static_cast<uint32_t>(atom("image/png")),
                                   0u}));  // refused
  EXPECT_EQ(probeProperty("FIRST").data, "multi");
}

TEST_F(SelectionX11Test, OwnerRefusesRequestsFromBeforeItsOwnership) {
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "now"}});
  ASSERT_TRUE(owner.owns());
  ASSERT_GT(owner.acquired(), 1u);
  // ICCCM: a request timed before the owner acquired the selection was
  // meant for an earlier owner.
  EXPECT_EQ(askByHand("UTF8_STRING", "EARLIER", owner.acquired() - 1),
            static_cast<Atom>(None));
  EXPECT_FALSE(probeProperty("EARLIER").exists());
  EXPECT_EQ(askByHand("UTF8_STRING", "AT_ACQUISITION", owner.acquired()),
            atom("AT_ACQUISITION"));
  EXPECT_EQ(probeProperty("AT_ACQUISITION").data, "now");
  EXPECT_EQ(askByHand("UTF8_STRING", "CURRENT", CurrentTime), atom("CURRENT"));
  EXPECT_EQ(probeProperty("CURRENT").data, "now");
}

TEST_F(SelectionX11Test, HostileOwnersAreCutOffWithNothingKept) {
  struct Case {
    const char* name;
    Hostility hostility;
    size_t chunkSize;
    Result result;
    // The conversion's deadline allows 1 s of silence and `total` in all.
    milliseconds total;
    milliseconds givesUpWithin;
    size_t maxSize = kX11MaxValueSize;
  };
  const Case cases[] = {
      {"never answers", Hostility::kSilent, 0, Result::kTimedOut,
       milliseconds(2000), milliseconds(2000)},
      {"slow chunks without end", Hostility::kEndlessSlow, 0,
       Result::kTimedOut, milliseconds(2000), milliseconds(3000)},
      // Tiny chunks never reach the size limit: only the deadline, checked
      // while the queue is never empty, ends this one.
      {"a flood of tiny chunks", Hostility::kEndlessFast, 16,
       Result::kTimedOut, milliseconds(2000), milliseconds(3000)},
      // The size limit ends it, not the deadline: a limit of 4 MiB, which
      // a slow machine passes as surely as a fast one.
      {"128 MiB announced as one chunk", Hostility::kHugeUnannounced, 0,
       Result::kTooLarge, milliseconds(2000), milliseconds(2000),
       size_t{4} << 20},
      {"announces 128 MiB", Hostility::kHuge, 0, Result::kTooLarge,
       milliseconds(2000), milliseconds(1000)},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    auto owner = std::make_unique<HostileOwner>(xvfb().display(),
                                                test.hostility, test.chunkSize);
    ASSERT_TRUE(owner->owns());
    const Window ownerWindow = owner->window();
    // Each on a connection of its own: abandoned transfers may go on
    // writing to the window they were meant for.
    auto requestor = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(requestor);
    Display* x = requestor->display();
    SelectionConversion conversion;
    milliseconds took = readAgainst(
        owner,
        [&] {
          ConversionDeadline deadline(milliseconds(1000), test.total);
          conversion = convertSelection(
              x, requestor->window(), XInternAtom(x, "CLIPBOARD", False),
              XInternAtom(x, "UTF8_STRING", False), deadline, {},
              test.maxSize);
        },
        seconds(12));
    EXPECT_EQ(conversion.result, test.result);
    EXPECT_EQ(conversion.owner, ownerWindow);
    EXPECT_EQ(conversion.data.size(), 0u);
    EXPECT_LT(took, test.givesUpWithin);
    if (owner && test.hostility == Hostility::kHuge) {
      // Given up at the announcement: only what deleting it asked for came.
      EXPECT_LE(owner->bytesSent(), size_t{2 * 262144});
    }
    if (owner && test.hostility == Hostility::kHugeUnannounced) {
      // The reader stopped asking for chunks at the limit.
      EXPECT_LE(owner->bytesSent(), test.maxSize + 2 * 262144);
    }
  }
}

}  // namespace
}  // namespace tovrin
