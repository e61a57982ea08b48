#include "platform/ProgramSetup.h"

#include <signal.h>
#include <sys/stat.h>

namespace tw::platform {

void MakeCreatedFilesPrivate() { ::umask(077); }

void IgnoreServiceControlSignals() {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  ::sigaction(SIGUSR1, &ignore, nullptr);
  ::sigaction(SIGUSR2, &ignore, nullptr);
  // Ignored now, so one that came while they were blocked has been dropped: let them in again.
  sigset_t controls;
  sigemptyset(&controls);
  sigaddset(&controls, SIGUSR1);
  sigaddset(&controls, SIGUSR2);
  ::sigprocmask(SIG_UNBLOCK, &controls, nullptr);
}

}  // namespace tw::platform
