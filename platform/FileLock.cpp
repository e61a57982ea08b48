#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tw::platform {

std::unique_ptr<LockedFile> LockedFile::TryLock(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<LockedFile>(new LockedFile(fd));
}

LockedFile::~LockedFile() { ::close(fd_); }  // closing releases the lock

int64_t LockedFile::Size() const {
  struct stat info {};
  return ::fstat(fd_, &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

bool LockedFile::Replace(const std::string& bytes) {
  if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) return false;
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::write(fd_, bytes.data() + done, bytes.size() - done);
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return ::fsync(fd_) == 0;
}

int64_t ModifiedTime(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return -1;
  return static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
}

}  // namespace tw::platform
