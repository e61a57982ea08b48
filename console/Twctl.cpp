#include "console/Twctl.h"

#include <CLI/CLI.hpp>

#include "common/Error.h"
#include "common/Version.h"
#include "console/ConfigCommands.h"
#include "console/ConsoleCommon.h"
#include "console/JobCommands.h"
#include "console/OccurrenceCommands.h"
#include "console/ReportCommands.h"
#include "console/RequestCommands.h"
#include "console/ServiceCommands.h"
#include "settings/TWSettings.h"

namespace tw {

using namespace console;

namespace {

// The word typed where a command was expected but that names none, with the command it follows
// ("twctl" or "twctl job"); empty when every command word is known. CLI11 alone would only say
// that a subcommand is required.
std::pair<std::string, std::string> UnknownCommand(CLI::App& app, const std::vector<std::string>& args) {
  CLI::App* current = &app;
  std::string path = "twctl";
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--settings") ++i;  // its value
    if (arg.empty() || arg[0] == '-') continue;
    if (current->get_require_subcommand_min() == 0) break;
    CLI::App* next = nullptr;
    for (CLI::App* sub : current->get_subcommands([](CLI::App*) { return true; })) {
      if (sub->get_name() == arg) next = sub;
    }
    if (next == nullptr) return {arg, path};
    current = next;
    path += " " + arg;
  }
  return {};
}

}  // namespace

int RunTwctl(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
             const ConsoleEnvironment& environment) {
  CLI::App app{"Administration console of the Tarnwick backup scheduling service.", "twctl"};
  app.formatter(std::make_shared<PlainHelp>());
  app.set_help_flag("-h,--help", "show this help and end");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("twctl ") + kVersion, "print \"twctl VERSION\" and end");
  std::string settingsPath = environment.settingsPath;
  app.add_option("--settings", settingsPath,
                 "settings file (default: $TARNWICK_SETTINGS, else settings.db in the application folder)")
      ->option_text("PATH");
  bool json = false;

  auto* job = app.add_subcommand("job", "add, change, list, show, preview and remove backup jobs");
  job->require_subcommand(1);
  std::string jobName;
  auto* jobAdd = job->add_subcommand("add", "add a backup job");
  jobAdd->add_option("NAME", jobName, "name of the new job")->required();
  JobOptions addOptions;
  RegisterJobOptions(jobAdd, addOptions, false);
  auto* jobSet = job->add_subcommand("set", "change a backup job; only the options given change");
  jobSet->add_option("NAME", jobName, "name of the job")->required();
  JobOptions setOptions;
  RegisterJobOptions(jobSet, setOptions, true);
  auto* jobList = job->add_subcommand("list", "list the backup jobs");
  jobList->add_flag("--json", json, "print JSON");
  auto* jobShow = job->add_subcommand("show", "show every setting of a backup job");
  jobShow->add_option("NAME", jobName, "name of the job")->required();
  jobShow->add_flag("--json", json, "print JSON");
  int previewDays = 14;
  auto* jobPreview = job->add_subcommand("preview", "the coming scheduled runs: whether they go ahead, and their media");
  jobPreview->add_option("NAME", jobName, "name of the job")->required();
  jobPreview->add_option("--days", previewDays, "how many days, 1 to 3660 (default 14)")->check(CLI::Range(1, 3660));
  jobPreview->add_flag("--json", json, "print JSON");
  auto* jobRemove = job->add_subcommand("remove", "remove a backup job");
  jobRemove->add_option("NAME", jobName, "name of the job")->required();
  bool force = false;
  jobRemove->add_flag("--force", force, "remove the job even while it runs");

  auto* config = app.add_subcommand("config", "list, show and change settings");
  config->require_subcommand(1);
  std::string key, value;
  auto* configList = config->add_subcommand("list", "list every setting (passwords are never shown)");
  configList->add_flag("--json", json, "print JSON");
  auto* configGet = config->add_subcommand("get", "show one setting");
  configGet->add_option("KEY", key, "dotted key, such as mail.server")->required();
  configGet->add_flag("--json", json, "print JSON");
  auto* configSet = config->add_subcommand("set", "change one setting");
  configSet->add_option("KEY", key, "dotted key, such as mail.server")->required();
  configSet->add_option("VALUE", value, "the new value; - reads it from standard input without echo")->required();

  int32_t count = 20;
  LogsOptions logOptions;
  std::string since, logJob;
  auto* logs = app.add_subcommand("logs", "show the newest application-log entries, newest first");
  auto* countOpt = logs->add_option("-n", count, "number of entries, up to 100000 (default 20, or all with --since)")
                       ->check(CLI::Range(1, 100000));
  auto* sinceOpt = logs->add_option("--since", since,
                                    "entries from then on: \"YYYY-MM-DD[ HH:MM[:SS]]\", today, yesterday, or a span "
                                    "back from now such as -30min, -2h, -3d")
                       ->option_text("WHEN");
  auto* logJobOpt = logs->add_option("--job", logJob, "entries that name the job")->option_text("NAME");
  auto* followOpt = logs->add_flag("--follow,-f", logOptions.follow,
                                   "oldest first, then each new entry as it is written, until Ctrl-C");
  logs->add_option("--follow-seconds", logOptions.followSeconds)->group("")->check(CLI::Range(1, 86400));
  logs->add_flag("--json", json, "print JSON (not with --follow)")->excludes(followOpt);

  auto* occurrence = app.add_subcommand("occurrence", "describe and test schedule (occurrence) strings");
  occurrence->require_subcommand(1);
  std::string occurrenceText, when;
  int32_t summaryType = 2;
  auto* describe = occurrence->add_subcommand("describe", "the schedule in words");
  describe->add_option("STRING", occurrenceText, "occurrence string")->required();
  describe->add_option("--type", summaryType, "0 the days, 1 the time, 2 both (default)")
      ->check(CLI::Range(0, 2))
      ->option_text("0|1|2");
  auto* check = occurrence->add_subcommand("check", "whether a moment matches: exit 0 \"match\", exit 1 \"no match\"");
  check->add_option("STRING", occurrenceText, "occurrence string")->required();
  check->add_option("WHEN", when, "\"YYYY-MM-DD HH:MM\"")->required();
  std::string from;
  int nextCount = 10;
  auto* next = occurrence->add_subcommand("next", "the next minutes at which it matches");
  next->add_option("STRING", occurrenceText, "occurrence string")->required();
  auto* fromOpt =
      next->add_option("--from", from, "start at that minute (default now)")->option_text("\"YYYY-MM-DD HH:MM\"");
  next->add_option("-n", nextCount, "how many, up to 100000 (default 10)")->check(CLI::Range(1, 100000));
  next->add_flag("--json", json, "print JSON");

  auto* schemes = app.add_subcommand("schemes", "list the media schemes a job can use");
  schemes->add_flag("--json", json, "print JSON");

  int32_t reportCount = 20;
  auto* reports = app.add_subcommand("reports", "the newest report logs, one line each");
  reports->add_option("-n", reportCount, "number of report logs, up to 100000 (default 20)")
      ->check(CLI::Range(1, 100000));
  reports->add_flag("--json", json, "print JSON");
  auto* report = app.add_subcommand("report", "one report log");
  report->require_subcommand(1);
  std::string which;
  auto* reportShow = report->add_subcommand("show", "show a report log in full");
  reportShow
      ->add_option("REPORT", which,
                   "the FILE 'twctl reports' shows (or a path), a position in that list (1 is the newest), a job "
                   "name (its latest report), or \"latest\"")
      ->required();
  reportShow->add_flag("--json", json, "print JSON");

  auto* mail = app.add_subcommand("mail", "check the e-mail settings");
  mail->require_subcommand(1);
  std::string mailTo;
  auto* mailTest = mail->add_subcommand("test", "send a test e-mail with the stored server settings");
  auto* toOpt =
      mailTest->add_option("--to", mailTo, "recipients (default: mail.reminder_recipients)")->option_text("ADDRESS");

  auto* request = app.add_subcommand("request", "ask the running service for a test backup, a run or a reminder test");
  request->require_subcommand(1);
  bool replace = false;
  auto* testBackup = request->add_subcommand("test-backup", "a test backup of a job now");
  testBackup->add_option("JOB", jobName, "name of the job")->required();
  testBackup->add_flag("--replace", replace, "replace a request that still waits for the service");
  std::string runDate;
  auto* runNow = request->add_subcommand("run", "a run of a job now, with the media of the given day");
  runNow->add_option("JOB", jobName, "name of the job")->required();
  auto* dateOpt = runNow->add_option("--date", runDate, "the day whose media the run uses (default today)")
                      ->option_text("YYYY-MM-DD");
  runNow->add_flag("--replace", replace, "replace a request that still waits for the service");
  bool byEmail = false, byBroadcast = false;
  auto* testReminder = request->add_subcommand("test-reminder", "send a job's test reminder now");
  testReminder->add_option("JOB", jobName, "name of the job")->required();
  testReminder->add_flag("--email", byEmail, "send the reminder e-mail");
  testReminder->add_flag("--broadcast", byBroadcast, "send the reminder broadcast");
  testReminder->add_flag("--replace", replace, "replace a request that still waits for the service");

  AnswersOptions answerOptions;
  auto* answers = app.add_subcommand("answers", "the service's answers to the latest test request");
  answers->add_flag("--follow", answerOptions.follow,
                    "wait for new lines and end at the result: exit 0 for a success, 1 otherwise");
  answers
      ->add_option("--timeout", answerOptions.timeoutSeconds,
                   "with --follow, give up after SECONDS, up to 604800 (default 600)")
      ->check(CLI::Range(0, 604800))
      ->option_text("SECONDS");
  answers->add_flag("--all", answerOptions.all, "every answer line kept, not only those since the latest request");
  answers->add_flag("--json", answerOptions.json, "print the lines as JSON (not with --follow)")->excludes("--follow");

  auto* status = app.add_subcommand(
      "status",
      "whether the service runs, and each job's next run, run under way and last outcome; exit 0 when all is well, "
      "1 when a job's last run was not normal, 3 when the service is not running or paused");
  status->add_flag("--json", json, "print JSON");

  std::string textfile;
  auto* metrics = app.add_subcommand("metrics", "the service's and each job's state for Prometheus (text format)");
  auto* textfileOpt = metrics->add_option(
      "--textfile", textfile, "write them whole to PATH (for node_exporter's textfile collector; name it *.prom)")
                          ->option_text("PATH");

  auto* service = app.add_subcommand("service", "pause or continue the running service");
  service->require_subcommand(1);
  auto* servicePause =
      service->add_subcommand("pause", "stop starting backups, reminders and mails; runs under way go on");
  auto* serviceContinue = service->add_subcommand("continue", "start polling again after a pause");

  std::vector<const char*> argv{"twctl"};
  for (const auto& arg : args) argv.push_back(arg.c_str());
  try {
    app.parse(static_cast<int>(argv.size()), argv.data());
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e, out, err);  // --help
    if (const auto [word, command] = UnknownCommand(app, args); !word.empty()) {
      err << "twctl: unknown command " << Quoted(word) << " for " << command << "\nRun '" << command
          << " --help' for usage.\n";
      return 2;
    }
    err << "twctl: " << e.what() << "\nRun 'twctl --help' for usage.\n";
    return 2;
  }

  try {
    SystemClock systemClock;
    const Clock& clock = environment.clock ? *environment.clock : systemClock;
    if (describe->parsed()) return OccurrenceDescribe(occurrenceText, summaryType, out);
    if (check->parsed()) return OccurrenceCheck(occurrenceText, when, out);
    if (next->parsed()) {
      return OccurrenceNext(occurrenceText, fromOpt->count() ? std::optional(from) : std::nullopt, nextCount, json,
                            clock, out);
    }
    if (schemes->parsed()) return Schemes(json, out);
    if (servicePause->parsed() || serviceContinue->parsed()) {
      return ServicePauseOrContinue(environment, servicePause->parsed(), out);
    }

    TWSettings settings(settingsPath);
    if (jobAdd->parsed()) return JobAdd(settings, jobName, addOptions, out);
    if (jobSet->parsed()) return JobSet(settings, jobName, setOptions, out);
    if (jobList->parsed()) return JobList(settings, json, out);
    if (jobShow->parsed()) return JobShow(settings, jobName, json, out);
    if (jobPreview->parsed()) return JobPreview(settings, jobName, previewDays, json, clock, out);
    if (jobRemove->parsed()) return JobRemove(settings, environment.applicationFolder, jobName, force, out);
    if (configList->parsed()) return ConfigList(settings, json, out);
    if (configGet->parsed()) return ConfigGet(settings, key, json, out);
    if (configSet->parsed()) return ConfigSet(settings, key, value, environment, err);
    if (logs->parsed()) {
      if (countOpt->count()) logOptions.count = count;
      if (sinceOpt->count()) logOptions.since = since;
      if (logJobOpt->count()) logOptions.job = logJob;
      logOptions.json = json;
      return Logs(settings, environment, logOptions, out);
    }
    if (reports->parsed()) return Reports(settings, environment, reportCount, json, out, err);
    if (reportShow->parsed()) return ReportShow(settings, environment, which, json, out, err);
    if (testBackup->parsed()) {
      return RequestTestBackup(settings, environment.applicationFolder, jobName, replace, clock, out);
    }
    if (runNow->parsed()) {
      return RequestRun(settings, environment.applicationFolder, jobName,
                        dateOpt->count() ? std::optional(runDate) : std::nullopt, replace, clock, out);
    }
    if (testReminder->parsed()) {
      return RequestTestReminder(settings, jobName, byEmail, byBroadcast, replace, clock, out);
    }
    if (answers->parsed()) return Answers(settings, answerOptions, clock, out, err);
    if (status->parsed()) return Status(settings, environment, json, clock, out);
    if (metrics->parsed()) {
      return Metrics(settings, environment, textfileOpt->count() ? std::optional(textfile) : std::nullopt, clock, out);
    }
    if (mailTest->parsed()) {
      return MailTest(settings, environment, toOpt->count() ? std::optional(mailTo) : std::nullopt, out, err);
    }
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
