#include <iostream>

#include "console/Twctl.h"
#include "platform/Environment.h"
#include "platform/ProgramSetup.h"
#include "platform/Terminal.h"

int main(int argc, char** argv) {
  tw::platform::MakeCreatedFilesPrivate();
  tw::ConsoleEnvironment environment;
  environment.settingsPath = tw::platform::DefaultSettingsPath();
  environment.applicationFolder = tw::platform::ApplicationFolder();
  environment.readSecret = tw::platform::ReadHiddenLine;
  std::vector<std::string> args(argv + 1, argv + argc);
  return tw::RunTwctl(args, std::cout, std::cerr, environment);
}
