#pragma once
// A file held open under an exclusive lock for as long as the object lives: the way two programs
// agree that one of them has claimed it.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tw::platform {

class LockedFile {
 public:
  // The file opened for reading and writing and locked; nothing when it cannot be opened or
  // another process holds the lock.
  static std::unique_ptr<LockedFile> TryLock(const std::string& path);
  // The same for a file made when missing (mode 0600; a symlink in its place is not followed).
  static std::unique_ptr<LockedFile> CreateAndLock(const std::string& path);
  ~LockedFile();
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

  int64_t Size() const;
  // The content, up to `limit` bytes.
  std::string Read(size_t limit) const;
  // Replaces the whole content; false when it could not be written.
  bool Replace(const std::string& bytes);

 private:
  explicit LockedFile(int fd) : fd_(fd) {}
  int fd_;
};

// What a file locked by another process holds (its first `limit` bytes); nothing when the file is
// missing or nobody holds its lock.
std::optional<std::string> ReadWhileLocked(const std::string& path, size_t limit = 64);

// Modification time of a file in nanoseconds, or -1.
int64_t ModifiedTime(const std::string& path);

}  // namespace tw::platform
