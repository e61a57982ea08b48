#pragma once
// twctl config ... and twctl logs.
#include <cstdint>
#include <optional>
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
struct LogsOptions {
  std::optional<int32_t> count;  // -n; 20 when neither it nor --since is given
  bool json = false;
  std::optional<std::string> since;  // "YYYY-MM-DD[ HH:MM[:SS]]", "today", "yesterday", "-30min", "-2h", "-3d"
  std::optional<std::string> job;    // entries whose title or message names the job
  bool follow = false;
  int followSeconds = 0;  // with follow, end after this many seconds (for tests); 0: never
  int pollMilliseconds = 500;
};

// The newest entries, newest first; with `follow`, oldest first and then each new entry as it is
// appended, until the process is interrupted or followSeconds have passed.
int Logs(TWSettings& settings, const ConsoleEnvironment& environment, const LogsOptions& options, std::ostream& out);

}  // namespace tw::console
