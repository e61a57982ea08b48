#include "console/JobCommands.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iomanip>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "console/RequestCommands.h"
#include "scheduling/DueChecks.h"
#include "scheduling/Occurrence.h"
#include "scheduling/OccurrenceBuilder.h"
#include "scheduling/Schemes.h"
#include "scheduling/UpcomingRuns.h"
#include "service/frmService.h"
#include "settings/StatusText.h"

namespace tw::console {
namespace {

// Time-outs longer than a year are taken for a typing error.
constexpr int32_t kMaxTimeoutMinutes = 525600;
// A reminder or run fires at the first poll in the window after its time; a window shorter than
// the time between polls is missed on most days.
constexpr int32_t kPollSeconds = frmService::kPollIntervalMs / 1000;
constexpr const char* kScheduleOptions =
    "--maintenance-weekly, --maintenance-monthly, --maintenance-first-weekday, --maintenance-last-weekday, "
    "--maintenance-dates or --maintenance-occurrence";

// What a job command changes, checked before anything is written.
struct JobChanges {
  std::optional<std::string> description, scheme, destination, backupLogId, label;
  std::optional<Date> time, reminderTime;
  std::optional<int32_t> timeout, method, mode;
  std::optional<std::vector<std::string>> sources;
  std::vector<std::string> addSources, removeSources;  // applied after `sources`, removals first
  std::optional<bool> suspended, eject, emailReport, printReport, reminderEmail, reminderBroadcast, maintenance;
  std::optional<std::string> maintenanceSubject, maintenanceBody, maintenanceOccurrence;

  bool Any() const {
    return description || scheme || destination || backupLogId || label || time || reminderTime || timeout || method ||
           mode || sources || !addSources.empty() || !removeSources.empty() || suspended || eject || emailReport ||
           printReport || reminderEmail || reminderBroadcast || maintenance || maintenanceSubject || maintenanceBody ||
           maintenanceOccurrence;
  }
};

bool IsIdentifierChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
         c == '-';
}

std::string AbsolutePath(const std::string& path, const char* option) {
  if (path.empty()) throw UsageError(std::string("empty path for ") + option);
  CheckText(path, TextForm::Line, option);
  return std::filesystem::absolute(path).lexically_normal().string();
}

// "." and ".." name folders, and "/" separates them: as a job name (which the default backup log
// id is made from) or a backup log id, each would put the job's archives outside its destination.
bool IsPathLike(const std::string& name) {
  return name == "." || name == ".." || name.find('/') != std::string::npos;
}

void CheckName(const std::string& name) {
  if (TrimWhitespace(name).empty()) throw UsageError("a job name must not be empty");
  CheckText(name, TextForm::Line, "the job name");
  if (IsPathLike(name)) {
    throw UsageError("invalid job name " + Quoted(name) + ": a job name is not \".\" or \"..\" and holds no \"/\"");
  }
}

// A time of day at which the service can act: the run or reminder fires at a poll in the 59
// seconds after it, on the same day, so the day's last seconds cannot be used.
Date CheckedTime(const std::string& text, const char* option, const char* what) {
  const auto time = ParseTimeOfDay(text);
  if (!time) throw UsageError("invalid time " + Quoted(text) + " for " + option + " (expected HH:MM or HH:MM:SS)");
  const int32_t window = clsDueChecks::WindowSeconds(*time);
  if (window < kPollSeconds) {
    // The day's last second less one poll interval leaves a whole interval after it.
    const std::string latest = LongTime((86399.0 - kPollSeconds) / 86400);
    throw UsageError(std::string(option) + " " + text + " cannot be reached: the service " + what +
                     " at one of its polls (every " + std::to_string(kPollSeconds) +
                     " seconds) within 59 seconds after its time, on the same day, and after " + text +
                     " the day has " + std::to_string(window) + " seconds left; the latest time is " + latest);
  }
  return *time;
}

// Switching the maintenance e-mail on needs a schedule that reads: without one the service logs a
// warning at every poll.
void CheckMaintenanceSchedule(const JobChanges& c, const std::string& stored) {
  if (!c.maintenance || !*c.maintenance || c.maintenanceOccurrence) return;
  const std::string problem = OccurrenceProblem(stored);
  if (problem.empty()) return;
  throw UsageError(std::string("--maintenance needs a schedule: give one of ") + kScheduleOptions +
                   (stored.empty() ? "" : " (the stored one is a " + problem + ")") +
                   "; without one the service would log a warning every " + std::to_string(kPollSeconds) +
                   " seconds");
}

int32_t CheckedChoice(const std::string& text, const char* option, const char* first, const char* second) {
  const std::string word = ToLower(TrimWhitespace(text));
  if (word == first) return 0;
  if (word == second) return 1;
  throw UsageError("invalid value " + Quoted(text) + " for " + option + " (expected " + first + " or " + second + ")");
}

// The one maintenance schedule option given, as an occurrence string.
std::optional<std::string> MaintenanceSchedule(const JobOptions& o) {
  struct Form {
    CLI::Option* option;
    const std::string& text;
    std::string (*build)(std::string_view);
  };
  const Form forms[] = {
      {o.weeklyOpt, o.maintenanceWeekly, WeeklyOccurrence},
      {o.monthlyOpt, o.maintenanceMonthly, MonthlyOccurrence},
      {o.firstWeekdayOpt, o.maintenanceFirstWeekday, FirstWeekdayOccurrence},
      {o.lastWeekdayOpt, o.maintenanceLastWeekday, LastWeekdayOccurrence},
      {o.datesOpt, o.maintenanceDates, SpecificOccurrence},
  };
  for (const auto& form : forms) {
    if (!form.option->count()) continue;
    try {
      return form.build(form.text);
    } catch (const std::invalid_argument& e) {
      throw UsageError(std::string(e.what()) + " for " + form.option->get_name());
    }
  }
  if (o.occurrenceOpt->count()) {
    const std::string problem = OccurrenceProblem(o.maintenanceOccurrence);
    if (!problem.empty()) throw UsageError(problem + " for --maintenance-occurrence");
    return o.maintenanceOccurrence;
  }
  return std::nullopt;
}

JobChanges CheckJobOptions(const JobOptions& o) {
  JobChanges c;
  // Multi-line texts keep CR LF line ends: a lone line feed in a description once made every
  // report of its job unreadable.
  if (o.descriptionOpt->count()) {
    CheckText(o.description, TextForm::Lines, "--description");
    c.description = CrLfLineEnds(o.description);
  }
  if (o.timeOpt->count()) c.time = CheckedTime(o.time, "--time", "starts a scheduled run");
  if (o.schemeOpt->count()) {
    const std::string id = SchemeRegistry::BuiltIn().CanonicalId(o.scheme);
    if (id.empty()) throw UsageError("unknown scheme " + Quoted(o.scheme) + " for --scheme ('twctl schemes' lists them)");
    c.scheme = id;
  }
  if (o.timeoutOpt->count()) {
    const auto number = ParseNumber(o.timeout);
    if (!number || *number != std::floor(*number) || *number < 0 || *number > kMaxTimeoutMinutes) {
      throw UsageError("invalid number " + Quoted(o.timeout) + " for --timeout (expected whole minutes from 0 to " +
                       std::to_string(kMaxTimeoutMinutes) + ")");
    }
    c.timeout = static_cast<int32_t>(*number);
  }
  if (o.sourcesOpt->count()) {
    std::vector<std::string> sources;
    for (const auto& source : o.sources) sources.push_back(AbsolutePath(source, "--source"));
    c.sources = sources;
  }
  if (o.addSourcesOpt) {
    for (const auto& source : o.addSources) c.addSources.push_back(AbsolutePath(source, "--add-source"));
    for (const auto& source : o.removeSources) c.removeSources.push_back(AbsolutePath(source, "--remove-source"));
  }
  if (o.destinationOpt->count()) c.destination = AbsolutePath(o.destination, "--destination");
  if (o.backupLogIdOpt->count()) {
    const bool valid = !o.backupLogId.empty() && o.backupLogId.size() <= 64 && !IsPathLike(o.backupLogId) &&
                       std::all_of(o.backupLogId.begin(), o.backupLogId.end(), IsIdentifierChar);
    if (!valid) {
      throw UsageError("invalid identifier " + Quoted(o.backupLogId) +
                       " for --backup-log-id (letters, digits, '.', '_' and '-', at most 64, not \".\" or \"..\")");
    }
    c.backupLogId = o.backupLogId;
  }
  c.suspended = o.suspended.Value();
  if (o.labelOpt->count()) {
    CheckText(o.label, TextForm::Line, "--label");
    c.label = o.label;
  }
  if (o.methodOpt->count()) c.method = CheckedChoice(o.method, "--method", "full", "incremental");
  if (o.modeOpt->count()) c.mode = CheckedChoice(o.mode, "--mode", "overwrite", "append");
  c.eject = o.eject.Value();
  c.emailReport = o.emailReport.Value();
  c.printReport = o.printReport.Value();
  if (o.reminderTimeOpt->count()) {
    c.reminderTime = CheckedTime(o.reminderTime, "--reminder-time", "sends a media reminder");
  }
  c.reminderEmail = o.reminderEmail.Value();
  c.reminderBroadcast = o.reminderBroadcast.Value();
  c.maintenance = o.maintenance.Value();
  if (o.maintenanceSubjectOpt->count()) {
    CheckText(o.maintenanceSubject, TextForm::Line, "--maintenance-subject");
    c.maintenanceSubject = o.maintenanceSubject;
  }
  if (o.maintenanceBodyOpt->count()) {
    CheckText(o.maintenanceBody, TextForm::Lines, "--maintenance-body");
    c.maintenanceBody = CrLfLineEnds(o.maintenanceBody);
  }
  c.maintenanceOccurrence = MaintenanceSchedule(o);
  return c;
}

// Folds --add-source and --remove-source into the full list of sources, starting from `current`
// unless --source replaced it. A source given twice is kept once; removing one the job does not
// have is refused, as it is most likely a typing error that would otherwise go unnoticed.
void EditSources(JobChanges& c, const std::vector<std::string>& current) {
  if (c.addSources.empty() && c.removeSources.empty()) return;
  std::vector<std::string> sources = c.sources.value_or(current);
  // "/srv/" and "/srv" name the same folder.
  const auto normal = [](const std::string& path) {
    std::string text = std::filesystem::path(path).lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
  };
  const auto same = [&](const std::string& path) {
    return [&, wanted = normal(path)](const std::string& other) { return normal(other) == wanted; };
  };
  for (const auto& source : c.removeSources) {
    const auto found = std::find_if(sources.begin(), sources.end(), same(source));
    if (found == sources.end()) {
      throw UsageError("the job has no source " + Quoted(source) + " to remove ('twctl job show' lists them)");
    }
    sources.erase(found);
  }
  for (const auto& source : c.addSources) {
    if (std::none_of(sources.begin(), sources.end(), same(source))) sources.push_back(source);
  }
  c.sources = sources;
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
  if (c.label) job.TapeLabel(*c.label);
  if (c.method) job.BackupMethod(*c.method);
  if (c.mode) job.BackupMode(*c.mode);
  if (c.eject) job.Eject(*c.eject);
  auto n = job.JobNotification();
  if (c.emailReport) n.SendReportEmail(*c.emailReport);
  if (c.printReport) n.PrintReport(*c.printReport);
  if (c.reminderTime) n.ReminderTime(*c.reminderTime);
  if (c.reminderEmail) n.MediaReminderByEmail(*c.reminderEmail);
  if (c.reminderBroadcast) n.MediaReminderByBroadcast(*c.reminderBroadcast);
  if (c.maintenance) n.MaintenanceEmailEnabled(*c.maintenance);
  if (c.maintenanceSubject) n.MaintenanceSubject(*c.maintenanceSubject);
  if (c.maintenanceBody) n.MaintenanceBody(*c.maintenanceBody);
  if (c.maintenanceOccurrence) n.MaintenanceOccurrence(*c.maintenanceOccurrence);
}

// A hint when a maintenance e-mail was described but is switched off.
void HintMaintenance(clsJob& job, const JobChanges& c, std::ostream& out) {
  const bool described = c.maintenanceOccurrence || c.maintenanceSubject || c.maintenanceBody;
  if (described && !job.JobNotification().MaintenanceEmailEnabled()) {
    out << "Note: the maintenance e-mail of " << job.Name() << " is off; --maintenance switches it on.\n";
  }
}

clsJob RequireJob(TWSettings& settings, const std::string& name) {
  auto job = settings.General().FindJob(name);
  if (!job) throw Failure("unknown job " + Quoted(name) + " ('twctl job list' shows the jobs)");
  return *job;
}

// The executor leaves 1 or 2 after a run and -2 during one; 0 means no run has set it yet.
std::string RunStatusText(int16_t status) {
  if (status == 0) return "0 (no run recorded)";
  return std::to_string(status) + " (" + clsStatusText().StatusText(status) + ")";
}

std::string ScheduleText(const std::string& occurrenceString) {
  if (occurrenceString.empty()) return "(none)";
  auto occurrence = clsOccurrenceFactory::CreateOccurrence(occurrenceString);
  if (!occurrence) return "malformed: " + Quoted(occurrenceString);
  occurrence->OccurrenceType(2);
  return occurrence->TextSummary();
}

Json JobJson(clsJob& job) {
  auto n = job.JobNotification();
  Json notification = {
      {"send_report_email", n.SendReportEmail()},
      {"print_report", n.PrintReport()},
      {"media_reminder_by_email", n.MediaReminderByEmail()},
      {"media_reminder_by_broadcast", n.MediaReminderByBroadcast()},
      {"reminder_time", LongTime(n.ReminderTime())},
      {"reminder_last_fired", WhenJson(n.ReminderLastFired())},
      {"maintenance_email_enabled", n.MaintenanceEmailEnabled()},
      {"maintenance_occurrence", n.MaintenanceOccurrence()},
      {"maintenance_schedule", ScheduleText(n.MaintenanceOccurrence())},
      {"maintenance_subject", n.MaintenanceSubject()},
      {"maintenance_body", n.MaintenanceBody()},
      {"maintenance_last_fired", WhenJson(n.MaintenanceLastFired())},
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
      {"label", job.TapeLabel()},
      {"method", MethodName(job.BackupMethod())},
      {"mode", ModeName(job.BackupMode())},
      {"eject", job.Eject()},
      {"run_status", job.RunStatus()},
      {"run_status_text", RunStatusText(job.RunStatus())},
      {"schedule_last_fired", WhenJson(job.ScheduleLastFired())},
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
  line("Media", "label " + Quoted(job.TapeLabel()) + ", " + MethodName(job.BackupMethod()) + ", " +
                    ModeName(job.BackupMode()) + ", eject " + YesNo(job.Eject()));
  line("Run status", RunStatusText(job.RunStatus()));
  line("Last scheduled run", WhenText(job.ScheduleLastFired()));
  line("Report by e-mail", YesNo(n.SendReportEmail()));
  line("Print report", YesNo(n.PrintReport()));
  line("Media reminder", std::string("e-mail ") + YesNo(n.MediaReminderByEmail()) + ", broadcast " +
                             YesNo(n.MediaReminderByBroadcast()) + ", at " + LongTime(n.ReminderTime()));
  line("Last reminder", WhenText(n.ReminderLastFired()));
  line("Maintenance e-mail", YesNo(n.MaintenanceEmailEnabled()));
  line("Maintenance schedule", ScheduleText(n.MaintenanceOccurrence()));
  line("Maintenance subject", n.MaintenanceSubject());
  line("Last maintenance e-mail", WhenText(n.MaintenanceLastFired()));
}

}  // namespace

void RegisterJobOptions(CLI::App* command, JobOptions& o, bool changing) {
  // A changed job keeps what it has, so "job set" names no defaults.
  const auto help = [changing](const std::string& text, const std::string& byDefault) {
    return changing ? text : text + " (default " + byDefault + ")";
  };
  o.descriptionOpt =
      command->add_option("--description", o.description, "free text shown in reports")->option_text("DESCRIPTION");
  o.timeOpt = command->add_option("--time", o.time, help("daily start time", "21:00"))->option_text("HH:MM[:SS]");
  o.schemeOpt =
      command->add_option("--scheme", o.scheme, help("media scheme, one 'twctl schemes' lists", "TWSchemes.Daily"))
          ->option_text("ID");
  o.timeoutOpt =
      command
          ->add_option("--timeout", o.timeout,
                       help("minutes a run may take before it counts as hung", "from general.default_timeout"))
          ->option_text("MINUTES");
  o.sourcesOpt = command
                     ->add_option("--source", o.sources,
                                  changing ? "replaces all the job's sources; repeat for more"
                                           : "file or folder to back up; repeat for more")
                     ->allow_extra_args(false)
                     ->option_text("PATH");
  if (changing) {
    o.addSourcesOpt = command->add_option("--add-source", o.addSources, "file or folder to add; repeatable")
                          ->allow_extra_args(false)
                          ->option_text("PATH");
    o.removeSourcesOpt = command->add_option("--remove-source", o.removeSources, "source to remove; repeatable")
                             ->allow_extra_args(false)
                             ->option_text("PATH");
  }
  o.destinationOpt =
      command
          ->add_option("--destination", o.destination,
                       help("folder for the archives, or a tape device", "from general.default_destination"))
          ->option_text("PATH");
  o.backupLogIdOpt = command
                         ->add_option("--backup-log-id", o.backupLogId,
                                      help("identifier in the run's marker file name", "made from the name"))
                         ->option_text("ID");
  o.suspended.Register(command, "suspended", "suspend the job: no scheduled run, reminder or maintenance e-mail",
                       "resume a suspended job");
  o.labelOpt =
      command->add_option("--label", o.label, "media label, for the Daily and Weekdays schemes")->option_text("LABEL");
  o.methodOpt = command->add_option("--method", o.method, "full or incremental, for the Daily and Weekdays schemes")
                    ->option_text("full|incremental");
  o.modeOpt = command->add_option("--mode", o.mode, "overwrite or append, for the Daily and Weekdays schemes")
                  ->option_text("overwrite|append");
  o.eject.Register(command, "eject", "eject the tape after the run", "leave the tape in the drive");
  o.emailReport.Register(command, "email-report", "e-mail the report of each run", "no report e-mail");
  o.printReport.Register(command, "print-report", "print the report of each run (options.print_setting)",
                         "no print-out");
  o.reminderTimeOpt =
      command->add_option("--reminder-time", o.reminderTime, "time of the media reminder")->option_text("HH:MM");
  o.reminderEmail.Register(command, "reminder-email", "send the media reminder by e-mail", "no reminder e-mail");
  o.reminderBroadcast.Register(command, "reminder-broadcast",
                               "send the media reminder to the terminals of options.broadcast_recipients",
                               "no reminder message");
  o.maintenance.Register(command, "maintenance", "send the maintenance e-mail on its schedule",
                         "no maintenance e-mail");
  o.maintenanceSubjectOpt =
      command->add_option("--maintenance-subject", o.maintenanceSubject, "subject of the maintenance e-mail")
          ->option_text("SUBJECT");
  o.maintenanceBodyOpt = command->add_option("--maintenance-body", o.maintenanceBody, "body of the maintenance e-mail")
                             ->option_text("BODY");
  o.weeklyOpt = command->add_option("--maintenance-weekly", o.maintenanceWeekly,
                                    "maintenance on days of the week, such as mon,fri@21:00");
  o.monthlyOpt = command->add_option("--maintenance-monthly", o.maintenanceMonthly,
                                     "maintenance on weeks and days of the month, such as last:fri@21:00 or "
                                     "1st,3rd:mon@09:00");
  o.firstWeekdayOpt = command->add_option("--maintenance-first-weekday", o.maintenanceFirstWeekday,
                                          "maintenance on the first Monday-to-Friday day of each month at HH:MM");
  o.lastWeekdayOpt = command->add_option("--maintenance-last-weekday", o.maintenanceLastWeekday,
                                         "maintenance on the last Monday-to-Friday day of each month at HH:MM");
  o.datesOpt = command->add_option("--maintenance-dates", o.maintenanceDates,
                                   "maintenance on given dates: YYYY-MM-DD HH:MM, separated by commas");
  o.occurrenceOpt = command->add_option("--maintenance-occurrence", o.maintenanceOccurrence,
                                        "maintenance schedule as a raw occurrence string");
  o.weeklyOpt->option_text("DAYS@HH:MM");
  o.monthlyOpt->option_text("WEEKS:DAYS@HH:MM");
  o.firstWeekdayOpt->option_text("HH:MM");
  o.lastWeekdayOpt->option_text("HH:MM");
  o.datesOpt->option_text("LIST");
  o.occurrenceOpt->option_text("STRING");
  const std::vector<CLI::Option*> schedules = {o.weeklyOpt, o.monthlyOpt, o.firstWeekdayOpt, o.lastWeekdayOpt,
                                               o.datesOpt, o.occurrenceOpt};
  for (auto* a : schedules) {
    for (auto* b : schedules) {
      if (a != b) a->excludes(b);
    }
  }
}

int JobAdd(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out) {
  CheckName(name);
  JobChanges changes = CheckJobOptions(options);
  CheckMaintenanceSchedule(changes, "");
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
  HintMaintenance(job, changes, out);
  return 0;
}

int JobSet(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out) {
  JobChanges changes = CheckJobOptions(options);
  if (!changes.Any()) throw UsageError("nothing to change: give at least one option ('twctl job set --help')");
  clsJob job = RequireJob(settings, name);
  EditSources(changes, job.Sources());
  CheckMaintenanceSchedule(changes, job.JobNotification().MaintenanceOccurrence());
  if (changes.backupLogId && settings.Store().BackupLogIdTaken(*changes.backupLogId, job.Id())) {
    throw Failure("another job already uses the backup log id " + Quoted(*changes.backupLogId));
  }
  settings.Store().InTransaction([&] { ApplyJobChanges(job, changes); });
  out << "Changed backup job " << job.Name() << ".\n";
  HintMaintenance(job, changes, out);
  return 0;
}

int JobList(TWSettings& settings, bool json, std::ostream& out) {
  auto jobs = settings.General().Jobs();
  if (json) {
    Json list = Json::array();
    for (auto& job : jobs) list.push_back(JobJson(job));
    PrintJson(out, list);
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
    PrintJson(out, JobJson(job));
  } else {
    PrintJob(out, job);
  }
  return 0;
}

int JobRemove(TWSettings& settings, const std::string& applicationFolder, const std::string& name, bool force,
              std::ostream& out) {
  clsJob job = RequireJob(settings, name);
  const std::string shown = job.Name();
  const bool running = IsRunning(job, applicationFolder);
  if (running && !force) {
    throw Failure(JobRunningText(job) + "; remove it once the run has ended, or give --force to remove it now");
  }
  // A request left waiting for a job that is gone could never be served.
  std::string withdrawn;
  settings.Store().InTransaction([&] {
    withdrawn = WithdrawRequestFor(settings, shown);
    settings.General().RemoveJob(job);
  });
  out << "Removed backup job " << shown << ".\n";
  if (!withdrawn.empty()) out << "Withdrew " << withdrawn << ", which still waited for the service.\n";
  if (running) out << "Its run under way goes on and is reported when it ends.\n";
  return 0;
}

int JobPreview(TWSettings& settings, const std::string& name, int days, bool json, const Clock& clock,
               std::ostream& out) {
  clsJob job = RequireJob(settings, name);
  std::vector<UpcomingRun> runs;
  try {
    runs = UpcomingRuns(job, clock.Now(), days);
  } catch (const TWError& e) {
    throw Failure(e.Description + " in job " + job.Name() + " ('twctl schemes' lists the known ones)");
  }
  const bool suspended = job.Suspended();
  Json list = Json::array();
  std::vector<std::vector<std::string>> rows = {{"STARTS", "RUN DATE", "RUNS", "LABEL", "METHOD", "MODE"}};
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  for (const auto& run : runs) {
    const std::string starts = IsoText(run.starts).substr(0, 16);
    const std::string runDate = IsoText(run.runDate).substr(0, 10);
    list.push_back({{"starts", WhenJson(run.starts)},
                    {"run_date", runDate},
                    {"runs", run.runs},
                    {"label", run.media.Label},
                    {"method", MethodName(run.media.Method)},
                    {"mode", ModeName(run.media.Mode)}});
    rows.push_back({std::string(kDays[Weekday(run.starts) - 1]) + " " + starts, runDate,
                    run.runs ? "yes" : (suspended ? "no (suspended)" : "no"), run.media.Label,
                    MethodName(run.media.Method), ModeName(run.media.Mode)});
  }
  if (json) {
    PrintJson(out, list);
  } else {
    PrintTable(out, rows);
  }
  return 0;
}

}  // namespace tw::console
