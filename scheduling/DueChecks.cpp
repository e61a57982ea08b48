#include "scheduling/DueChecks.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>

#include "common/Error.h"
#include "scheduling/Occurrence.h"

namespace tw {
namespace {

// A time of day at or before 06:00 belongs to the night before.
constexpr double kSmallHoursEnd = 0.25;

// The poll loop asks several times a minute: a check fires in the 59 seconds after its time, not
// at the second itself, and not again while its last firing is within a minute of this one.
constexpr int64_t kWindowSeconds = 60;

int64_t SecondOfDay(Date value) {
  const DateParts parts = SplitDate(value);
  return parts.hour * 3600 + parts.minute * 60 + parts.second;
}

bool InWindowAfter(Date timeOfDay, Date now) {
  const int64_t elapsed = SecondOfDay(now) - SecondOfDay(timeOfDay);
  return elapsed >= 1 && elapsed < kWindowSeconds;
}

bool FiredWithinAMinute(Date lastFired, Date candidate) {
  return std::llabs(SecondsBetween(lastFired, candidate)) <= kWindowSeconds;
}

// "Now" is rounded once, and the date and the time of day are both taken from that: at 23:59:59.6
// the date rounded alone would still be today while the time of day has become 00:00:00.
Date WholeSecond(Date now) { return MakeDate(SplitDate(now)); }

Date TodayAt(Date now, Date timeOfDay) {
  const DateParts t = SplitDate(timeOfDay);
  return DateOnly(now) + TimeSerial(t.hour, t.minute, t.second);
}

// Whether any of the three checks can fire for these values at `now`: each needs the job not to be
// suspended and the moment inside its window. `maintenanceMayMatch` remembers, per schedule
// string, whether it matches now or cannot be read.
bool MayBeDue(const JobTimingValues& job, Date now, std::unordered_map<std::string, bool>& maintenanceMayMatch) {
  if (!job.suspended) return true;
  if (*job.suspended) return false;
  if (!job.reminderByEmail || !job.reminderByBroadcast) return true;
  const bool reminder = *job.reminderByEmail || *job.reminderByBroadcast;
  if (reminder && (!job.reminderTime || InWindowAfter(*job.reminderTime, now))) return true;
  if (!job.scheduledTime || InWindowAfter(*job.scheduledTime, now)) return true;
  if (!job.maintenanceEnabled) return true;
  if (!*job.maintenanceEnabled) return false;
  auto known = maintenanceMayMatch.find(job.maintenanceOccurrence);
  if (known == maintenanceMayMatch.end()) {
    bool mayMatch = true;  // a schedule that cannot be read is warned about by the check
    try {
      const auto occurrence = clsOccurrenceFactory::CreateOccurrence(job.maintenanceOccurrence);
      if (occurrence) mayMatch = occurrence->MatchDayAndTime(now);
    } catch (...) {
    }
    known = maintenanceMayMatch.emplace(job.maintenanceOccurrence, mayMatch).first;
  }
  return known->second;
}

}  // namespace

std::vector<int32_t> clsDueChecks::JobsThatMayBeDue(const std::vector<JobTimingValues>& jobs) const {
  const Date now = WholeSecond(clock_.Now());
  std::unordered_map<std::string, bool> maintenanceMayMatch;
  std::vector<int32_t> indexes;
  for (size_t i = 0; i < jobs.size(); ++i) {
    if (MayBeDue(jobs[i], now, maintenanceMayMatch)) indexes.push_back(static_cast<int32_t>(i));
  }
  return indexes;
}

int32_t clsDueChecks::WindowSeconds(Date timeOfDay) {
  constexpr int64_t kLastSecondOfDay = 86399;
  return static_cast<int32_t>(std::min(kWindowSeconds - 1, kLastSecondOfDay - SecondOfDay(timeOfDay)));
}

Date clsDueChecks::RunDateFor(Date scheduledTime, Date now) {
  return TimeOfDay(scheduledTime) <= kSmallHoursEnd ? now - 1 : now;
}

bool clsDueChecks::IsMaintenanceDue(clsJob job) {
  try {
    if (job.Suspended()) return false;
    auto notification = job.JobNotification();
    if (!notification.MaintenanceEmailEnabled()) return false;
    const auto occurrence = clsOccurrenceFactory::CreateOccurrence(notification.MaintenanceOccurrence());
    if (!occurrence) {
      logging_.Logs().AddLogSimple(1, "Maintenance scheduling not set up correctly",
                                   "Please check the maintenance scheduling setup for the backup job: " + job.Name(),
                                   0, "");
      return false;
    }
    const Date now = WholeSecond(clock_.Now());
    if (!occurrence->MatchDayAndTime(now)) return false;
    const DateParts parts = SplitDate(now);
    const Date minute = DateOnly(now) + TimeSerial(parts.hour, parts.minute, 0);
    if (std::llabs(SecondsBetween(notification.MaintenanceLastFired(), minute)) > kWindowSeconds) {
      notification.MaintenanceLastFired(minute);
      return true;
    }
    return false;
  } catch (...) {
    logging_.ReportInternalError("20002", CurrentError("TWService"));
    return false;
  }
}

bool clsDueChecks::IsReminderDue(clsJob job) {
  try {
    if (job.Suspended()) return false;
    auto notification = job.JobNotification();
    if (!notification.MediaReminderByBroadcast() && !notification.MediaReminderByEmail()) return false;
    const Date reminderTime = notification.ReminderTime();
    const Date now = WholeSecond(clock_.Now());
    if (!InWindowAfter(reminderTime, now)) return false;
    const Date candidate = TodayAt(now, reminderTime);
    if (FiredWithinAMinute(notification.ReminderLastFired(), candidate)) return false;
    const bool due = InvokeSchemeReminder(job, now);
    // Recorded whatever the scheme answered: the minute has been decided.
    notification.ReminderLastFired(candidate);
    return due;
  } catch (...) {
    logging_.ReportInternalError("20002", CurrentError("TWService"));
    return false;
  }
}

bool clsDueChecks::IsScheduledTimeDue(clsJob job) {
  try {
    if (job.Suspended()) return false;
    const Date scheduledTime = job.ScheduledTime();
    const Date now = WholeSecond(clock_.Now());
    if (!InWindowAfter(scheduledTime, now)) return false;
    const Date candidate = TodayAt(now, scheduledTime);
    if (FiredWithinAMinute(job.ScheduleLastFired(), candidate)) return false;
    const bool due = InvokeSchemeScheduled(job, RunDateFor(scheduledTime, now));
    job.ScheduleLastFired(candidate);
    return due;
  } catch (...) {
    logging_.ReportInternalError("20001", CurrentError("TWService"));
    return false;
  }
}

bool clsDueChecks::InvokeSchemeReminder(clsJob job, Date when) {
  try {
    auto scheme = schemes_.Create(job.SchemeProgId());
    scheme->AttachJob(job);
    return scheme->ReminderNeeded(when);
  } catch (...) {
    logging_.ReportInternalError("20018", CurrentError("TWService"));
    return false;
  }
}

bool clsDueChecks::InvokeSchemeScheduled(clsJob job, Date when) {
  try {
    auto scheme = schemes_.Create(job.SchemeProgId());
    scheme->AttachJob(job);
    return scheme->ScheduledRun(when) != 0;
  } catch (...) {
    logging_.ReportInternalError("20013", CurrentError("TWService"));
    return false;
  }
}

MediaValues clsDueChecks::GetSchemeMediaValues(clsJob job, Date when) {
  try {
    auto scheme = schemes_.Create(job.SchemeProgId());
    scheme->AttachJob(job);
    MediaValues values;
    values.Label = scheme->MediaLabel(when);
    values.Method = scheme->BackupMethod(when);
    values.Mode = scheme->BackupMode(when);
    values.Eject = scheme->Eject(when);
    return values;
  } catch (...) {
    logging_.ReportInternalError("20016", CurrentError("TWService"));
    return MediaValues{"Unknown", 0, 0, true};
  }
}

std::string clsDueChecks::GetSchemeLabel(clsJob job, Date when) {
  try {
    return GetSchemeMediaValues(job, when).Label;
  } catch (...) {
    logging_.ReportInternalError("20014", CurrentError("TWService"));
    return "Unknown";
  }
}

}  // namespace tw
