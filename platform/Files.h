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

// Writes `bytes` as the whole new content of `path`, private (0600) unless `mode` says otherwise,
// so that the path never names a
// half-written file: written beside as PATH.part, flushed to the disk, then renamed over PATH. A
// link planted at either name is replaced, never followed. Returns 0, or the errno of the failure,
// after which PATH is as it was and nothing is left beside it.
int WriteFileAtomically(const std::string& path, const std::string& bytes, unsigned mode = 0600);

// The device and inode of the file `path` names now, or nothing when there is none: two readings
// differ when the file was replaced in between.
using FileIdentity = std::pair<uint64_t, uint64_t>;
std::optional<FileIdentity> IdentityOf(const std::string& path);

}  // namespace tw::platform
