#include "console/RequestCommands.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "reporting/clsReportLogs.h"
#include "monitoring/Metrics.h"

namespace tw::console {
namespace {

constexpr std::string_view kTestBackupKey = "console.test_backup_requested";
constexpr std::string_view kRunKey = "console.run_job_request";
constexpr std::string_view kReminderKey = "console.reminder_requested";
constexpr std::string_view kAnswersStartKey = "console.answers_start";
constexpr const char* kFollowHint = "; 'twctl answers --follow' shows the answers.\n";

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
  if (minutes < 48 * 60) return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
  return std::to_string(minutes / 1440) + " days " + std::to_string(minutes / 60 % 24) + " h";
}

std::string Minute(Date when) { return IsoText(when).substr(0, 16); }

std::string ServiceText(const ServiceView& service, Date now) {
  if (service.state == "not running") {
    if (service.heartbeat == 0) return "not running (it has never run with these settings)";
    return "not running (last heartbeat " + IsoText(service.heartbeat) + ", " +
           DurationText(SecondsBetween(service.heartbeat, now)) + " ago)";
  }
  return service.state + " since " + IsoText(service.since);
}

std::string NextRunText(const JobState& s, Date now) {
  if (s.values.suspended) return "suspended";
  if (!s.scheduleProblem.empty()) return s.scheduleProblem;
  if (!s.nextRun) return "none in " + std::to_string(kNextRunHorizonDays) + " days";
  return Minute(*s.nextRun) + " (in " + DurationText(SecondsBetween(now, *s.nextRun)) + ")";
}

std::string RunningText(const JobState& s, Date now) {
  const Date since = s.values.runStartTime;
  if (s.timedOut) return "timed out, since " + Minute(since);
  if (!s.running) return "no";
  if (since == 0) return "yes";
  return "for " + DurationText(SecondsBetween(since, now));
}

std::string LastRunText(const JobState& s) {
  if (s.values.lastRunStatus == -1) return "none";
  return Minute(s.values.lastRunStart) + ", " + DurationText(SecondsBetween(s.values.lastRunStart, s.values.lastRunEnd));
}

std::string OutcomeText(const JobState& s) {
  const std::string last = s.LastOutcome();
  return last == "missed" ? "missed " + Minute(s.values.lastMissed) : last;
}

Json StatusJson(const JobState& s, Date now) {
  const JobStatusValues& v = s.values;
  Json last = nullptr;
  if (v.lastRunStatus != -1) {
    last = {{"start", WhenJson(v.lastRunStart)},
            {"end", WhenJson(v.lastRunEnd)},
            {"duration_seconds", SecondsBetween(v.lastRunStart, v.lastRunEnd)},
            {"report", v.lastReport.empty() ? Json(nullptr) : Json(v.lastReport)},
            {"mail", MailOutcomeJson(s.lastMail)}};
  }
  const bool underWay = s.running || s.timedOut;
  return {{"job", v.name},
          {"suspended", v.suspended},
          {"next_run", s.nextRun ? WhenJson(*s.nextRun) : Json(nullptr)},
          {"seconds_to_next_run", s.nextRun ? Json(SecondsBetween(now, *s.nextRun)) : Json(nullptr)},
          {"schedule_problem", s.scheduleProblem.empty() ? Json(nullptr) : Json(s.scheduleProblem)},
          {"running", s.running},
          {"timed_out", s.timedOut},
          {"running_since", underWay && v.runStartTime != 0 ? WhenJson(v.runStartTime) : Json(nullptr)},
          {"running_seconds", underWay && v.runStartTime != 0 ? Json(SecondsBetween(v.runStartTime, now)) : Json(nullptr)},
          {"last_outcome", s.LastOutcome()},
          {"last_outcome_time", WhenJson(s.LastOutcomeTime())},
          {"last_run", last},
          {"missed_runs", v.missedRuns},
          {"healthy", s.Healthy()}};
}

std::string ToLowerFirst(std::string text) {
  if (text.rfind("TWService", 0) == 0) return text;
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

// What a request placed while no service polls should say: that nothing happens until one does.
std::string NotRunningWarning(TWSettings& settings, const Clock& clock) {
  const ServiceView service = ViewOfService(settings.Store(), clock.Now());
  if (service.Running()) return "";
  if (service.state == servicestate::kPaused) {
    return "TWService is paused: nothing happens until it continues ('twctl service continue').\n";
  }
  return "TWService is not running: the request waits, and nothing happens until it starts.\n";
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
                      bool replace, const Clock& clock, std::ostream& out) {
  const std::string name = IdleJob(settings, job, applicationFolder, "a test backup").Name();
  PlaceRequest(settings, name, replace, true, [](clsConsole& console) { console.TestBackupRequested(true); });
  out << "Requested a test backup of " << name << kFollowHint << NotRunningWarning(settings, clock);
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
      << "; 'twctl status' shows it running and 'twctl reports' its outcome.\n"
      << NotRunningWarning(settings, clock);
  return 0;
}

int RequestTestReminder(TWSettings& settings, const std::string& job, bool byEmail, bool byBroadcast, bool replace,
                        const Clock& clock, std::ostream& out) {
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
  out << "Requested a reminder test of " << name << " " << how << kFollowHint << NotRunningWarning(settings, clock);
  return 0;
}

int Answers(TWSettings& settings, const AnswersOptions& options, const Clock& clock, std::ostream& out,
            std::ostream& err) {
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
    // No answer comes while no service polls: waiting would only hide that.
    if (const std::string warning = NotRunningWarning(settings, clock); !warning.empty()) {
      err << "twctl: no \"RESULT: \" line yet, and " << ToLowerFirst(warning);
      return 1;
    }
    if (waitedMilliseconds >= int64_t{options.timeoutSeconds} * 1000) {
      err << "twctl: no \"RESULT: \" line within " << options.timeoutSeconds
          << " s (--timeout waits longer)\n";
      return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(options.pollMilliseconds));
    waitedMilliseconds += options.pollMilliseconds;
  }
}

int Status(TWSettings& settings, const ConsoleEnvironment& environment, bool json, const Clock& clock,
           std::ostream& out) {
  const Date now = clock.Now();
  const ServiceView service = ViewOfService(settings.Store(), now);
  const std::vector<JobState> jobs = ReadJobStates(settings, environment.applicationFolder, now, [&] {
    return clsReportLogs(environment.applicationFolder, settings, clock).GetSummaries(0);
  });
  const bool healthy = std::all_of(jobs.begin(), jobs.end(), [](const JobState& s) { return s.Healthy(); });
  // As systemctl: 3 when the service is not running (paused counts, as nothing is started), 1 when
  // it runs but a job's last outcome calls for a look, 0 when all is well.
  const int exitStatus = !service.Running() ? 3 : healthy ? 0 : 1;
  if (json) {
    Json list = Json::array();
    for (const auto& s : jobs) list.push_back(StatusJson(s, now));
    Json serviceJson = {{"state", service.state},
                        {"since", service.Running() || service.state == servicestate::kPaused ? WhenJson(service.since)
                                                                                              : Json(nullptr)},
                        {"heartbeat", WhenJson(service.heartbeat)}};
    PrintJson(out, {{"service", serviceJson}, {"healthy", healthy}, {"jobs", list}});
    return exitStatus;
  }
  out << "Service: " << ServiceText(service, now) << "\n";
  if (jobs.empty()) {
    out << "No backup jobs yet ('twctl job add' adds one).\n";
    return exitStatus;
  }
  out << "\n";
  std::vector<std::vector<std::string>> rows = {{"JOB", "NEXT RUN", "RUNNING", "LAST RUN", "OUTCOME", "MAIL"}};
  for (const auto& s : jobs) {
    rows.push_back({s.values.name, NextRunText(s, now), RunningText(s, now), LastRunText(s), OutcomeText(s),
                    s.values.lastRunStatus == -1 ? "" : MailOutcomeText(s.lastMail)});
  }
  PrintTable(out, rows);
  return exitStatus;
}

int Metrics(TWSettings& settings, const ConsoleEnvironment& environment, const std::optional<std::string>& textfile,
            const Clock& clock, std::ostream& out) {
  const std::string text = MetricsText(ReadMetricsInput(settings, environment.applicationFolder, clock.Now()));
  if (!textfile) {
    out << text;
    return 0;
  }
  if (const std::string problem = WriteMetricsFile(*textfile, text); !problem.empty()) throw Failure(problem);
  return 0;
}

}  // namespace tw::console
