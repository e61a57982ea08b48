#include "monitoring/ServiceState.h"

namespace tw {

bool RecordServiceState(SettingsStore& store, std::string_view state, Date since, Date now) {
  return store.InTransactionIfFree([&] {
    store.WriteText("service.state", state);
    store.WriteDate("service.state_since", since);
    store.WriteDate("service.heartbeat", now);
  });
}

bool RecordHeartbeat(SettingsStore& store, Date now, bool polled) {
  return store.InTransactionIfFree([&] {
    store.WriteDate("service.heartbeat", now);
    if (polled) store.WriteDate("service.last_poll", now);
  });
}

ServiceView ViewOfService(SettingsStore& store, Date now) {
  ServiceView view;
  view.heartbeat = store.ReadDate("service.heartbeat");
  const std::string state = store.ReadText("service.state");
  // A heartbeat ahead of this clock counts as fresh: the clock was set back, or the two programs
  // read different clocks; the state a stopping service writes still tells.
  const bool fresh = view.heartbeat != 0 && SecondsBetween(view.heartbeat, now) <= kHeartbeatStaleSeconds;
  if (fresh && (state == servicestate::kRunning || state == servicestate::kPaused)) {
    view.state = state;
    view.since = store.ReadDate("service.state_since");
  } else {
    view.state = "not running";
  }
  return view;
}

}  // namespace tw
