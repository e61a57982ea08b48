#pragma once
// twctl reports, twctl report show, twctl mail test.
#include <optional>
#include <ostream>
#include <string>

#include "console/Twctl.h"
#include "settings/TWSettings.h"

namespace tw::console {

// The newest `count` report logs that read; each one passed over is named on `err`.
int Reports(TWSettings& settings, const ConsoleEnvironment& environment, int32_t count, bool json, std::ostream& out,
            std::ostream& err);
// `which` is "latest" (the newest one that reads), a position in 'twctl reports' (1 is the
// newest), a report log's file name in the Reports folder, a path, or a job name (that job's
// newest report log); each newer report log passed over is named on `err`.
int ReportShow(TWSettings& settings, const ConsoleEnvironment& environment, const std::string& which, bool json,
               std::ostream& out, std::ostream& err);
// Sends one message through the stored server settings; prints the transcript when it fails.
int MailTest(TWSettings& settings, const ConsoleEnvironment& environment, const std::optional<std::string>& to,
             std::ostream& out, std::ostream& err);

}  // namespace tw::console
