// The host examples, run against the built tovrin on a private desktop:
// each prints the editor's selection, and the failure when there is none.

#include <gtest/gtest.h>

#include "e2e_desktop.h"

namespace tovrin::testing {
namespace {

class HostExamplesTest : public RealDesktopTest {
 protected:
  struct Example {
    const char* name;
    std::vector<std::string> argv;  // argument 0 is the interpreter
  };

  static std::vector<Example> examples() {
    const std::string dir = std::string(TOVRIN_SOURCE_DIR) + "/examples/";
    return {
        {"node", {"node", dir + "node/get-selection.mjs"}},
        {"python", {"python3", dir + "python/get_selection.py"}},
        {"shell", {"sh", dir + "shell/get-selection.sh"}},
    };
  }

  ProcessResult run(const Example& example) {
    return runProcess(
        "/usr/bin/" + example.argv[0], example.argv,
        {{"DISPLAY", xvfb().display()}, {"TOVRIN", TOVRIN_BINARY}}, 30s);
  }
};

TEST_F(HostExamplesTest, EachPrintsTheSelectionAndTheFailure) {
  for (const char* program : {"node", "python3", "jq", "mousepad"}) {
    if (!requireProgram(program)) GTEST_SKIP() << program << " is missing";
  }
  const std::string text = "Selected caf\xC3\xA9 \xF0\x9F\x98\x80";
  const std::map<std::string, std::string> printed = {
      {"node", "text: " + text + "\nmethod: accessibility\n"},
      {"python", "text: " + text + "\nmethod: accessibility\n"},
      {"shell", text + "\n"},
  };
  startEditorWithSelection(text);
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.name);
    const ProcessResult result = run(example);
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, printed.at(example.name));
  }

  // Nothing selected anywhere: the editor's PRIMARY taken by another
  // program, and it gives nothing to the copy either.
  own("primary", "other program");
  xdotool({"key", "--clearmodifiers", "ctrl+End"});
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.name);
    const ProcessResult result = run(example);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.standardOutput, "");
    if (std::string(example.name) != "shell") {
      EXPECT_EQ(result.standardError,
                "tovrin: No text selected or could not copy\n");
    }
  }
}

}  // namespace
}  // namespace tovrin::testing
