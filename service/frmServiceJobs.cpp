// frmService's work while it runs: the poll tick, launching jobs into the ten slots, completion
// handling, and recovery from hung or interrupted runs.
#include <filesystem>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/CommandLine.h"
#include "common/Utf16.h"
#include "execution/RightsLaunch.h"
#include "logging/modAppLog.h"
#include "monitoring/JobStates.h"
#include "platform/Process.h"
#include "reporting/Mailer.h"
#include "reporting/clsReportLogs.h"
#include "scheduling/RunMarker.h"
#include "scheduling/UpcomingRuns.h"
#include "settings/PrintRequest.h"
#include "settings/StatusText.h"
#include "service/frmService.h"

namespace tw {
namespace {

// The executor's process name, as the process tool looks for it.
const char* const kExecutorProcess = "TWExecutor";
const char* const kCrLf = "\r\n";
// Missed runs are looked for this many days back at most: a service stopped for longer gets one
// warning a run for these days, not for every day it was away.
constexpr Date kMissedRunsLookBackDays = 31;

struct Outcome {
  const char* sentence;   // of the test-run answer
  int16_t eventType;
  uint32_t eventId;
  int32_t reportStatus;   // the report log's numbering: 0 normal, 2 errors, 1 timed out
};

// The job's last run as status and metrics show it; a failure is left to the caller's handler.
void RecordLastRun(clsJob& job, const clsReportLogEntry& entry, const std::string& reportFile) {
  job.LastRun(entry.TimeStart, entry.TimeEnd, entry.Status, reportFile);
}

Outcome OutcomeOf(int16_t status) {
  if (status == 1) return {"Backup process completed normally", eventtype::Information, 1000, 0};
  if (status == 2) return {"Backup process encountered errors", eventtype::Error, 1001, 2};
  return {"Backup process timed out", eventtype::Warning, 1002, 1};
}

}  // namespace

void frmService::tmrPoll_Timer() {
  try {
    host_.settings.Store().ForgetIfReplaced();
    Heartbeat(true);
    SavePendingReports();
    if (!ServeConsoleRequest()) {
      auto general = host_.settings.General();
      // One read of every job's timing tells which few can be due this tick; only those are asked
      // the checks, which read each value afresh. At most moments none is.
      for (const int32_t i : host_.checks.JobsThatMayBeDue(general.JobTimings())) {
        clsJob job = general.JobByIndex(i);
        if (host_.checks.IsReminderDue(job)) {
          host_.mail.MediaReminder(job);
        } else if (host_.checks.IsScheduledTimeDue(job)) {
          ScheduledLaunch(job);
        } else if (host_.checks.IsMaintenanceDue(job)) {
          host_.mail.MaintenanceEmail(job);
        }
      }
    }

    if (const RunningJob late = jobManager_->FirstTimedOutJob()) {
      const std::string picture = CaptureScreenshot();
      const std::string message = host_.logging.BrandText(
          "The Tarnwick service has detected that the backup operation failed to complete within the timeout "
          "period. Please check the backup result manually.");
      host_.logs.AddLogSimple(1, "Backup process timed out", message, 2, picture);
      late->Status = 0;
      late->BackupReport = message;
      late->BackupEndTime = host_.clock.Now();
      // The slot that watched the hung run is freed and its marker removed: neither a late end nor
      // the next start of the service reports the run a second time.
      AbandonRunOf(late);
      CompletionHandling(late);
    } else if (host_.mail.ResendDue()) {
      host_.mail.ResendMail();
    }
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

bool frmService::ServeConsoleRequest() {
  bool taken = false;
  try {
    auto general = host_.settings.General();
    auto console = general.Console();
    // Each request is taken from the store before anything can fail: one that cannot be served is
    // answered once, and never stands in the way of the ticks after it.
    if (console.TestBackupRequested()) {
      taken = true;
      if (auto job = RequestedJob(general)) TestLaunch(*job);
    } else if (const std::string day = console.RunJobRequest(); !day.empty()) {
      taken = true;
      console.RunJobRequest("");
      const auto number = ParseNumber(day);
      if (!number) throw TWError(errnum::TypeMismatch, "Type mismatch: run request \"" + day + "\"", "TWService");
      if (auto job = RequestedJob(general)) {
        const Date time = TimeOfDay(job->ScheduledTime());
        Date when = DateOnly(*number) + time;
        // A job timed between midnight and 06:00 belongs to the night after the requested day.
        if (time <= 0.25) when += 1;
        job->NextRunTime(when);
        RunNowLaunch(*job);
      }
    } else if (console.ReminderRequested()) {
      taken = true;
      if (auto job = RequestedJob(general)) host_.mail.ReminderTest(*job);
    }
  } catch (...) {
    const TWError error = CurrentError("TWService");
    host_.logging.ReportInternalError("20000", error);
    if (taken) Answer("RESULT: Request not served: " + error.Description);
  }
  return taken;
}

std::optional<clsJob> frmService::RequestedJob(clsGeneral& general) {
  const std::string name = general.Console().RequestJobName();
  if (auto job = general.FindJob(name)) return job;
  host_.logs.AddLogSimple(1, "Console request not served",
                          "The console asked for the backup job \"" + name +
                              "\", which does not exist (it may have been removed since). The request was withdrawn.",
                          0, "");
  Answer("RESULT: Request not served: there is no backup job " + name + ".");
  return std::nullopt;
}

void frmService::Answer(const std::string& line) {
  try {
    host_.settings.General().Console().AppendTestLine(line);
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

void frmService::TestLaunch(clsJob job) { Launch(job, LaunchKind::Test); }
void frmService::ScheduledLaunch(clsJob job) { Launch(job, LaunchKind::Scheduled); }
void frmService::RunNowLaunch(clsJob job) { Launch(job, LaunchKind::RunNow); }

std::shared_ptr<frmBackup> frmService::TakeFreeSlot() {
  for (size_t i = 0; i < objBackup_.size(); ++i) {
    if (objBackup_[i]) continue;
    auto form = std::make_shared<frmBackup>(host_.execution);
    form->BackupComplete = [this, i](const RunningJob& record) { objBackup_BackupComplete(i, record); };
    objBackup_[i] = form;
    return form;
  }
  return nullptr;
}

void frmService::Launch(clsJob job, LaunchKind kind) {
  const char* code = kind == LaunchKind::Scheduled ? "20007" : kind == LaunchKind::RunNow ? "20007b" : "20008";
  std::shared_ptr<frmBackup> slot;
  RunningJob record;
  try {
    // Two runs of one job would share its marker and its run status, and both be misreported.
    if (const RunningJob running = jobManager_->RunOf(job.Id())) {
      RefuseSecondRun(job, kind, running);
      return;
    }
    slot = TakeFreeSlot();
    record = jobManager_->AddJob(job);
    record->JobName = job.Name();
    record->JobDescription = job.Description();
    const Date now = host_.clock.Now();
    Date runDate = now;
    if (kind == LaunchKind::Scheduled) runDate = clsDueChecks::RunDateFor(job.ScheduledTime(), now);
    if (kind == LaunchKind::RunNow) runDate = clsDueChecks::RunDateFor(job.ScheduledTime(), job.NextRunTime());
    if (kind == LaunchKind::Test) Answer("Performing test backup...");
    host_.logs.AddLogSimple(0, "Number of backup jobs currently running: " + std::to_string(jobManager_->JobsRunning()),
                            "", 0, "");
    // A lingering executor is killed only when this is the only job: with others running it is theirs.
    if (jobManager_->JobsRunning() < 2) KillPreviousBackup(kExecutorProcess);

    const MediaValues media = host_.checks.GetSchemeMediaValues(job, runDate);
    record->TapeLabel = kind == LaunchKind::Test ? "Test" : media.Label;
    record->BackupMethod = media.Method;
    record->BackupMode = media.Mode;
    record->Eject = media.Eject;
    record->BackupTimeout = job.BackupTimeout();
    record->DateAssigned = host_.clock.Now();
    // The executor reads this run's media values from the job.
    job.RunTapeLabel(record->TapeLabel);
    job.RunBackupMethod(record->BackupMethod);
    job.RunBackupMode(record->BackupMode);
    job.RunEject(record->Eject);
    job.RunStartTime(record->BackupStartTime);

    // With every slot busy there is no launcher to use: the launch stops here, and the record
    // stays in the registry until the time-out check finds it late.
    if (!slot) throw TWError(91, "Object variable or With block variable not set", "TWService");
    // Only a test run that has its slot waits for an answer: one that never started must not take
    // the result of another run.
    if (kind == LaunchKind::Test) testRun_ = record;
    if (!slot->DoBackup(record, job)) {
      AbandonLaunch(slot, record, kind == LaunchKind::Test);
      return;
    }
    if (kind == LaunchKind::Test) Answer("Backup launched...");
  } catch (...) {
    host_.logging.ReportInternalError(code, CurrentError("TWService"));
    AbandonLaunch(slot, record, kind == LaunchKind::Test);
  }
}

void frmService::AbandonLaunch(const std::shared_ptr<frmBackup>& slot, const RunningJob& record, bool test) {
  if (testRun_ && testRun_ == record) testRun_.reset();
  if (test) Answer("RESULT: The test backup could not be started. The application log says why.");
  // With every slot busy the record waits for its time-out, as it always has. Any other launch
  // that never started the rights launcher takes nothing: not its slot, and not a place in the
  // registry, where its time-out would later report a run that never was.
  if (!slot) return;
  if (record) jobManager_->RemoveJob(record);
  for (size_t i = 0; i < objBackup_.size(); ++i) {
    if (objBackup_[i] == slot) ReleaseSlot(i);
  }
}

void frmService::RefuseSecondRun(clsJob job, LaunchKind kind, const RunningJob& running) {
  const std::string name = job.Name();
  if (kind == LaunchKind::Scheduled) {
    host_.logs.AddLogSimple(1, "Backup job already running",
                            "The backup job " + name + " is due, but its run that began at " +
                                IsoText(running->BackupStartTime) +
                                " is still under way. This run is skipped; the job runs again at its next time.",
                            0, "");
  } else {
    Answer("RESULT: The backup job " + name + " is already running (since " + IsoText(running->BackupStartTime) +
           "). The request was not carried out.");
  }
}

void frmService::objBackup_BackupComplete(size_t slot, const RunningJob& record) {
  CompletionHandling(record);
  ReleaseSlot(slot);
}

void frmService::ReleaseSlot(size_t slot) {
  if (!objBackup_[slot]) return;
  std::shared_ptr<frmBackup> form = std::move(objBackup_[slot]);
  objBackup_[slot].reset();
  form->StopFlag = true;
  host_.loop.Post([form] {});  // the last reference goes once the current call has returned
}

void frmService::AbandonRunOf(const RunningJob& record) {
  for (size_t i = 0; i < objBackup_.size(); ++i) {
    if (!objBackup_[i] || objBackup_[i]->Record() != record) continue;
    // An executor still holding the marker open writes into the removed file, which nobody reads.
    std::error_code ignored;
    std::filesystem::remove(objBackup_[i]->BackupLogPath(), ignored);
    ReleaseSlot(i);
  }
}

std::string frmService::CaptureScreenshot() {
  screenshotPath_ = host_.recovery.CaptureScreenshot();
  screenshotTaken_ = !screenshotPath_.empty();
  return screenshotPath_;
}

bool frmService::KillPreviousBackup(const std::string& processArgument) {
  const bool killed = host_.recovery.KillPreviousBackup(processArgument);
  // The picture of the hung executor is this service's latest screenshot, as one taken at a
  // time-out is.
  if (killed && !host_.recovery.LastScreenshot().empty()) {
    screenshotPath_ = host_.recovery.LastScreenshot();
    screenshotTaken_ = true;
  }
  return killed;
}

void frmService::CompletionHandling(const RunningJob& record) {
  try {
    clsJob job = *record->BackupJob;
    // A job removed while it ran is reported as well as it can be: under the name it ran with,
    // mailed when mail is on at all, and not printed.
    const bool jobExists = job.Exists();
    const std::string jobName = jobExists ? job.Name() : record->JobName;
    auto general = host_.settings.General();
    const Outcome outcome = OutcomeOf(record->Status);
    const bool normal = record->Status == 1;
    const bool timedOut = record->Status != 1 && record->Status != 2;

    // 1. Only a run that timed out with status 0 is photographed.
    if (record->Status == 0) CaptureScreenshot();

    // 2. The answer to a test run.
    if (testRun_ && testRun_ == record) {
      general.Console().AppendTestLine(std::string("RESULT: ") + outcome.sentence);
      testRun_.reset();
    }

    // 3. The report e-mail.
    const std::string subject = host_.mail.ReportSubject(jobName, record->Status);
    std::string body = record->BackupReport;
    std::string attachment;
    if (timedOut && screenshotTaken_) {
      body += std::string(kCrLf) +
              " A screenshot has been taken to show the status of the desktop, and may help in diagnosing the "
              "problem.";
      attachment = screenshotPath_;
      // The picture goes out with this run's report only; a later run takes its own.
      screenshotTaken_ = false;
      screenshotPath_.clear();
    }
    auto mail = general.MailSettings();
    // A kind of report mail whose list is empty is not asked for: not sent, and not a failure.
    const int32_t kind = normal ? mailtype::kSuccessReport : mailtype::kFailureReport;
    if ((!jobExists || job.JobNotification().SendReportEmail()) && mail.EmailEnabled() &&
        !RecipientsFor(host_.settings, kind).empty()) {
      host_.mail.SendReportMail(subject, body, normal, attachment, jobName, record->BackupStartTime);
    } else {
      host_.mail.ReportMailNotAskedFor(jobName, record->BackupStartTime);
    }

    // 4. The print-out, through the rights launcher and the print-out program.
    if (jobExists && job.JobNotification().PrintReport() && !general.Options().PrintSetting().empty()) {
      const std::string spool = host_.applicationFolder + "/Spool";
      SharePrintRequestWithBackupAccount(general.Identity(), spool,
                                         clsPrintRequest(spool, host_.clock).Print(subject, body));
      const RightsLaunch launch = RightsLaunchOf(general.Identity(), host_.applicationFolder + "/TWPrintOut");
      // The launcher's path is one argument, blanks and all.
      const std::string command = "\"" + host_.applicationFolder + "/DesktopRights\" " + launch.arguments;
      if (!platform::StartDetached(SplitCommandLine(command), launch.input)) {
        throw TWError(errnum::FileNotFound, "The print-out could not be started: " + host_.applicationFolder +
                                                "/DesktopRights", "TWService");
      }
    }

    // 5. The report log. One that cannot be written now is written again at the next ticks; the run
    // stays registered until it is, and its marker stays for a restarted service to find.
    clsReportLogEntry entry;
    entry.Computer = host_.logging.ComputerName();
    entry.Label = record->TapeLabel;
    entry.JobName = jobName;
    entry.JobDesc = jobExists ? job.Description() : record->JobDescription;
    entry.Report = record->BackupReport;
    entry.TimeStart = record->BackupStartTime;
    entry.TimeEnd = record->BackupEndTime;
    entry.Status = outcome.reportStatus;
    if (jobExists) RecordLastRun(job, entry, "");
    record->ReportPending = true;
    pendingReports_.push_back({record, entry});
    SavePendingReports();

    // 6. Small Business Server monitoring.
    if (general.Options().SbsReportingEnabled()) {
      const std::string summary = "Job name: " + jobName + kCrLf + "Destination: " +
                                  (jobExists ? job.Destination().DestinationText() : std::string("(job removed)")) +
                                  kCrLf +
                                  "Start time: " + DefaultDateText(record->BackupStartTime) + kCrLf +
                                  "End time: " + DefaultDateText(record->BackupEndTime) + kCrLf +
                                  "Status: " + clsStatusText().StatusText(record->Status) + kCrLf;
      // Branded before the job's name is put in, which keeps whatever name it has.
      const std::string text =
          host_.logging.BrandText("Tarnwick job ") + jobName +
          (normal ? " completed normally."
                  : host_.logging.BrandText(" failed. Please examine the report logs in Tarnwick for more details."));
      host_.appLog.WriteSbsEventLog(normal, text + kCrLf + kCrLf + summary, true);
    }

    // 7. The event log.
    if (general.Options().EventLogEnabled()) {
      host_.appLog.WriteEventLog(std::string(kCrLf) + kCrLf + record->BackupReport, outcome.eventType, outcome.eventId);
    }
  } catch (...) {
    // The run stays in the registry; its time-out deals with it, unless its report is on its way.
    host_.logging.ReportInternalError("20012", CurrentError("TWService"));
  }
}

void frmService::SavePendingReports() {
  for (auto it = pendingReports_.begin(); it != pendingReports_.end();) {
    try {
      host_.reports.SaveNewEntry(it->entry);
    } catch (...) {
      // Said once per run, not at every tick while the disk stays full.
      if (!it->failureLogged) host_.logging.ReportInternalError("20012", CurrentError("TWService"));
      it->failureLogged = true;
      ++it;
      continue;
    }
    // 8. The marker and the registry: the run is reported.
    const RunningJob record = it->record;
    if (record->BackupJob && record->BackupJob->Exists()) {
      RecordLastRun(*record->BackupJob, it->entry, std::filesystem::path(it->entry.Filename()).filename().string());
    }
    it = pendingReports_.erase(it);
    if (!record->MarkerPath.empty()) {
      std::error_code error;
      std::filesystem::remove(record->MarkerPath, error);
      if (error) {
        host_.logging.ReportWarning("20102", "Unable to remove backup log file", errnum::PathFileAccess,
                                    error.message(), "TWService");
      }
    }
    jobManager_->RemoveJob(record);
  }
}

void frmService::RecordLastRunsFromReports() {
  try {
    SettingsStore& store = host_.settings.Store();
    if (store.ReadBool("service.outcomes_recorded")) return;
    std::vector<JobStatusValues> jobs = store.JobStatuses();
    // A reader of its own: the one-time reading leaves no listing of the folder behind.
    FillLastRunsFromReports(jobs, clsReportLogs(host_.applicationFolder, host_.settings, host_.clock).GetSummaries(0));
    auto general = host_.settings.General();
    // Not worth waiting for a file another program holds: the console reads the report logs until
    // a later start has recorded them.
    store.InTransactionIfFree([&] {
      for (const JobStatusValues& values : jobs) {
        if (values.lastRunStatus == -1) continue;
        general.JobById(values.id).LastRun(values.lastRunStart, values.lastRunEnd,
                                           static_cast<int32_t>(values.lastRunStatus), values.lastReport);
      }
      store.WriteBool("service.outcomes_recorded", true);
    });
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

void frmService::ReportMissedRuns() {
  try {
    SettingsStore& store = host_.settings.Store();
    const Date lastPoll = store.ReadDate("service.last_poll");
    if (lastPoll == 0) return;  // never polled: nothing can have been missed
    const Date now = host_.clock.Now();
    const DateParts p = SplitDate(now);
    // The present minute is not missed: its check still fires within it.
    const Date before = MakeDate({p.year, p.month, p.day, p.hour, p.minute, 0});
    const Date after = std::max(lastPoll, now - kMissedRunsLookBackDays);
    std::vector<std::string> lines;
    for (clsJob job : host_.settings.General().Jobs()) {
      std::vector<Date> missed;
      try {
        missed = ScheduledRunsBetween(job, after, before);
      } catch (const TWError&) {
        continue;  // a schedule that cannot be read is reported by the poll ticks
      }
      std::erase_if(missed, [&](Date when) { return SecondsBetween(job.ScheduleLastFired(), when) == 0; });
      if (missed.empty()) continue;
      const std::string name = job.Name();
      for (const Date when : missed) {
        host_.logs.AddLogSimple(1, "Backup run missed",
                                "The backup job " + name + " was due at " + IsoText(when).substr(0, 16) +
                                    " while the service was stopped or paused. It is not started late; it runs "
                                    "again at its next scheduled time.",
                                0, "");
        lines.push_back(name + ": " + IsoText(when).substr(0, 16));
      }
      job.RecordMissedRuns(missed.back(), static_cast<int32_t>(missed.size()));
    }
    // Reported once: a service stopped again before its first tick does not report them again.
    // The present minute stays open, for the case that no tick comes in it.
    store.WriteDate("service.last_poll", std::max(lastPoll, before - 1 / kSecondsPerDay));
    if (!lines.empty()) host_.mail.MissedBackupMail(lines);
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

void frmService::AdoptRunsInProgress() {
  try {
    std::error_code error;
    auto general = host_.settings.General();
    for (std::filesystem::directory_iterator it(host_.applicationFolder, error), end; !error && it != end;
         it.increment(error)) {
      const std::string name = it->path().filename().string();
      if (name.size() <= 14 || name.rfind("BackupLog-", 0) != 0 || name.substr(name.size() - 4) != ".txt") continue;
      auto job = general.FindJobByBackupLogId(name.substr(10, name.size() - 14));
      std::string text;
      ReadUnicodeFile(it->path().string(), text);
      // A marker that still names its run was never claimed: the service stopped before the run's
      // executor began. Left in place it would show the job as running for good.
      // An empty one was left by an older version before its executor began.
      if (!job || runmarker::UnclaimedRun(text) || (text.empty() && job->RunStatus() != -2)) {
        std::error_code ignored;
        std::filesystem::remove(it->path(), ignored);
        host_.logs.AddLogSimple(1, "Backup run never began",
                                job ? "The run of backup job " + job->Name() + " launched at " +
                                          IsoText(job->RunStartTime()) +
                                          " never began: the service stopped before its executor started. The job "
                                          "runs again at its next time."
                                    : "The marker " + name + " belongs to no backup job and was removed.",
                                0, "");
        continue;
      }
      std::shared_ptr<frmBackup> slot = TakeFreeSlot();
      if (!slot) return;
      const RunningJob record = jobManager_->AddJob(*job);
      record->JobName = job->Name();
      record->JobDescription = job->Description();
      if (job->RunStartTime() > 0) record->BackupStartTime = job->RunStartTime();
      record->TapeLabel = job->RunTapeLabel();
      record->BackupMethod = job->RunBackupMethod();
      record->BackupMode = job->RunBackupMode();
      record->Eject = job->RunEject();
      record->BackupTimeout = job->BackupTimeout();
      record->DateAssigned = record->BackupStartTime;
      host_.logs.AddLogSimple(0, "Backup run picked up again",
                              "The run of backup job " + job->Name() + " that began at " +
                                  IsoText(record->BackupStartTime) +
                                  " was under way when the service stopped; it is reported when it ends.",
                              0, "");
      slot->Adopt(record, *job);
    }
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

}  // namespace tw
