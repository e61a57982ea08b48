#include "platform/FolderWatch.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

namespace tw::platform {

FolderWatch::FolderWatch(const std::string& folder) {
  fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0) return;
  constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                               IN_ONLYDIR;
  if (::inotify_add_watch(fd_, folder.c_str(), kEvents) < 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

FolderWatch::~FolderWatch() {
  if (fd_ >= 0) ::close(fd_);
}

std::optional<std::vector<FolderWatch::Change>> FolderWatch::Changes() {
  if (fd_ < 0) return std::nullopt;
  std::vector<Change> changes;
  alignas(inotify_event) char buffer[16384];
  for (;;) {
    const ssize_t size = ::read(fd_, buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno == EAGAIN) return changes;
    bool lost = size <= 0;
    for (ssize_t offset = 0; !lost && offset < size;) {
      inotify_event event;
      std::memcpy(&event, buffer + offset, sizeof event);
      const char* name = buffer + offset + sizeof(inotify_event);
      offset += static_cast<ssize_t>(sizeof(inotify_event) + event.len);
      if (event.mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) {
        lost = true;
      } else if (event.len > 0) {
        const bool added = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
        changes.push_back({std::string(name, ::strnlen(name, event.len)), added});
      }
    }
    if (lost) {
      // What happened since cannot be told any more: this watch is done.
      ::close(fd_);
      fd_ = -1;
      return std::nullopt;
    }
  }
}

std::optional<std::vector<std::string>> FolderNames(const std::string& folder) {
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
  if (!directory) return std::nullopt;
  std::vector<std::string> names;
  for (;;) {
    errno = 0;  // readdir tells the end from a failure only by errno
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  return names;
}

}  // namespace tw::platform
