#pragma once
// Starting other programs. Children start with default signal actions, whatever the service has
// blocked for its event loop; only the service's pause and continue signals stay shut out.
#include <optional>
#include <string>
#include <vector>

namespace tw::platform {

struct CommandResult {
  bool started = false;
  int exitCode = -1;      // the exit status, or 128 + the signal that ended it
  std::string output;     // standard output and standard error together
  std::string error;      // why it could not be started
};

// Runs argv[0] (looked up on PATH when it has no "/"), waits for it and collects its output.
CommandResult RunCommand(const std::vector<std::string>& argv);

struct CommandOptions {
  // Open descriptors the program inherits as 3, 4, 5, ... in this order, so that it can be handed
  // "/dev/fd/3" rather than a path that could be swapped meanwhile. The caller keeps them open.
  std::vector<int> inheritedFds;
};
CommandResult RunCommand(const std::vector<std::string>& argv, const CommandOptions& options);

// Starts argv[0] without waiting and without keeping it as a child: nothing to reap later. It
// reads `input` on its standard input. Returns false when it could not be started.
bool StartDetached(const std::vector<std::string>& argv, const std::string& input = "");

// The full path of `program` on PATH, or nothing.
std::optional<std::string> FindOnPath(const std::string& program);

// Whether `path` is a file this process may execute.
bool IsExecutableFile(const std::string& path);

// Sends the service process `pid` its pause (SIGUSR1) or continue (SIGUSR2) signal. Returns 0, or
// the errno of the failure.
int SignalService(int pid, bool pause);

// Whether a local account of that name exists (as the system's user database knows it).
bool AccountExists(const std::string& name);

}  // namespace tw::platform
