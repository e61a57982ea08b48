#include "platform/Terminals.h"

#include <fcntl.h>
#include <unistd.h>
#include <utmpx.h>

#include <algorithm>
#include <cstring>

#include "platform/Environment.h"

namespace tw::platform {

std::vector<std::string> TerminalsOf(const std::string& user) {
  std::vector<std::string> devices;
  if (auto records = GetEnv("TARNWICK_UTMP")) utmpxname(records->c_str());
  setutxent();
  while (utmpx* record = getutxent()) {
    if (record->ut_type != USER_PROCESS) continue;
    const std::string name(record->ut_user, ::strnlen(record->ut_user, sizeof record->ut_user));
    const std::string line(record->ut_line, ::strnlen(record->ut_line, sizeof record->ut_line));
    if ((user == "*" || name == user) && !line.empty()) {
      const std::string device = line[0] == '/' ? line : "/dev/" + line;
      if (std::find(devices.begin(), devices.end(), device) == devices.end()) devices.push_back(device);
    }
  }
  endutxent();
  return devices;
}

bool WriteToTerminal(const std::string& device, const std::string& text) {
  const int fd = ::open(device.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t written = ::write(fd, text.data(), text.size());
  ::close(fd);
  return written == static_cast<ssize_t>(text.size());
}

}  // namespace tw::platform
