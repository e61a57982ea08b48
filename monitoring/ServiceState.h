#pragma once
// The service's record of its own state (running, paused, stopping) and its heartbeat, written by
// the service into the settings store and read by the console, which has no other way to know
// whether anything acts on what it asks for.
#include <string>
#include <string_view>

#include "common/Date.h"
#include "settings/SettingsStore.h"

namespace tw {

namespace servicestate {
constexpr std::string_view kRunning = "running";
constexpr std::string_view kPaused = "paused";
constexpr std::string_view kStopping = "stopping";
}  // namespace servicestate

// A heartbeat older than three poll intervals counts as a service that is not running: a stopped
// or killed service writes nothing more.
constexpr int64_t kHeartbeatStaleSeconds = 30;

// The state, when it began, and a heartbeat, in one transaction. Neither waits for a file that
// another program holds: false, with nothing written, and the next heartbeat tries again.
bool RecordServiceState(SettingsStore& store, std::string_view state, Date since, Date now);
// A poll tick: the heartbeat and, when `polled`, the moment up to which the schedules were looked
// at, which is where missed runs begin at the next start.
bool RecordHeartbeat(SettingsStore& store, Date now, bool polled);

struct ServiceView {
  std::string state;   // "running", "paused" or "not running"
  Date since = 0;      // when running or paused began
  Date heartbeat = 0;  // the latest one; 0 when the service never ran on this settings file
  bool Running() const { return state == servicestate::kRunning; }
};

// What the console tells: the recorded state while the heartbeat is fresh, else "not running".
ServiceView ViewOfService(SettingsStore& store, Date now);

}  // namespace tw
