#pragma once
// What the parts that start and watch programs need of the running service.
#include <string>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "logging/modLogging.h"
#include "platform/EventLoop.h"
#include "settings/TWSettings.h"

namespace tw {

struct ExecutionHost {
  std::string applicationFolder;  // where the helper programs and the backup log markers are
  TWSettings& settings;
  modLogging& logging;
  const Clock& clock;
  platform::EventLoop& loop;
  EventPump& pump;  // for synchronous waits
};

}  // namespace tw
