#include <iostream>
#include <string>

#include "common/Version.h"
#include "platform/Environment.h"
#include "platform/ProgramSetup.h"
#include "tools/Camera.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("TWCam");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  if (argc > 1 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
    std::cout << "Usage: TWCam\nPhotographs the X display named by DISPLAY into the PNG file named by "
                 "TARNWICK_SCREENSHOT.\n";
    return 0;
  }
  return tw::tools::RunCamera(tw::platform::GetEnv("DISPLAY").value_or(""),
                              tw::platform::GetEnv("TARNWICK_SCREENSHOT").value_or(""), std::cerr);
}
