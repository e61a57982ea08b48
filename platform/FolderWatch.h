#pragma once
// Which names appeared in or left one folder since the last look, from the kernel's inotify: a
// listing that the caller keeps stays right without reading the folder again.
#include <optional>
#include <string>
#include <vector>

namespace tw::platform {

class FolderWatch {
 public:
  // Starts watching `folder`. When that is not possible (no such folder, no watches left) the
  // watch exists all the same and Changes() answers nothing.
  explicit FolderWatch(const std::string& folder);
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  struct Change {
    std::string name;
    bool added;  // else removed
  };
  // The names added and removed since the watch began or since the last call, in the order they
  // happened; nothing when the watch cannot tell (not watching, events lost, the folder itself
  // removed or moved), and then never again: the caller reads the folder and starts a new watch.
  std::optional<std::vector<Change>> Changes();

 private:
  int fd_ = -1;
};

// The names in `folder` (without "." and ".."); nothing when it cannot be read.
std::optional<std::vector<std::string>> FolderNames(const std::string& folder);

}  // namespace tw::platform
