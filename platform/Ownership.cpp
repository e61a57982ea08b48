#include "platform/Ownership.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace tw::platform {
namespace {

std::string Failure(const std::string& what, const std::string& path, int error) {
  return what + " " + path + ": " + std::generic_category().message(error);
}

// An open folder, closed with the object.
class Folder {
 public:
  explicit Folder(int fd) : dir_(fd < 0 ? nullptr : ::fdopendir(fd)) {
    if (fd >= 0 && dir_ == nullptr) ::close(fd);
  }
  ~Folder() {
    if (dir_ != nullptr) ::closedir(dir_);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  bool IsOpen() const { return dir_ != nullptr; }
  int Fd() const { return ::dirfd(dir_); }
  DIR* Dir() const { return dir_; }

 private:
  DIR* dir_;
};

int OpenFolderAt(int parent, const char* name) {
  return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

std::string GiveOpenFolder(const Folder& folder, const std::string& path, unsigned uid, unsigned gid);

// One entry of an open folder: a folder is walked, anything else (a link too) changed itself.
std::string GiveEntry(const Folder& parent, const std::string& name, const std::string& path, unsigned uid,
                      unsigned gid) {
  const Folder child(OpenFolderAt(parent.Fd(), name.c_str()));
  if (child.IsOpen()) return GiveOpenFolder(child, path, uid, gid);
  if (errno != ENOTDIR && errno != ELOOP) return errno == ENOENT ? "" : Failure("open", path, errno);
  if (::fchownat(parent.Fd(), name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) != 0 && errno != ENOENT) {
    return Failure("chown", path, errno);
  }
  return "";
}

std::string GiveOpenFolder(const Folder& folder, const std::string& path, unsigned uid, unsigned gid) {
  if (::fchown(folder.Fd(), uid, gid) != 0) return Failure("chown", path, errno);
  while (const dirent* entry = ::readdir(folder.Dir())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (std::string failure = GiveEntry(folder, name, path + "/" + name, uid, gid); !failure.empty()) {
      return failure;
    }
  }
  return "";
}

}  // namespace

std::string GiveFile(const std::string& path, unsigned uid, unsigned gid) {
  if (::fchownat(AT_FDCWD, path.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) != 0 && errno != ENOENT) {
    return Failure("chown", path, errno);
  }
  return "";
}

std::string GiveTree(const std::string& path, unsigned uid, unsigned gid) {
  const Folder folder(OpenFolderAt(AT_FDCWD, path.c_str()));
  if (folder.IsOpen()) return GiveOpenFolder(folder, path, uid, gid);
  if (errno == ENOENT) return "";
  if (errno == ENOTDIR || errno == ELOOP) return GiveFile(path, uid, gid);
  return Failure("open", path, errno);
}

std::string SetFolderOwnerAndMode(const std::string& path, unsigned uid, unsigned gid, unsigned mode) {
  const Folder folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) return Failure("open", path, errno);
  if (::fchown(folder.Fd(), uid, gid) != 0) return Failure("chown", path, errno);
  if (::fchmod(folder.Fd(), mode) != 0) return Failure("chmod", path, errno);
  return "";
}

std::string CreateFolder(const std::string& path, unsigned mode) {
  const std::filesystem::path folder(path);
  std::error_code error;
  if (std::filesystem::is_directory(folder, error)) return "";
  std::filesystem::create_directories(folder.parent_path(), error);
  if (error) return "mkdir " + folder.parent_path().string() + ": " + error.message();
  if (::mkdir(path.c_str(), mode) != 0) return Failure("mkdir", path, errno);
  // mkdir leaves out what the umask forbids.
  if (::chmod(path.c_str(), mode) != 0) return Failure("chmod", path, errno);
  return "";
}

}  // namespace tw::platform
