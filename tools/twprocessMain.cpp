#include <iostream>

#include "common/Version.h"
#include "platform/ProgramSetup.h"
#include "tools/ProcessTool.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("twprocess");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  return tw::tools::RunProcessTool(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
