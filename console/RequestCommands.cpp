#include "console/RequestCommands.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "reporting/clsReportLogs.h"
#include "scheduling/UpcomingRuns.h"

namespace tw::console {
namespace {

constexpr std::string_view kTestBackupKey = "console.test_backup_requested";
constexpr std::string_view kRunKey = "console.run_job_request";
constexpr std::string_view kReminderKey = "console.reminder_requested";
constexpr std::string_view kAnswersStartKey = "console.answers_start";
constexpr const char* kFollowHint = "; 'twctl answers --follow' shows the answers.\n";
// How far ahead status looks for a run that goes ahead.
constexpr int kStatusHorizonDays = 370;

clsJob KnownJob(TWSettings& settings, const std::string& name) {
  auto job = settings.General().FindJob(name);
  if (!job) throw Failure("unknown job " + Quoted(name) + " ('twctl job list' shows the jobs)");
  return *job;
}

// A second run of a job under way would share its marker file and its run status with the first:
// the service refuses one, and the console says so at once.
clsJob IdleJob(TWSettings& settings, const std::string& name, const std::string& applicationFolder,
               const std::string& what) {
  clsJob job = KnownJob(settings, name);
  if (IsRunning(job, applicationFolder)) {
    throw Failure(JobRunningText(job) + "; " + what + " can be asked for once that run has ended");
  }
  return job;
}

// What still waits for the service, in words; empty when nothing does. Reads without taking.
std::string PendingRequest(SettingsStore& store) {
  const std::string job = Quoted(store.ReadText("console.request_job_name"));
  if (store.ReadBool(kTestBackupKey)) return "a test backup of " + job;
  if (const std::string day = store.ReadText(kRunKey); !day.empty()) return "a run of " + job;
  if (store.ReadBool(kReminderKey)) return "a reminder test of " + job;
  return "";
}

int64_t NewestAnswer(SettingsStore& store) {
  const auto lines = store.AnswersAfter(store.ReadInt(kAnswersStartKey));
  return lines.empty() ? store.ReadInt(kAnswersStartKey) : lines.back().first;
}

// Writes one request in a single transaction: the job name, the request itself, and the other
// requests cleared, so that a replaced request cannot go on to act on the new job.
void PlaceRequest(TWSettings& settings, const std::string& job, bool replace, bool answered,
                  const std::function<void(clsConsole&)>& request) {
  SettingsStore& store = settings.Store();
  store.InTransaction([&] {
    if (const std::string pending = PendingRequest(store); !pending.empty() && !replace) {
      throw Failure(pending + " still waits for the service (is TWService running?); --replace replaces it");
    }
    if (answered) store.WriteInt(kAnswersStartKey, static_cast<int32_t>(NewestAnswer(store)));
    store.WriteBool(kTestBackupKey, false);
    store.WriteText(kRunKey, "");
    store.WriteBool(kReminderKey, false);
    clsConsole console = settings.General().Console();
    console.RequestJobName(job);
    request(console);
  });
}

bool IsSuccess(const std::string& line) {
  return line == "RESULT: Backup process completed normally" || line == "RESULT: Test complete." ||
         line == "RESULT: Email sent successfully.";
}

std::string DurationText(int64_t seconds) {
  if (seconds < 60) return std::to_string(seconds) + " s";
  const int64_t minutes = seconds / 60;
  if (minutes < 60) return std::to_string(minutes) + " min";
  return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

std::optional<Date> NextRun(clsJob& job, Date now) {
  for (const auto& run : UpcomingRuns(job, now, kStatusHorizonDays)) {
    if (run.runs) return run.starts;
  }
  return std::nullopt;
}

struct JobStatus {
  std::string name;
  bool suspended = false;
  std::optional<Date> nextRun;
  std::string scheduleProblem;  // set when the next run cannot be worked out
  bool running = false;
  Date runningSince = 0;
  const clsReportLogEntry* last = nullptr;
};

JobStatus StatusOf(clsJob job, const std::vector<clsReportLogEntry>& reports, const std::string& applicationFolder,
                   Date now) {
  JobStatus status;
  status.name = job.Name();
  status.suspended = job.Suspended();
  if (!status.suspended) {
    try {
      status.nextRun = NextRun(job, now);
    } catch (const TWError& e) {
      status.scheduleProblem = e.Description;
    }
  }
  status.running = IsRunning(job, applicationFolder);
  if (status.running) status.runningSince = job.RunStartTime();
  for (const auto& entry : reports) {
    if (EqualsIgnoreCase(entry.JobName, status.name)) {
      status.last = &entry;
      break;
    }
  }
  return status;
}

std::string NextRunText(const JobStatus& s) {
  if (s.suspended) return "suspended";
  if (!s.scheduleProblem.empty()) return s.scheduleProblem;
  if (!s.nextRun) return "none in " + std::to_string(kStatusHorizonDays) + " days";
  return IsoText(*s.nextRun).substr(0, 16);
}

std::string RunningText(const JobStatus& s, Date now) {
  if (!s.running) return "no";
  if (s.runningSince == 0) return "yes";
  return "yes, " + DurationText(SecondsBetween(s.runningSince, now));
}

std::string LastText(const JobStatus& s) {
  if (!s.last) return "none";
  return s.last->StatusString() + ", ended " + IsoText(s.last->TimeEnd).substr(0, 16);
}

Json StatusJson(const JobStatus& s, Date now) {
  Json last = nullptr;
  if (s.last) {
    last = {{"file", std::filesystem::path(s.last->Filename()).filename().string()},
            {"status", s.last->Status},
            {"status_word", s.last->StatusString()},
            {"time_end", IsoText(s.last->TimeEnd)}};
  }
  return {{"job", s.name},
          {"suspended", s.suspended},
          {"next_run", s.nextRun ? Json(IsoText(*s.nextRun)) : Json(nullptr)},
          {"schedule_problem", s.scheduleProblem.empty() ? Json(nullptr) : Json(s.scheduleProblem)},
          {"running", s.running},
          {"running_since", s.running && s.runningSince != 0 ? Json(IsoText(s.runningSince)) : Json(nullptr)},
          {"running_seconds",
           s.running && s.runningSince != 0 ? Json(SecondsBetween(s.runningSince, now)) : Json(nullptr)},
          {"last_outcome", last}};
}

}  // namespace

std::string WithdrawRequestFor(TWSettings& settings, const std::string& job) {
  SettingsStore& store = settings.Store();
  std::string withdrawn;
  store.InTransaction([&] {
    if (!EqualsIgnoreCase(store.ReadText("console.request_job_name"), job)) return;
    withdrawn = PendingRequest(store);
    if (withdrawn.empty()) return;
    // Someone may follow the answers of a test backup or reminder test: they end here.
    if (store.ReadBool(kTestBackupKey) || store.ReadBool(kReminderKey)) {
      store.AppendAnswer("RESULT: Request withdrawn: the backup job " + job + " was removed.");
    }
    store.WriteBool(kTestBackupKey, false);
    store.WriteText(kRunKey, "");
    store.WriteBool(kReminderKey, false);
  });
  return withdrawn;
}

int RequestTestBackup(TWSettings& settings, const std::string& applicationFolder, const std::string& job,
                      bool replace, std::ostream& out) {
  const std::string name = IdleJob(settings, job, applicationFolder, "a test backup").Name();
  PlaceRequest(settings, name, replace, true, [](clsConsole& console) { console.TestBackupRequested(true); });
  out << "Requested a test backup of " << name << kFollowHint;
  return 0;
}

int RequestRun(TWSettings& settings, const std::string& applicationFolder, const std::string& job,
               const std::optional<std::string>& date, bool replace, const Clock& clock, std::ostream& out) {
  Date day = DateOnly(clock.Now());
  if (date) {
    const auto parsed = date->size() == 10 ? ParseIsoDate(*date) : std::nullopt;
    if (!parsed) throw UsageError("--date " + Quoted(*date) + " is not a date YYYY-MM-DD");
    day = DateOnly(*parsed);
  }
  const std::string name = IdleJob(settings, job, applicationFolder, "a run").Name();
  PlaceRequest(settings, name, replace, false,
               [day](clsConsole& console) { console.RunJobRequest(NumberToText(day)); });
  // A run answers nothing: it is reported like a scheduled one.
  out << "Requested a run of " << name << " for " << IsoText(day).substr(0, 10)
      << "; 'twctl status' shows it running and 'twctl reports' its outcome.\n";
  return 0;
}

int RequestTestReminder(TWSettings& settings, const std::string& job, bool byEmail, bool byBroadcast, bool replace,
                        std::ostream& out) {
  const std::string name = KnownJob(settings, job).Name();
  PlaceRequest(settings, name, replace, true, [=](clsConsole& console) {
    console.ReminderByEmailSelected(byEmail);
    console.ReminderByBroadcastSelected(byBroadcast);
    console.ReminderRequested(true);
  });
  const std::string how = byEmail && byBroadcast ? "by e-mail and broadcast"
                          : byEmail              ? "by e-mail"
                          : byBroadcast          ? "by broadcast"
                                                 : "with no task selected";
  out << "Requested a reminder test of " << name << " " << how << kFollowHint;
  return 0;
}

int Answers(TWSettings& settings, const AnswersOptions& options, std::ostream& out, std::ostream& err) {
  SettingsStore& store = settings.Store();
  int64_t lastSeen = options.all ? 0 : store.ReadInt(kAnswersStartKey);
  if (options.json) {
    // Each line with its number, which orders the lines across requests.
    Json list = Json::array();
    for (const auto& [number, line] : store.AnswersAfter(lastSeen))
      list.push_back({{"number", number}, {"line", line}});
    PrintJson(out, list);
    return 0;
  }
  int64_t waitedMilliseconds = 0;
  bool printedAny = false;
  for (;;) {
    for (const auto& [number, line] : store.AnswersAfter(lastSeen)) {
      out << line << "\n" << std::flush;
      lastSeen = number;
      printedAny = true;
      if (options.follow && line.starts_with("RESULT: ")) return IsSuccess(line) ? 0 : 1;
    }
    if (!options.follow) {
      if (!printedAny) err << "twctl: no answer lines since the latest request\n";
      return 0;
    }
    if (waitedMilliseconds >= int64_t{options.timeoutSeconds} * 1000) {
      err << "twctl: no \"RESULT: \" line within " << options.timeoutSeconds
          << " s (is TWService running? --timeout waits longer)\n";
      return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(options.pollMilliseconds));
    waitedMilliseconds += options.pollMilliseconds;
  }
}

int Status(TWSettings& settings, const ConsoleEnvironment& environment, bool json, const Clock& clock,
           std::ostream& out) {
  const Date now = clock.Now();
  clsReportLogs reportLogs(environment.applicationFolder, settings, clock);
  const auto reports = reportLogs.GetSummaries(0);
  std::vector<JobStatus> statuses;
  for (auto& job : settings.General().Jobs()) {
    statuses.push_back(StatusOf(job, reports, environment.applicationFolder, now));
  }
  if (json) {
    Json list = Json::array();
    for (const auto& s : statuses) list.push_back(StatusJson(s, now));
    PrintJson(out, list);
    return 0;
  }
  if (statuses.empty()) {
    out << "No backup jobs yet ('twctl job add' adds one).\n";
    return 0;
  }
  std::vector<std::vector<std::string>> rows = {{"JOB", "NEXT RUN", "RUNNING", "LAST OUTCOME"}};
  for (const auto& s : statuses) rows.push_back({s.name, NextRunText(s), RunningText(s, now), LastText(s)});
  PrintTable(out, rows);
  return 0;
}

}  // namespace tw::console
