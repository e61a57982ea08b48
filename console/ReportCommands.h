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
// FILE is a report log's name in the Reports folder, a path, or "latest": the newest one that
// reads, naming on `err` each newer one passed over.
int ReportShow(TWSettings& settings, const ConsoleEnvironment& environment, const std::string& which,
               std::ostream& out, std::ostream& err);
// Sends one message through the stored server settings; prints the transcript when it fails.
int MailTest(TWSettings& settings, const ConsoleEnvironment& environment, const std::optional<std::string>& to,
             std::ostream& out, std::ostream& err);

}  // namespace tw::console
