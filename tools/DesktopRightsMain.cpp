#include <iostream>

#include "common/Version.h"
#include "platform/ProgramSetup.h"
#include "tools/RightsLauncher.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("DesktopRights");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  return tw::tools::RunRightsLauncher(std::vector<std::string>(argv + 1, argv + argc), std::cin, std::cout, std::cerr);
}
