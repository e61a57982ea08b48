#include <iostream>

#include "platform/ProgramSetup.h"
#include "tools/ProcessTool.h"

int main(int argc, char** argv) {
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  return tw::tools::RunProcessTool(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
