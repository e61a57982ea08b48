#include "monitoring/JobStates.h"

#include <filesystem>

#include "common/Error.h"
#include "common/Strings.h"
#include "scheduling/UpcomingRuns.h"

namespace tw {
namespace {

// The service adds this much to a job's time-out before it reports the run as timed out.
constexpr int64_t kTimeOutGraceMinutes = 5;

bool MarkerHoldsARun(const std::string& applicationFolder, const std::string& backupLogId) {
  std::error_code error;
  const auto marker = std::filesystem::path(applicationFolder) / ("BackupLog-" + backupLogId + ".txt");
  return std::filesystem::file_size(marker, error) > 0 && !error;
}

}  // namespace

std::string JobState::LastOutcome() const {
  if (values.lastMissed != 0 && values.lastMissed > values.lastRunStart) return "missed";
  switch (values.lastRunStatus) {
    case -1: return "none";
    case 0: return "normal";
    case 2: return "errors";
    default: return "timed out";
  }
}

Date JobState::LastOutcomeTime() const {
  if (LastOutcome() == "missed") return values.lastMissed;
  return values.lastRunStatus == -1 ? 0 : values.lastRunEnd;
}

bool JobState::Healthy() const {
  const std::string last = LastOutcome();
  return !timedOut && (last == "normal" || last == "none");
}

void FillLastRunsFromReports(std::vector<JobStatusValues>& jobs, const std::vector<clsReportLogEntry>& newestFirst) {
  for (JobStatusValues& job : jobs) {
    if (job.lastRunStatus != -1) continue;
    for (const clsReportLogEntry& entry : newestFirst) {
      if (!EqualsIgnoreCase(entry.JobName, job.name)) continue;
      job.lastRunStart = entry.TimeStart;
      job.lastRunEnd = entry.TimeEnd;
      job.lastRunStatus = entry.Status;
      job.lastReport = std::filesystem::path(entry.Filename()).filename().string();
      break;
    }
  }
}

std::vector<JobState> ReadJobStates(TWSettings& settings, const std::string& applicationFolder, Date now,
                                    const ReportSummaries& reports) {
  SettingsStore& store = settings.Store();
  clsGeneral general = settings.General();
  std::vector<JobStatusValues> jobs = store.JobStatuses();
  if (reports && !store.ReadBool("service.outcomes_recorded")) FillLastRunsFromReports(jobs, reports());
  std::vector<JobState> states;
  for (JobStatusValues& values : jobs) {
    JobState& state = states.emplace_back();
    state.values = std::move(values);
    const JobStatusValues& v = state.values;
    if (!v.suspended) {
      try {
        state.nextRun = NextScheduledRun(general.JobById(v.id), now, kNextRunHorizonDays);
      } catch (const TWError& e) {
        state.scheduleProblem = e.Description;
      }
    }
    const bool underWay = v.runStatus == -2 || MarkerHoldsARun(applicationFolder, v.backupLogId);
    state.timedOut = underWay && v.runStartTime != 0 &&
                     MinutesBetween(v.runStartTime, now) > v.timeoutMinutes + kTimeOutGraceMinutes;
    state.running = underWay && !state.timedOut;
    if (v.lastRunStatus != -1) state.lastMail = store.ReportMail(v.name, v.lastRunStart);
  }
  return states;
}

std::string MailOutcomeText(const std::optional<ReportMailOutcome>& outcome) {
  if (!outcome) return "-";
  if (outcome->state == "sent") return "sent " + IsoText(outcome->at).substr(0, 16);
  if (outcome->state == "waiting") {
    if (outcome->retry == 0) return "sending";
    return "waiting: retry " + std::to_string(outcome->retry) + " of 11 at " + IsoText(outcome->at).substr(11, 5);
  }
  return outcome->state;
}

}  // namespace tw
