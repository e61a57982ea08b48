#include "console/Twctl.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "common/Error.h"
#include "common/EventPump.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "logging/clsLogs.h"
#include "settings/SettingKeys.h"
#include "settings/StatusText.h"
#include "settings/TWSettings.h"

namespace tw {
namespace {

using Json = nlohmann::ordered_json;

// Bad usage: a value the administrator typed that cannot be right. Exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Failure: the command was well formed but cannot be done. Exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Time-outs longer than a year are taken for a typing error.
constexpr int32_t kMaxTimeoutMinutes = 525600;

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }
std::string YesNo(bool value) { return value ? "yes" : "no"; }
std::string WhenText(Date value) { return value == 0 ? "never" : IsoText(value); }

// ---- job options ----------------------------------------------------------------------------

// The options of "job add" and "job set", as typed.
struct JobOptions {
  std::string description, time, scheme, timeout, destination, backupLogId;
  std::vector<std::string> sources;
  bool suspend = false, resume = false;
  CLI::Option *descriptionOpt, *timeOpt, *schemeOpt, *timeoutOpt, *destinationOpt, *backupLogIdOpt, *sourcesOpt;
};

void RegisterJobOptions(CLI::App* command, JobOptions& o) {
  o.descriptionOpt = command->add_option("--description", o.description, "free text shown in reports");
  o.timeOpt = command->add_option("--time", o.time, "daily start time, HH:MM or HH:MM:SS (default 21:00)");
  o.schemeOpt = command->add_option("--scheme", o.scheme, "media scheme identifier (default TWSchemes.Daily)");
  o.timeoutOpt = command->add_option("--timeout", o.timeout,
                                     "minutes a run may take before it counts as hung (default from "
                                     "general.default_timeout)");
  o.sourcesOpt = command->add_option("--source", o.sources, "file or folder to back up; repeat for more")
                     ->allow_extra_args(false);
  o.destinationOpt = command->add_option("--destination", o.destination,
                                         "folder for the archives, or a tape device (default from "
                                         "general.default_destination)");
  o.backupLogIdOpt = command->add_option("--backup-log-id", o.backupLogId,
                                         "identifier in the run's marker file name (default from the name)");
  auto* suspend = command->add_flag("--suspended", o.suspend,
                                    "suspend the job: no scheduled run, reminder or maintenance e-mail");
  command->add_flag("--no-suspended", o.resume, "resume a suspended job")->excludes(suspend);
}

// What a job command changes, checked before anything is written.
struct JobChanges {
  std::optional<std::string> description, scheme, destination, backupLogId;
  std::optional<Date> time;
  std::optional<int32_t> timeout;
  std::optional<std::vector<std::string>> sources;
  std::optional<bool> suspended;
};

bool IsIdentifierChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
         c == '-';
}

std::string AbsolutePath(const std::string& path, const char* option) {
  if (path.empty()) throw UsageError(std::string("empty path for ") + option);
  return std::filesystem::absolute(path).lexically_normal().string();
}

void CheckName(const std::string& name) {
  if (TrimWhitespace(name).empty()) throw UsageError("a job name must not be empty");
  for (char c : name) {
    if (c == '\t' || c == '\r' || c == '\n') throw UsageError("a job name must be one line without tabs");
  }
}

JobChanges CheckJobOptions(const JobOptions& o) {
  JobChanges c;
  if (o.descriptionOpt->count()) c.description = o.description;
  if (o.timeOpt->count()) {
    c.time = ParseTimeOfDay(o.time);
    if (!c.time) throw UsageError("invalid time " + Quoted(o.time) + " for --time (expected HH:MM or HH:MM:SS)");
  }
  if (o.schemeOpt->count()) {
    if (TrimWhitespace(o.scheme).empty()) throw UsageError("empty scheme identifier for --scheme");
    c.scheme = o.scheme;
  }
  if (o.timeoutOpt->count()) {
    const auto number = ParseNumber(o.timeout);
    if (!number || *number != std::floor(*number) || *number < 0 || *number > kMaxTimeoutMinutes) {
      throw UsageError("invalid number " + Quoted(o.timeout) +
                       " for --timeout (expected whole minutes from 0 to " + std::to_string(kMaxTimeoutMinutes) +
                       ")");
    }
    c.timeout = static_cast<int32_t>(*number);
  }
  if (o.sourcesOpt->count()) {
    std::vector<std::string> sources;
    for (const auto& source : o.sources) sources.push_back(AbsolutePath(source, "--source"));
    c.sources = sources;
  }
  if (o.destinationOpt->count()) c.destination = AbsolutePath(o.destination, "--destination");
  if (o.backupLogIdOpt->count()) {
    const bool valid = !o.backupLogId.empty() && o.backupLogId.size() <= 64 &&
                       std::all_of(o.backupLogId.begin(), o.backupLogId.end(), IsIdentifierChar);
    if (!valid) {
      throw UsageError("invalid identifier " + Quoted(o.backupLogId) +
                       " for --backup-log-id (letters, digits, '.', '_' and '-', at most 64)");
    }
    c.backupLogId = o.backupLogId;
  }
  if (o.suspend) c.suspended = true;
  if (o.resume) c.suspended = false;
  return c;
}

// A marker-file identifier made from the job's name, free among the other jobs.
std::string DefaultBackupLogId(SettingsStore& store, const std::string& name) {
  std::string base;
  for (char c : name) base += IsIdentifierChar(c) ? c : '_';
  if (base.size() > 56) base.resize(56);
  std::string candidate = base;
  for (int n = 2; store.BackupLogIdTaken(candidate, 0); ++n) candidate = base + "-" + std::to_string(n);
  return candidate;
}

void ApplyJobChanges(clsJob& job, const JobChanges& c) {
  if (c.description) job.Description(*c.description);
  if (c.time) job.ScheduledTime(*c.time);
  if (c.scheme) job.SchemeProgId(*c.scheme);
  if (c.timeout) job.BackupTimeout(*c.timeout);
  if (c.sources) job.Sources(*c.sources);
  if (c.destination) job.Destination().Path(*c.destination);
  if (c.backupLogId) job.BackupLogId(*c.backupLogId);
  if (c.suspended) job.Suspended(*c.suspended);
}

clsJob RequireJob(TWSettings& settings, const std::string& name) {
  auto job = settings.General().FindJob(name);
  if (!job) throw Failure("unknown job " + Quoted(name) + " ('twctl job list' shows the jobs)");
  return *job;
}

// ---- job output -----------------------------------------------------------------------------

// The executor leaves 1 or 2 after a run and -2 during one; 0 means no run has set it yet.
std::string RunStatusText(int16_t status) {
  if (status == 0) return "0 (no run recorded)";
  return std::to_string(status) + " (" + clsStatusText().StatusText(status) + ")";
}

Json JobJson(clsJob& job) {
  auto n = job.JobNotification();
  Json notification = {
      {"send_report_email", n.SendReportEmail()},
      {"print_report", n.PrintReport()},
      {"media_reminder_by_email", n.MediaReminderByEmail()},
      {"media_reminder_by_broadcast", n.MediaReminderByBroadcast()},
      {"reminder_time", LongTime(n.ReminderTime())},
      {"reminder_last_fired", n.ReminderLastFired() == 0 ? Json(nullptr) : Json(IsoText(n.ReminderLastFired()))},
      {"maintenance_email_enabled", n.MaintenanceEmailEnabled()},
      {"maintenance_occurrence", n.MaintenanceOccurrence()},
      {"maintenance_subject", n.MaintenanceSubject()},
      {"maintenance_body", n.MaintenanceBody()},
      {"maintenance_last_fired",
       n.MaintenanceLastFired() == 0 ? Json(nullptr) : Json(IsoText(n.MaintenanceLastFired()))},
  };
  return Json{
      {"name", job.Name()},
      {"description", job.Description()},
      {"time", LongTime(job.ScheduledTime())},
      {"scheme", job.SchemeProgId()},
      {"timeout_minutes", job.BackupTimeout()},
      {"suspended", job.Suspended()},
      {"sources", job.Sources()},
      {"destination", job.Destination().Path()},
      {"backup_log_id", job.BackupLogId()},
      {"run_status", job.RunStatus()},
      {"run_status_text", RunStatusText(job.RunStatus())},
      {"schedule_last_fired", job.ScheduleLastFired() == 0 ? Json(nullptr) : Json(IsoText(job.ScheduleLastFired()))},
      {"notification", notification},
  };
}

void PrintJob(std::ostream& out, clsJob& job) {
  auto n = job.JobNotification();
  auto line = [&](const std::string& label, const std::string& value) {
    out << std::left << std::setw(26) << (label.empty() ? "" : label + ":") << value << "\n";
  };
  line("Name", job.Name());
  line("Description", job.Description());
  line("Scheduled time", LongTime(job.ScheduledTime()));
  line("Scheme", job.SchemeProgId());
  line("Time-out", std::to_string(job.BackupTimeout()) + " minutes");
  line("Suspended", YesNo(job.Suspended()));
  const auto sources = job.Sources();
  if (sources.empty()) line("Sources", "(none)");
  for (size_t i = 0; i < sources.size(); ++i) line(i == 0 ? "Sources" : "", sources[i]);
  line("Destination", job.Destination().Path());
  line("Backup log id", job.BackupLogId());
  line("Run status", RunStatusText(job.RunStatus()));
  line("Last scheduled run", WhenText(job.ScheduleLastFired()));
  line("Report by e-mail", YesNo(n.SendReportEmail()));
  line("Print report", YesNo(n.PrintReport()));
  line("Media reminder", std::string("e-mail ") + YesNo(n.MediaReminderByEmail()) + ", broadcast " +
                             YesNo(n.MediaReminderByBroadcast()) + ", at " + LongTime(n.ReminderTime()));
  line("Last reminder", WhenText(n.ReminderLastFired()));
  line("Maintenance e-mail", YesNo(n.MaintenanceEmailEnabled()));
  line("Maintenance schedule", Quoted(n.MaintenanceOccurrence()));
  line("Maintenance subject", n.MaintenanceSubject());
  line("Last maintenance e-mail", WhenText(n.MaintenanceLastFired()));
}

void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      if (i + 1 < row.size()) text += std::string(widths[i] - row[i].size() + 2, ' ');
    }
    out << text << "\n";
  }
}

// ---- commands -------------------------------------------------------------------------------

int JobAdd(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out) {
  CheckName(name);
  JobChanges changes = CheckJobOptions(options);
  auto general = settings.General();
  if (general.FindJob(name)) throw Failure("a job named " + Quoted(name) + " already exists");
  if (changes.backupLogId && settings.Store().BackupLogIdTaken(*changes.backupLogId, 0)) {
    throw Failure("another job already uses the backup log id " + Quoted(*changes.backupLogId));
  }
  settings.Store().InTransaction([&] {
    if (!changes.timeout) changes.timeout = general.DefaultTimeout();
    if (!changes.destination) changes.destination = general.DefaultDestination();
    const std::string logId = changes.backupLogId.value_or(DefaultBackupLogId(settings.Store(), name));
    clsJob job = general.AddJob(name, logId);
    changes.backupLogId.reset();
    ApplyJobChanges(job, changes);
  });
  clsJob job = RequireJob(settings, name);
  out << "Added backup job " << name << ", daily at " << LongTime(job.ScheduledTime()) << ".\n";
  return 0;
}

int JobSet(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out) {
  const JobChanges changes = CheckJobOptions(options);
  const bool anything = changes.description || changes.time || changes.scheme || changes.timeout ||
                        changes.sources || changes.destination || changes.backupLogId || changes.suspended;
  if (!anything) throw UsageError("nothing to change: give at least one option ('twctl job set --help')");
  clsJob job = RequireJob(settings, name);
  if (changes.backupLogId && settings.Store().BackupLogIdTaken(*changes.backupLogId, job.Id())) {
    throw Failure("another job already uses the backup log id " + Quoted(*changes.backupLogId));
  }
  settings.Store().InTransaction([&] { ApplyJobChanges(job, changes); });
  out << "Changed backup job " << job.Name() << ".\n";
  return 0;
}

int JobList(TWSettings& settings, bool json, std::ostream& out) {
  auto jobs = settings.General().Jobs();
  if (json) {
    Json list = Json::array();
    for (auto& job : jobs) list.push_back(JobJson(job));
    out << list.dump(2) << "\n";
    return 0;
  }
  if (jobs.empty()) {
    out << "No backup jobs are configured. Add one with 'twctl job add NAME --source PATH'.\n";
    return 0;
  }
  std::vector<std::vector<std::string>> rows = {{"NAME", "TIME", "SCHEME", "TIMEOUT", "STATE", "DESCRIPTION"}};
  for (auto& job : jobs) {
    rows.push_back({job.Name(), LongTime(job.ScheduledTime()), job.SchemeProgId(),
                    std::to_string(job.BackupTimeout()) + " min", job.Suspended() ? "suspended" : "active",
                    job.Description()});
  }
  PrintTable(out, rows);
  return 0;
}

int JobShow(TWSettings& settings, const std::string& name, bool json, std::ostream& out) {
  clsJob job = RequireJob(settings, name);
  if (json) {
    out << JobJson(job).dump(2) << "\n";
  } else {
    PrintJob(out, job);
  }
  return 0;
}

int JobRemove(TWSettings& settings, const std::string& name, std::ostream& out) {
  clsJob job = RequireJob(settings, name);
  const std::string shown = job.Name();
  settings.General().RemoveJob(job);
  out << "Removed backup job " << shown << ".\n";
  return 0;
}

std::string ShownValue(SettingsStore& store, const SettingKey& key) {
  const std::string value = store.ReadAsText(key.key);
  if (key.secret) return value.empty() ? "(not set)" : "(set)";
  return value;
}

const SettingKey& RequireKey(const std::string& key) {
  const SettingKey* found = FindSettingKey(key);
  if (found == nullptr || !found->listed) {
    throw UsageError("unknown setting " + Quoted(key) + " ('twctl config list' shows them all)");
  }
  return *found;
}

int ConfigList(TWSettings& settings, bool json, std::ostream& out) {
  SettingsStore& store = settings.Store();
  if (json) {
    Json object = Json::object();
    for (const auto& key : AllSettingKeys()) {
      if (!key.listed) continue;
      const std::string shown = ShownValue(store, key);
      if (key.secret) {
        object[std::string(key.key)] = shown;
      } else if (key.kind == ValueKind::Boolean) {
        object[std::string(key.key)] = store.ReadBool(key.key);
      } else if (key.kind == ValueKind::Integer) {
        object[std::string(key.key)] = store.ReadInt(key.key);
      } else {
        object[std::string(key.key)] = shown;
      }
    }
    out << object.dump(2) << "\n";
    return 0;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& key : AllSettingKeys()) {
    if (key.listed) rows.push_back({std::string(key.key), ShownValue(store, key)});
  }
  PrintTable(out, rows);
  return 0;
}

int ConfigGet(TWSettings& settings, const std::string& keyName, std::ostream& out) {
  const SettingKey& key = RequireKey(keyName);
  out << ShownValue(settings.Store(), key) << "\n";
  return 0;
}

int ConfigSet(TWSettings& settings, const std::string& keyName, std::string value,
              const ConsoleEnvironment& environment) {
  const SettingKey& key = RequireKey(keyName);
  if (!key.editable) throw UsageError(keyName + " is kept by the service itself and cannot be set here");
  if (value == "-") {
    // Read from standard input, without echo on a terminal, so a password stays out of the
    // shell's history and the process list.
    auto typed = environment.readSecret ? environment.readSecret("Value for " + keyName + ": ") : std::nullopt;
    if (!typed) throw Failure("no value was given on standard input for " + keyName);
    value = *typed;
  }
  if (auto problem = ValidateSettingText(key, value)) throw UsageError(*problem);
  settings.Store().WriteFromText(key.key, value);
  return 0;
}

std::string TypeName(int32_t logType) {
  switch (logType) {
    case 0: return "info";
    case 1: return "warning";
    case 2: return "error";
    case 3: return "detail";
    default: return "type " + std::to_string(logType);
  }
}

void PrintIndented(std::ostream& out, const std::string& text) {
  for (const auto& line : Split(ReplaceAll(text, "\r\n", "\n"), '\n')) out << "    " << line << "\n";
}

int Logs(TWSettings& settings, const ConsoleEnvironment& environment, int32_t count, bool json, std::ostream& out) {
  SystemClock systemClock;
  BlockingPump pump;
  clsLogs logs(environment.applicationFolder, settings, environment.clock ? *environment.clock : systemClock, pump);
  // NaN marks elements that no entry filled.
  clsLogEntry unfilled;
  unfilled.Timestamp = std::nan("");
  std::vector<clsLogEntry> entries(static_cast<size_t>(count), unfilled);
  logs.GetLastLogs(count, entries);
  std::erase_if(entries, [](const clsLogEntry& e) { return std::isnan(e.Timestamp); });

  if (json) {
    Json list = Json::array();
    for (const auto& e : entries) {
      list.push_back({{"time", IsoText(e.Timestamp)},
                      {"timestamp", e.Timestamp},
                      {"type", e.LogType},
                      {"type_name", TypeName(e.LogType)},
                      {"title", e.Title},
                      {"message", e.Message},
                      {"attachment_type", e.AttachmentType},
                      {"attachment", e.Attachment}});
    }
    out << list.dump(2) << "\n";
    return 0;
  }
  if (entries.empty()) {
    out << "The application log in " << logs.LogDirectory() << " is empty.\n";
    return 0;
  }
  for (size_t i = 0; i < entries.size(); ++i) {
    const auto& e = entries[i];
    if (i > 0) out << "\n";
    out << IsoText(e.Timestamp) << "  " << std::left << std::setw(7) << TypeName(e.LogType) << "  " << e.Title
        << "\n";
    if (!e.Message.empty()) PrintIndented(out, e.Message);
    if (e.AttachmentType == 1) {
      out << "  Attachment:\n";
      PrintIndented(out, e.Attachment);
    } else if (e.AttachmentType == 2 || e.AttachmentType == 3) {
      out << "  Attachment: " << e.Attachment << "\n";
    }
  }
  return 0;
}

}  // namespace

int RunTwctl(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
             const ConsoleEnvironment& environment) {
  CLI::App app{"Administration console of the Tarnwick backup scheduling service.", "twctl"};
  app.require_subcommand(1);
  std::string settingsPath = environment.settingsPath;
  app.add_option("--settings", settingsPath,
                 "settings file (default: $TARNWICK_SETTINGS, else settings.db in the application folder)");

  auto* job = app.add_subcommand("job", "add, change, list, show and remove backup jobs");
  job->require_subcommand(1);
  std::string jobName;
  bool json = false;
  auto* jobAdd = job->add_subcommand("add", "add a backup job");
  jobAdd->add_option("NAME", jobName, "name of the new job")->required();
  JobOptions addOptions;
  RegisterJobOptions(jobAdd, addOptions);
  auto* jobSet = job->add_subcommand("set", "change a backup job");
  jobSet->add_option("NAME", jobName, "name of the job")->required();
  JobOptions setOptions;
  RegisterJobOptions(jobSet, setOptions);
  auto* jobList = job->add_subcommand("list", "list the backup jobs");
  jobList->add_flag("--json", json, "print JSON");
  auto* jobShow = job->add_subcommand("show", "show every setting of a backup job");
  jobShow->add_option("NAME", jobName, "name of the job")->required();
  jobShow->add_flag("--json", json, "print JSON");
  auto* jobRemove = job->add_subcommand("remove", "remove a backup job");
  jobRemove->add_option("NAME", jobName, "name of the job")->required();

  auto* config = app.add_subcommand("config", "list, show and change settings");
  config->require_subcommand(1);
  std::string key, value;
  auto* configList = config->add_subcommand("list", "list every setting (passwords are never shown)");
  configList->add_flag("--json", json, "print JSON");
  auto* configGet = config->add_subcommand("get", "show one setting");
  configGet->add_option("KEY", key, "dotted key, such as mail.server")->required();
  auto* configSet = config->add_subcommand("set", "change one setting");
  configSet->add_option("KEY", key, "dotted key, such as mail.server")->required();
  configSet->add_option("VALUE", value, "the new value; - reads it from standard input without echo")->required();

  int32_t count = 20;
  auto* logs = app.add_subcommand("logs", "show the newest application-log entries, newest first");
  logs->add_option("-n", count, "number of entries (default 20)")->check(CLI::Range(1, 100000));
  logs->add_flag("--json", json, "print JSON");

  std::vector<const char*> argv{"twctl"};
  for (const auto& arg : args) argv.push_back(arg.c_str());
  try {
    app.parse(static_cast<int>(argv.size()), argv.data());
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e, out, err);  // --help
    err << "twctl: " << e.what() << "\nRun 'twctl --help' for usage.\n";
    return 2;
  }

  try {
    TWSettings settings(settingsPath);
    if (jobAdd->parsed()) return JobAdd(settings, jobName, addOptions, out);
    if (jobSet->parsed()) return JobSet(settings, jobName, setOptions, out);
    if (jobList->parsed()) return JobList(settings, json, out);
    if (jobShow->parsed()) return JobShow(settings, jobName, json, out);
    if (jobRemove->parsed()) return JobRemove(settings, jobName, out);
    if (configList->parsed()) return ConfigList(settings, json, out);
    if (configGet->parsed()) return ConfigGet(settings, key, out);
    if (configSet->parsed()) return ConfigSet(settings, key, value, environment);
    if (logs->parsed()) return Logs(settings, environment, count, json, out);
  } catch (const UsageError& e) {
    err << "twctl: " << e.what() << "\n";
    return 2;
  } catch (const Failure& e) {
    err << "twctl: " << e.what() << "\n";
    return 1;
  } catch (...) {
    err << "twctl: " << CurrentError("twctl").Description << "\n";
    return 1;
  }
  return 2;
}

}  // namespace tw
