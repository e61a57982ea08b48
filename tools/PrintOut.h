#pragma once
// TWPrintOut, the print-out program: prints the reports that print requests left in the spool
// folder (<application folder>/Spool), oldest first, on the printer named by the setting
// options.print_setting, through CUPS "lp". A printed request is removed; one that failed stays
// for the next run.
#include <ostream>
#include <string>

namespace tw::tools {

int RunPrintOut(const std::string& applicationFolder, const std::string& settingsPath, std::ostream& err);

}  // namespace tw::tools
