#include <iostream>

#include "common/Clock.h"
#include "platform/Environment.h"
#include "tools/Executor.h"

int main(int argc, char** argv) {
  tw::SystemClock clock;
  const tw::tools::ExecutorEnvironment environment{tw::platform::ApplicationFolder(),
                                                   tw::platform::DefaultSettingsPath(), clock};
  return tw::tools::RunExecutor(std::vector<std::string>(argv + 1, argv + argc), environment, std::cout,
                                 std::cerr);
}
