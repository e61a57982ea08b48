#pragma once
// How the service starts one of its programs (the executor, the camera, the print-out) through the
// rights launcher, under the backup account of the identity settings.
#include <string>

#include "settings/TWSettings.h"

namespace tw {

// The rights launcher's arguments: the three identity values, each escaped and in its own quotes,
// then the program's path. The password never stands there, since every local user can read a
// process's arguments (/proc/PID/cmdline): its place holds "-", and the password itself goes to
// the launcher's standard input, a pipe only that process reads.
struct RightsLaunch {
  std::string arguments;  // "user" "-" "domain" "/app/PROGRAM"
  std::string input;      // the password; empty when there is none
};

RightsLaunch RightsLaunchOf(clsIdentity identity, const std::string& programPath);

// A service running as root starts its programs as the backup account, which must then claim the
// run's marker, record the run status in the settings file and keep its snapshots: those are given
// to the account. Everything else stays private to the service. Does nothing when the programs run
// as the service's own account. Raises an error when a file cannot be given.
void ShareRunFilesWithBackupAccount(clsIdentity identity, const std::string& applicationFolder,
                                    const std::string& settingsPath, const std::string& markerPath);
// The same for a print request the print-out program reads and removes: its spool folder and file.
void SharePrintRequestWithBackupAccount(clsIdentity identity, const std::string& spoolFolder,
                                        const std::string& requestPath);

}  // namespace tw
