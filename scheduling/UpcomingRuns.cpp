#include "scheduling/UpcomingRuns.h"

#include "scheduling/DueChecks.h"

namespace tw {

namespace {

// The first scheduled start at or after `from`.
Date FirstStart(Date scheduledTime, Date from) {
  const Date first = DateOnly(from) + scheduledTime;
  return first < from ? first + 1 : first;
}

}  // namespace

std::vector<UpcomingRun> UpcomingRuns(clsJob job, Date from, int days) {
  auto scheme = SchemeRegistry::BuiltIn().Create(job.SchemeProgId());
  scheme->AttachJob(job);
  const Date scheduledTime = TimeOfDay(job.ScheduledTime());
  const bool suspended = job.Suspended();
  const Date first = FirstStart(scheduledTime, from);
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

std::optional<Date> NextScheduledRun(clsJob job, Date from, int days) {
  if (job.Suspended()) return std::nullopt;
  auto scheme = SchemeRegistry::BuiltIn().Create(job.SchemeProgId());
  scheme->AttachJob(job);
  const Date scheduledTime = TimeOfDay(job.ScheduledTime());
  const Date first = FirstStart(scheduledTime, from);
  for (int i = 0; i < days; ++i) {
    const Date starts = first + i;
    if (scheme->ScheduledRun(clsDueChecks::RunDateFor(scheduledTime, starts)) != 0) return starts;
  }
  return std::nullopt;
}

std::vector<Date> ScheduledRunsBetween(clsJob job, Date after, Date before) {
  std::vector<Date> runs;
  if (job.Suspended() || before <= after) return runs;
  auto scheme = SchemeRegistry::BuiltIn().Create(job.SchemeProgId());
  scheme->AttachJob(job);
  const Date scheduledTime = TimeOfDay(job.ScheduledTime());
  // A start exactly at `after` was the poll's own moment: it was seen, so it counts as polled.
  for (Date starts = FirstStart(scheduledTime, after); starts < before; starts += 1) {
    if (starts <= after) continue;
    if (scheme->ScheduledRun(clsDueChecks::RunDateFor(scheduledTime, starts)) != 0) runs.push_back(starts);
  }
  return runs;
}

}  // namespace tw
