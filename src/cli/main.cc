#include <cstdlib>
#include <string>
#include <vector>

#include "cli/dispatch.h"
#include "platform/platform.h"
#include "platform/system.h"
#include "text/text.h"

int main(int argc, char** argv) {
  tovrin::prepareProcess();
  // Arguments are bytes; an answer echoes them, so they become valid UTF-8
  // here, once, and everything after works on text.
  std::vector<std::string> arguments;
  arguments.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) arguments.push_back(tovrin::toValidUtf8(argv[i]));

  // Connecting may take a while (KWin reads a connecting program's whole
  // binary before it answers): a run stopped meanwhile still answers.
  if (const auto line = tovrin::interruptedAnswerFor(arguments)) {
    tovrin::setInterruptedAnswerLine(*line);
  }
  const auto platform = tovrin::createPlatform();
  const int status = tovrin::dispatchCommand(*platform, arguments);
  // A missing or unknown command ends through exit(), which flushes the
  // answer line before the process ends.
  if (status != 0) std::exit(status);
  return 0;
}
