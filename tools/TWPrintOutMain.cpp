#include <iostream>
#include <string>

#include "common/Version.h"
#include "platform/Environment.h"
#include "platform/ProgramSetup.h"
#include "tools/PrintOut.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv)) {
    std::cout << tw::VersionLine("TWPrintOut");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  tw::platform::IgnoreServiceControlSignals();
  if (argc > 1 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
    std::cout << "Usage: TWPrintOut\nPrints the reports waiting in the spool folder on the printer of "
                 "options.print_setting (CUPS lp).\n";
    return 0;
  }
  return tw::tools::RunPrintOut(tw::platform::ApplicationFolder(), tw::platform::DefaultSettingsPath(), std::cerr);
}
