#pragma once
// twprocess, the process tool: counts, and on request kills, the processes of a given name.
//   twprocess NAME [/kill]
// The exit status is the number found (at most 127, so that it always reads as positive).
#include <ostream>
#include <string>
#include <vector>

namespace tw::tools {

int RunProcessTool(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace tw::tools
