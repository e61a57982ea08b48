#pragma once
#include <cstddef>

namespace tw::platform {

// Writes the host name into `buffer` as gethostname does (zero-terminated when it fits).
// Returns 0, or the errno of the failure.
int GetHostName(char* buffer, size_t length);

}  // namespace tw::platform
