#pragma once
// The settings object model that the service and the console are written against. One root,
// `TWSettings`, leads to the general settings and from there to every other object. Objects
// are light handles on the shared store: every member reads or writes the database at the
// moment it is used, so a change made by the console is seen at the next use. Getters carry
// the member's name; setters are the same name with the new value. Members are declared in
// the order in which the service uses them, with the types it expects.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/Date.h"
#include "settings/SettingsStore.h"

namespace tw {

using StorePtr = std::shared_ptr<SettingsStore>;

class clsMailSettings {
 public:
  explicit clsMailSettings(StorePtr store) : store_(std::move(store)) {}
  bool EmailEnabled();
  void EmailEnabled(bool value);
  std::string SuccessReportRecipients();
  void SuccessReportRecipients(const std::string& value);
  std::string FailureReportRecipients();
  void FailureReportRecipients(const std::string& value);
  std::string ReminderRecipients();
  void ReminderRecipients(const std::string& value);
  // What the Mailer needs to reach the server.
  std::string Server();
  int32_t Port();
  std::string Security();  // "none", "starttls" or "tls"
  std::string User();
  std::string Password();
  std::string SenderAddress();

 private:
  StorePtr store_;
};

class clsOptions {
 public:
  explicit clsOptions(StorePtr store) : store_(std::move(store)) {}
  bool ServiceInstalled();
  void ServiceInstalled(bool value);
  bool DetailedLogging();
  void DetailedLogging(bool value);
  std::string PrintSetting();
  // The file the service rewrites each minute with its metrics; empty for none.
  std::string MetricsTextfile();
  void PrintSetting(const std::string& value);
  std::string BroadcastRecipients();
  void BroadcastRecipients(const std::string& value);
  std::string CustomProductName();
  void CustomProductName(const std::string& value);
  bool SbsReportingEnabled();
  void SbsReportingEnabled(bool value);
  bool EventLogEnabled();
  void EventLogEnabled(bool value);
  bool ExecutorNoLogon();
  void ExecutorNoLogon(bool value);

 private:
  StorePtr store_;
};

// The backup account: value 1 is the user name, value 2 its password, value 3 its domain. The
// rights launcher takes them in that order.
class clsIdentity {
 public:
  explicit clsIdentity(StorePtr store) : store_(std::move(store)) {}
  std::string IdentityValue3();
  void IdentityValue3(const std::string& value);
  std::string IdentityValue2();
  void IdentityValue2(const std::string& value);
  std::string IdentityValue1();
  void IdentityValue1(const std::string& value);

 private:
  StorePtr store_;
};

// The channel between console and service: requests the console places, answers and time
// stamps the service writes back.
class clsConsole {
 public:
  explicit clsConsole(StorePtr store) : store_(std::move(store)) {}
  std::string RequestJobName();
  void RequestJobName(const std::string& value);
  Date LogLastChanged();
  void LogLastChanged(Date value);
  Date LatestReportTime();
  void LatestReportTime(Date value);
  void AppendTestLine(const std::string& text);
  // A pending request is taken by reading it: a second read finds it gone.
  bool ReminderRequested();
  void ReminderRequested(bool value);
  bool TestBackupRequested();
  void TestBackupRequested(bool value);
  bool TestFinished();
  void TestFinished(bool value);
  std::string RunJobRequest();
  void RunJobRequest(const std::string& value);
  bool ReminderByEmailSelected();
  void ReminderByEmailSelected(bool value);
  bool ReminderByBroadcastSelected();
  void ReminderByBroadcastSelected(bool value);
  // The answer lines after the one numbered `lastSeen`, oldest first, with their numbers.
  std::vector<std::pair<int64_t, std::string>> AnswersAfter(int64_t lastSeen);

 private:
  StorePtr store_;
};

class clsTemplates {
 public:
  explicit clsTemplates(StorePtr store) : store_(std::move(store)) {}
  std::string SubjectCompletedNormally();
  std::string SubjectEncounteredErrors();
  std::string SubjectOtherOutcome();
  std::string TestReminderSubject();
  std::string TestReminderBody();
  std::string ReminderSubject();
  std::string ReminderBody();

 private:
  StorePtr store_;
};

// Values that whoever deploys the product sets: where support is, where help pages are.
class clsDeployment {
 public:
  explicit clsDeployment(StorePtr store) : store_(std::move(store)) {}
  std::string SupportEmailAddress();
  std::string TroubleshootingPage();
  std::string AuthTroubleshootingPage();

 private:
  StorePtr store_;
};

// Where a job's backups go: a folder that receives one archive per run, or a tape device.
class clsDestination {
 public:
  clsDestination(StorePtr store, int64_t job) : store_(std::move(store)), job_(job) {}
  std::string DestinationText();  // the destination line of reports
  std::string Path();
  void Path(const std::string& value);

 private:
  StorePtr store_;
  int64_t job_;
};

class clsJobNotification {
 public:
  clsJobNotification(StorePtr store, int64_t job) : store_(std::move(store)), job_(job) {}
  bool PrintReport();
  void PrintReport(bool value);
  bool SendReportEmail();
  void SendReportEmail(bool value);
  bool MediaReminderByEmail();
  void MediaReminderByEmail(bool value);
  bool MediaReminderByBroadcast();
  void MediaReminderByBroadcast(bool value);
  Date ReminderTime();
  void ReminderTime(Date value);
  Date ReminderLastFired();
  void ReminderLastFired(Date value);
  bool MaintenanceEmailEnabled();
  void MaintenanceEmailEnabled(bool value);
  std::string MaintenanceSubject();
  void MaintenanceSubject(const std::string& value);
  std::string MaintenanceBody();
  void MaintenanceBody(const std::string& value);
  std::string MaintenanceOccurrence();
  void MaintenanceOccurrence(const std::string& value);
  Date MaintenanceLastFired();
  void MaintenanceLastFired(Date value);

 private:
  StorePtr store_;
  int64_t job_;
};

// One configured backup job.
class clsJob {
 public:
  clsJob(StorePtr store, int64_t id) : store_(std::move(store)), id_(id) {}
  clsDestination Destination();
  clsJobNotification JobNotification();
  std::string BackupLogId();
  void BackupLogId(const std::string& value);
  std::string Name();
  void Name(const std::string& value);
  std::string Description();
  void Description(const std::string& value);
  std::string SchemeProgId();
  void SchemeProgId(const std::string& value);
  bool Suspended();
  void Suspended(bool value);
  Date ScheduledTime();
  void ScheduledTime(Date value);
  Date ScheduleLastFired();
  void ScheduleLastFired(Date value);
  Date NextRunTime();
  void NextRunTime(Date value);
  int16_t RunStatus();
  void RunStatus(int16_t value);
  std::string TapeLabel();
  void TapeLabel(const std::string& value);
  int32_t BackupMethod();
  void BackupMethod(int32_t value);
  int32_t BackupMode();
  void BackupMode(int32_t value);
  bool Eject();
  void Eject(bool value);
  int32_t BackupTimeout();  // minutes
  void BackupTimeout(int32_t value);
  // What the executor backs up.
  std::vector<std::string> Sources();
  void Sources(const std::vector<std::string>& paths);
  // The media values of the run being launched, as its scheme gave them, and when it was launched:
  // written by the launch, read by the executor and the console.
  std::string RunTapeLabel();
  void RunTapeLabel(const std::string& value);
  int32_t RunBackupMethod();
  void RunBackupMethod(int32_t value);
  int32_t RunBackupMode();
  void RunBackupMode(int32_t value);
  bool RunEject();
  void RunEject(bool value);
  Date RunStartTime();
  void RunStartTime(Date value);
  // The last run as the service reported it (status in the report log's numbering), and the
  // scheduled runs it missed while it was not polling; the console's status reads them.
  void LastRun(Date start, Date end, int32_t status, const std::string& reportFile);
  void RecordMissedRuns(Date latest, int32_t count);

  int64_t Id() const { return id_; }
  // False once the job has been removed, by this program or another.
  bool Exists();

 private:
  StorePtr store_;
  int64_t id_;
};

class clsGeneral {
 public:
  explicit clsGeneral(StorePtr store) : store_(std::move(store)) {}
  clsMailSettings MailSettings();
  clsOptions Options();
  clsIdentity Identity();
  clsConsole Console();
  clsTemplates Templates();
  int32_t JobCount();
  // Every job's timing values in job order (index i is JobByIndex(i)), read in one go.
  std::vector<JobTimingValues> JobTimings();
  // Raises Subscript out of range (9) for an index outside 0 .. JobCount - 1.
  clsJob JobByIndex(int32_t index);
  // Raises Subscript out of range (9) with "Unknown backup job "<name>"" when there is none.
  clsJob JobByName(const std::string& name);

  // Beyond what the service uses: for the console and the helper programs.
  clsDeployment Deployment();
  std::optional<clsJob> FindJob(const std::string& name);
  std::optional<clsJob> FindJobByBackupLogId(const std::string& backupLogId);
  std::vector<clsJob> Jobs();
  // The job with that row identifier, as JobStatuses and JobTimings give it.
  clsJob JobById(int64_t id) { return clsJob(store_, id); }
  // Adds a job with every other member at its default; the name and the backup log identifier
  // must be free (the store refuses duplicates).
  clsJob AddJob(const std::string& name, const std::string& backupLogId);
  void RemoveJob(const clsJob& job);
  std::string DefaultDestination();
  int32_t DefaultTimeout();

 private:
  StorePtr store_;
};

// The root object, created once per process and kept for its life.
class TWSettings {
 public:
  explicit TWSettings(const std::string& path);
  clsGeneral General() { return clsGeneral(store_); }
  SettingsStore& Store() { return *store_; }
  const std::string& Path() const { return store_->Path(); }

 private:
  StorePtr store_;
};

}  // namespace tw
