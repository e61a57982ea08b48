#include "execution/RightsLaunch.h"

#include <filesystem>
#include <optional>
#include <system_error>

#include "common/Error.h"
#include "logging/modLogging.h"
#include "platform/Accounts.h"
#include "platform/Files.h"

namespace tw {
namespace {

std::string Quoted(const std::string& value) { return "\"" + EscapeArgument(value) + "\""; }

void Give(const std::string& path, const platform::Account& account) {
  if (const int error = platform::GiveToAccount(path, account.uid, account.gid)) {
    throw TWError(errnum::PathFileAccess,
                  "Cannot give " + path + " to the backup account " + account.name + ": " +
                      std::generic_category().message(error),
                  "TWService");
  }
}

// The account the rights launcher switches to, when that is not the service's own.
std::optional<platform::Account> SwitchedAccount(clsIdentity& identity) {
  if (!platform::RunningAsRoot()) return std::nullopt;  // the programs run as the service's own account
  const std::string user = identity.IdentityValue1();
  if (user.empty()) return std::nullopt;
  auto account = platform::LookUpIdentity(user, identity.IdentityValue3());
  if (!account || account->uid == 0) return std::nullopt;  // the rights launcher reports an unknown account
  return account;
}

void MakeFolder(const std::string& path) {
  if (const int error = platform::CreatePrivateFolder(path)) {
    throw TWError(errnum::PathFileAccess, "Cannot create " + path + ": " + std::generic_category().message(error),
                  "TWService");
  }
}

}  // namespace

RightsLaunch RightsLaunchOf(clsIdentity identity, const std::string& programPath) {
  RightsLaunch launch;
  launch.input = identity.IdentityValue2();
  launch.arguments = Quoted(identity.IdentityValue1()) + " " + (launch.input.empty() ? "\"\"" : "\"-\"") + " " +
                     Quoted(identity.IdentityValue3()) + " \"" + programPath + "\"";
  return launch;
}

void ShareRunFilesWithBackupAccount(clsIdentity identity, const std::string& applicationFolder,
                                    const std::string& settingsPath, const std::string& markerPath) {
  const auto account = SwitchedAccount(identity);
  if (!account) return;
  Give(markerPath, *account);
  for (const char* suffix : {"", "-wal", "-shm"}) Give(settingsPath + suffix, *account);
  const std::string snapshots = applicationFolder + "/Snapshots";
  MakeFolder(snapshots);
  Give(snapshots, *account);
  // Snapshots of runs made while the programs ran as the service: the next incremental run reads them.
  std::error_code error;
  for (std::filesystem::directory_iterator it(snapshots, error), end; !error && it != end; it.increment(error)) {
    Give(it->path().string(), *account);
  }
}

void SharePrintRequestWithBackupAccount(clsIdentity identity, const std::string& spoolFolder,
                                        const std::string& requestPath) {
  const auto account = SwitchedAccount(identity);
  if (!account) return;
  MakeFolder(spoolFolder);
  Give(spoolFolder, *account);
  Give(requestPath, *account);
}

}  // namespace tw
