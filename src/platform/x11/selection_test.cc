// GoogleTest names things that Xlib defines as macros (None, Bool), so it
// comes before any X11 header, the tested one's too.
// clang-format off
#include <gtest/gtest.h>
#include "platform/x11/selection.h"
// clang-format on

#include <X11/Xlib.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/x11/xcb_util.h"
#include "tests/x11/clipboard_fixture.h"

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using tovrin::testing::Behaviour;
using tovrin::testing::TestOwner;
using Result = SelectionConversion::Result;

class SelectionX11Test : public testing::X11Test {
 protected:
  std::string property(const char* name) {
    return readProperty(display(), probe_->window(), atom(name)).value_or(PropertyValue{}).data;
  }
  /// Asks the CLIPBOARD owner by hand (convertSelection deletes its property
  /// first), at `time`, for `target` into `property` of the probe's window;
  /// what that property then holds, or "refused" or "no answer".
  std::string askByHand(const char* target, const char* property, Time time) {
    Window requestor = probe_->window();
    XConvertSelection(display(), atom("CLIPBOARD"), atom(target), atom(property), requestor, time);
    XEvent event;
    const auto answered = [&] {
      return XCheckTypedWindowEvent(display(), requestor, SelectionNotify, &event) == True;
    };
    if (!testing::waitUntil(answered, std::chrono::seconds(3))) return "no answer";
    if (event.xselection.property == atom(property)) return this->property(property);
    return this->property(property).empty() ? "refused" : "refused, yet written";
  }

  /// CLIPBOARD converted to `target` as "TYPE/FORMAT value", atoms by name;
  /// the result when nothing was converted.
  std::string convert(const char* target) {
    ConversionDeadline deadline;
    const SelectionConversion conversion =
        convertSelection(display(), probe_->window(), atom("CLIPBOARD"), atom(target), deadline);
    if (conversion.result == Result::kNoOwner) return "no owner";
    if (conversion.result == Result::kRefused) return "refused";
    std::string text = conversion.typeName + "/" + std::to_string(conversion.format) + " ";
    if (conversion.format == 8) return text + conversion.data;
    if (conversion.typeName == "ATOM") return text + namesOf(conversion.values32());
    return text + std::to_string(conversion.values32().at(0));
  }
};

TEST_F(SelectionX11Test, OwnerAnswersTargetsTimestampMultipleAndItsValues) {
  EXPECT_EQ(convert("UTF8_STRING"), "no owner");
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "value"}});
  ASSERT_TRUE(owner.owns());
  EXPECT_EQ(convert("UTF8_STRING"), "UTF8_STRING/8 value");
  EXPECT_EQ(convert("TARGETS"), "ATOM/32 TARGETS TIMESTAMP MULTIPLE UTF8_STRING");
  EXPECT_EQ(convert("TIMESTAMP"), "INTEGER/32 " + std::to_string(owner.acquired()));
  EXPECT_EQ(convert("image/png"), "refused");

  // Several targets in one MULTIPLE request; the refused one's pair is
  // zeroed.
  long pairs[] = {long(atom("UTF8_STRING")), long(atom("FIRST")), long(atom("image/png")),
                  long(atom("SECOND"))};
  XChangeProperty(display(), probe_->window(), atom("PAIRS"), atom("ATOM_PAIR"), 32,
                  PropModeReplace, reinterpret_cast<unsigned char*>(pairs), 4);
  EXPECT_EQ(namesOf(unpack32(askByHand("MULTIPLE", "PAIRS", CurrentTime))),
            "UTF8_STRING FIRST image/png None");
  EXPECT_EQ(property("FIRST"), "value");

  // ICCCM: a request timed before the owner took the selection was meant
  // for an earlier owner.
  ASSERT_GT(owner.acquired(), 1u);
  EXPECT_EQ(askByHand("UTF8_STRING", "EARLIER", owner.acquired() - 1), "refused");
  EXPECT_EQ(askByHand("UTF8_STRING", "AT", owner.acquired()), "value");
}

TEST_F(SelectionX11Test, HostileOwnersAreCutOffWithNothingKept) {
  struct Row {
    Behaviour behaviour;
    Result result;
    size_t chunkSize = 0;
    size_t maxSize = kX11MaxValueSize;
  };
  const Row rows[] = {
      {Behaviour::kSilent, Result::kTimedOut},
      {Behaviour::kStalls, Result::kTimedOut},
      {Behaviour::kEndlessSlow, Result::kTimedOut},
      // Tiny chunks never reach the size limit: only the deadline, checked
      // while the queue is never empty, ends this one.
      {Behaviour::kEndlessFast, Result::kTimedOut, 16},
      // Given up at the announcement.
      {Behaviour::kHuge, Result::kTooLarge},
      // The size limit ends it, not the deadline: a limit of 4 MiB, which
      // a slow machine passes as surely as a fast one.
      {Behaviour::kHugeUnannounced, Result::kTooLarge, 0, size_t{4} << 20},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.behaviour));
    auto owner = std::make_unique<TestOwner>(xvfb().display(), row.behaviour,
                                             std::vector<TestOwner::Target>{}, row.chunkSize);
    ASSERT_TRUE(owner->owns());
    // Each on a connection of its own: abandoned transfers may go on
    // writing to the window they were meant for.
    auto requestor = SelectionConnection::open(xvfb().display());
    ASSERT_TRUE(requestor);
    Display* x = requestor->display();
    SelectionConversion conversion;
    // The endless kinds are ended by the 2 s in all they are allowed, the
    // others after 1 s of silence or by the size limit, long before their
    // 10 s in all.
    const bool endless =
        row.behaviour == Behaviour::kEndlessSlow || row.behaviour == Behaviour::kEndlessFast;
    const auto read = [&] {
      ConversionDeadline deadline(milliseconds(1000), milliseconds(endless ? 2000 : 10000));
      conversion = convertSelection(x, requestor->window(), XInternAtom(x, "CLIPBOARD", False),
                                    XInternAtom(x, "UTF8_STRING", 0), deadline, {}, row.maxSize);
    };
    milliseconds took = testing::readAgainst(owner, read, std::chrono::seconds(12));
    EXPECT_EQ(conversion.result, row.result);
    EXPECT_EQ(conversion.data.size(), 0u);
    EXPECT_LT(took, milliseconds(3000));
    // The reader asked for at most one more chunk.
    if (owner && row.result == Result::kTooLarge) {
      EXPECT_LE(owner->bytesSent(),
                (row.behaviour == Behaviour::kHuge ? 0 : row.maxSize) + 2 * 262144);
    }
  }
}

}  // namespace
}  // namespace tovrin
