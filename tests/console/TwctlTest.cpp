#include "console/Twctl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>
#include <tuple>

#include "common/EventPump.h"
#include "monitoring/ServiceState.h"
#include "logging/clsLogs.h"
#include "reporting/clsReportLogs.h"
#include "settings/Database.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string out;
  std::string err;
};

void ExpectFields(nlohmann::json actual, const nlohmann::json& expected) {
  for (const auto& item : expected.items()) EXPECT_EQ(item.value(), actual[item.key()]) << item.key();
}

class TwctlTest : public ::testing::Test {
 protected:
  Result Run(const std::vector<std::string>& args) {
    std::ostringstream out, err;
    ConsoleEnvironment environment;
    environment.settingsPath = SettingsPath();
    environment.applicationFolder = dir_.Path();
    environment.clock = &clock_;
    environment.readSecret = [this](const std::string&) { return secret_; };
    const int status = RunTwctl(args, out, err, environment);
    return {status, out.str(), err.str()};
  }
  std::string Out(const std::vector<std::string>& args, int status = 0) {
    const Result r = Run(args);
    EXPECT_EQ(status, r.status) << ::testing::PrintToString(args) << r.err;
    EXPECT_EQ("", r.err) << ::testing::PrintToString(args);
    return r.out;
  }
  std::string Err(const std::vector<std::string>& args, int status) {
    const Result r = Run(args);
    EXPECT_EQ(status, r.status) << ::testing::PrintToString(args);
    EXPECT_EQ("", r.out) << ::testing::PrintToString(args);
    return r.err;
  }
  nlohmann::json JsonOf(const std::vector<std::string>& args) { return nlohmann::json::parse(Run(args).out); }
  void SaveReport(const std::string& job, Date start, int32_t status, const std::string& description = "") {
    TWSettings settings(SettingsPath());
    clsReportLogEntry entry;
    entry.TimeStart = start;
    entry.TimeEnd = start + 0.01;
    entry.JobName = job;
    entry.JobDesc = description;
    entry.Status = status;
    entry.Label = "Daily-Tue";
    entry.Report = "Tarnwick backup report\r\nErrors: 1\r\n";
    clsReportLogs(dir_.Path(), settings, clock_, [] { return 0.0; }).SaveNewEntry(entry);
  }
  std::string SettingsPath() const { return dir_ / "settings.db"; }

  test::TempDir dir_;
  ManualClock clock_{45321.875};
  std::optional<std::string> secret_;
};

TEST_F(TwctlTest, AJobIsAddedChangedShownRemovedAndListed) {
  EXPECT_EQ("Added backup job Nightly, daily at 22:15:00.\n",
            Out({"job", "add", "Nightly", "--time", "22:15", "--source", "/srv", "--destination", "/var/backups/tw"}));
  // The settings hold passwords: the file is the account's alone.
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(SettingsPath()).permissions() & fs::perms::all);
  Out({"job", "add", "Weekly Archive", "--suspended", "--timeout", "0"});
  Out({"job", "set", "nightly", "--time", "23:00", "--scheme", "TWSchemes.Weekdays", "--source", "/home",
       "--backup-log-id", "night-9z", "--mode", "Overwrite"});
  ExpectFields(JsonOf({"job", "show", "Nightly", "--json"}),
               {{"time", "23:00:00"}, {"scheme", "TWSchemes.Weekdays"}, {"sources", {"/home"}},
                {"destination", "/var/backups/tw"}, {"backup_log_id", "night-9z"}, {"mode", "overwrite"}});
  // A source given twice is kept once; "/home/" and "/home" are one folder.
  Out({"job", "set", "Nightly", "--add-source", "/srv", "--add-source", "/etc/", "--add-source", "/srv",
       "--remove-source", "/home/"});
  EXPECT_EQ((std::vector<std::string>{"/srv", "/etc/"}), JsonOf({"job", "show", "Nightly", "--json"})["sources"]);
  EXPECT_EQ(2, Run({"job", "set", "Nightly", "--add-source", "/opt", "--remove-source", "/home"}).status);

  const std::string shown = Out({"job", "show", "Weekly Archive"});
  EXPECT_NE(std::string::npos, shown.find("Backup log id:            Weekly_Archive\n"));
  EXPECT_NE(std::string::npos, shown.find("Run status:               0 (no run recorded)\n"));

  EXPECT_EQ("Removed backup job Nightly.\n", Out({"job", "remove", "NIGHTLY"}));

  // A name and a description not one line of text, as an older version let them be stored.
  TWSettings(SettingsPath()).General().AddJob("Caf\xE9", "cafe").Description("Front desk\r\nand till");
  EXPECT_EQ("Caf\uFFFD", JsonOf({"job", "list", "--json"})[1]["name"]);
  // Columns line up by what a terminal shows: "Grüße" is five columns, a CJK character two.
  Out({"job", "add", "Grüße", "--time", "06:00:30"});
  Out({"job", "add", "夜間", "--description", "b"});
  EXPECT_EQ("NAME            TIME      SCHEME           TIMEOUT  STATE      DESCRIPTION\n"
            "Weekly Archive  21:00:00  TWSchemes.Daily  0 min    suspended\n"
            "Caf\xE9            21:00:00  TWSchemes.Daily  240 min  active     Front desk and till\n"
            "Grüße           06:00:30  TWSchemes.Daily  240 min  active\n"
            "夜間            21:00:00  TWSchemes.Daily  240 min  active     b\n",
            Out({"job", "list"}));
}

TEST_F(TwctlTest, BadUsageIsRejectedWithOneLineAndNothingWrittenAndHelpNamesEachValue) {
  const std::vector<std::tuple<std::vector<std::string>, int, std::string>> cases = {
      {{"job", "add", "A", "--time", "25:00"}, 2, "invalid time \"25:00\" for --time (expected HH:MM or HH:MM:SS)"},
      {{"job", "add", ".."}, 2, "invalid job name \"..\": a job name is not \".\" or \"..\" and holds no \"/\""},
      {{"config", "set", "mail.sender", "tw@example.org>\r\nRCPT TO:<intruder@example.org"}, 2,
       "mail.sender must be one line of text, but holds the control character U+000D at character 16"},
      {{"config", "set", "mail.failure_recipients", "Ops <ops@example.org>; boss at example.org"}, 2,
       "invalid address \"boss at example.org\" for mail.failure_recipients (has no @)"},
      {{"config", "set", "console.run_job_request", "1"}, 2,
       "unknown setting \"console.run_job_request\" ('twctl config list' shows them all)"},
      {{"job", "set", "Nope", "--time", "10:00"}, 1, "unknown job \"Nope\" ('twctl job list' shows the jobs)"},
  };
  for (const auto& [args, status, err] : cases) EXPECT_EQ("twctl: " + err + "\n", Err(args, status));
  EXPECT_NE(std::string::npos, Err({"job", "add", "A", "--reminder-time", "23:59:50"}, 2).find("time is 23:59:49\n"));
  EXPECT_FALSE(fs::exists(SettingsPath())) << "a rejected command writes nothing";

  // The last time at which a poll can still start the run; a change with one bad option changes nothing.
  Out({"job", "add", "A", "--time", "23:59:49"});
  EXPECT_EQ("twctl: a job named \"a\" already exists\n", Err({"job", "add", "a"}, 1));
  EXPECT_EQ(2, Run({"job", "set", "A", "--time", "01:00", "--timeout", "x"}).status);
  EXPECT_EQ(2, Run({"job", "set", "A"}).status);
  EXPECT_EQ("23:59:49", JsonOf({"job", "show", "A", "--json"})["time"]);

  // A settings file that does not read is one clear line.
  test::WriteFile(SettingsPath(), std::string(2048, '#'));
  EXPECT_EQ("twctl: Cannot read settings file " + SettingsPath() + ": file is not a database\n",
            Err({"job", "list"}, 1));

  // Help names the value an option takes, and a default only where the command has one.
  EXPECT_EQ(std::string::npos, Out({"job", "set", "--help"}).find("default"));
  EXPECT_NE(std::string::npos, Out({"job", "add", "--help"}).find("daily start time (default 21:00)\n"));
}

TEST_F(TwctlTest, SettingsAreSetReadBackAndTriedAndPasswordsNeverPrinted) {
  Out({"config", "set", "mail.server", "127.0.0.1"});
  EXPECT_EQ("twctl: no recipient: give --to ADDRESS or set mail.reminder_recipients\n", Err({"mail", "test"}, 1));
  test::SmtpServer server;
  const std::string port = std::to_string(server.Port());
  Out({"config", "set", "mail.port", port});
  EXPECT_EQ("Test e-mail sent to ops@example.org through smtp://127.0.0.1:" + port + " (none).\n",
            Out({"mail", "test", "--to", "ops@example.org"}));
  EXPECT_EQ(1, server.Count());

  Out({"config", "set", "mail.server", "smtp.example.org"});
  Out({"config", "set", "mail.email_enabled", "yes"});
  EXPECT_EQ(0u, Run({"config", "set", "mail.password", "hunter2"})
                    .err.find("twctl: note: a password given as an argument can be seen by other users"));
  secret_ = "s3cret pass";
  Out({"config", "set", "identity.password", "-"});
  Out({"config", "set", "identity.domain", "OFFICE"});
  EXPECT_EQ("s3cret pass", TWSettings(SettingsPath()).General().Identity().IdentityValue2());
  EXPECT_EQ("OFFICE", TWSettings(SettingsPath()).General().Identity().IdentityValue3());
  EXPECT_EQ("(set)\n", Out({"config", "get", "mail.password"}));
  const std::string listed = Out({"config", "list"}) + Out({"config", "list", "--json"});
  EXPECT_EQ(std::string::npos, listed.find("hunter2"));
  EXPECT_EQ(std::string::npos, listed.find("s3cret"));
  EXPECT_EQ(std::string::npos, listed.find("console."));
  ExpectFields(JsonOf({"config", "list", "--json"}), {{"mail.email_enabled", true}, {"mail.password", "(set)"}});

  // One value that does not read hides none of the others; the exit status says so at the end.
  Database(SettingsPath()).Execute("INSERT OR REPLACE INTO settings (key, value) VALUES ('mail.port', 'seventy')");
  const std::string reason = "Setting mail.port holds \"seventy\", which is not a whole number";
  EXPECT_NE(std::string::npos, Out({"config", "list"}, 1).find("(unreadable: " + reason + ")\n"));
  EXPECT_EQ(reason, nlohmann::json::parse(Out({"config", "list", "--json"}, 1))["mail.port"]["unreadable"]);

  secret_.reset();
  EXPECT_EQ(1, Run({"config", "set", "mail.password", "-"}).status) << "no value on standard input";
}

TEST_F(TwctlTest, SchedulesNotificationsAndSchemesAreSetReadablyAndPreviewed) {
  const std::string lastFriday = "2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0";
  EXPECT_EQ("Last Fri\n", Out({"occurrence", "describe", lastFriday, "--type", "0"}));
  EXPECT_EQ("match\n", Out({"occurrence", "check", lastFriday, "2026-11-27 21:00"}));
  EXPECT_EQ("no match\n", Out({"occurrence", "check", lastFriday, "2026-11-20 21:00"}, 1));
  EXPECT_EQ("2026-11-27 21:00  Fri\n2026-12-25 21:00  Fri\n2027-01-29 21:00  Fri\n",
            Out({"occurrence", "next", lastFriday, "--from", "2026-11-23 00:00", "-n", "3"}));
  // Without --from the search starts now: 30 January 2024, 21:00.
  EXPECT_EQ("[\n  \"2024-01-30T21:00:00+00:00\"\n]\n",
            Out({"occurrence", "next", "1|0.875|0,0,-1,0,0,0,0", "-n", "1", "--json"}));
  EXPECT_EQ(2, Run({"occurrence", "check", lastFriday, "27/11/2026"}).status);

  Out({"job", "add", "Office", "--scheme", "twschemes.gfs", "--time", "02:00"});
  EXPECT_EQ(0u, Err({"job", "set", "Office", "--maintenance"}, 2).find("twctl: --maintenance needs a schedule: "));
  EXPECT_NE(std::string::npos,
            Out({"job", "set", "Office", "--maintenance-monthly", "last:fri@21:00", "--maintenance-subject",
                 "Clean the drive"})
                .find("\nNote: the maintenance e-mail of Office is off"));
  EXPECT_EQ("Changed backup job Office.\n",
            Out({"job", "set", "Office", "--maintenance", "--reminder-time", "16:30", "--reminder-email",
                 "--reminder-broadcast", "--print-report", "--no-email-report", "--label", "Disk A", "--method",
                 "incremental", "--mode", "append", "--eject", "--description", "Front desk\nand till",
                 "--maintenance-body", "Clean it\r\nthen\nrestart"}));
  // A lone line feed in a description once made every report of its job unreadable: texts keep CR LF.
  const auto json = JsonOf({"job", "show", "Office", "--json"});
  ExpectFields(json, {{"description", "Front desk\r\nand till"}, {"scheme", "TWSchemes.GFS"}, {"label", "Disk A"},
                      {"method", "incremental"}, {"mode", "append"}, {"eject", true}});
  ExpectFields(json["notification"],
               {{"maintenance_body", "Clean it\r\nthen\r\nrestart"}, {"maintenance_schedule", "Last Fri 21:00"},
                {"maintenance_email_enabled", true}, {"maintenance_subject", "Clean the drive"},
                {"reminder_time", "16:30:00"}, {"media_reminder_by_email", true},
                {"media_reminder_by_broadcast", true}, {"print_report", true}, {"send_report_email", false}});

  // The clock stands at Tuesday 30 January 2024, 21:00; a 02:00 run belongs to the day before it starts.
  EXPECT_EQ("STARTS                RUN DATE    RUNS  LABEL      METHOD       MODE\n"
            "Wed 2024-01-31 02:00  2024-01-30  yes   Daily-Tue  incremental  overwrite\n"
            "Thu 2024-02-01 02:00  2024-01-31  yes   Daily-Wed  incremental  overwrite\n"
            "Fri 2024-02-02 02:00  2024-02-01  yes   Daily-Thu  incremental  overwrite\n"
            "Sat 2024-02-03 02:00  2024-02-02  yes   Weekly-1   full         overwrite\n",
            Out({"job", "preview", "Office", "--days", "4"}));
  EXPECT_EQ(0u, Out({"schemes"}).find("TWSchemes.Daily     every day"));
}

TEST_F(TwctlTest, ReportLogsAndTheApplicationLogShowTheirEntries) {
  EXPECT_EQ("No report logs in " + (dir_ / "Reports") + " yet.\n", Out({"reports"}));
  // The description has a lone line feed, as older versions wrote it.
  SaveReport("Nightly", clock_.Now(), 2, "Servers\nand desktops");
  TWSettings(SettingsPath()).Store().SetReportMail("Nightly", clock_.Now(), {"waiting", 2, clock_.Now() + 0.03});
  // The newest report log does not read: the listing and "latest" pass over it and say so.
  test::WriteFile(dir_ / "Reports/45322.5.log", "");
  const std::string skipped = "twctl: skipped the report log 45322.5.log: Input past end of file\n";
  const Result listed = Run({"reports"});
  EXPECT_EQ("STARTED           JOB      STATUS  MAIL                             LABEL      FILE           REPORT\n"
            "2024-01-30 21:00  Nightly  Errors  waiting: retry 2 of 11 at 21:43  Daily-Tue  45321.875.log  Tarnwick "
            "backup report\n",
            listed.out);
  EXPECT_EQ(skipped, listed.err);
  const Result latest = Run({"report", "show", "latest"});
  EXPECT_EQ(0, latest.status);
  // The report's own CR LF become the terminal's line feeds.
  for (const std::string line : {"Job:       Nightly (Servers\nand desktops)\n", "Finished:  2024-01-30 21:14:24\n",
                                 "Status:    Errors (2)\n", "\n\nTarnwick backup report\nErrors: 1\n"}) {
    EXPECT_NE(std::string::npos, latest.out.find(line)) << latest.out;
  }
  for (const std::string handle : {"45321.875.log", "1", "nightly"}) {
    EXPECT_EQ(latest.out, Run({"report", "show", handle}).out) << handle;
  }
  EXPECT_EQ(skipped + "twctl: there is no report log at position 2 ('twctl reports' lists 1)\n",
            Err({"report", "show", "2"}, 1));

  EXPECT_EQ("The application log in " + (dir_ / "Logs") + " is empty.\n", Out({"logs"}));
  EXPECT_FALSE(fs::exists(dir_ / "Logs")) << "reading the log makes no folder";
  TWSettings settings(SettingsPath());
  BlockingPump pump;
  clsLogs logs(dir_.Path(), settings, clock_, pump, [] { return 0.0; });
  logs.AddLogSimple(0, "Tarnwick service starting", "The Tarnwick service has been instructed to start", 0, "");
  clock_.AdvanceSeconds(61);
  // Lines ended as Windows, Linux and old Macs end them: one entry all the same.
  logs.AddLogSimple(2, "Error #00106 - Error launching backup", "1326\r\nsecond line\nthird line\rfourth line", 1,
                    "DesktopRights said 1326");
  EXPECT_EQ("2024-01-30 21:01:01  error    Error #00106 - Error launching backup\n"
            "    1326\n"
            "    second line\n"
            "    third line\n"
            "    fourth line\n"
            "  Attachment:\n"
            "    DesktopRights said 1326\n",
            Out({"logs", "-n", "1"}));

  clock_.AdvanceSeconds(3600);
  logs.AddLogSimple(1, "Backup job already running", "The backup job Nightly is due, but its run goes on.", 0, "");
  logs.AddLogSimple(1, "Backup job already running", "The backup job Nightly2 is due, but its run goes on.", 0, "");
  EXPECT_EQ(3u, JsonOf({"logs", "--json", "--since", "-61min"}).size());
  EXPECT_EQ(1u, JsonOf({"logs", "--json", "--job", "NIGHTLY"}).size());
  std::string followed;
  std::thread follower([&] { followed = Out({"logs", "--follow", "--job", "Nightly", "--follow-seconds", "1"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  clock_.AdvanceSeconds(60);
  logs.AddLogSimple(0, "Backup started", "Backup job Nightly started.", 0, "");
  logs.AddLogSimple(0, "Backup started", "Backup job Weekly started.", 0, "");
  follower.join();
  EXPECT_EQ("2024-01-30 22:01:01  warning  Backup job already running\n"
            "    The backup job Nightly is due, but its run goes on.\n"
            "\n"
            "2024-01-30 22:02:01  info     Backup started\n"
            "    Backup job Nightly started.\n",
            followed);
}

TEST_F(TwctlTest, RequestsAreWrittenOrRefusedAndTheirAnswersFollowed) {
  Out({"job", "add", "Nightly", "--time", "22:15"});
  TWSettings settings(SettingsPath());
  SettingsStore& store = settings.Store();
  clsConsole console = settings.General().Console();
  console.AppendTestLine("Performing test backup...");
  console.AppendTestLine("RESULT: Backup process encountered errors");

  EXPECT_NE(std::string::npos, Out({"request", "test-backup", "nightly"}).find("\nTWService is not running: "));
  EXPECT_EQ("Nightly", console.RequestJobName());

  // Refusals write nothing: a bad date, a request still waiting.
  EXPECT_EQ(2, Run({"request", "run", "Nightly", "--date", "2024-02-30"}).status);
  EXPECT_EQ(0u, Err({"request", "run", "Nightly", "--date", "2024-01-31"}, 1)
                    .find("twctl: a test backup of \"Nightly\" still waits for the service"));
  EXPECT_EQ("", console.RunJobRequest());

  Out({"request", "run", "Nightly", "--date", "2024-01-31", "--replace"});
  EXPECT_EQ("45322", console.RunJobRequest());
  EXPECT_FALSE(store.ReadBool("console.test_backup_requested")) << "the replaced request is gone";

  // The service answers the test backup; answers start after the lines already there.
  Out({"request", "test-backup", "Nightly", "--replace"});
  EXPECT_TRUE(console.TestBackupRequested());  // as the service takes it
  console.AppendTestLine("Performing test backup...");
  console.AppendTestLine("RESULT: Backup process completed normally");
  EXPECT_EQ("Performing test backup...\nRESULT: Backup process completed normally\n", Out({"answers", "--follow"}));
  EXPECT_EQ("Performing test backup...\nRESULT: Backup process encountered errors\n",
            Out({"answers", "--follow", "--all"}, 1));

  Out({"request", "test-reminder", "Nightly", "--broadcast"});
  EXPECT_TRUE(console.ReminderByBroadcastSelected());
  // Without a service's heartbeat no answer can come: following ends at once and says why.
  EXPECT_EQ(0u, Err({"answers", "--follow"}, 1).find("twctl: no \"RESULT: \" line yet, and TWService is not running"));
  RecordServiceState(store, servicestate::kRunning, clock_.Now(), clock_.Now());
  EXPECT_EQ(0u, Err({"answers", "--follow", "--timeout", "0"}, 1).find("twctl: no \"RESULT: \" line within 0 s"));
}

TEST_F(TwctlTest, StatusTellsTheServiceStateEachJobAndAnExitStatusForScripts) {
  Out({"job", "add", "Nightly", "--time", "22:15"});
  Out({"job", "add", "Archive", "--time", "02:00", "--suspended"});
  TWSettings store(SettingsPath());
  clsJob nightly = store.General().JobByName("Nightly");
  clsJob archive = store.General().JobByName("Archive");
  // A run past its time-out and five minutes more shows as timed out, never as running, and calls
  // for a look. Nightly has run 75 minutes: within 70 and five, past 69 and five.
  nightly.RunStatus(-2);
  nightly.RunStartTime(clock_.Now() - 75.0 / 1440);
  nightly.BackupTimeout(70);
  test::WriteFile(dir_ / "BackupLog-Archive.txt", "tar: /srv\n");
  // Report logs of an older version, which kept no record of the last run: status reads them.
  for (const int32_t status : {2, 0}) {
    SaveReport("Archive", clock_.Now() - 1, status);
    clock_.AdvanceSeconds(1);
  }
  EXPECT_EQ("Service: not running (it has never run with these settings)\n\n"
            "JOB      NEXT RUN                          RUNNING         LAST RUN                  OUTCOME  MAIL\n"
            "Nightly  2024-01-30 22:15 (in 1 h 14 min)  for 1 h 15 min  none                      none\n"
            "Archive  suspended                         yes             2024-01-29 21:00, 14 min  normal   -\n",
            Out({"status"}, 3));

  // The service's heartbeat makes it running; every last outcome normal or none: exit 0.
  RecordServiceState(store.Store(), servicestate::kRunning, clock_.Now() - 1.0 / 24, clock_.Now());
  store.Store().SetReportMail("Archive", clock_.Now() - 1 - 1.0 / 86400, {"sent", 0, clock_.Now() - 0.99});
  std::string shown = Out({"status"});
  EXPECT_EQ(0u, shown.find("Service: running since 2024-01-30 20:00:02\n")) << shown;
  EXPECT_NE(std::string::npos, shown.find("normal   sent 2024-01-29 21:14\n")) << shown;

  nightly.BackupTimeout(69);
  EXPECT_NE(std::string::npos, Out({"status"}, 1).find("timed out, since 2024-01-30 19:45"));
  nightly.LastRun(clock_.Now() - 2, clock_.Now() - 2 + 0.01, 2, "45319.875.log");
  // A run missed before the last run that ran is not the last outcome.
  archive.RecordMissedRuns(clock_.Now() - 2, 1);
  EXPECT_EQ("normal", JsonOf({"status", "--json"})["jobs"][1]["last_outcome"]);

  // A missed run after the last one that ran is the last outcome; a heartbeat older than three
  // polls is a service that is not running.
  archive.RecordMissedRuns(clock_.Now() - 0.5, 1);
  clock_.AdvanceSeconds(31);
  shown = Out({"status"}, 3);
  EXPECT_EQ(0u, shown.find("Service: not running (last heartbeat 2024-01-30 21:00:02, 31 s ago)\n")) << shown;
  const auto json = JsonOf({"status", "--json"});
  // The time of Nightly's last outcome is the end of its last run.
  ExpectFields(json["jobs"][0], {{"timed_out", true}, {"running_seconds", 4533}, {"last_outcome", "errors"},
                                 {"last_outcome_time", "2024-01-28T21:14:26+00:00"}});
  ExpectFields(json["jobs"][1],
               {{"last_outcome", "missed"}, {"last_outcome_time", "2024-01-30T09:00:02+00:00"}, {"missed_runs", 2}});

  // The same facts for Prometheus; a name with a quote and a backslash is escaped in its label.
  Out({"job", "add", "Odd \"one\" \\ x", "--backup-log-id", "odd"});
  const std::string metrics = Out({"metrics"});
  EXPECT_NE(std::string::npos, metrics.find("tarnwick_job_running{job=\"Odd \\\"one\\\" \\\\ x\"} 0\n")) << metrics;
  Out({"metrics", "--textfile", dir_ / "tarnwick.prom"});
  EXPECT_EQ(metrics, test::ReadFile(dir_ / "tarnwick.prom"));
  // The collector reads it under its own account.
  EXPECT_EQ(fs::perms(0644), fs::status(dir_ / "tarnwick.prom").permissions() & fs::perms::all);
  EXPECT_EQ(1, Run({"metrics", "--textfile", dir_ / "missing/tarnwick.prom"}).status);

  // A running job is not asked for again, and is removed only when told to; a request that waits
  // for a removed job goes with it.
  EXPECT_EQ(0u,
            Err({"request", "test-backup", "Nightly"}, 1).find("twctl: Nightly is running (since 2024-01-30 19:45)"));
  Out({"request", "test-reminder", "Nightly", "--email"});  // a reminder test starts no run
  EXPECT_NE(std::string::npos, Err({"job", "remove", "Nightly"}, 1).find("; remove it once the run has ended"));
  EXPECT_EQ("Removed backup job Nightly.\nWithdrew a reminder test of \"Nightly\", which still waited for the "
            "service.\nIts run under way goes on and is reported when it ends.\n",
            Out({"job", "remove", "nightly", "--force"}));
  EXPECT_EQ("RESULT: Request withdrawn: the backup job Nightly was removed.",
            store.General().Console().AnswersAfter(0).back().second);
}

}  // namespace
}  // namespace tw
