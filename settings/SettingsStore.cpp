#include "settings/SettingsStore.h"

#include <sqlite3.h>

#include <cmath>
#include <filesystem>
#include <system_error>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "platform/Files.h"
#include "settings/Database.h"

namespace tw {
namespace {

const char* kSource = "TWSettings";
// How long a program waits for another one that holds the file: the console and the helper
// programs write while the service reads.
constexpr int kBusyTimeoutMilliseconds = 5000;
// "TWKS": marks a file as a settings file of this product.
constexpr int64_t kApplicationId = 0x54574B53;

const char* const kSchemaV1 = R"sql(
CREATE TABLE settings (
  key   TEXT PRIMARY KEY,
  value
) WITHOUT ROWID;

CREATE TABLE jobs (
  id                          INTEGER PRIMARY KEY,
  position                    INTEGER NOT NULL,
  name                        TEXT NOT NULL UNIQUE COLLATE NOCASE,
  description                 TEXT NOT NULL DEFAULT '',
  backup_log_id               TEXT NOT NULL UNIQUE,
  scheme_prog_id              TEXT NOT NULL DEFAULT 'TWSchemes.Daily',
  suspended                   INTEGER NOT NULL DEFAULT 0,
  scheduled_time              REAL NOT NULL DEFAULT 0.875,
  schedule_last_fired         REAL NOT NULL DEFAULT 0,
  next_run_time               REAL NOT NULL DEFAULT 0,
  run_status                  INTEGER NOT NULL DEFAULT 0,
  tape_label                  TEXT NOT NULL DEFAULT '',
  backup_method               INTEGER NOT NULL DEFAULT 0,
  backup_mode                 INTEGER NOT NULL DEFAULT 0,
  eject                       INTEGER NOT NULL DEFAULT 0,
  backup_timeout              INTEGER NOT NULL DEFAULT 240,
  destination                 TEXT NOT NULL DEFAULT '',
  print_report                INTEGER NOT NULL DEFAULT 0,
  send_report_email           INTEGER NOT NULL DEFAULT 1,
  media_reminder_by_email     INTEGER NOT NULL DEFAULT 0,
  media_reminder_by_broadcast INTEGER NOT NULL DEFAULT 0,
  reminder_time               REAL NOT NULL DEFAULT 0.666666666666667,
  reminder_last_fired         REAL NOT NULL DEFAULT 0,
  maintenance_email_enabled   INTEGER NOT NULL DEFAULT 0,
  maintenance_subject         TEXT NOT NULL DEFAULT '',
  maintenance_body            TEXT NOT NULL DEFAULT '',
  maintenance_occurrence      TEXT NOT NULL DEFAULT '',
  maintenance_last_fired      REAL NOT NULL DEFAULT 0
);
CREATE INDEX jobs_by_position ON jobs (position);

CREATE TABLE job_sources (
  job_id   INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  path     TEXT NOT NULL,
  PRIMARY KEY (job_id, position)
) WITHOUT ROWID;

CREATE TABLE console_answers (
  id   INTEGER PRIMARY KEY AUTOINCREMENT,
  line TEXT NOT NULL
);
)sql";

// Version 2: the media values of the run being launched, for the executor, and its start.
const char* const kSchemaV2 = R"sql(
ALTER TABLE jobs ADD COLUMN run_tape_label TEXT NOT NULL DEFAULT '';
ALTER TABLE jobs ADD COLUMN run_backup_method INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN run_backup_mode INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN run_eject INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN run_start_time REAL NOT NULL DEFAULT 0;
)sql";

// Version 3: each job's last run and missed runs, kept as they happen so that the console's status
// reads one table rather than every report log; and what became of each report's mail.
const char* const kSchemaV3 = R"sql(
ALTER TABLE jobs ADD COLUMN last_run_start REAL NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN last_run_end REAL NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN last_run_status INTEGER NOT NULL DEFAULT -1;
ALTER TABLE jobs ADD COLUMN last_report TEXT NOT NULL DEFAULT '';
ALTER TABLE jobs ADD COLUMN last_missed REAL NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN missed_runs INTEGER NOT NULL DEFAULT 0;

CREATE TABLE report_mails (
  job        TEXT NOT NULL,
  time_start TEXT NOT NULL,
  state      TEXT NOT NULL,
  retry      INTEGER NOT NULL DEFAULT 0,
  at         REAL NOT NULL DEFAULT 0,
  PRIMARY KEY (job, time_start)
) WITHOUT ROWID;
)sql";

// Migration N brings a file from schema N-1 to N.
const std::vector<const char*>& Migrations() {
  static const std::vector<const char*> migrations = {kSchemaV1, kSchemaV2, kSchemaV3};
  return migrations;
}

struct JobColumn {
  const char* column;
  ValueKind kind;
  std::string select;
  std::string update;
};

JobColumn Column(const char* name, ValueKind kind) {
  return {name, kind, std::string("SELECT ") + name + " FROM jobs WHERE id = ?1",
          std::string("UPDATE jobs SET ") + name + " = ?2 WHERE id = ?1"};
}

const JobColumn& ColumnOf(JobField field) {
  using K = ValueKind;
  static const std::vector<JobColumn> columns = {
      Column("name", K::Text),
      Column("description", K::Text),
      Column("backup_log_id", K::Text),
      Column("scheme_prog_id", K::Text),
      Column("suspended", K::Boolean),
      Column("scheduled_time", K::Date),
      Column("schedule_last_fired", K::Date),
      Column("next_run_time", K::Date),
      Column("run_status", K::Integer),
      Column("tape_label", K::Text),
      Column("backup_method", K::Integer),
      Column("backup_mode", K::Integer),
      Column("eject", K::Boolean),
      Column("backup_timeout", K::Integer),
      Column("destination", K::Text),
      Column("print_report", K::Boolean),
      Column("send_report_email", K::Boolean),
      Column("media_reminder_by_email", K::Boolean),
      Column("media_reminder_by_broadcast", K::Boolean),
      Column("reminder_time", K::Date),
      Column("reminder_last_fired", K::Date),
      Column("maintenance_email_enabled", K::Boolean),
      Column("maintenance_subject", K::Text),
      Column("maintenance_body", K::Text),
      Column("maintenance_occurrence", K::Text),
      Column("maintenance_last_fired", K::Date),
      Column("run_tape_label", K::Text),
      Column("run_backup_method", K::Integer),
      Column("run_backup_mode", K::Integer),
      Column("run_eject", K::Boolean),
      Column("run_start_time", K::Date),
      Column("last_run_start", K::Date),
      Column("last_run_end", K::Date),
      Column("last_run_status", K::Integer),
      Column("last_report", K::Text),
      Column("last_missed", K::Date),
      Column("missed_runs", K::Integer),
  };
  return columns.at(static_cast<size_t>(field));
}

[[noreturn]] void Malformed(const std::string& what, const std::string& value, const char* expected) {
  throw TWError(errnum::TypeMismatch, "Setting " + what + " holds \"" + value + "\", which is not " + expected,
                kSource);
}

// Reads a column (the first unless told) of the current row as the given kind, tolerating what a
// hand edit may leave (a number stored as text, a Boolean as a word) and refusing what cannot be
// meant.
bool AsBool(const Query& q, const std::string& what, int column = 0) {
  switch (q.ColumnKind(column)) {
    case Query::Kind::Integer: return q.Int(column) != 0;
    case Query::Kind::Real: return q.Real(column) != 0;
    case Query::Kind::Text: {
      const std::string text = q.Text(column);
      if (auto word = ParseBooleanWord(text)) return *word;
      try {
        return TextToBool(text);
      } catch (const TWError&) {
        Malformed(what, text, "true or false");
      }
    }
    default: Malformed(what, q.Text(column), "true or false");
  }
}

int64_t AsInteger(const Query& q, const std::string& what, int column = 0) {
  switch (q.ColumnKind(column)) {
    case Query::Kind::Integer: return q.Int(column);
    case Query::Kind::Real:
    case Query::Kind::Text: {
      const std::string text = q.Text(column);
      const auto number = ParseNumber(text);
      if (!number || *number < -9.2e18 || *number > 9.2e18) Malformed(what, text, "a whole number");
      return static_cast<int64_t>(std::llround(*number));
    }
    default: Malformed(what, q.Text(column), "a whole number");
  }
}

double AsReal(const Query& q, const std::string& what, int column = 0) {
  switch (q.ColumnKind(column)) {
    case Query::Kind::Integer:
    case Query::Kind::Real: return q.Real(column);
    case Query::Kind::Text: {
      const std::string text = q.Text(column);
      if (const auto number = ParseNumber(text)) return *number;
      Malformed(what, text, "a date number");
    }
    default: Malformed(what, q.Text(column), "a date number");
  }
}

int32_t CheckedInt32(int64_t value, const std::string& what) {
  if (value < INT32_MIN || value > INT32_MAX) Malformed(what, std::to_string(value), "a 32-bit number");
  return static_cast<int32_t>(value);
}

const SettingKey& KeyOfKind(std::string_view key, ValueKind kind) {
  const SettingKey& found = SettingKeyOf(key);
  if (found.kind != kind && !(kind == ValueKind::Text && found.kind == ValueKind::Choice)) {
    throw TWError(errnum::TypeMismatch, "Setting " + std::string(key) + " is not of the kind asked for", kSource);
  }
  return found;
}

// A column read as its kind, or nothing when it does not read so: for listings of every job, which
// go on past one bad value.
template <typename Read>
auto Lenient(Read read, const Query& q, int column) -> std::optional<decltype(read(q, std::string(), column))> {
  try {
    return read(q, std::string(), column);
  } catch (const TWError&) {
    return std::nullopt;
  }
}

std::string JobWhat(int64_t id, JobField field) {
  return std::string(ColumnOf(field).column) + " of job #" + std::to_string(id);
}

[[noreturn]] void JobGone(int64_t id) {
  throw TWError(errnum::SubscriptOutOfRange, "The backup job #" + std::to_string(id) + " no longer exists",
                kSource);
}

// The stored value of a keyed setting, as `read` takes it from the row; nothing when the file or
// the value is not there yet.
template <typename T, typename Read>
std::optional<T> ReadKeyColumn(Database* database, std::string_view key, Read read) {
  if (database == nullptr) return std::nullopt;
  auto q = database->Prepare("SELECT value FROM settings WHERE key = ?1");
  q.BindText(1, key);
  if (!q.Step() || q.ColumnKind(0) == Query::Kind::Null) return std::nullopt;
  return read(q);
}

// One column of a job's row, as `read` takes it; a job that is gone raises.
template <typename Read>
auto ReadJobColumn(Database* database, int64_t id, JobField field, Read read) {
  if (database == nullptr) JobGone(id);
  auto q = database->Prepare(ColumnOf(field).select);
  q.BindInt(1, id);
  if (!q.Step()) JobGone(id);
  return read(q);
}

}  // namespace

SettingsStore::SettingsStore(std::string path) : path_(std::move(path)) {}

SettingsStore::~SettingsStore() = default;

bool SettingsStore::Exists() const {
  std::error_code error;
  return std::filesystem::exists(path_, error);
}

Database* SettingsStore::Open(bool forWrite) {
  if (database_) return database_.get();
  if (!Exists()) {
    if (!forWrite) return nullptr;
    if (const int error = platform::CreatePrivateFile(path_)) {
      throw TWError(errnum::PathFileAccess,
                    "Cannot create settings file " + path_ + ": " + std::generic_category().message(error), kSource);
    }
  }
  auto database = std::make_unique<Database>(path_);
  PrepareConnection(*database);
  database_ = std::move(database);
  openedIdentity_ = platform::IdentityOf(path_);
  return database_.get();
}

void SettingsStore::ForgetIfReplaced() {
  if (!database_ || transactionDepth_ > 0) return;
  if (platform::IdentityOf(path_) != openedIdentity_) database_.reset();
}

void SettingsStore::PrepareConnection(Database& database) {
  database.Execute("PRAGMA busy_timeout = " + std::to_string(kBusyTimeoutMilliseconds) +
                       "; PRAGMA foreign_keys = ON; PRAGMA synchronous = NORMAL",
                   "read");
  if (SchemaVersion(database) < kSchemaVersion) Migrate(database);
}

int64_t SettingsStore::SchemaVersion(Database& database) {
  int64_t applicationId = 0;
  int64_t version = 0;
  {
    auto q = database.Prepare("PRAGMA application_id");
    if (q.Step()) applicationId = q.Int(0);
  }
  {
    auto q = database.Prepare("PRAGMA user_version");
    if (q.Step()) version = q.Int(0);
  }
  if (applicationId != 0 && applicationId != kApplicationId) {
    throw TWError(errnum::PathFileAccess, "Settings file " + path_ + " is not a Tarnwick settings file", kSource);
  }
  if (version > kSchemaVersion) {
    throw TWError(errnum::PathFileAccess,
                  "Settings file " + path_ + " has schema version " + std::to_string(version) +
                      ", newer than this program knows (" + std::to_string(kSchemaVersion) + "); update Tarnwick",
                  kSource);
  }
  return version;
}

void SettingsStore::Migrate(Database& database) {
  // WAL lets the console read while the service writes, and the reverse.
  database.ExecuteWhenFree("PRAGMA journal_mode = WAL", kBusyTimeoutMilliseconds);
  // Another program may be creating or migrating the same file at this very moment (two twctl
  // commands writing a new file): the version counts as read only once the write lock is held.
  Transaction transaction(database);
  const int64_t fromVersion = SchemaVersion(database);
  if (fromVersion >= kSchemaVersion) return;  // the other one did it
  for (int64_t version = fromVersion + 1; version <= kSchemaVersion; ++version) {
    database.Execute(Migrations().at(static_cast<size_t>(version - 1)));
  }
  database.Execute("PRAGMA application_id = " + std::to_string(kApplicationId) +
                   "; PRAGMA user_version = " + std::to_string(kSchemaVersion));
  transaction.Commit();
}

bool SettingsStore::InTransactionIfFree(const std::function<void()>& work) {
  if (transactionDepth_ > 0) {
    work();
    return true;
  }
  Database& database = *Open(true);
  const auto waitAgain = [&] {
    database.Execute("PRAGMA busy_timeout = " + std::to_string(kBusyTimeoutMilliseconds), "read");
  };
  database.Execute("PRAGMA busy_timeout = 0", "read");
  try {
    InTransaction(work);
  } catch (const TWError& e) {
    waitAgain();
    if ((e.Number & 0xFF) == SQLITE_BUSY) return false;
    throw;
  }
  waitAgain();
  return true;
}

void SettingsStore::InTransaction(const std::function<void()>& work) {
  // A transaction inside another one joins it: the outer one decides.
  if (transactionDepth_ > 0) {
    work();
    return;
  }
  Database& database = *Open(true);
  Transaction transaction(database);
  ++transactionDepth_;
  try {
    work();
  } catch (...) {
    --transactionDepth_;
    throw;
  }
  --transactionDepth_;
  transaction.Commit();
}

// ---- keyed settings -------------------------------------------------------------------------

std::string SettingsStore::ReadText(std::string_view key) {
  const SettingKey& setting = KeyOfKind(key, ValueKind::Text);
  const auto stored = ReadKeyColumn<std::string>(Open(false), key, [&](const Query& q) {
    std::string value = q.Text(0);
    if (setting.kind != ValueKind::Choice) return value;
    if (ValidateSettingText(setting, value)) Malformed(std::string(key), value, "one of its choices");
    return ToLower(TrimWhitespace(value));
  });
  return stored ? *stored : std::string(setting.defaultValue);
}

bool SettingsStore::ReadBool(std::string_view key) {
  const SettingKey& setting = KeyOfKind(key, ValueKind::Boolean);
  const auto stored = ReadKeyColumn<bool>(Open(false), key, [&](const Query& q) { return AsBool(q, std::string(key)); });
  return stored ? *stored : *ParseBooleanWord(setting.defaultValue);
}

int32_t SettingsStore::ReadInt(std::string_view key) {
  const SettingKey& setting = KeyOfKind(key, ValueKind::Integer);
  const auto stored = ReadKeyColumn<int32_t>(Open(false), key, [&](const Query& q) {
    return CheckedInt32(AsInteger(q, std::string(key)), std::string(key));
  });
  return stored ? *stored : TextToInt32(setting.defaultValue);
}

Date SettingsStore::ReadDate(std::string_view key) {
  const SettingKey& setting = KeyOfKind(key, ValueKind::Date);
  const auto stored = ReadKeyColumn<Date>(Open(false), key, [&](const Query& q) { return AsReal(q, std::string(key)); });
  return stored ? *stored : LeadingNumber(setting.defaultValue);
}

namespace {
const char* kUpsert =
    "INSERT INTO settings (key, value) VALUES (?1, ?2) ON CONFLICT (key) DO UPDATE SET value = excluded.value";
}

void SettingsStore::WriteText(std::string_view key, std::string_view value) {
  KeyOfKind(key, ValueKind::Text);
  Open(true)->Prepare(kUpsert).BindText(1, key).BindText(2, value).Run();
}

void SettingsStore::WriteBool(std::string_view key, bool value) {
  KeyOfKind(key, ValueKind::Boolean);
  Open(true)->Prepare(kUpsert).BindText(1, key).BindInt(2, value ? 1 : 0).Run();
}

void SettingsStore::WriteInt(std::string_view key, int32_t value) {
  KeyOfKind(key, ValueKind::Integer);
  Open(true)->Prepare(kUpsert).BindText(1, key).BindInt(2, value).Run();
}

void SettingsStore::WriteDate(std::string_view key, Date value) {
  KeyOfKind(key, ValueKind::Date);
  Open(true)->Prepare(kUpsert).BindText(1, key).BindReal(2, value).Run();
}

bool SettingsStore::TakeBool(std::string_view key) {
  // Nearly always nothing is waiting: a plain read says so without taking the write lock, which
  // the console and the executor may want at the same moment.
  if (!Exists()) return ReadBool(key);
  if (!ReadBool(key)) return false;
  bool taken = false;
  InTransaction([&] {
    taken = ReadBool(key);
    if (taken) WriteBool(key, false);
  });
  return taken;
}

std::string SettingsStore::ReadAsText(std::string_view key) {
  switch (SettingKeyOf(key).kind) {
    case ValueKind::Text:
    case ValueKind::Choice: return ReadText(key);
    case ValueKind::Boolean: return ReadBool(key) ? "true" : "false";
    case ValueKind::Integer: return std::to_string(ReadInt(key));
    case ValueKind::Date: return NumberToText(ReadDate(key));
  }
  return {};
}

void SettingsStore::WriteFromText(std::string_view key, std::string_view text) {
  const SettingKey& setting = SettingKeyOf(key);
  if (auto problem = ValidateSettingText(setting, text)) {
    throw TWError(errnum::TypeMismatch, *problem, kSource);
  }
  switch (setting.kind) {
    case ValueKind::Text:
      // Lines keep the CR LF line ends of the product's texts, whatever the terminal sent.
      WriteText(key, setting.form == TextForm::Lines ? CrLfLineEnds(text) : std::string(text));
      break;
    case ValueKind::Choice: WriteText(key, ToLower(TrimWhitespace(text))); break;
    case ValueKind::Boolean: WriteBool(key, *ParseBooleanWord(text)); break;
    case ValueKind::Integer: WriteInt(key, TextToInt32(text)); break;
    case ValueKind::Date: WriteDate(key, *ParseNumber(text)); break;
  }
}

// ---- jobs -----------------------------------------------------------------------------------

int32_t SettingsStore::JobCount() {
  Database* database = Open(false);
  if (database == nullptr) return 0;
  auto q = database->Prepare("SELECT COUNT(*) FROM jobs");
  q.Step();
  return static_cast<int32_t>(q.Int(0));
}

std::optional<int64_t> SettingsStore::JobIdAt(int32_t index) {
  Database* database = Open(false);
  if (database == nullptr) return std::nullopt;
  auto q = database->Prepare("SELECT id FROM jobs WHERE position = ?1");
  q.BindInt(1, index);
  if (!q.Step()) return std::nullopt;
  return q.Int(0);
}

std::optional<int64_t> SettingsStore::FindJobId(std::string_view name) {
  Database* database = Open(false);
  if (database == nullptr) return std::nullopt;
  auto q = database->Prepare("SELECT id FROM jobs WHERE name = ?1");
  q.BindText(1, name);
  if (!q.Step()) return std::nullopt;
  return q.Int(0);
}

std::optional<int64_t> SettingsStore::FindJobIdByBackupLogId(std::string_view backupLogId) {
  Database* database = Open(false);
  if (database == nullptr) return std::nullopt;
  auto q = database->Prepare("SELECT id FROM jobs WHERE backup_log_id = ?1");
  q.BindText(1, backupLogId);
  if (!q.Step()) return std::nullopt;
  return q.Int(0);
}

std::vector<int64_t> SettingsStore::JobIds() {
  std::vector<int64_t> ids;
  Database* database = Open(false);
  if (database == nullptr) return ids;
  auto q = database->Prepare("SELECT id FROM jobs ORDER BY position");
  while (q.Step()) ids.push_back(q.Int(0));
  return ids;
}

bool SettingsStore::JobExists(int64_t id) {
  Database* database = Open(false);
  if (database == nullptr) return false;
  auto q = database->Prepare("SELECT 1 FROM jobs WHERE id = ?1");
  q.BindInt(1, id);
  return q.Step();
}

bool SettingsStore::BackupLogIdTaken(std::string_view backupLogId, int64_t exceptJob) {
  Database* database = Open(false);
  if (database == nullptr) return false;
  auto q = database->Prepare("SELECT 1 FROM jobs WHERE backup_log_id = ?1 AND id <> ?2");
  q.BindText(1, backupLogId).BindInt(2, exceptJob);
  return q.Step();
}

int64_t SettingsStore::InsertJob(std::string_view name, std::string_view backupLogId) {
  Database& database = *Open(true);
  database.Prepare("INSERT INTO jobs (position, name, backup_log_id) VALUES ((SELECT COUNT(*) FROM jobs), ?1, ?2)")
      .BindText(1, name)
      .BindText(2, backupLogId)
      .Run();
  return database.LastInsertId();
}

void SettingsStore::DeleteJob(int64_t id) {
  InTransaction([&] {
    Database& database = *Open(true);
    int64_t position = 0;
    {
      auto q = database.Prepare("SELECT position FROM jobs WHERE id = ?1");
      q.BindInt(1, id);
      if (!q.Step()) JobGone(id);
      position = q.Int(0);
    }
    database.Prepare("DELETE FROM jobs WHERE id = ?1").BindInt(1, id).Run();
    // Keep positions dense, so that index i is always the i-th job.
    database.Prepare("UPDATE jobs SET position = position - 1 WHERE position > ?1").BindInt(1, position).Run();
  });
}

std::string SettingsStore::JobText(int64_t id, JobField field) {
  return ReadJobColumn(Open(false), id, field, [&](const Query& q) { return q.Text(0); });
}

bool SettingsStore::JobBool(int64_t id, JobField field) {
  return ReadJobColumn(Open(false), id, field, [&](const Query& q) { return AsBool(q, JobWhat(id, field)); });
}

int64_t SettingsStore::JobInt(int64_t id, JobField field) {
  return ReadJobColumn(Open(false), id, field, [&](const Query& q) { return AsInteger(q, JobWhat(id, field)); });
}

Date SettingsStore::JobDate(int64_t id, JobField field) {
  return ReadJobColumn(Open(false), id, field, [&](const Query& q) { return AsReal(q, JobWhat(id, field)); });
}

void SettingsStore::SetJobText(int64_t id, JobField field, std::string_view value) {
  Database& database = *Open(true);
  database.Prepare(ColumnOf(field).update).BindInt(1, id).BindText(2, value).Run();
  if (database.Changes() == 0) JobGone(id);
}

void SettingsStore::SetJobBool(int64_t id, JobField field, bool value) { SetJobInt(id, field, value ? 1 : 0); }

void SettingsStore::SetJobInt(int64_t id, JobField field, int64_t value) {
  Database& database = *Open(true);
  database.Prepare(ColumnOf(field).update).BindInt(1, id).BindInt(2, value).Run();
  if (database.Changes() == 0) JobGone(id);
}

void SettingsStore::SetJobDate(int64_t id, JobField field, Date value) {
  Database& database = *Open(true);
  database.Prepare(ColumnOf(field).update).BindInt(1, id).BindReal(2, value).Run();
  if (database.Changes() == 0) JobGone(id);
}

std::vector<std::string> SettingsStore::JobSources(int64_t id) {
  std::vector<std::string> paths;
  Database* database = Open(false);
  if (database == nullptr) return paths;
  auto q = database->Prepare("SELECT path FROM job_sources WHERE job_id = ?1 ORDER BY position");
  q.BindInt(1, id);
  while (q.Step()) paths.push_back(q.Text(0));
  return paths;
}

void SettingsStore::SetJobSources(int64_t id, const std::vector<std::string>& paths) {
  InTransaction([&] {
    Database& database = *Open(true);
    database.Prepare("DELETE FROM job_sources WHERE job_id = ?1").BindInt(1, id).Run();
    for (size_t i = 0; i < paths.size(); ++i) {
      database.Prepare("INSERT INTO job_sources (job_id, position, path) VALUES (?1, ?2, ?3)")
          .BindInt(1, id)
          .BindInt(2, static_cast<int64_t>(i))
          .BindText(3, paths[i])
          .Run();
    }
  });
}

std::vector<JobTimingValues> SettingsStore::JobTimings() {
  std::vector<JobTimingValues> jobs;
  Database* database = Open(false);
  if (database == nullptr) return jobs;
  auto q = database->Prepare(
      "SELECT id, suspended, scheduled_time, media_reminder_by_email, media_reminder_by_broadcast, reminder_time, "
      "maintenance_email_enabled, maintenance_occurrence FROM jobs ORDER BY position");
  // A value that does not read as its kind is left out; whoever reads it one by one reports it.
  const auto readBool = [&](int column) { return Lenient(AsBool, q, column); };
  const auto readDate = [&](int column) { return Lenient(AsReal, q, column); };
  while (q.Step()) {
    JobTimingValues& job = jobs.emplace_back();
    job.id = q.Int(0);
    job.suspended = readBool(1);
    job.scheduledTime = readDate(2);
    job.reminderByEmail = readBool(3);
    job.reminderByBroadcast = readBool(4);
    job.reminderTime = readDate(5);
    job.maintenanceEnabled = readBool(6);
    job.maintenanceOccurrence = q.Text(7);
  }
  return jobs;
}

std::vector<JobStatusValues> SettingsStore::JobStatuses() {
  std::vector<JobStatusValues> jobs;
  Database* database = Open(false);
  if (database == nullptr) return jobs;
  auto q = database->Prepare(
      "SELECT id, name, suspended, backup_log_id, run_status, run_start_time, backup_timeout, last_run_start, "
      "last_run_end, last_run_status, last_report, last_missed, missed_runs FROM jobs ORDER BY position");
  // A value that does not read as its kind reads as nothing: the listing goes on.
  const auto readInt = [&](int column, int64_t fallback) { return Lenient(AsInteger, q, column).value_or(fallback); };
  const auto readDate = [&](int column) { return Lenient(AsReal, q, column).value_or(0.0); };
  while (q.Step()) {
    JobStatusValues& job = jobs.emplace_back();
    job.id = q.Int(0);
    job.name = q.Text(1);
    job.suspended = Lenient(AsBool, q, 2).value_or(false);
    job.backupLogId = q.Text(3);
    job.runStatus = readInt(4, 0);
    job.runStartTime = readDate(5);
    job.timeoutMinutes = readInt(6, 0);
    job.lastRunStart = readDate(7);
    job.lastRunEnd = readDate(8);
    job.lastRunStatus = readInt(9, -1);
    job.lastReport = q.Text(10);
    job.lastMissed = readDate(11);
    job.missedRuns = readInt(12, 0);
  }
  return jobs;
}

// ---- report mails ---------------------------------------------------------------------------

void SettingsStore::SetReportMail(std::string_view job, Date timeStart, const ReportMailOutcome& outcome) {
  Open(true)
      ->Prepare("INSERT OR REPLACE INTO report_mails (job, time_start, state, retry, at) VALUES (?1, ?2, ?3, ?4, ?5)")
      .BindText(1, job)
      .BindText(2, IsoText(timeStart))
      .BindText(3, outcome.state)
      .BindInt(4, outcome.retry)
      .BindReal(5, outcome.at)
      .Run();
}

std::optional<ReportMailOutcome> SettingsStore::ReportMail(std::string_view job, Date timeStart) {
  Database* database = Open(false);
  if (database == nullptr) return std::nullopt;
  auto q = database->Prepare("SELECT state, retry, at FROM report_mails WHERE job = ?1 AND time_start = ?2");
  q.BindText(1, job).BindText(2, IsoText(timeStart));
  if (!q.Step()) return std::nullopt;
  return ReportMailOutcome{q.Text(0), static_cast<int32_t>(q.Int(1)), q.Real(2)};
}

int64_t SettingsStore::CountReportMails(std::string_view state) {
  Database* database = Open(false);
  if (database == nullptr) return 0;
  auto q = database->Prepare("SELECT count(*) FROM report_mails WHERE state = ?1");
  q.BindText(1, state);
  return q.Step() ? q.Int(0) : 0;
}

// ---- console answers ------------------------------------------------------------------------

void SettingsStore::AppendAnswer(std::string_view line) {
  Open(true)->Prepare("INSERT INTO console_answers (line) VALUES (?1)").BindText(1, line).Run();
}

std::vector<std::pair<int64_t, std::string>> SettingsStore::AnswersAfter(int64_t lastSeen) {
  std::vector<std::pair<int64_t, std::string>> lines;
  Database* database = Open(false);
  if (database == nullptr) return lines;
  auto q = database->Prepare("SELECT id, line FROM console_answers WHERE id > ?1 ORDER BY id");
  q.BindInt(1, lastSeen);
  while (q.Step()) lines.emplace_back(q.Int(0), q.Text(1));
  return lines;
}

}  // namespace tw
