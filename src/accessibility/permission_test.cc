#include "accessibility/permission.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using testing::FakeDesktop;
using Lines = std::vector<std::string>;

TEST(PermissionCommandsTest, CheckReportsTheTrustStateWithoutPrompting) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    const Response answer = checkAccessibility(desktop);
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines, Lines{"[tovrin] check-accessibility: " + state});
    EXPECT_EQ(answer, Response(PermissionResponse{.granted = trusted}));
    EXPECT_EQ(desktop.trustCalls, Lines{"AXIsProcessTrusted"});
  }
}

TEST(PermissionCommandsTest, RequestAsksWithThePromptOnce) {
  for (const bool trusted : {false, true}) {
    FakeDesktop desktop;
    desktop.trusted = trusted;
    const Response answer = requestAccessibility(desktop);
    const std::string state = trusted ? "true" : "false";
    EXPECT_EQ(desktop.logLines,
              (Lines{"[tovrin] request-accessibility",
                     "[tovrin] AXIsProcessTrustedWithOptions: " + state}));
    EXPECT_EQ(answer, Response(PermissionResponse{.granted = trusted}));
    EXPECT_EQ(desktop.trustCalls, Lines{"AXIsProcessTrustedWithOptions"});
  }
}

}  // namespace
}  // namespace tovrin
