#include "accessibility/permission.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using nlohmann::json;
using testing::FakeDesktop;

TEST(PermissionCommandsTest, CheckReportsTheTrustStateWithoutPrompting) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    checkAccessibility(desktop);
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines,
              std::vector<std::string>{"[tovrin] check-accessibility: " + state});
    EXPECT_EQ(desktop.output,
              "{\"success\":true,\"granted\":" + state + "}\n");
    EXPECT_EQ(json::parse(desktop.output),
              json({{"success", true}, {"granted", trusted}}));
    EXPECT_EQ(desktop.trustChecks, 1);
    EXPECT_EQ(desktop.prompts, 0);
  }
}

TEST(PermissionCommandsTest, RequestPromptsOnlyWhenNotTrusted) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    requestAccessibility(desktop);
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines,
              (std::vector<std::string>{
                  "[tovrin] request-accessibility",
                  "[tovrin] AXIsProcessTrustedWithOptions: " + state}));
    EXPECT_EQ(json::parse(desktop.output),
              json({{"success", true}, {"granted", trusted}}));
    EXPECT_EQ(desktop.trustChecks, 1);
    EXPECT_EQ(desktop.prompts, trusted ? 0 : 1);
  }
}

}  // namespace
}  // namespace tovrin
