#include "platform/wayland/data_control.h"

#include <gtest/gtest.h>
#include <wayland-client-core.h>

#include <string>
#include <vector>

#include "ext-data-control-v1-client.h"
#include "wlr-data-control-unstable-v1-client.h"

namespace tovrin {
namespace {

/// A message's signature without the versions it came with ("2?o" is
/// "?o"): ext's version 1 has what wlr's version 2 added.
std::string withoutVersions(const char* signature) {
  std::string kept;
  for (const char* c = signature; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') kept += *c;
  }
  return kept;
}

/// The counterpart of `type` in a message of the other protocol: the
/// paired interface for a data-control one, the same one otherwise.
const wl_interface* counterpart(const wl_interface* type) {
  for (const DataControlPair& pair : kDataControlPairs) {
    if (type == pair.wlr) return pair.ext;
  }
  return type;
}

void expectSameMessages(const wl_message* wlr, const wl_message* ext,
                        int count) {
  for (int i = 0; i < count; ++i) {
    SCOPED_TRACE(wlr[i].name);
    EXPECT_STREQ(wlr[i].name, ext[i].name);
    const std::string signature = withoutVersions(wlr[i].signature);
    EXPECT_EQ(signature, withoutVersions(ext[i].signature));
    // Every argument's type: a new object of the wrong protocol would be
    // read with the wrong messages.
    int arguments = 0;
    for (const char c : signature) arguments += c != '?';
    for (int a = 0; a < arguments; ++a) {
      EXPECT_EQ(counterpart(wlr[i].types[a]), ext[i].types[a]) << "argument " << a;
    }
  }
}

// The code speaks ext through the wlr glue: each request and event must be
// the same message at the same opcode.
TEST(DataControlTest, ExtInterfacesLineUpWithTheWlrOnesRequestForRequest) {
  for (const DataControlPair& pair : kDataControlPairs) {
    SCOPED_TRACE(pair.wlr->name);
    EXPECT_EQ(std::string("zwlr_") + (pair.ext->name + 4), pair.wlr->name);
    ASSERT_EQ(pair.wlr->method_count, pair.ext->method_count);
    ASSERT_EQ(pair.wlr->event_count, pair.ext->event_count);
    expectSameMessages(pair.wlr->methods, pair.ext->methods,
                       pair.wlr->method_count);
    expectSameMessages(pair.wlr->events, pair.ext->events,
                       pair.wlr->event_count);
  }
}

TEST(DataControlTest, ObjectsMadeOnAnExtObjectAreExtObjects) {
  struct Case {
    const char* owner;
    const wl_interface* requested;
    const wl_interface* made;
  };
  const Case cases[] = {
      {"ext_data_control_manager_v1", &zwlr_data_control_source_v1_interface,
       &ext_data_control_source_v1_interface},
      {"ext_data_control_manager_v1", &zwlr_data_control_device_v1_interface,
       &ext_data_control_device_v1_interface},
      {"zwlr_data_control_manager_v1", &zwlr_data_control_source_v1_interface,
       &zwlr_data_control_source_v1_interface},
      // Other protocols' objects are made as asked.
      {"wl_registry", &ext_data_control_manager_v1_interface,
       &ext_data_control_manager_v1_interface},
      {"wl_registry", &zwlr_data_control_manager_v1_interface,
       &zwlr_data_control_manager_v1_interface},
      {"ext_data_control_device_v1", nullptr, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.owner);
    EXPECT_EQ(dataControlInterfaceFor(c.owner, c.requested), c.made);
  }
}

TEST(DataControlTest, ExtIsBoundWheneverOfferedWhateverTheOrder) {
  struct Case {
    std::vector<std::string> globals;
    std::vector<bool> bound;
    const wl_interface* chosen;
  };
  const Case cases[] = {
      {{"zwlr_data_control_manager_v1", "ext_data_control_manager_v1"},
       {true, true},
       &ext_data_control_manager_v1_interface},
      {{"ext_data_control_manager_v1", "zwlr_data_control_manager_v1"},
       {true, false},
       &ext_data_control_manager_v1_interface},
      {{"wl_seat", "zwlr_data_control_manager_v1"},
       {false, true},
       &zwlr_data_control_manager_v1_interface},
      {{"wl_seat", "zwp_virtual_keyboard_manager_v1"}, {false, false}, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.globals.back());
    DataControlChoice choice;
    std::vector<bool> bound;
    for (const std::string& global : c.globals) {
      bound.push_back(choice.offered(global));
    }
    EXPECT_EQ(bound, c.bound);
    EXPECT_EQ(choice.chosen(), c.chosen);
  }
}

}  // namespace
}  // namespace tovrin
