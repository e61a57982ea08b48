#pragma once
// Recovery from a hung backup: before a new backup starts, and when a run times out, any earlier
// executor still running is photographed on the desktop, killed, and both are logged.
#include <string>

#include "execution/ExecutionHost.h"

namespace tw {

class HungProcessRecovery {
 public:
  explicit HungProcessRecovery(ExecutionHost& host) : host_(host) {}

  // Asks twprocess for processes named `processArgument`; when there are any, takes a screenshot,
  // kills them, and logs a warning with the screenshot. True when something was killed. Errors
  // are reported under 20009 with the trace of the last step passed.
  bool KillPreviousBackup(const std::string& processArgument);

  // Photographs the desktop into the log's attachment folder (named by the time, yyyymmddhhmmss)
  // through TWCam started by the rights launcher under the backup account. The picture's path, or
  // empty when none was made. Errors are reported under 20017.
  std::string CaptureScreenshot();
  // The last picture CaptureScreenshot made, empty when it made none.
  const std::string& LastScreenshot() const { return lastScreenshot_; }

 private:
  ExecutionHost& host_;
  std::string lastScreenshot_;
};

}  // namespace tw
