#include "console/ServiceCommands.h"

#include <system_error>

#include "common/NumberText.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "platform/Environment.h"
#include "platform/FileLock.h"
#include "platform/Process.h"

namespace tw::console {

int ServicePauseOrContinue(const ConsoleEnvironment& environment, bool pause, std::ostream& out) {
  const std::string lockPath = platform::ServiceLockPath(environment.applicationFolder);
  const auto held = platform::ReadWhileLocked(lockPath);
  if (!held) {
    throw Failure("no TWService is running on " + environment.applicationFolder + " (nothing holds " + lockPath +
                  ", or you may not read it)");
  }
  const std::string pidText(TrimWhitespace(*held));
  const int pid = ToInt32(LeadingNumber(pidText));
  if (pid <= 1) throw Failure(lockPath + " does not hold a process id");
  if (const int error = platform::SignalService(pid, pause)) {
    throw Failure("cannot signal TWService (process " + pidText + "): " + std::generic_category().message(error));
  }
  out << (pause ? "Asked TWService (process " + pidText + ") to pause: it stops starting backups; runs under way go on.\n"
                : "Asked TWService (process " + pidText + ") to continue.\n");
  return 0;
}

}  // namespace tw::console
