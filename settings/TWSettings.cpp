#include "settings/TWSettings.h"

#include "common/Error.h"

namespace tw {

// ---- mail -----------------------------------------------------------------------------------

bool clsMailSettings::EmailEnabled() { return store_->ReadBool("mail.email_enabled"); }
void clsMailSettings::EmailEnabled(bool value) { store_->WriteBool("mail.email_enabled", value); }
std::string clsMailSettings::SuccessReportRecipients() { return store_->ReadText("mail.success_recipients"); }
void clsMailSettings::SuccessReportRecipients(const std::string& value) {
  store_->WriteText("mail.success_recipients", value);
}
std::string clsMailSettings::FailureReportRecipients() { return store_->ReadText("mail.failure_recipients"); }
void clsMailSettings::FailureReportRecipients(const std::string& value) {
  store_->WriteText("mail.failure_recipients", value);
}
std::string clsMailSettings::ReminderRecipients() { return store_->ReadText("mail.reminder_recipients"); }
void clsMailSettings::ReminderRecipients(const std::string& value) {
  store_->WriteText("mail.reminder_recipients", value);
}
std::string clsMailSettings::Server() { return store_->ReadText("mail.server"); }
int32_t clsMailSettings::Port() { return store_->ReadInt("mail.port"); }
std::string clsMailSettings::Security() { return store_->ReadText("mail.security"); }
std::string clsMailSettings::User() { return store_->ReadText("mail.user"); }
std::string clsMailSettings::Password() { return store_->ReadText("mail.password"); }
std::string clsMailSettings::SenderAddress() { return store_->ReadText("mail.sender"); }

// ---- options --------------------------------------------------------------------------------

bool clsOptions::ServiceInstalled() { return store_->ReadBool("options.service_installed"); }
void clsOptions::ServiceInstalled(bool value) { store_->WriteBool("options.service_installed", value); }
bool clsOptions::DetailedLogging() { return store_->ReadBool("options.detailed_logging"); }
void clsOptions::DetailedLogging(bool value) { store_->WriteBool("options.detailed_logging", value); }
std::string clsOptions::PrintSetting() { return store_->ReadText("options.print_setting"); }
std::string clsOptions::MetricsTextfile() { return store_->ReadText("options.metrics_textfile"); }
void clsOptions::PrintSetting(const std::string& value) { store_->WriteText("options.print_setting", value); }
std::string clsOptions::BroadcastRecipients() { return store_->ReadText("options.broadcast_recipients"); }
void clsOptions::BroadcastRecipients(const std::string& value) {
  store_->WriteText("options.broadcast_recipients", value);
}
std::string clsOptions::CustomProductName() { return store_->ReadText("options.custom_product_name"); }
void clsOptions::CustomProductName(const std::string& value) {
  store_->WriteText("options.custom_product_name", value);
}
bool clsOptions::SbsReportingEnabled() { return store_->ReadBool("options.sbs_reporting"); }
void clsOptions::SbsReportingEnabled(bool value) { store_->WriteBool("options.sbs_reporting", value); }
bool clsOptions::EventLogEnabled() { return store_->ReadBool("options.event_log"); }
void clsOptions::EventLogEnabled(bool value) { store_->WriteBool("options.event_log", value); }
bool clsOptions::ExecutorNoLogon() { return store_->ReadBool("options.executor_nologon"); }
void clsOptions::ExecutorNoLogon(bool value) { store_->WriteBool("options.executor_nologon", value); }

// ---- identity -------------------------------------------------------------------------------

std::string clsIdentity::IdentityValue3() { return store_->ReadText("identity.domain"); }
void clsIdentity::IdentityValue3(const std::string& value) { store_->WriteText("identity.domain", value); }
std::string clsIdentity::IdentityValue2() { return store_->ReadText("identity.password"); }
void clsIdentity::IdentityValue2(const std::string& value) { store_->WriteText("identity.password", value); }
std::string clsIdentity::IdentityValue1() { return store_->ReadText("identity.user"); }
void clsIdentity::IdentityValue1(const std::string& value) { store_->WriteText("identity.user", value); }

// ---- console channel ------------------------------------------------------------------------

std::string clsConsole::RequestJobName() { return store_->ReadText("console.request_job_name"); }
void clsConsole::RequestJobName(const std::string& value) { store_->WriteText("console.request_job_name", value); }
Date clsConsole::LogLastChanged() { return store_->ReadDate("console.log_last_changed"); }
void clsConsole::LogLastChanged(Date value) { store_->WriteDate("console.log_last_changed", value); }
Date clsConsole::LatestReportTime() { return store_->ReadDate("console.latest_report_time"); }
void clsConsole::LatestReportTime(Date value) { store_->WriteDate("console.latest_report_time", value); }
void clsConsole::AppendTestLine(const std::string& text) { store_->AppendAnswer(text); }
bool clsConsole::ReminderRequested() { return store_->TakeBool("console.reminder_requested"); }
void clsConsole::ReminderRequested(bool value) { store_->WriteBool("console.reminder_requested", value); }
bool clsConsole::TestBackupRequested() { return store_->TakeBool("console.test_backup_requested"); }
void clsConsole::TestBackupRequested(bool value) { store_->WriteBool("console.test_backup_requested", value); }
bool clsConsole::TestFinished() { return store_->ReadBool("console.test_finished"); }
void clsConsole::TestFinished(bool value) { store_->WriteBool("console.test_finished", value); }
std::string clsConsole::RunJobRequest() { return store_->ReadText("console.run_job_request"); }
void clsConsole::RunJobRequest(const std::string& value) { store_->WriteText("console.run_job_request", value); }
bool clsConsole::ReminderByEmailSelected() { return store_->ReadBool("console.reminder_by_email"); }
void clsConsole::ReminderByEmailSelected(bool value) { store_->WriteBool("console.reminder_by_email", value); }
bool clsConsole::ReminderByBroadcastSelected() { return store_->ReadBool("console.reminder_by_broadcast"); }
void clsConsole::ReminderByBroadcastSelected(bool value) {
  store_->WriteBool("console.reminder_by_broadcast", value);
}
std::vector<std::pair<int64_t, std::string>> clsConsole::AnswersAfter(int64_t lastSeen) {
  return store_->AnswersAfter(lastSeen);
}

// ---- templates and deployment ---------------------------------------------------------------

std::string clsTemplates::SubjectCompletedNormally() {
  return store_->ReadText("templates.subject_completed_normally");
}
std::string clsTemplates::SubjectEncounteredErrors() {
  return store_->ReadText("templates.subject_encountered_errors");
}
std::string clsTemplates::SubjectOtherOutcome() { return store_->ReadText("templates.subject_other_outcome"); }
std::string clsTemplates::TestReminderSubject() { return store_->ReadText("templates.test_reminder_subject"); }
std::string clsTemplates::TestReminderBody() { return store_->ReadText("templates.test_reminder_body"); }
std::string clsTemplates::ReminderSubject() { return store_->ReadText("templates.reminder_subject"); }
std::string clsTemplates::ReminderBody() { return store_->ReadText("templates.reminder_body"); }

std::string clsDeployment::SupportEmailAddress() { return store_->ReadText("deployment.support_email"); }
std::string clsDeployment::TroubleshootingPage() { return store_->ReadText("deployment.troubleshooting_page"); }
std::string clsDeployment::AuthTroubleshootingPage() {
  return store_->ReadText("deployment.auth_troubleshooting_page");
}

// ---- a job ----------------------------------------------------------------------------------

std::string clsDestination::DestinationText() { return store_->JobText(job_, JobField::Destination); }
std::string clsDestination::Path() { return store_->JobText(job_, JobField::Destination); }
void clsDestination::Path(const std::string& value) { store_->SetJobText(job_, JobField::Destination, value); }

bool clsJobNotification::PrintReport() { return store_->JobBool(job_, JobField::PrintReport); }
void clsJobNotification::PrintReport(bool value) { store_->SetJobBool(job_, JobField::PrintReport, value); }
bool clsJobNotification::SendReportEmail() { return store_->JobBool(job_, JobField::SendReportEmail); }
void clsJobNotification::SendReportEmail(bool value) { store_->SetJobBool(job_, JobField::SendReportEmail, value); }
bool clsJobNotification::MediaReminderByEmail() { return store_->JobBool(job_, JobField::MediaReminderByEmail); }
void clsJobNotification::MediaReminderByEmail(bool value) {
  store_->SetJobBool(job_, JobField::MediaReminderByEmail, value);
}
bool clsJobNotification::MediaReminderByBroadcast() {
  return store_->JobBool(job_, JobField::MediaReminderByBroadcast);
}
void clsJobNotification::MediaReminderByBroadcast(bool value) {
  store_->SetJobBool(job_, JobField::MediaReminderByBroadcast, value);
}
Date clsJobNotification::ReminderTime() { return store_->JobDate(job_, JobField::ReminderTime); }
void clsJobNotification::ReminderTime(Date value) { store_->SetJobDate(job_, JobField::ReminderTime, value); }
Date clsJobNotification::ReminderLastFired() { return store_->JobDate(job_, JobField::ReminderLastFired); }
void clsJobNotification::ReminderLastFired(Date value) {
  store_->SetJobDate(job_, JobField::ReminderLastFired, value);
}
bool clsJobNotification::MaintenanceEmailEnabled() {
  return store_->JobBool(job_, JobField::MaintenanceEmailEnabled);
}
void clsJobNotification::MaintenanceEmailEnabled(bool value) {
  store_->SetJobBool(job_, JobField::MaintenanceEmailEnabled, value);
}
std::string clsJobNotification::MaintenanceSubject() { return store_->JobText(job_, JobField::MaintenanceSubject); }
void clsJobNotification::MaintenanceSubject(const std::string& value) {
  store_->SetJobText(job_, JobField::MaintenanceSubject, value);
}
std::string clsJobNotification::MaintenanceBody() { return store_->JobText(job_, JobField::MaintenanceBody); }
void clsJobNotification::MaintenanceBody(const std::string& value) {
  store_->SetJobText(job_, JobField::MaintenanceBody, value);
}
std::string clsJobNotification::MaintenanceOccurrence() {
  return store_->JobText(job_, JobField::MaintenanceOccurrence);
}
void clsJobNotification::MaintenanceOccurrence(const std::string& value) {
  store_->SetJobText(job_, JobField::MaintenanceOccurrence, value);
}
Date clsJobNotification::MaintenanceLastFired() { return store_->JobDate(job_, JobField::MaintenanceLastFired); }
void clsJobNotification::MaintenanceLastFired(Date value) {
  store_->SetJobDate(job_, JobField::MaintenanceLastFired, value);
}

clsDestination clsJob::Destination() { return clsDestination(store_, id_); }
clsJobNotification clsJob::JobNotification() { return clsJobNotification(store_, id_); }
std::string clsJob::BackupLogId() { return store_->JobText(id_, JobField::BackupLogId); }
void clsJob::BackupLogId(const std::string& value) { store_->SetJobText(id_, JobField::BackupLogId, value); }
bool clsJob::Exists() { return store_->JobExists(id_); }

void clsJob::LastRun(Date start, Date end, int32_t status, const std::string& reportFile) {
  store_->InTransaction([&] {
    store_->SetJobDate(id_, JobField::LastRunStart, start);
    store_->SetJobDate(id_, JobField::LastRunEnd, end);
    store_->SetJobInt(id_, JobField::LastRunStatus, status);
    // Written once the report log has its name; until then the one before stays out of sight.
    store_->SetJobText(id_, JobField::LastReport, reportFile);
  });
}

void clsJob::RecordMissedRuns(Date latest, int32_t count) {
  store_->InTransaction([&] {
    store_->SetJobDate(id_, JobField::LastMissed, latest);
    store_->SetJobInt(id_, JobField::MissedRuns, store_->JobInt(id_, JobField::MissedRuns) + count);
  });
}
std::string clsJob::Name() { return store_->JobText(id_, JobField::Name); }
void clsJob::Name(const std::string& value) { store_->SetJobText(id_, JobField::Name, value); }
std::string clsJob::Description() { return store_->JobText(id_, JobField::Description); }
void clsJob::Description(const std::string& value) { store_->SetJobText(id_, JobField::Description, value); }
std::string clsJob::SchemeProgId() { return store_->JobText(id_, JobField::SchemeProgId); }
void clsJob::SchemeProgId(const std::string& value) { store_->SetJobText(id_, JobField::SchemeProgId, value); }
bool clsJob::Suspended() { return store_->JobBool(id_, JobField::Suspended); }
void clsJob::Suspended(bool value) { store_->SetJobBool(id_, JobField::Suspended, value); }
Date clsJob::ScheduledTime() { return store_->JobDate(id_, JobField::ScheduledTime); }
void clsJob::ScheduledTime(Date value) { store_->SetJobDate(id_, JobField::ScheduledTime, value); }
Date clsJob::ScheduleLastFired() { return store_->JobDate(id_, JobField::ScheduleLastFired); }
void clsJob::ScheduleLastFired(Date value) { store_->SetJobDate(id_, JobField::ScheduleLastFired, value); }
Date clsJob::NextRunTime() { return store_->JobDate(id_, JobField::NextRunTime); }
void clsJob::NextRunTime(Date value) { store_->SetJobDate(id_, JobField::NextRunTime, value); }

int16_t clsJob::RunStatus() {
  const int64_t status = store_->JobInt(id_, JobField::RunStatus);
  if (status < INT16_MIN || status > INT16_MAX) {
    throw TWError(errnum::Overflow, "Run status " + std::to_string(status) + " of job #" + std::to_string(id_) +
                                        " does not fit a 16-bit number", "TWSettings");
  }
  return static_cast<int16_t>(status);
}
void clsJob::RunStatus(int16_t value) { store_->SetJobInt(id_, JobField::RunStatus, value); }

std::string clsJob::TapeLabel() { return store_->JobText(id_, JobField::TapeLabel); }
void clsJob::TapeLabel(const std::string& value) { store_->SetJobText(id_, JobField::TapeLabel, value); }

namespace {
int32_t FitInt32(int64_t value, const char* what, int64_t job) {
  if (value < INT32_MIN || value > INT32_MAX) {
    throw TWError(errnum::Overflow, std::string(what) + " of job #" + std::to_string(job) + " is out of range",
                  "TWSettings");
  }
  return static_cast<int32_t>(value);
}
}  // namespace

int32_t clsJob::BackupMethod() { return FitInt32(store_->JobInt(id_, JobField::BackupMethod), "Backup method", id_); }
void clsJob::BackupMethod(int32_t value) { store_->SetJobInt(id_, JobField::BackupMethod, value); }
int32_t clsJob::BackupMode() { return FitInt32(store_->JobInt(id_, JobField::BackupMode), "Backup mode", id_); }
void clsJob::BackupMode(int32_t value) { store_->SetJobInt(id_, JobField::BackupMode, value); }
bool clsJob::Eject() { return store_->JobBool(id_, JobField::Eject); }
void clsJob::Eject(bool value) { store_->SetJobBool(id_, JobField::Eject, value); }
int32_t clsJob::BackupTimeout() { return FitInt32(store_->JobInt(id_, JobField::BackupTimeout), "Time-out", id_); }
void clsJob::BackupTimeout(int32_t value) { store_->SetJobInt(id_, JobField::BackupTimeout, value); }
std::vector<std::string> clsJob::Sources() { return store_->JobSources(id_); }
std::string clsJob::RunTapeLabel() { return store_->JobText(id_, JobField::RunTapeLabel); }
void clsJob::RunTapeLabel(const std::string& value) { store_->SetJobText(id_, JobField::RunTapeLabel, value); }
int32_t clsJob::RunBackupMethod() {
  return FitInt32(store_->JobInt(id_, JobField::RunBackupMethod), "Run backup method", id_);
}
void clsJob::RunBackupMethod(int32_t value) { store_->SetJobInt(id_, JobField::RunBackupMethod, value); }
int32_t clsJob::RunBackupMode() { return FitInt32(store_->JobInt(id_, JobField::RunBackupMode), "Run backup mode", id_); }
void clsJob::RunBackupMode(int32_t value) { store_->SetJobInt(id_, JobField::RunBackupMode, value); }
bool clsJob::RunEject() { return store_->JobBool(id_, JobField::RunEject); }
void clsJob::RunEject(bool value) { store_->SetJobBool(id_, JobField::RunEject, value); }
Date clsJob::RunStartTime() { return store_->JobDate(id_, JobField::RunStartTime); }
void clsJob::RunStartTime(Date value) { store_->SetJobDate(id_, JobField::RunStartTime, value); }
void clsJob::Sources(const std::vector<std::string>& paths) { store_->SetJobSources(id_, paths); }

// ---- general --------------------------------------------------------------------------------

clsMailSettings clsGeneral::MailSettings() { return clsMailSettings(store_); }
clsOptions clsGeneral::Options() { return clsOptions(store_); }
clsIdentity clsGeneral::Identity() { return clsIdentity(store_); }
clsConsole clsGeneral::Console() { return clsConsole(store_); }
clsTemplates clsGeneral::Templates() { return clsTemplates(store_); }
int32_t clsGeneral::JobCount() { return store_->JobCount(); }
std::vector<JobTimingValues> clsGeneral::JobTimings() { return store_->JobTimings(); }

clsJob clsGeneral::JobByIndex(int32_t index) {
  const auto id = store_->JobIdAt(index);
  if (!id) throw TWError(errnum::SubscriptOutOfRange, "Subscript out of range", "TWSettings");
  return clsJob(store_, *id);
}

clsJob clsGeneral::JobByName(const std::string& name) {
  const auto id = store_->FindJobId(name);
  if (!id) throw TWError(errnum::SubscriptOutOfRange, "Unknown backup job \"" + name + "\"", "TWSettings");
  return clsJob(store_, *id);
}

clsDeployment clsGeneral::Deployment() { return clsDeployment(store_); }

std::optional<clsJob> clsGeneral::FindJob(const std::string& name) {
  const auto id = store_->FindJobId(name);
  if (!id) return std::nullopt;
  return clsJob(store_, *id);
}

std::optional<clsJob> clsGeneral::FindJobByBackupLogId(const std::string& backupLogId) {
  const auto id = store_->FindJobIdByBackupLogId(backupLogId);
  if (!id) return std::nullopt;
  return clsJob(store_, *id);
}

std::vector<clsJob> clsGeneral::Jobs() {
  std::vector<clsJob> jobs;
  for (int64_t id : store_->JobIds()) jobs.emplace_back(store_, id);
  return jobs;
}

clsJob clsGeneral::AddJob(const std::string& name, const std::string& backupLogId) {
  return clsJob(store_, store_->InsertJob(name, backupLogId));
}

void clsGeneral::RemoveJob(const clsJob& job) { store_->DeleteJob(job.Id()); }

std::string clsGeneral::DefaultDestination() { return store_->ReadText("general.default_destination"); }
int32_t clsGeneral::DefaultTimeout() { return store_->ReadInt("general.default_timeout"); }

TWSettings::TWSettings(const std::string& path) : store_(std::make_shared<SettingsStore>(path)) {}

}  // namespace tw
