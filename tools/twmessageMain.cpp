#include <iostream>

#include "common/Clock.h"
#include "common/Version.h"
#include "platform/Environment.h"
#include "platform/ProgramSetup.h"
#include "tools/Messenger.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("twmessage");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  tw::SystemClock clock;
  return tw::tools::RunMessenger(std::vector<std::string>(argv + 1, argv + argc), clock,
                                 tw::platform::DefaultSettingsPath(), std::cout, std::cerr);
}
