#include "accessibility/permission.h"

#include <gtest/gtest.h>

#include "fake_desktop.h"

namespace tovrin {
namespace {

using Lines = std::vector<std::string>;

// Checking never prompts; requesting asks with the prompt, once.
TEST(PermissionCommandsTest, ReportTheTrustStateAndPromptOnlyWhenRequesting) {
  for (const bool trusted : {false, true}) {
    const std::string state = trusted ? "true" : "false";
    testing::FakeDesktop check, request;
    check.trusted = request.trusted = trusted;
    EXPECT_EQ(checkAccessibility(check), Response(PermissionResponse{.granted = trusted}));
    EXPECT_EQ(check.logLines, Lines{"[tovrin] check-accessibility: " + state});
    EXPECT_EQ(check.operations, Lines{"AXIsProcessTrusted"});
    EXPECT_EQ(requestAccessibility(request), Response(PermissionResponse{.granted = trusted}));
    EXPECT_EQ(request.logLines, (Lines{"[tovrin] request-accessibility",
                                       "[tovrin] AXIsProcessTrustedWithOptions: " + state}));
    EXPECT_EQ(request.operations, Lines{"AXIsProcessTrustedWithOptions"});
  }
}

}  // namespace
}  // namespace tovrin
