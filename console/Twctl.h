#pragma once
// twctl, the administration console: jobs, settings and the application log from the shell.
// RunTwctl is the whole program; main only hands it the command line and the environment.
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "common/Clock.h"

namespace tw {

struct ConsoleEnvironment {
  std::string settingsPath;       // used unless --settings is given
  std::string applicationFolder;  // holds the Logs folder
  const Clock* clock = nullptr;   // the system clock when null
  // Reads a value typed without echo, for "config set KEY -"; nothing at end of input.
  std::function<std::optional<std::string>(const std::string& prompt)> readSecret;
};

// Exit status: 0 success, 1 failure, 2 bad usage.
int RunTwctl(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
             const ConsoleEnvironment& environment);

}  // namespace tw
