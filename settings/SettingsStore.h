#pragma once
// The settings file behind the object model. It is opened on first use and created (mode 0600,
// since it holds the backup account's password) on the first write; reading a file that does
// not exist yet gives the defaults. Every read and write goes to the database when it is asked
// for: the console and the helper programs change the same file while the service runs.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/Date.h"
#include "platform/Files.h"
#include "settings/SettingKeys.h"

namespace tw {

class Database;

// The members of a backup job that live in its row of the store.
enum class JobField {
  Name, Description, BackupLogId, SchemeProgId, Suspended, ScheduledTime, ScheduleLastFired, NextRunTime,
  RunStatus, TapeLabel, BackupMethod, BackupMode, Eject, BackupTimeout, Destination,
  PrintReport, SendReportEmail, MediaReminderByEmail, MediaReminderByBroadcast, ReminderTime,
  ReminderLastFired, MaintenanceEmailEnabled, MaintenanceSubject, MaintenanceBody, MaintenanceOccurrence,
  MaintenanceLastFired, RunTapeLabel, RunBackupMethod, RunBackupMode, RunEject, RunStartTime,
  LastRunStart, LastRunEnd, LastRunStatus, LastReport, LastMissed, MissedRuns,
};

// The values of one job that decide whether its reminder, scheduled run or maintenance e-mail
// can be due at a given moment. A value that does not read as its kind is empty.
struct JobTimingValues {
  int64_t id = 0;
  std::optional<bool> suspended;
  std::optional<Date> scheduledTime;
  std::optional<bool> reminderByEmail;
  std::optional<bool> reminderByBroadcast;
  std::optional<Date> reminderTime;
  std::optional<bool> maintenanceEnabled;
  std::string maintenanceOccurrence;
};

// What the console's status and metrics show of one job, read for every job at once. A value that
// does not read as its kind reads as nothing.
struct JobStatusValues {
  int64_t id = 0;
  std::string name;
  bool suspended = false;
  std::string backupLogId;
  int64_t runStatus = 0;
  Date runStartTime = 0;
  int64_t timeoutMinutes = 0;
  Date lastRunStart = 0;
  Date lastRunEnd = 0;
  int64_t lastRunStatus = -1;  // the report log's numbering (0 normal, 1 timed out, 2 errors); -1 none
  std::string lastReport;      // the report log's file name
  Date lastMissed = 0;         // the latest scheduled run missed while the service was not polling
  int64_t missedRuns = 0;      // how many, ever
};

// What became of a report's mail: "sent" (`at` the time), "waiting" (re-send `retry` of eleven
// next, at `at`), "given up" (`at` the last try) or "not asked for".
struct ReportMailOutcome {
  std::string state;
  int32_t retry = 0;
  Date at = 0;
};

class SettingsStore {
 public:
  // The schema this program writes; older files are migrated when first opened.
  static constexpr int kSchemaVersion = 3;

  explicit SettingsStore(std::string path);
  ~SettingsStore();
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  const std::string& Path() const { return path_; }
  bool Exists() const;
  // Closes the connection when the file has been replaced or removed since it was opened (a
  // restore, a file made afresh by the console): the next use opens what the path names now.
  // A connection kept to the old file would go on reading what nobody sees any more.
  void ForgetIfReplaced();

  // Keyed settings (SettingKeys.h); a key with no stored value reads as its default. A stored
  // value that does not fit the key's kind raises TWError naming the key and the value.
  std::string ReadText(std::string_view key);
  bool ReadBool(std::string_view key);
  int32_t ReadInt(std::string_view key);
  Date ReadDate(std::string_view key);
  void WriteText(std::string_view key, std::string_view value);
  void WriteBool(std::string_view key, bool value);
  void WriteInt(std::string_view key, int32_t value);
  void WriteDate(std::string_view key, Date value);
  // Reads a Boolean and, when it is set, clears it in the same transaction: the way a console
  // request is taken, once.
  bool TakeBool(std::string_view key);
  // The console's text form of a value ("true", "25", "starttls") and its way back; the text
  // must have passed ValidateSettingText.
  std::string ReadAsText(std::string_view key);
  void WriteFromText(std::string_view key, std::string_view text);

  // Jobs, kept in the order in which they were added; index 0 is the oldest.
  int32_t JobCount();
  std::optional<int64_t> JobIdAt(int32_t index);
  std::optional<int64_t> FindJobId(std::string_view name);  // names compare without regard to case
  std::optional<int64_t> FindJobIdByBackupLogId(std::string_view backupLogId);
  std::vector<int64_t> JobIds();
  bool JobExists(int64_t id);
  bool BackupLogIdTaken(std::string_view backupLogId, int64_t exceptJob);
  int64_t InsertJob(std::string_view name, std::string_view backupLogId);
  void DeleteJob(int64_t id);

  std::string JobText(int64_t id, JobField field);
  bool JobBool(int64_t id, JobField field);
  int64_t JobInt(int64_t id, JobField field);
  Date JobDate(int64_t id, JobField field);
  void SetJobText(int64_t id, JobField field, std::string_view value);
  void SetJobBool(int64_t id, JobField field, bool value);
  void SetJobInt(int64_t id, JobField field, int64_t value);
  void SetJobDate(int64_t id, JobField field, Date value);
  // Every job's timing values in job order, read at once: one query instead of several per job.
  std::vector<JobTimingValues> JobTimings();
  std::vector<JobStatusValues> JobStatuses();
  std::vector<std::string> JobSources(int64_t id);
  void SetJobSources(int64_t id, const std::vector<std::string>& paths);

  // Report mail outcomes, by the job's name and the run's start as the report log holds them.
  void SetReportMail(std::string_view job, Date timeStart, const ReportMailOutcome& outcome);
  std::optional<ReportMailOutcome> ReportMail(std::string_view job, Date timeStart);
  int64_t CountReportMails(std::string_view state);

  // The console's answer channel: lines appended by the service, read by the console.
  void AppendAnswer(std::string_view line);
  std::vector<std::pair<int64_t, std::string>> AnswersAfter(int64_t lastSeen);

  // Runs `work` in one write transaction: all of it lands, or none of it.
  void InTransaction(const std::function<void()>& work);
  // The same, for what may as well wait for the next time (a heartbeat): false, with nothing
  // written, when another program holds the file, rather than waiting for it.
  bool InTransactionIfFree(const std::function<void()>& work);

 private:
  // The open connection; nullptr when the file does not exist and `forWrite` is false.
  Database* Open(bool forWrite);
  void PrepareConnection(Database& database);
  // The file's schema version; raises TWError for a file of another program or a newer version.
  int64_t SchemaVersion(Database& database);
  // Brings the file to kSchemaVersion in one write transaction.
  void Migrate(Database& database);

  std::string path_;
  std::unique_ptr<Database> database_;
  std::optional<platform::FileIdentity> openedIdentity_;  // of the file database_ has open
  int transactionDepth_ = 0;
};

}  // namespace tw
