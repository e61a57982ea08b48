#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tw::platform {
namespace {

std::unique_ptr<LockedFile> LockOrClose(int fd, std::unique_ptr<LockedFile> (*make)(int)) {
  if (fd < 0) return nullptr;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    return nullptr;
  }
  return make(fd);
}

}  // namespace

std::unique_ptr<LockedFile> LockedFile::TryLock(const std::string& path) {
  return LockOrClose(::open(path.c_str(), O_RDWR | O_CLOEXEC),
                     [](int fd) { return std::unique_ptr<LockedFile>(new LockedFile(fd)); });
}

std::unique_ptr<LockedFile> LockedFile::CreateAndLock(const std::string& path) {
  return LockOrClose(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600),
                     [](int fd) { return std::unique_ptr<LockedFile>(new LockedFile(fd)); });
}

LockedFile::~LockedFile() { ::close(fd_); }  // closing releases the lock

int64_t LockedFile::Size() const {
  struct stat info {};
  return ::fstat(fd_, &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

std::string LockedFile::Read(size_t limit) const {
  std::string text(limit, '\0');
  const ssize_t got = ::pread(fd_, text.data(), limit, 0);
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return text;
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

std::optional<std::string> ReadWhileLocked(const std::string& path, size_t limit) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  // A shared lock is refused only while another process holds the exclusive one.
  if (::flock(fd, LOCK_SH | LOCK_NB) == 0) {
    ::close(fd);
    return std::nullopt;
  }
  std::string text(limit, '\0');
  const ssize_t got = ::read(fd, text.data(), limit);
  ::close(fd);
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return text;
}

int64_t ModifiedTime(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return -1;
  return static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
}

}  // namespace tw::platform
