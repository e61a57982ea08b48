#pragma once
// Whether a job's media reminder, scheduled run or maintenance e-mail is due now. Each check
// records the moment it fired in the settings store, so one scheduled minute fires once however
// often the poll loop asks, also across a restart; a service that was down at the minute does not
// catch up. Every check traps its own errors, reports them under its location code and answers
// false, so one faulty job never stops the others.
#include <string>
#include <vector>

#include "common/Clock.h"
#include "logging/modLogging.h"
#include "scheduling/Schemes.h"
#include "settings/TWSettings.h"

namespace tw {

class clsDueChecks {
 public:
  clsDueChecks(const Clock& clock, modLogging& logging, const SchemeRegistry& schemes = SchemeRegistry::BuiltIn())
      : clock_(clock), logging_(logging), schemes_(schemes) {}

  // By the job's maintenance occurrence, once in its matching minute. A missing or malformed
  // occurrence string logs a warning on every call instead. Location code 20002.
  bool IsMaintenanceDue(clsJob job);
  // In the 59 seconds after the job's reminder time, as the scheme decides. Location code 20002.
  bool IsReminderDue(clsJob job);
  // In the 59 seconds after the job's scheduled time, as the scheme decides for the run date (a
  // time at or before 06:00 belongs to the night that began the day before). Location code 20001.
  bool IsScheduledTimeDue(clsJob job);

  // The indexes of the jobs in `jobs` whose reminder, scheduled run or maintenance e-mail may be
  // due now; for every other job the three checks above answer false. A job with a value that
  // does not read is among them, so that its check reports the error.
  std::vector<int32_t> JobsThatMayBeDue(const std::vector<JobTimingValues>& jobs) const;

  bool InvokeSchemeReminder(clsJob job, Date when);   // location code 20018
  bool InvokeSchemeScheduled(clsJob job, Date when);  // location code 20013
  // On any failure: "Unknown", method 0, mode 0, eject true. Location code 20016.
  MediaValues GetSchemeMediaValues(clsJob job, Date when);
  std::string GetSchemeLabel(clsJob job, Date when);  // location code 20014

  // How many seconds after a reminder or scheduled time of day its check can fire: 59, fewer for a
  // time in the day's last minute, since the window ends with the day.
  static int32_t WindowSeconds(Date timeOfDay);

  // The run date of a scheduled run starting at `now`: a job timed at or before 06:00 belongs to
  // the previous day.
  static Date RunDateFor(Date scheduledTime, Date now);

 private:
  const Clock& clock_;
  modLogging& logging_;
  const SchemeRegistry& schemes_;
};

}  // namespace tw
