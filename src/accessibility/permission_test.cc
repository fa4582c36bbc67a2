#include "accessibility/permission.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/output.h"
#include "fake_desktop.h"

namespace tovrin {
namespace {

using nlohmann::json;
using testing::FakeDesktop;
using Lines = std::vector<std::string>;

TEST(PermissionCommandsTest, CheckReportsTheTrustStateWithoutPrompting) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    const std::string answer = encodeResponse(checkAccessibility(desktop)).value();
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines, Lines{"[tovrin] check-accessibility: " + state});
    EXPECT_EQ(answer, "{\"success\":true,\"granted\":" + state + "}");
    EXPECT_EQ(json::parse(answer), json({{"success", true}, {"granted", trusted}}));
    EXPECT_EQ(desktop.trustCalls, Lines{"AXIsProcessTrusted"});
  }
}

TEST(PermissionCommandsTest, RequestAsksWithThePromptOnce) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    const std::string answer =
        encodeResponse(requestAccessibility(desktop)).value();
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines,
              (Lines{"[tovrin] request-accessibility",
                     "[tovrin] AXIsProcessTrustedWithOptions: " + state}));
    EXPECT_EQ(json::parse(answer), json({{"success", true}, {"granted", trusted}}));
    EXPECT_EQ(desktop.trustCalls, Lines{"AXIsProcessTrustedWithOptions"});
  }
}

}  // namespace
}  // namespace tovrin
