#pragma once
// twctl service pause|continue: the running service's own pause and continue, sent to its main
// process alone (the process id it keeps in its lock file), never to the backups it started.
#include <ostream>

#include "console/Twctl.h"

namespace tw::console {

int ServicePauseOrContinue(const ConsoleEnvironment& environment, bool pause, std::ostream& out);

}  // namespace tw::console
