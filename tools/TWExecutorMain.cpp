#include <iostream>

#include "common/Clock.h"
#include "common/Version.h"
#include "platform/Environment.h"
#include "platform/ProgramSetup.h"
#include "tools/Executor.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("TWExecutor");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  tw::SystemClock clock;
  const tw::tools::ExecutorEnvironment environment{tw::platform::ApplicationFolder(),
                                                   tw::platform::DefaultSettingsPath(), clock};
  return tw::tools::RunExecutor(std::vector<std::string>(argv + 1, argv + argc), environment, std::cout,
                                 std::cerr);
}
