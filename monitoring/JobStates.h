#pragma once
// Each job as an administrator asks after it: its next run, the run under way, and how its last
// run ended, with what became of its report mail. One reading of the settings store serves the
// console's status and the metrics.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/Date.h"
#include "reporting/clsReportLogEntry.h"
#include "settings/TWSettings.h"

namespace tw {

// How far ahead the next run that goes ahead is looked for.
constexpr int kNextRunHorizonDays = 370;

struct JobState {
  JobStatusValues values;
  std::optional<Date> nextRun;
  std::string scheduleProblem;  // set when the next run cannot be worked out
  bool running = false;
  // A run past its time-out and five minutes more: the service reports it as timed out, so it never
  // shows as running, even while no service is there to say so.
  bool timedOut = false;
  std::optional<ReportMailOutcome> lastMail;

  // "normal", "errors", "timed out", "missed" or "none": a run missed after the last one that ran
  // is the last outcome.
  std::string LastOutcome() const;
  // When the last outcome happened: the missed run's time or the last run's end; 0 for none.
  Date LastOutcomeTime() const;
  // Nothing for an administrator to look at: the last outcome was normal or there was none, and
  // no run is past its time-out.
  bool Healthy() const;
};

// The report logs' summaries, newest first; read only when needed.
using ReportSummaries = std::function<std::vector<clsReportLogEntry>()>;

// Until the service has recorded each job's last run (a settings file of an older version kept no
// such record), a job without one takes it from the newest report log under its name.
std::vector<JobState> ReadJobStates(TWSettings& settings, const std::string& applicationFolder, Date now,
                                    const ReportSummaries& reports = {});
void FillLastRunsFromReports(std::vector<JobStatusValues>& jobs, const std::vector<clsReportLogEntry>& newestFirst);

// "sent 2026-11-24 21:05", "waiting: retry 3 of 11 at 21:47", "given up", "not asked for", or "-"
// when nothing was recorded.
std::string MailOutcomeText(const std::optional<ReportMailOutcome>& outcome);

}  // namespace tw
