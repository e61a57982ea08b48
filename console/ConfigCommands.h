#pragma once
// twctl config ... and twctl logs.
#include <ostream>
#include <string>

#include "console/Twctl.h"
#include "settings/TWSettings.h"

namespace tw::console {

int ConfigList(TWSettings& settings, bool json, std::ostream& out);
int ConfigGet(TWSettings& settings, const std::string& key, bool json, std::ostream& out);
// A value of "-" is read from standard input without echo.
int ConfigSet(TWSettings& settings, const std::string& key, std::string value, const ConsoleEnvironment& environment,
              std::ostream& err);
int Logs(TWSettings& settings, const ConsoleEnvironment& environment, int32_t count, bool json, std::ostream& out);

}  // namespace tw::console
