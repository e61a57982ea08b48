#include "execution/frmBackup.h"

#include <filesystem>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "common/Utf16.h"
#include "execution/RightsLaunch.h"
#include "logging/modLogging.h"
#include "scheduling/RunMarker.h"
#include "logging/clsAuthMessages.h"

namespace tw {
namespace {

// The option word appended to the executor's command line, from the detailed-logging and the
// executor's no-logon settings.
std::string OptionWord(bool detailedLogging, bool noLogon) {
  if (detailedLogging && noLogon) return " zloggingandnologon";
  if (detailedLogging) return " logging";
  if (noLogon) return " nologon";
  return "";
}

}  // namespace

frmBackup::frmBackup(ExecutionHost& host) : host_(host), mobjAdvShell_(host) {
  tmrPoll_ = host_.loop.AddTimer(kPollIntervalMs, [this] { tmrPoll_Timer(); });
  mobjAdvShell_.ReturnProg = [this](int32_t exitCode) { mobjAdvShell_ReturnProg(exitCode); };
}

frmBackup::~frmBackup() { host_.loop.Remove(tmrPoll_); }

bool frmBackup::PollTimerEnabled() const { return host_.loop.TimerEnabled(tmrPoll_); }

bool frmBackup::DoBackup(const RunningJob& record, const clsJob& job) {
  bool launched = false;
  try {
    record_ = record;
    job_ = job;
    completed_ = false;
    const std::string backupLogId = job_->BackupLogId();
    backupLogPath_ = runmarker::PathFor(host_.applicationFolder, backupLogId);
    record_->MarkerPath = backupLogPath_;

    // The marker names this run: only the executor started for it claims it, and fills it with its
    // report.
    const std::string run = runmarker::NewRunId(host_.clock.Now());
    if (!WriteUnicodeFile(backupLogPath_, runmarker::UnclaimedText(run))) {
      host_.logging.ReportWarning("20101", "Unable to create backup log file", errnum::PathFileAccess,
                                  "Path/File access error: " + backupLogPath_, "TWService");
    }

    // The executor sets -2 when it claims the run and its result when it ends. An executor that
    // never sets it must not leave this run with the last run's result: 0 reads as no result.
    job_->RunStatus(0);

    auto general = host_.settings.General();
    const std::string option =
        OptionWord(general.Options().DetailedLogging(), general.Options().ExecutorNoLogon());
    ShareRunFiles(general.Identity());
    const RightsLaunch launch = RightsLaunchOf(general.Identity(), host_.applicationFolder + "/TWExecutor");
    mobjAdvShell_.Input(launch.input);
    const std::string runArguments = " --backup-log-id \"" + EscapeArgument(backupLogId) + "\" --run " + run;
    const int32_t result = mobjAdvShell_.AdvShell(host_.applicationFolder + "/DesktopRights",
                                                  launch.arguments + runArguments + option, "", 0, true, true);
    launched = true;
    host_.logging.Logs().AddLogSimple(3, "DesktopRights", mobjAdvShell_.ComLine(), 1,
                                      std::to_string(result) + "\r\n\r\n" + mobjAdvShell_.ConsoleOutput());
    if (result != 0) {
      DeleteBackupLog();
      host_.logging.ReportError("00101", "Unable to launch Backup executor (Code " + std::to_string(result) + ")",
                                host_.logging.BrandText("The backup could not be performed because the Backup "
                                                        "Executor could not be started. The file DesktopRights.exe "
                                                        "appears to be missing. Please reinstall Tarnwick to correct "
                                                        "this error."));
      Complete(2, "Unable to launch backup executor.");
    } else if (!completed_) {
      // Writing the entry above lets pending events run: a rights launcher that has already
      // answered may have ended the run, and then there is nothing left to poll for.
      host_.loop.TimerEnabled(tmrPoll_, true);
    }
  } catch (...) {
    host_.logging.ReportInternalError("20100", CurrentError("TWService"));
  }
  if (!launched && !completed_) DeleteBackupLog();
  return launched || completed_;
}

void frmBackup::Adopt(const RunningJob& record, const clsJob& job) {
  try {
    record_ = record;
    job_ = job;
    completed_ = false;
    backupLogPath_ = runmarker::PathFor(host_.applicationFolder, job_->BackupLogId());
    record_->MarkerPath = backupLogPath_;
    host_.loop.TimerEnabled(tmrPoll_, true);
  } catch (...) {
    host_.logging.ReportInternalError("20100", CurrentError("TWService"));
  }
}

void frmBackup::mobjAdvShell_ReturnProg(int32_t exitCode) {
  try {
    if (exitCode == -1) {
      // The executor has started; the poll timer waits for its end.
      host_.logging.Logs().AddLogSimple(3, "DesktopRights finished executing",
                                        "Returned from the desktop rights program successfully.", 0, "");
      return;
    }
    if (exitCode == 1) {
      DeleteBackupLog();
      const std::string summary = "Unable to launch Backup executor due to incorrect arguments.";
      const std::string description =
          "The backup could not be performed because the Backup Executor could not be started. Please report this "
          "to " +
          DeploymentSetting(host_.settings, "deployment.support_email") + ".";
      host_.logging.ReportError("00102", summary, description);
      host_.loop.TimerEnabled(tmrPoll_, false);
      Complete(2, summary + " " + description);
      return;
    }
    // The rights launcher could not log on or start the executor; it says why with a number.
    host_.loop.TimerEnabled(tmrPoll_, false);
    DeleteBackupLog();
    // The number stands on the first line; what the executor printed before it ended follows.
    const std::string output = mobjAdvShell_.ConsoleOutput();
    const size_t lineEnd = output.find('\n');
    const std::string number(TrimWhitespace(ReplaceAll(output.substr(0, lineEnd), "\r", "")));
    const std::string said =
        lineEnd == std::string::npos ? std::string() : std::string(TrimWhitespace(output.substr(lineEnd + 1)));
    clsAuthMessages messages(host_.settings, host_.logging.ProductName());
    const std::string explanation = messages.GetMessage(ToInt32(LeadingNumber(number)), 106);
    host_.logging.Logs().AddLogSimple(3, "Desktop rights output", output, 0, "");
    const std::string description =
        "An error occured whilst launching the backup. Please read the report below to take corrective action.\r\n"
        "\r\n" +
        explanation;
    host_.logging.ReportError("00106", "Error launching backup", description);
    Complete(2, said.empty() ? description : description + "\r\n\r\n" + said);
  } catch (...) {
    host_.logging.ReportInternalError("20100", CurrentError("TWService"));
  }
}

void frmBackup::tmrPoll_Timer() {
  try {
    // The status may still hold the last run's result until the executor has set it to -2, which
    // it does before the rights launcher returns: wait for the rights launcher first.
    if (mobjAdvShell_.Busy() || completed_ || !job_) return;
    const int16_t status = RunStatusNow();
    if (status == -2) return;
    host_.loop.TimerEnabled(tmrPoll_, false);
    // The marker stays until the run's report log is written (completion handling removes it): a
    // service stopped in between finds the run at its next start and reports it then.
    std::string report;
    if (!StopFlag) {
      std::string text;
      if (ReadUnicodeFile(backupLogPath_, text) && !text.empty()) report = text;
    }
    Complete(status, report);
  } catch (...) {
    host_.logging.ReportInternalError("20103", CurrentError("TWService"));
  }
}

int16_t frmBackup::RunStatusNow() {
  if (job_->Exists()) return job_->RunStatus();
  // The executor of a removed job cannot set a status, but its report still ends with the result.
  std::string text;
  if (!ReadUnicodeFile(backupLogPath_, text)) return -2;
  if (text.find("Result: Backup completed normally.") != std::string::npos) return 1;
  if (text.find("Result: Backup encountered errors.") != std::string::npos) return 2;
  return -2;
}

void frmBackup::ShareRunFiles(clsIdentity identity) {
  try {
    ShareRunFilesWithBackupAccount(identity, host_.applicationFolder, host_.settings.Path(), backupLogPath_);
  } catch (...) {
    // The run goes ahead: the executor says what it could not reach, and that is reported.
    host_.logging.Logs().AddLogSimple(1, "Backup account cannot reach the run's files",
                                      CurrentError("TWService").Description, 0, "");
  }
}

void frmBackup::DeleteBackupLog() {
  std::error_code ignored;
  std::filesystem::remove(backupLogPath_, ignored);
}

void frmBackup::Complete(int16_t status, const std::string& report) {
  if (completed_) return;  // once per run
  completed_ = true;
  record_->BackupEndTime = host_.clock.Now();
  record_->Status = status;
  record_->BackupReport = report;
  if (BackupComplete) BackupComplete(record_);
}

}  // namespace tw
