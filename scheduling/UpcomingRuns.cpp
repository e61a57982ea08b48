#include "scheduling/UpcomingRuns.h"

#include "scheduling/DueChecks.h"

namespace tw {

std::vector<UpcomingRun> UpcomingRuns(clsJob job, Date from, int days) {
  auto scheme = SchemeRegistry::BuiltIn().Create(job.SchemeProgId());
  scheme->AttachJob(job);
  const Date scheduledTime = TimeOfDay(job.ScheduledTime());
  const bool suspended = job.Suspended();
  Date first = DateOnly(from) + scheduledTime;
  if (first < from) first += 1;
  std::vector<UpcomingRun> runs;
  for (int i = 0; i < days; ++i) {
    UpcomingRun run;
    run.starts = first + i;
    run.runDate = clsDueChecks::RunDateFor(scheduledTime, run.starts);
    run.runs = !suspended && scheme->ScheduledRun(run.runDate) != 0;
    run.media.Label = scheme->MediaLabel(run.runDate);
    run.media.Method = scheme->BackupMethod(run.runDate);
    run.media.Mode = scheme->BackupMode(run.runDate);
    run.media.Eject = scheme->Eject(run.runDate);
    runs.push_back(run);
  }
  return runs;
}

}  // namespace tw
