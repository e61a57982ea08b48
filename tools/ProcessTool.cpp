#include "tools/ProcessTool.h"

#include <algorithm>

#include "platform/ProcessTable.h"

namespace tw::tools {

int RunProcessTool(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    (args.empty() ? err : out) << "Usage: twprocess NAME [/kill]\n"
                                  "Counts the processes named NAME (exit status: the count); /kill kills them and "
                                  "their process groups.\n";
    return 0;
  }
  const bool kill = args.size() > 1 && (args[1] == "/kill" || args[1] == "--kill");
  const auto pids = platform::ProcessesNamed(args[0]);
  for (int pid : pids) {
    out << pid << "\n";
    if (kill) platform::KillProcessAndGroup(pid);
  }
  return static_cast<int>(std::min<size_t>(pids.size(), 127));
}

}  // namespace tw::tools
