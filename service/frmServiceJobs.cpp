// frmService's work while it runs: the poll tick, launching jobs into the ten slots, completion
// handling, and recovery from hung or interrupted runs.
#include <filesystem>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/CommandLine.h"
#include "common/Utf16.h"
#include "execution/RightsLaunch.h"
#include "logging/modAppLog.h"
#include "platform/Process.h"
#include "settings/PrintRequest.h"
#include "settings/StatusText.h"
#include "service/frmService.h"

namespace tw {
namespace {

// The executor's process name, as the process tool looks for it.
const char* const kExecutorProcess = "TWExecutor";
const char* const kCrLf = "\r\n";

struct Outcome {
  const char* sentence;   // of the test-run answer
  int16_t eventType;
  uint32_t eventId;
  int32_t reportStatus;   // the report log's numbering: 0 normal, 2 errors, 1 timed out
};

Outcome OutcomeOf(int16_t status) {
  if (status == 1) return {"Backup process completed normally", eventtype::Information, 1000, 0};
  if (status == 2) return {"Backup process encountered errors", eventtype::Error, 1001, 2};
  return {"Backup process timed out", eventtype::Warning, 1002, 1};
}

}  // namespace

void frmService::tmrPoll_Timer() {
  try {
    auto general = host_.settings.General();
    auto console = general.Console();
    if (console.TestBackupRequested()) {
      TestLaunch(general.JobByName(console.RequestJobName()));
    } else if (const std::string day = console.RunJobRequest(); !day.empty()) {
      clsJob job = general.JobByName(console.RequestJobName());
      const auto number = ParseNumber(day);
      if (!number) throw TWError(errnum::TypeMismatch, "Type mismatch: run request \"" + day + "\"", "TWService");
      const Date time = TimeOfDay(job.ScheduledTime());
      Date when = DateOnly(*number) + time;
      // A job timed between midnight and 06:00 belongs to the night after the requested day.
      if (time <= 0.25) when += 1;
      job.NextRunTime(when);
      console.RunJobRequest("");
      RunNowLaunch(job);
    } else if (console.ReminderRequested()) {
      host_.mail.ReminderTest(general.JobByName(console.RequestJobName()));
    } else {
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
  try {
    std::shared_ptr<frmBackup> slot = TakeFreeSlot();
    const RunningJob record = jobManager_->AddJob(job);
    const Date now = host_.clock.Now();
    Date runDate = now;
    if (kind == LaunchKind::Scheduled) runDate = clsDueChecks::RunDateFor(job.ScheduledTime(), now);
    if (kind == LaunchKind::RunNow) runDate = clsDueChecks::RunDateFor(job.ScheduledTime(), job.NextRunTime());
    if (kind == LaunchKind::Test) {
      testRun_ = true;
      host_.settings.General().Console().AppendTestLine("Performing test backup...");
    }
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
    slot->DoBackup(record, job);
    if (kind == LaunchKind::Test) host_.settings.General().Console().AppendTestLine("Backup launched...");
  } catch (...) {
    host_.logging.ReportInternalError(code, CurrentError("TWService"));
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
  return host_.recovery.KillPreviousBackup(processArgument);
}

void frmService::CompletionHandling(const RunningJob& record) {
  try {
    clsJob job = *record->BackupJob;
    auto general = host_.settings.General();
    const Outcome outcome = OutcomeOf(record->Status);
    const bool normal = record->Status == 1;
    const bool timedOut = record->Status != 1 && record->Status != 2;

    // 1. Only a run that timed out with status 0 is photographed.
    if (record->Status == 0) CaptureScreenshot();

    // 2. The answer to a test run.
    if (testRun_) {
      general.Console().AppendTestLine(std::string("RESULT: ") + outcome.sentence);
      testRun_ = false;
    }

    // 3. The report e-mail.
    const std::string subject = host_.mail.ReportSubject(job, record->Status);
    std::string body = record->BackupReport;
    std::string attachment;
    if (timedOut && screenshotTaken_) {
      body += std::string(kCrLf) +
              " A screenshot has been taken to show the status of the desktop, and may help in diagnosing the "
              "problem.";
      attachment = screenshotPath_;
    }
    auto mail = general.MailSettings();
    if (job.JobNotification().SendReportEmail() && mail.EmailEnabled() &&
        (!mail.SuccessReportRecipients().empty() || !mail.FailureReportRecipients().empty())) {
      host_.mail.SendReportMail(subject, body, normal, attachment);
    }

    // 4. The print-out, through the rights launcher and the print-out program.
    if (job.JobNotification().PrintReport() && !general.Options().PrintSetting().empty()) {
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

    // 5. The report log.
    clsReportLogEntry entry;
    entry.Computer = host_.logging.ComputerName();
    entry.Label = record->TapeLabel;
    entry.JobName = job.Name();
    entry.JobDesc = job.Description();
    entry.Report = record->BackupReport;
    entry.TimeStart = record->BackupStartTime;
    entry.TimeEnd = record->BackupEndTime;
    entry.Status = outcome.reportStatus;
    host_.reports.SaveNewEntry(entry);

    // 6. Small Business Server monitoring.
    if (general.Options().SbsReportingEnabled()) {
      const std::string summary = "Job name: " + job.Name() + kCrLf + "Destination: " +
                                  job.Destination().DestinationText() + kCrLf +
                                  "Start time: " + DefaultDateText(record->BackupStartTime) + kCrLf +
                                  "End time: " + DefaultDateText(record->BackupEndTime) + kCrLf +
                                  "Status: " + clsStatusText().StatusText(record->Status) + kCrLf;
      // Branded before the job's name is put in, which keeps whatever name it has.
      const std::string text =
          host_.logging.BrandText("Tarnwick job ") + job.Name() +
          (normal ? " completed normally."
                  : host_.logging.BrandText(" failed. Please examine the report logs in Tarnwick for more details."));
      host_.appLog.WriteSbsEventLog(normal, text + kCrLf + kCrLf + summary, true);
    }

    // 7. The event log.
    if (general.Options().EventLogEnabled()) {
      host_.appLog.WriteEventLog(std::string(kCrLf) + kCrLf + record->BackupReport, outcome.eventType, outcome.eventId);
    }
  } catch (...) {
    // The run stays in the registry; its time-out deals with it.
    host_.logging.ReportInternalError("20012", CurrentError("TWService"));
    return;
  }
  // 8. The registry.
  try {
    jobManager_->RemoveJob(record);
  } catch (...) {
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
      if (!job) continue;
      // An executor marks its job -2 when it claims the marker and fills the marker when it ends.
      // A marker that is neither claimed nor filled (no more than its byte-order mark) belongs to
      // a run that never began; the next run of that job replaces it.
      std::error_code sizeError;
      if (std::filesystem::file_size(it->path(), sizeError) <= 2 && job->RunStatus() != -2) continue;
      std::shared_ptr<frmBackup> slot = TakeFreeSlot();
      if (!slot) return;
      const RunningJob record = jobManager_->AddJob(*job);
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
