#include "tools/PrintOut.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "common/Error.h"
#include "common/Strings.h"
#include "platform/Launch.h"
#include "platform/Process.h"
#include "settings/PrintRequest.h"
#include "settings/TWSettings.h"

namespace tw::tools {

int RunPrintOut(const std::string& applicationFolder, const std::string& settingsPath, std::ostream& err) {
  // The service does not wait for the printer.
  platform::SignalReady();
  std::string printer;
  try {
    printer = TWSettings(settingsPath).General().Options().PrintSetting();
  } catch (...) {
    err << "TWPrintOut: " << CurrentError("TWPrintOut").Description << "\n";
    return 1;
  }
  if (printer.empty()) {
    err << "TWPrintOut: no printer is set (twctl config set options.print_setting QUEUE)\n";
    return 1;
  }
  std::vector<std::string> requests;
  std::error_code error;
  for (std::filesystem::directory_iterator it(applicationFolder + "/Spool", error), end; !error && it != end;
       it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.rfind("TWPrint-", 0) == 0) requests.push_back(it->path().string());
  }
  std::sort(requests.begin(), requests.end());  // names begin with their time
  int failures = 0;
  for (const auto& request : requests) {
    std::string subject, body;
    if (!clsPrintRequest::ReadSpoolFile(request, subject, body)) continue;
    const auto result = platform::RunCommand({"lp", "-d", printer, "-t", subject, "--", request});
    if (result.started && result.exitCode == 0) {
      std::filesystem::remove(request, error);
    } else {
      ++failures;
      err << "TWPrintOut: " << request << " was not printed: "
          << (result.started ? std::string(TrimWhitespace(result.output)) : "lp (CUPS) is not installed") << "\n";
    }
  }
  return failures == 0 ? 0 : 1;
}

}  // namespace tw::tools
