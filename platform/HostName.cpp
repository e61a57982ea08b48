#include "platform/HostName.h"

#include <unistd.h>

#include <cerrno>

namespace tw::platform {

int GetHostName(char* buffer, size_t length) { return ::gethostname(buffer, length) == 0 ? 0 : errno; }

}  // namespace tw::platform
