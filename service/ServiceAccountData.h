#pragma once
// The files a service running under its own account must be able to write, handed to that account
// when the service is set up for it: the settings file, the log, report, spool, mail and snapshot
// folders and the run markers of the application folder, and the default destination of the
// archives. The application folder itself stays root's, so that the account can add files there
// but never replace the programs.
#include <string>

#include "platform/Accounts.h"

namespace tw {

struct ServiceDataPlaces {
  std::string applicationFolder;
  std::string settingsPath;
  std::string defaultDestination;  // empty: none
};

// Needs root. Creates the settings file and the default destination (0700) when they are missing,
// so that nothing run later as root makes them root's. Returns "" or what failed, in one line.
std::string GiveServiceDataTo(const platform::Account& account, const ServiceDataPlaces& places);

}  // namespace tw
