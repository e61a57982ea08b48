#pragma once
// What every part of the running service shares, made once at start-up and kept for the life of
// the process: the clock, the event loop, the settings store, the application log, the reporting
// helpers, the due checks, the report logs, the Mailer and the mail state, and hung-process
// recovery. Making it writes nothing: the log, report and mail folders are made by their first
// write, so that a mode that ends at once (an unknown switch, -uninstall) leaves nothing behind.
#include <string>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "execution/ExecutionHost.h"
#include "execution/HungProcessRecovery.h"
#include "logging/clsLogs.h"
#include "logging/modAppLog.h"
#include "logging/modLogging.h"
#include "platform/EventLoop.h"
#include "reporting/Mailer.h"
#include "reporting/ServiceMail.h"
#include "reporting/clsReportLogs.h"
#include "scheduling/DueChecks.h"
#include "settings/TWSettings.h"

namespace tw {

class ServiceHost {
 public:
  // `pump` serves the waits of the service's synchronous steps; normally it is `loop` itself.
  ServiceHost(const std::string& applicationFolder, const std::string& settingsPath, const Clock& clock,
              platform::EventLoop& loop, EventPump& pump);

  const std::string applicationFolder;
  const Clock& clock;
  platform::EventLoop& loop;
  EventPump& pump;
  TWSettings settings;
  clsLogs logs;
  modLogging logging;
  modAppLog appLog;
  ExecutionHost execution;
  clsDueChecks checks;
  clsReportLogs reports;
  Mailer mailer;
  ServiceMail mail;
  HungProcessRecovery recovery;
};

}  // namespace tw
