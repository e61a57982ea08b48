#include "platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tw::platform {

int CreatePrivateFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  ::close(fd);
  return 0;
}

int CreatePrivateFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return 0;
  return errno;
}

int WriteFileAtomically(const std::string& path, const std::string& bytes, unsigned mode) {
  const std::string part = path + ".part";
  ::unlink(part.c_str());  // left by a write that was cut short
  const int fd = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  int error = 0;
  // Set whatever the umask says: a file meant for another account's reader must be readable.
  if (mode != 0600 && ::fchmod(fd, static_cast<mode_t>(mode)) != 0) error = errno;
  for (size_t done = 0; done < bytes.size() && error == 0;) {
    const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno != EINTR) error = errno;
    if (written > 0) done += static_cast<size_t>(written);
  }
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(part.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) ::unlink(part.c_str());
  return error;
}

std::optional<FileIdentity> IdentityOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return FileIdentity{static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino)};
}

int GiveToAccount(const std::string& path, unsigned uid, unsigned gid) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return errno == ENOENT ? 0 : errno;
  if (info.st_uid == uid && info.st_gid == gid) return 0;
  return ::lchown(path.c_str(), uid, gid) == 0 ? 0 : errno;
}

}  // namespace tw::platform
