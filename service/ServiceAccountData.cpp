#include "service/ServiceAccountData.h"

#include <filesystem>
#include <system_error>

#include "platform/Files.h"
#include "platform/Ownership.h"

namespace tw {
namespace {

// Root's, in the account's group: the account creates and removes its own files there (run
// markers, SQLite's -wal and -shm, the lock file), and the sticky bit keeps it from renaming or
// removing root's, the programs.
constexpr unsigned kApplicationFolderMode = 01770;
// Archives are private to the account.
constexpr unsigned kDestinationMode = 0700;

const char* const kDataFolders[] = {"Logs", "Reports", "Spool", "Mail", "Snapshots"};

// Files of the service's own directly in the application folder: its run markers and its lock.
bool IsServiceFile(const std::string& name) {
  return (name.starts_with("BackupLog-") && name.ends_with(".txt")) || name == "TWService.lock";
}

std::string GiveSettings(const std::string& path, const platform::Account& account) {
  if (const int error = platform::CreatePrivateFile(path)) {
    return "cannot create " + path + ": " + std::generic_category().message(error);
  }
  for (const char* suffix : {"", "-wal", "-shm"}) {
    if (std::string failure = platform::GiveFile(path + suffix, account.uid, account.gid); !failure.empty()) {
      return failure;
    }
  }
  return "";
}

std::string GiveApplicationFolder(const std::string& folder, const platform::Account& account) {
  for (const char* name : kDataFolders) {
    if (std::string failure = platform::GiveTree(folder + "/" + name, account.uid, account.gid); !failure.empty()) {
      return failure;
    }
  }
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (!IsServiceFile(name)) continue;
    if (std::string failure = platform::GiveFile(it->path().string(), account.uid, account.gid); !failure.empty()) {
      return failure;
    }
  }
  if (error) return "cannot read " + folder + ": " + error.message();
  return platform::SetFolderOwnerAndMode(folder, 0, account.gid, kApplicationFolderMode);
}

std::string GiveDestination(const std::string& destination, const platform::Account& account) {
  if (destination.empty()) return "";
  std::error_code error;
  // A tape device is left to its group (tape): a device's owner does not outlive a reboot.
  if (std::filesystem::exists(destination, error) && !std::filesystem::is_directory(destination, error)) return "";
  if (std::string failure = platform::CreateFolder(destination, kDestinationMode); !failure.empty()) return failure;
  // The destination may be a link to a mounted disk: the folder it leads to is the one to give.
  const auto folder = std::filesystem::canonical(destination, error);
  if (error) return "cannot resolve " + destination + ": " + error.message();
  return platform::GiveTree(folder.string(), account.uid, account.gid);
}

}  // namespace

std::string GiveServiceDataTo(const platform::Account& account, const ServiceDataPlaces& places) {
  std::string failure = GiveSettings(places.settingsPath, account);
  if (failure.empty()) failure = GiveApplicationFolder(places.applicationFolder, account);
  if (failure.empty()) failure = GiveDestination(places.defaultDestination, account);
  return failure;
}

}  // namespace tw
