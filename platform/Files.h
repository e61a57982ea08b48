#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace tw::platform {

// Creates an empty file readable and writable by its owner only (mode 0600), unless it exists.
// A symlink in its place is not followed. Returns 0, or the errno of the failure.
int CreatePrivateFile(const std::string& path);

// Creates a folder only its owner may use (mode 0700), unless it exists. Returns 0, or the errno.
int CreatePrivateFolder(const std::string& path);

// Makes the account the owner of the file or folder itself (a symlink is not followed). Returns 0,
// or the errno of the failure; a missing file is no failure.
int GiveToAccount(const std::string& path, unsigned uid, unsigned gid);

// The device and inode of the file `path` names now, or nothing when there is none: two readings
// differ when the file was replaced in between.
using FileIdentity = std::pair<uint64_t, uint64_t>;
std::optional<FileIdentity> IdentityOf(const std::string& path);

}  // namespace tw::platform
