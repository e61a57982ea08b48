#include "platform/SafeFiles.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

namespace tw::platform {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

std::string Reason(int error) { return std::generic_category().message(error); }

std::string OwnerName(uid_t uid) {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) return found->pw_name;
  return "uid " + std::to_string(uid);
}

std::string ModeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

bool WritableByOthers(const struct stat& info) { return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0; }

// Why a folder an administrator named is unsafe to write in, or nothing when it is safe. Root
// may own it (most system folders belong to root); another ordinary account may not.
std::optional<std::string> ConfiguredFolderProblem(const std::string& path, const struct stat& info,
                                                   bool stickyRootFolder) {
  const uid_t me = ::geteuid();
  // Root's sticky folder lets others add names but never move or replace ours, and what we make
  // in it is reached only through the open folder: safe for a folder of our own inside it.
  if (stickyRootFolder && info.st_uid == 0 && (info.st_mode & S_ISVTX) != 0) return std::nullopt;
  if (info.st_uid != me && info.st_uid != 0) {
    return path + " belongs to another user (" + OwnerName(info.st_uid) + "), who could plant links in it";
  }
  if (!WritableByOthers(info)) return std::nullopt;
  const std::string writable = path + " is writable by other users (mode " + ModeText(info.st_mode) + ")";
  if ((info.st_mode & S_ISVTX) == 0) return writable + " and not sticky; another user could plant links in it";
  if (info.st_uid != me) {
    return writable + " and, though sticky, owned by " + OwnerName(info.st_uid) + " rather than by " + OwnerName(me) +
           "; another user could plant links in it";
  }
  return std::nullopt;
}

// Why a folder of the service's own is unsafe, or nothing.
std::optional<std::string> OwnFolderProblem(const std::string& path, const struct stat& info) {
  if (!S_ISDIR(info.st_mode)) return path + " is not a folder";
  if (info.st_uid != ::geteuid()) {
    return path + " belongs to " + OwnerName(info.st_uid) + ", not to this service's account (" +
           OwnerName(::geteuid()) + ")";
  }
  if (WritableByOthers(info)) return path + " is writable by other users (mode " + ModeText(info.st_mode) + ")";
  return std::nullopt;
}

// Makes each missing folder of `path`, 0700. A folder that appears meanwhile is no failure; the
// opening and checking afterwards decides.
int MakeMissingFolders(const std::string& path) {
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string part = path.substr(0, end);
    if (!part.empty() && ::mkdir(part.c_str(), kFolderMode) == 0) {
      const int fd = ::open(part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (fd >= 0) {
        ::fchmod(fd, kFolderMode);
        ::close(fd);
      }
    } else if (!part.empty() && errno != EEXIST) {
      return errno;
    }
    if (end == std::string::npos) return 0;
  }
}

}  // namespace

OpenFile::~OpenFile() {
  if (fd_ >= 0) ::close(fd_);
}

OpenFile& OpenFile::operator=(OpenFile&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

int64_t OpenFile::Size() const {
  struct stat info {};
  return ::fstat(fd_, &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

std::optional<std::string> OpenFile::ReadAll() const {
  std::string content;
  char buffer[65536];
  for (off_t offset = 0;;) {
    const ssize_t got = ::pread(fd_, buffer, sizeof buffer, offset);
    if (got == 0) return content;
    if (got < 0) {
      if (errno == EINTR) continue;
      return std::nullopt;
    }
    content.append(buffer, static_cast<size_t>(got));
    offset += got;
  }
}

bool OpenFile::CopyFrom(const OpenFile& source) {
  const auto content = source.ReadAll();
  if (!content) return false;
  for (size_t done = 0; done < content->size();) {
    const ssize_t written = ::write(fd_, content->data() + done, content->size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

std::optional<CheckedFolder> CheckedFolder::OpenConfigured(const std::string& path, std::string& problem,
                                                          bool stickyRootFolder) {
  if (const int error = MakeMissingFolders(path); error != 0) {
    problem = "cannot create the folder " + path + " (" + Reason(error) + ")";
    return std::nullopt;
  }
  OpenFile folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat info {};
  if (!folder.IsOpen() || ::fstat(folder.Fd(), &info) != 0) {
    const int error = errno;
    problem = "cannot open the folder " + path + " (" + Reason(error) + ")";
    return std::nullopt;
  }
  if (auto unsafe = ConfiguredFolderProblem(path, info, stickyRootFolder)) {
    problem = *unsafe;
    return std::nullopt;
  }
  std::string shown = path;
  while (shown.size() > 1 && shown.back() == '/') shown.pop_back();
  return CheckedFolder(std::move(folder), shown);
}

std::optional<CheckedFolder> CheckedFolder::OpenOwnChild(const std::string& name, std::string& problem) const {
  const bool made = ::mkdirat(folder_.Fd(), name.c_str(), kFolderMode) == 0;
  if (const int error = errno; !made && error != EEXIST) {
    problem = "cannot create the folder " + Below(name) + " (" + Reason(error) + ")";
    return std::nullopt;
  }
  OpenFile child(::openat(folder_.Fd(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!child.IsOpen()) {
    const int error = errno;
    struct stat link {};
    if (::fstatat(folder_.Fd(), name.c_str(), &link, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(link.st_mode)) {
      problem = Below(name) + " is a symbolic link";
    } else if (error == ENOTDIR) {
      problem = Below(name) + " is not a folder";
    } else {
      problem = "cannot open the folder " + Below(name) + " (" + Reason(error) + ")";
    }
    return std::nullopt;
  }
  // The mode given to mkdir is narrowed by the umask; a folder made here gets exactly 0700.
  if (made) ::fchmod(child.Fd(), kFolderMode);
  struct stat info {};
  if (::fstat(child.Fd(), &info) != 0) {
    const int error = errno;
    problem = "cannot open the folder " + Below(name) + " (" + Reason(error) + ")";
    return std::nullopt;
  }
  if (auto unsafe = OwnFolderProblem(Below(name), info)) {
    problem = *unsafe;
    return std::nullopt;
  }
  return CheckedFolder(std::move(child), Below(name));
}

std::optional<OpenFile> CheckedFolder::CreateNew(const std::string& name, std::string& problem, bool& taken) const {
  OpenFile file(
      ::openat(folder_.Fd(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  const int error = errno;
  taken = !file.IsOpen() && error == EEXIST;
  if (!file.IsOpen()) {
    problem = "cannot create " + Below(name) + " (" + Reason(error) + ")";
    return std::nullopt;
  }
  ::fchmod(file.Fd(), kFileMode);  // whatever the umask took away or left
  return file;
}

std::optional<OpenFile> CheckedFolder::OpenExisting(const std::string& name, std::string& problem,
                                                    bool& missing) const {
  OpenFile file(::openat(folder_.Fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  const int error = errno;
  missing = !file.IsOpen() && error == ENOENT;
  if (!file.IsOpen()) {
    problem = "cannot open " + Below(name) + " (" + (error == ELOOP ? "it is a symbolic link" : Reason(error)) + ")";
    return std::nullopt;
  }
  return file;
}

bool CheckedFolder::Rename(const std::string& from, const std::string& to, std::string& problem) const {
  if (::renameat(folder_.Fd(), from.c_str(), folder_.Fd(), to.c_str()) == 0) return true;
  const int error = errno;
  problem = "cannot rename " + Below(from) + " to " + to + " (" + Reason(error) + ")";
  return false;
}

void CheckedFolder::Remove(const std::string& name) const { ::unlinkat(folder_.Fd(), name.c_str(), 0); }

}  // namespace tw::platform
