// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/selection.h"
// clang-format on

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/x11/xcb_util.h"
#include "tests/x11/clipboard_fixture.h"
#include "tests/x11/test_owner.h"

namespace tovrin {
namespace {

using std::chrono::seconds;
using tovrin::testing::ClipboardX11Test;
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

}  // namespace
}  // namespace tovrin
