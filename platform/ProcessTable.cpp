#include "platform/ProcessTable.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tw::platform {
namespace {

std::string ReadFirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

std::string ProgramName(const std::string& cmdlinePath) {
  std::ifstream in(cmdlinePath, std::ios::binary);
  std::string first;
  std::getline(in, first, '\0');
  return std::filesystem::path(first).filename().string();
}

}  // namespace

std::vector<int> ProcessesNamed(const std::string& name) {
  std::vector<int> pids;
  const int self = static_cast<int>(::getpid());
  std::error_code error;
  for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
    const std::string entry = it->path().filename().string();
    if (entry.find_first_not_of("0123456789") != std::string::npos) continue;
    const int pid = std::atoi(entry.c_str());
    if (pid == self) continue;
    const std::string folder = "/proc/" + entry;
    if (ReadFirstLine(folder + "/comm") == name || ProgramName(folder + "/cmdline") == name) pids.push_back(pid);
  }
  return pids;
}

void KillProcessAndGroup(int pid) {
  const pid_t group = ::getpgid(pid);
  ::kill(pid, SIGKILL);
  if (group == pid && group != ::getpgid(0)) ::kill(-group, SIGKILL);
}

}  // namespace tw::platform
