#pragma once
// Folders and files that no other local user can redirect. A folder is opened once and checked;
// everything below it is made and reached through that open folder, never by a path that could be
// swapped for a symbolic link in between. What the service makes this way is private to its
// account: folders 0700, files 0600, whatever the umask.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace tw::platform {

// An open file descriptor, closed with the object.
class OpenFile {
 public:
  OpenFile() = default;
  explicit OpenFile(int fd) : fd_(fd) {}
  ~OpenFile();
  OpenFile(OpenFile&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  OpenFile& operator=(OpenFile&& other) noexcept;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  int Fd() const { return fd_; }
  // The size of the file now, or -1.
  int64_t Size() const;
  // The whole content from its start, whatever the file offset; nothing when it cannot be read.
  std::optional<std::string> ReadAll() const;
  // Appends everything `source` holds from its start; false when a read or write failed.
  bool CopyFrom(const OpenFile& source);

 private:
  int fd_ = -1;
};

// A folder held open after it passed its check. Problems come back as text that says which
// folder and why, ready for a report; nothing above this file sees an errno.
class CheckedFolder {
 public:
  // The folder an administrator named (a symbolic link in the path is followed, since it may lead
  // to a mounted disk); its missing parts are made, 0700. The folder it leads to is refused when
  // another ordinary user owns it or when others may write in it, unless it is sticky and owned
  // by this process's account: in such a folder another user could plant links. With
  // `stickyRootFolder`, a sticky folder of root's passes too (an application folder installed so
  // that the service account can add files but not replace the programs).
  static std::optional<CheckedFolder> OpenConfigured(const std::string& path, std::string& problem,
                                                     bool stickyRootFolder = false);

  // The folder `name` in this one, made 0700 when missing. It must be a real folder (not a link),
  // owned by this process's account and writable by nobody else. An existing one keeps its mode.
  std::optional<CheckedFolder> OpenOwnChild(const std::string& name, std::string& problem) const;

  // A new file `name` (0600) in this folder, open for reading and writing. It is never an
  // existing file or a link: a name that is taken gives nothing, with `taken` set.
  std::optional<OpenFile> CreateNew(const std::string& name, std::string& problem, bool& taken) const;
  // The file `name` open for reading, unless it is a link; nothing with `missing` set when there
  // is no such name.
  std::optional<OpenFile> OpenExisting(const std::string& name, std::string& problem, bool& missing) const;
  // Renames within this folder, replacing `to`.
  bool Rename(const std::string& from, const std::string& to, std::string& problem) const;
  // Removes the name if it can (a link is removed, never followed). What is left in the way shows
  // when the name is created again.
  void Remove(const std::string& name) const;

  const std::string& Path() const { return path_; }

 private:
  CheckedFolder(OpenFile folder, std::string path) : folder_(std::move(folder)), path_(std::move(path)) {}
  std::string Below(const std::string& name) const { return (path_ == "/" ? "" : path_) + "/" + name; }

  OpenFile folder_;
  std::string path_;  // as named, for messages
};

}  // namespace tw::platform
