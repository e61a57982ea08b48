#include "common/CommandLine.h"

namespace tw {

std::vector<std::string> SplitCommandLine(std::string_view line) {
  std::vector<std::string> arguments;
  size_t i = 0;
  const size_t n = line.size();
  while (true) {
    while (i < n && (line[i] == ' ' || line[i] == '\t')) ++i;
    if (i >= n) break;
    std::string argument;
    bool quoted = false;
    while (i < n && (quoted || (line[i] != ' ' && line[i] != '\t'))) {
      if (line[i] == '\\' && i + 1 < n && (line[i + 1] == '\\' || line[i + 1] == '"')) {
        argument += line[i + 1];
        i += 2;
      } else if (line[i] == '"') {
        if (quoted && i + 1 < n && line[i + 1] == '"') {
          argument += '"';
          i += 2;
        } else {
          quoted = !quoted;
          ++i;
        }
      } else {
        argument += line[i++];
      }
    }
    arguments.push_back(std::move(argument));
  }
  return arguments;
}

}  // namespace tw
