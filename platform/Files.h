#pragma once
#include <string>

namespace tw::platform {

// Creates an empty file readable and writable by its owner only (mode 0600), unless it exists.
// Returns 0, or the errno of the failure.
int CreatePrivateFile(const std::string& path);

}  // namespace tw::platform
