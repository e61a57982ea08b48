#include "platform/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tw::platform {

int CreatePrivateFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  ::close(fd);
  return 0;
}

}  // namespace tw::platform
