#pragma once
// The scheduled runs of a job in the coming days, as its scheme decides them.
#include <optional>
#include <vector>

#include "scheduling/Schemes.h"
#include "settings/TWSettings.h"

namespace tw {

struct UpcomingRun {
  Date starts = 0;   // when the run starts
  Date runDate = 0;  // the day it belongs to (the day before, for a start at or before 06:00)
  bool runs = false;  // the scheme lets it go ahead (a suspended job runs never)
  MediaValues media;
};

// One entry a day for `days` days, from the first scheduled start at or after `from`. Raises
// TWError for a job whose scheme is unknown.
std::vector<UpcomingRun> UpcomingRuns(clsJob job, Date from, int days);

// The first scheduled start at or after `from`, within `days` days, that the scheme lets go ahead;
// nothing for a suspended job or none in that time. Raises TWError as UpcomingRuns does.
std::optional<Date> NextScheduledRun(clsJob job, Date from, int days);

// The scheduled starts after `after` and before `before` that the scheme would have let go ahead:
// the runs a service that did not poll in between has missed. Raises TWError as UpcomingRuns does.
std::vector<Date> ScheduledRunsBetween(clsJob job, Date after, Date before);

}  // namespace tw
