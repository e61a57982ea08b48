#include "platform/EventLog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "platform/Environment.h"

namespace tw::platform {

std::string SyslogSocketPath() { return GetEnv("TARNWICK_SYSLOG_SOCKET").value_or("/dev/log"); }

bool SendDatagram(const std::string& socketPath, const std::string& datagram) {
  sockaddr_un address{};
  if (socketPath.size() >= sizeof address.sun_path) return false;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);

  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const ssize_t sent = ::sendto(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::close(fd);
  return sent == static_cast<ssize_t>(datagram.size());
}

}  // namespace tw::platform
