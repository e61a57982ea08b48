#include "service/ServiceHost.h"

#include "common/Error.h"

namespace tw {

ServiceHost::ServiceHost(const std::string& folder, const std::string& settingsPath, const Clock& clockSource,
                         platform::EventLoop& eventLoop, EventPump& waitPump)
    : applicationFolder(folder),
      clock(clockSource),
      loop(eventLoop),
      pump(waitPump),
      settings(settingsPath),
      logs(folder, settings, clock, pump),
      logging(logs, settings, pump),
      appLog(clock),
      execution{folder, settings, logging, clock, loop, pump},
      checks(clock, logging),
      reports(folder, settings, clock),
      mailer(settings, loop, clock, folder + "/Mail", [this] { return logging.ProductName(); }),
      mail(execution, mailer, checks),
      recovery(execution) {
  // The last resort: an error that escapes a handler is logged, and the loop carries on.
  loop.OnHandlerError([this](const std::string& description) {
    logs.AddLogSimple(2, "Unexpected error in TWService", "Details: " + description, 0, "");
  });
}

}  // namespace tw
