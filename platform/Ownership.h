#pragma once
// Handing files and folders to the account a service runs as. The account may already write in
// some of these places, so nothing here follows a symbolic link it could have planted there.
// Each function returns "" on success, or one line saying which path failed and why.
#include <string>

namespace tw::platform {

// Owner and group of `path` itself; a symbolic link is changed, not what it points to. A path
// that does not exist is no failure.
std::string GiveFile(const std::string& path, unsigned uid, unsigned gid);

// Owner and group of the folder `path` and of everything below it. Folders are opened one by one
// relative to the one above and never through a link, so a link swapped in while the walk runs
// leads nowhere. A path that does not exist is no failure.
std::string GiveTree(const std::string& path, unsigned uid, unsigned gid);

// Owner, group and mode (permission bits with the sticky bit) of the folder `path`, which the
// administrator named: a link there is followed to the folder it leads to.
std::string SetFolderOwnerAndMode(const std::string& path, unsigned uid, unsigned gid, unsigned mode);

// Creates the folder `path` with `mode`, whatever the umask, and the folders above it that are
// missing (0755). An existing folder is left as it is.
std::string CreateFolder(const std::string& path, unsigned mode);

}  // namespace tw::platform
