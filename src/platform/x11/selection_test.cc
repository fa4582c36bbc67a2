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
using tovrin::testing::readAgainst;
using tovrin::testing::TestOwner;
using tovrin::testing::waitUntil;
using Result = SelectionConversion::Result;
using Values = std::vector<uint32_t>;

class SelectionX11Test : public testing::X11Test {
 protected:
  SelectionConversion convert(const char* target) {
    ConversionDeadline deadline;
    return convertSelection(display(), probe_->window(), atom("CLIPBOARD"),
                            atom(target), deadline);
  }

  std::string property(const char* name) {
    return readProperty(display(), probe_->window(), atom(name))
        .value_or(PropertyValue{})
        .data;
  }
  /// Asks the CLIPBOARD owner by hand (convertSelection deletes its property
  /// first), at `time`, for `target` into `property` of the probe's window;
  /// what that property then holds, or "refused" or "no answer".
  std::string askByHand(const char* target, const char* property, Time time) {
    Window requestor = probe_->window();
    XConvertSelection(display(), atom("CLIPBOARD"), atom(target),
                      atom(property), requestor, time);
    XEvent event;
    if (!waitUntil(
            [&] {
              return XCheckTypedWindowEvent(display(), requestor,
                                            SelectionNotify, &event) == True;
            },
            std::chrono::seconds(3))) {
      return "no answer";
    }
    if (event.xselection.property == atom(property)) return this->property(property);
    return this->property(property).empty() ? "refused" : "refused, yet written";
  }

  uint32_t value(const char* name) { return uint32_t(atom(name)); }

  /// A conversion as "TYPE/FORMAT value", items of format 32 one by one,
  /// atoms by name; the result when nothing was converted.
  std::string describe(const SelectionConversion& conversion) {
    if (conversion.result == Result::kNoOwner) return "no owner";
    if (conversion.result == Result::kRefused) return "refused";
    std::string text =
        conversion.typeName + "/" + std::to_string(conversion.format);
    if (conversion.format == 8) return text + " " + conversion.data;
    const std::vector<uint32_t> values = conversion.values32();
    const auto names = atomNames(display(), {values.begin(), values.end()});
    for (size_t i = 0; i < values.size(); ++i) {
      text += " " + (conversion.typeName == "ATOM" ? names[i].value_or("?")
                                                    : std::to_string(values[i]));
    }
    return text;
  }
};

TEST_F(SelectionX11Test, OwnerAnswersTargetsTimestampMultipleAndItsValues) {
  EXPECT_EQ(describe(convert("UTF8_STRING")), "no owner");
  TestOwner owner(xvfb().display(), {{"UTF8_STRING", "value"}});
  ASSERT_TRUE(owner.owns());
  EXPECT_EQ(describe(convert("UTF8_STRING")), "UTF8_STRING/8 value");
  EXPECT_EQ(describe(convert("TARGETS")),
            "ATOM/32 TARGETS TIMESTAMP MULTIPLE UTF8_STRING");
  EXPECT_EQ(describe(convert("TIMESTAMP")),
            "INTEGER/32 " + std::to_string(owner.acquired()));
  EXPECT_EQ(describe(convert("image/png")), "refused");

  // Several targets in one MULTIPLE request; the refused one's pair is
  // zeroed.
  long pairs[] = {long(atom("UTF8_STRING")), long(atom("FIRST")),
                  long(atom("image/png")), long(atom("SECOND"))};
  XChangeProperty(display(), probe_->window(), atom("PAIRS"),
                  atom("ATOM_PAIR"), 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(pairs), 4);
  EXPECT_EQ(unpack32(askByHand("MULTIPLE", "PAIRS", CurrentTime)),
            (Values{value("UTF8_STRING"), value("FIRST"), value("image/png"),
                    0u}));
  EXPECT_EQ(property("FIRST"), "value");

  // ICCCM: a request timed before the owner took the selection was meant
  // for an earlier owner.
  ASSERT_GT(owner.acquired(), 1u);
  EXPECT_EQ(askByHand("UTF8_STRING", "EARLIER", owner.acquired() - 1),
            "refused");
  EXPECT_EQ(askByHand("UTF8_STRING", "AT", owner.acquired()), "value");
  EXPECT_EQ(askByHand("UTF8_STRING", "NOW", CurrentTime), "value");
}

TEST_F(SelectionX11Test, HostileOwnersAreCutOffWithNothingKept) {
  struct Row {
    const char* name;
    Behaviour behaviour;
    size_t chunkSize;
    Result result;
    // With 1 s of silence and 2 s in all allowed.
    milliseconds givesUpWithin;
    size_t maxSize = kX11MaxValueSize;
  };
  const Row rows[] = {
      {"never answers", Behaviour::kSilent, 0, Result::kTimedOut,
       milliseconds(2000)},
      {"INCR that stalls", Behaviour::kStalls, 0, Result::kTimedOut,
       milliseconds(2000)},
      {"slow chunks without end", Behaviour::kEndlessSlow, 0,
       Result::kTimedOut, milliseconds(3000)},
      // Tiny chunks never reach the size limit: only the deadline, checked
      // while the queue is never empty, ends this one.
      {"a flood of tiny chunks", Behaviour::kEndlessFast, 16,
       Result::kTimedOut, milliseconds(3000)},
      // The size limit ends it, not the deadline: a limit of 4 MiB, which
      // a slow machine passes as surely as a fast one.
      {"128 MiB announced as one chunk", Behaviour::kHugeUnannounced, 0,
       Result::kTooLarge, milliseconds(2000), size_t{4} << 20},
      {"announces 128 MiB", Behaviour::kHuge, 0, Result::kTooLarge,
       milliseconds(1000)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    auto owner = std::make_unique<TestOwner>(xvfb().display(), row.behaviour,
                                             std::vector<TestOwner::Target>{},
                                             row.chunkSize);
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
          ConversionDeadline deadline(milliseconds(1000), milliseconds(2000));
          conversion = convertSelection(
              x, requestor->window(), XInternAtom(x, "CLIPBOARD", False),
              XInternAtom(x, "UTF8_STRING", False), deadline, {}, row.maxSize);
        },
        std::chrono::seconds(12));
    EXPECT_EQ(conversion.result, row.result);
    EXPECT_EQ(conversion.owner, ownerWindow);
    EXPECT_EQ(conversion.data.size(), 0u);
    EXPECT_LT(took, row.givesUpWithin);
    // Given up at the announcement, or at the limit: the reader asked for
    // at most one more chunk.
    if (owner && row.result == Result::kTooLarge) {
      EXPECT_LE(owner->bytesSent(),
                (row.behaviour == Behaviour::kHuge ? 0 : row.maxSize) +
                    2 * 262144);
    }
  }
}

}  // namespace
}  // namespace tovrin
