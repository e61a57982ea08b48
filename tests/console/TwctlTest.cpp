#include "console/Twctl.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

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

class TwctlTest : public ::testing::Test {
 protected:
  Result Run(std::vector<std::string> args) {
    std::ostringstream out, err;
    ConsoleEnvironment environment;
    environment.settingsPath = SettingsPath();
    environment.applicationFolder = dir_.Path();
    environment.clock = &clock_;
    environment.readSecret = [this](const std::string&) { return secret_; };
    const int status = RunTwctl(args, out, err, environment);
    return {status, out.str(), err.str()};
  }
  std::string SettingsPath() const { return dir_ / "settings.db"; }

  test::TempDir dir_;
  ManualClock clock_{45321.875};
  std::optional<std::string> secret_;
};

TEST_F(TwctlTest, AJobIsAddedChangedListedShownAndRemoved) {
  auto r = Run({"job", "add", "Nightly", "--description", "Servers", "--time", "22:15", "--source", "/srv",
                "--source", "/etc", "--destination", "/var/backups/tw", "--timeout", "90"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("Added backup job Nightly, daily at 22:15:00.\n", r.out);
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(SettingsPath()).permissions() & fs::perms::all);

  r = Run({"job", "add", "Weekly Archive", "--time", "06:00:30", "--suspended"});
  ASSERT_EQ(0, r.status) << r.err;
  r = Run({"job", "list"});
  EXPECT_EQ("NAME            TIME      SCHEME           TIMEOUT  STATE      DESCRIPTION\n"
            "Nightly         22:15:00  TWSchemes.Daily  90 min   active     Servers\n"
            "Weekly Archive  06:00:30  TWSchemes.Daily  240 min  suspended\n",
            r.out);

  r = Run({"job", "set", "nightly", "--time", "23:00", "--scheme", "TWSchemes.Weekdays", "--source", "/home",
           "--backup-log-id", "night"});
  ASSERT_EQ(0, r.status) << r.err;
  r = Run({"job", "show", "Nightly", "--json"});
  ASSERT_EQ(0, r.status);
  const auto json = nlohmann::json::parse(r.out);
  EXPECT_EQ("Nightly", json["name"]);
  EXPECT_EQ("Servers", json["description"]);
  EXPECT_EQ("23:00:00", json["time"]);
  EXPECT_EQ("TWSchemes.Weekdays", json["scheme"]);
  EXPECT_EQ(90, json["timeout_minutes"]);
  EXPECT_EQ(std::vector<std::string>{"/home"}, json["sources"].get<std::vector<std::string>>());
  r = Run({"job", "set", "Nightly", "--add-source", "/srv", "--add-source", "/etc/", "--add-source", "/srv",
           "--remove-source", "/home/"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ((std::vector<std::string>{"/srv", "/etc/"}),
            nlohmann::json::parse(Run({"job", "show", "Nightly", "--json"}).out)["sources"]);
  r = Run({"job", "set", "Nightly", "--add-source", "/opt", "--remove-source", "/home"});
  EXPECT_EQ(2, r.status);
  EXPECT_EQ("twctl: the job has no source \"/home\" to remove ('twctl job show' lists them)\n", r.err);
  r = Run({"job", "set", "Nightly", "--remove-source", "/srv", "--remove-source", "/etc"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_TRUE(nlohmann::json::parse(Run({"job", "show", "Nightly", "--json"}).out)["sources"].empty());
  r = Run({"job", "set", "Nightly", "--source", "/home"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("/var/backups/tw", json["destination"]);
  EXPECT_EQ("night", json["backup_log_id"]);
  EXPECT_EQ(false, json["suspended"]);
  EXPECT_TRUE(json["schedule_last_fired"].is_null());

  r = Run({"job", "show", "Weekly Archive"});
  EXPECT_NE(std::string::npos, r.out.find("Suspended:                yes\n"));
  EXPECT_NE(std::string::npos, r.out.find("Backup log id:            Weekly_Archive\n"));
  EXPECT_NE(std::string::npos, r.out.find("Destination:              /var/backups/tarnwick\n"));
  EXPECT_NE(std::string::npos, r.out.find("Run status:               0 (no run recorded)\n"));

  r = Run({"job", "set", "Weekly Archive", "--no-suspended"});
  EXPECT_EQ(0, r.status);
  EXPECT_FALSE(TWSettings(SettingsPath()).General().JobByName("Weekly Archive").Suspended());

  r = Run({"job", "remove", "NIGHTLY"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("Removed backup job Nightly.\n", r.out);
  r = Run({"job", "list", "--json"});
  const auto list = nlohmann::json::parse(r.out);
  ASSERT_EQ(1u, list.size());
  EXPECT_EQ("Weekly Archive", list[0]["name"]);
}

TEST_F(TwctlTest, BadUsageIsRejectedWithOneLineAndNothingWritten) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string err;
  };
  const std::vector<Case> cases = {
      {{"job", "add", "A", "--time", "25:00"}, 2,
       "twctl: invalid time \"25:00\" for --time (expected HH:MM or HH:MM:SS)\n"},
      {{"job", "add", "A", "--timeout", "-5"}, 2,
       "twctl: invalid number \"-5\" for --timeout (expected whole minutes from 0 to 525600)\n"},
      {{"job", "add", "A", "--timeout", "1.5"}, 2,
       "twctl: invalid number \"1.5\" for --timeout (expected whole minutes from 0 to 525600)\n"},
      {{"job", "add", "A", "--backup-log-id", ".."}, 2,
       "twctl: invalid identifier \"..\" for --backup-log-id (letters, digits, '.', '_' and '-', at most 64, not \".\" "
       "or \"..\")\n"},
      {{"job", "add", " "}, 2, "twctl: a job name must not be empty\n"},
      {{"job", "add", ".."}, 2,
       "twctl: invalid job name \"..\": a job name is not \".\" or \"..\" and holds no \"/\"\n"},
      {{"job", "add", "srv/data"}, 2,
       "twctl: invalid job name \"srv/data\": a job name is not \".\" or \"..\" and holds no \"/\"\n"},
      {{"job", "add", "Caf\xE9"}, 2, "twctl: the job name is not UTF-8 text (byte 0xE9 at position 4)\n"},
      {{"job", "add", "A", "--source", "/srv/\xC3\x28"}, 2,
       "twctl: --source is not UTF-8 text (byte 0xC3 at position 6)\n"},
      {{"job", "add", "A", "--label", "Disk\nA"}, 2,
       "twctl: --label must be one line of text, but holds the control character U+000A at character 5\n"},
      {{"job", "add", "A", "--description", "Front \x1B[2Jdesk"}, 2,
       "twctl: --description holds the control character U+001B at character 7 (only tabs and line breaks may be "
       "used)\n"},
      {{"job", "add", "A", "--time", "23:59:59"}, 2,
       "twctl: --time 23:59:59 cannot be reached: the service starts a scheduled run at one of its polls (every 10 "
       "seconds) within 59 seconds after its time, on the same day, and after 23:59:59 the day has 0 seconds left; "
       "the latest time is 23:59:49\n"},
      {{"job", "add", "A", "--reminder-time", "23:59:50"}, 2,
       "twctl: --reminder-time 23:59:50 cannot be reached: the service sends a media reminder at one of its polls "
       "(every 10 seconds) within 59 seconds after its time, on the same day, and after 23:59:50 the day has 9 "
       "seconds left; the latest time is 23:59:49\n"},
      {{"job", "add", "A", "--maintenance", "--maintenance-subject", "Clean the drive"}, 2,
       "twctl: --maintenance needs a schedule: give one of --maintenance-weekly, --maintenance-monthly, "
       "--maintenance-first-weekday, --maintenance-last-weekday, --maintenance-dates or --maintenance-occurrence; "
       "without one the service would log a warning every 10 seconds\n"},
      {{"config", "set", "mail.sender", "tw@example.org>\r\nRCPT TO:<intruder@example.org"}, 2,
       "twctl: mail.sender must be one line of text, but holds the control character U+000D at character 16\n"},
      {{"config", "set", "mail.sender", "Backups b@example.org>"}, 2,
       "twctl: invalid address \"Backups b@example.org>\" for mail.sender (has > without <)\n"},
      {{"config", "set", "mail.failure_recipients", "Ops <ops@example.org>; boss at example.org"}, 2,
       "twctl: invalid address \"boss at example.org\" for mail.failure_recipients (has no @)\n"},
      {{"config", "set", "options.custom_product_name", "Tarn\xFFwick"}, 2,
       "twctl: options.custom_product_name is not UTF-8 text (byte 0xFF at position 5)\n"},
      {{"job", "show", "Nope"}, 1, "twctl: unknown job \"Nope\" ('twctl job list' shows the jobs)\n"},
      {{"job", "set", "Nope", "--time", "10:00"}, 1, "twctl: unknown job \"Nope\" ('twctl job list' shows the jobs)\n"},
      {{"config", "get", "mail.nothing"}, 2,
       "twctl: unknown setting \"mail.nothing\" ('twctl config list' shows them all)\n"},
      {{"config", "set", "mail.port", "seventy"}, 2,
       "twctl: invalid number \"seventy\" for mail.port (expected a whole number from 1 to 65535)\n"},
      {{"config", "set", "mail.security", "ssl"}, 2,
       "twctl: invalid value \"ssl\" for mail.security (expected one of: none, starttls, tls)\n"},
      {{"config", "set", "options.detailed_logging", "perhaps"}, 2,
       "twctl: invalid value \"perhaps\" for options.detailed_logging (expected true or false)\n"},
      {{"config", "set", "options.service_installed", "true"}, 2,
       "twctl: options.service_installed is kept by the service itself and cannot be set here\n"},
      {{"config", "set", "console.run_job_request", "1"}, 2,
       "twctl: unknown setting \"console.run_job_request\" ('twctl config list' shows them all)\n"},
      {{"job", "list", "--frobnicate"}, 2, "twctl: The following argument was not expected: --frobnicate\n"
                                           "Run 'twctl --help' for usage.\n"},
      {{}, 2, "twctl: A subcommand is required\nRun 'twctl --help' for usage.\n"},
      {{"jobs", "list"}, 2, "twctl: unknown command \"jobs\" for twctl\nRun 'twctl --help' for usage.\n"},
      {{"--settings", "x.db", "job", "lst"}, 2,
       "twctl: unknown command \"lst\" for twctl job\nRun 'twctl job --help' for usage.\n"},
  };
  for (const auto& c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(c.status, r.status) << c.err;
    EXPECT_EQ(c.err, r.err);
    EXPECT_EQ("", r.out);
  }
  EXPECT_FALSE(fs::exists(SettingsPath())) << "a rejected command writes nothing";

  ASSERT_EQ(0, Run({"job", "add", "A", "--time", "23:59:49"}).status);
  const Result duplicate = Run({"job", "add", "a"});
  EXPECT_EQ(1, duplicate.status);
  EXPECT_EQ("twctl: a job named \"a\" already exists\n", duplicate.err);
  EXPECT_EQ(2, Run({"job", "set", "A", "--time", "01:00", "--timeout", "x"}).status);
  EXPECT_EQ(2, Run({"job", "set", "A"}).status);
  EXPECT_EQ("23:59:49", nlohmann::json::parse(Run({"job", "show", "A", "--json"}).out)["time"]);
}

TEST_F(TwctlTest, SettingsAreSetAndReadBackAndPasswordsNeverPrinted) {
  EXPECT_EQ("localhost\n", Run({"config", "get", "mail.server"}).out);
  EXPECT_EQ(0, Run({"config", "set", "mail.server", "smtp.example.org"}).status);
  EXPECT_EQ(0, Run({"config", "set", "mail.email_enabled", "yes"}).status);
  EXPECT_EQ(0, Run({"config", "set", "mail.security", "STARTTLS"}).status);
  EXPECT_EQ("smtp.example.org\n", Run({"config", "get", "mail.server"}).out);
  EXPECT_EQ("true\n", Run({"config", "get", "mail.email_enabled"}).out);
  EXPECT_EQ("starttls\n", Run({"config", "get", "mail.security"}).out);
  EXPECT_EQ("{\n  \"key\": \"mail.email_enabled\",\n  \"value\": true\n}\n",
            Run({"config", "get", "mail.email_enabled", "--json"}).out);

  EXPECT_EQ("(not set)\n", Run({"config", "get", "mail.password"}).out);
  const Result typed = Run({"config", "set", "mail.password", "hunter2"});
  EXPECT_EQ(0, typed.status);
  EXPECT_EQ(0u, typed.err.find("twctl: note: a password given as an argument can be seen by other users"));
  secret_ = "s3cret pass";
  const Result hidden = Run({"config", "set", "identity.password", "-"});
  EXPECT_EQ(0, hidden.status);
  EXPECT_EQ("", hidden.err);
  EXPECT_EQ("s3cret pass", TWSettings(SettingsPath()).General().Identity().IdentityValue2());
  EXPECT_EQ("(set)\n", Run({"config", "get", "mail.password"}).out);
  const Result list = Run({"config", "list"});
  const Result json = Run({"config", "list", "--json"});
  for (const auto& text : {list.out, json.out}) {
    EXPECT_EQ(std::string::npos, text.find("hunter2"));
    EXPECT_EQ(std::string::npos, text.find("s3cret"));
    EXPECT_EQ(std::string::npos, text.find("console."));
  }
  EXPECT_NE(std::string::npos, list.out.find("mail.server                           smtp.example.org\n"));
  const auto parsed = nlohmann::json::parse(json.out);
  EXPECT_EQ(true, parsed["mail.email_enabled"]);
  EXPECT_EQ(25, parsed["mail.port"]);
  EXPECT_EQ("(set)", parsed["mail.password"]);

  // A recipient list may be pasted one address per line; a body's lone line feeds are kept as CR LF.
  EXPECT_EQ(0, Run({"config", "set", "mail.failure_recipients", "ops@example.org\nboss@example.org"}).status);
  EXPECT_EQ(0, Run({"config", "set", "mail.sender", "\"Backups, Site A\" <b@example.org>"}).status);
  EXPECT_EQ(0, Run({"config", "set", "templates.reminder_body", "Load %LABEL%\nThanks"}).status);
  EXPECT_EQ("Load %LABEL%\r\nThanks", TWSettings(SettingsPath()).Store().ReadText("templates.reminder_body"));

  // One value that does not read hides none of the others; the exit status says so at the end.
  Database(SettingsPath()).Execute("INSERT OR REPLACE INTO settings (key, value) VALUES ('mail.port', 'seventy')");
  const std::string reason = "Setting mail.port holds \"seventy\", which is not a whole number";
  const Result bad = Run({"config", "list"});
  EXPECT_EQ(1, bad.status);
  EXPECT_NE(std::string::npos, bad.out.find("mail.port                             (unreadable: " + reason + ")\n"));
  EXPECT_NE(std::string::npos, bad.out.find("mail.server                           smtp.example.org\n"));
  const Result badJson = Run({"config", "list", "--json"});
  EXPECT_EQ(1, badJson.status);
  const auto listedJson = nlohmann::json::parse(badJson.out);
  EXPECT_EQ(reason, listedJson["mail.port"]["unreadable"]);
  EXPECT_EQ("smtp.example.org", listedJson["mail.server"]);

  secret_.reset();
  const Result none = Run({"config", "set", "mail.password", "-"});
  EXPECT_EQ(1, none.status);
  EXPECT_EQ("twctl: no value was given on standard input for mail.password\n", none.err);
}

TEST_F(TwctlTest, ListingsSurviveStoredValuesThatAreNotOneLineOfText) {
  {
    // As an older version let them be stored.
    TWSettings settings(SettingsPath());
    settings.General().AddJob("Caf\xE9", "cafe").Description("Front desk\r\nand till");
    settings.Store().WriteText("options.custom_product_name", "Tarn\xFFwick");
  }
  std::vector<nlohmann::json> listings;
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"job", "list", "--json"}, {"status", "--json"}, {"config", "list", "--json"}}) {
    const Result r = Run(args);
    EXPECT_EQ(args[0] == "status" ? 3 : 0, r.status) << r.err;  // no service runs
    listings.push_back(nlohmann::json::parse(r.out, nullptr, false));
  }
  EXPECT_EQ("Caf\uFFFD", listings[0][0]["name"]);
  EXPECT_EQ("Caf\uFFFD", listings[1]["jobs"][0]["job"]);
  EXPECT_EQ("Tarn\uFFFDwick", listings[2]["options.custom_product_name"]);
  EXPECT_EQ("NAME  TIME      SCHEME           TIMEOUT  STATE   DESCRIPTION\n"
            "Caf\xE9  21:00:00  TWSchemes.Daily  240 min  active  Front desk and till\n",
            Run({"job", "list"}).out);

  // Columns line up by what a terminal shows: "Grüße" is five columns, a CJK character two.
  ASSERT_EQ(0, Run({"job", "remove", "Caf\xE9"}).status);
  ASSERT_EQ(0, Run({"job", "add", "Grüße", "--description", "a"}).status);
  ASSERT_EQ(0, Run({"job", "add", "夜間", "--description", "b"}).status);
  ASSERT_EQ(0, Run({"job", "add", "N", "--description", "c"}).status);
  EXPECT_EQ("NAME   TIME      SCHEME           TIMEOUT  STATE   DESCRIPTION\n"
            "Grüße  21:00:00  TWSchemes.Daily  240 min  active  a\n"
            "夜間   21:00:00  TWSchemes.Daily  240 min  active  b\n"
            "N      21:00:00  TWSchemes.Daily  240 min  active  c\n",
            Run({"job", "list"}).out);
}

TEST_F(TwctlTest, LogsShowsTheNewestEntriesWithTheirAttachments) {
  EXPECT_EQ("The application log in " + (dir_ / "Logs") + " is empty.\n", Run({"logs"}).out);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "Logs")) << "reading the log makes no folder";
  {
    TWSettings settings(SettingsPath());
    BlockingPump pump;
    clsLogs logs(dir_.Path(), settings, clock_, pump, [] { return 0.0; });
    logs.AddLogSimple(0, "Tarnwick service starting", "The Tarnwick service has been instructed to start", 0, "");
    clock_.AdvanceSeconds(61);
    // Lines ended as Windows, Linux and old Macs end them: one entry all the same.
    logs.AddLogSimple(2, "Error #00106 - Error launching backup", "1326\r\nsecond line\nthird line\rfourth line", 1,
                      "DesktopRights said 1326");
  }
  const Result r = Run({"logs", "-n", "1"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("2024-01-30 21:01:01  error    Error #00106 - Error launching backup\n"
            "    1326\n"
            "    second line\n"
            "    third line\n"
            "    fourth line\n"
            "  Attachment:\n"
            "    DesktopRights said 1326\n",
            r.out);
  const auto json = nlohmann::json::parse(Run({"logs", "--json"}).out);
  ASSERT_EQ(2u, json.size());
  EXPECT_EQ("Tarnwick service starting", json[1]["title"]);
  EXPECT_EQ("info", json[1]["type_name"]);
  EXPECT_EQ("2024-01-30T21:00:00+00:00", json[1]["time"]);
  EXPECT_EQ("DesktopRights said 1326", json[0]["attachment"]);
  EXPECT_EQ("1326\r\nsecond line\nthird line\rfourth line", json[0]["message"]);
  EXPECT_EQ(2, Run({"logs", "-n", "0"}).status);

  // Entries since a moment, entries that name a job, and new entries as they are written.
  TWSettings settings(SettingsPath());
  BlockingPump pump;
  clsLogs logs(dir_.Path(), settings, clock_, pump, [] { return 0.0; });
  clock_.AdvanceSeconds(3600);
  logs.AddLogSimple(1, "Backup job already running", "The backup job Nightly is due, but its run goes on.", 0, "");
  logs.AddLogSimple(1, "Backup job already running", "The backup job Nightly2 is due, but its run goes on.", 0, "");
  const auto entries = [&](const std::vector<std::string>& args) {
    return nlohmann::json::parse(Run(args).out).size();
  };
  EXPECT_EQ(2u, entries({"logs", "--json", "--since", "-30min"}));
  EXPECT_EQ(3u, entries({"logs", "--json", "--since", "2024-01-30 21:01"}));
  EXPECT_EQ(4u, entries({"logs", "--json", "--since", "today"}));
  EXPECT_EQ(1u, entries({"logs", "--json", "--job", "NIGHTLY"}));
  EXPECT_EQ(2, Run({"logs", "--since", "last week"}).status);
  Result followed;
  std::thread follower([&] { followed = Run({"logs", "--follow", "--job", "Nightly", "--follow-seconds", "1"}); });
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
            followed.out);
}

TEST_F(TwctlTest, AnUnreadableSettingsFileIsOneClearLine) {
  test::WriteFile(SettingsPath(), std::string(2048, '#'));
  const Result r = Run({"job", "list"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("twctl: Cannot read settings file " + SettingsPath() + ": file is not a database\n", r.err);
  const Result other = Run({"--settings", dir_ / "elsewhere.db", "job", "list"});
  EXPECT_EQ(0, other.status) << "--settings points elsewhere";
}

TEST_F(TwctlTest, OccurrencesAreDescribedCheckedAndSearched) {
  const std::string lastFriday = "2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0";
  EXPECT_EQ("Last Fri 21:00\n", Run({"occurrence", "describe", lastFriday}).out);
  EXPECT_EQ("Last Fri\n", Run({"occurrence", "describe", lastFriday, "--type", "0"}).out);
  Result r = Run({"occurrence", "check", lastFriday, "2026-11-27 21:00"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("match\n", r.out);
  r = Run({"occurrence", "check", lastFriday, "2026-11-20 21:00"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("no match\n", r.out);
  r = Run({"occurrence", "next", lastFriday, "--from", "2026-11-23 00:00", "-n", "3"});
  EXPECT_EQ("2026-11-27 21:00  Fri\n2026-12-25 21:00  Fri\n2027-01-29 21:00  Fri\n", r.out);
  // Without --from the search starts now: 30 January 2024, 21:00.
  EXPECT_EQ("[\n  \"2024-01-30T21:00:00+00:00\"\n]\n",
            Run({"occurrence", "next", "1|0.875|0,0,-1,0,0,0,0", "-n", "1", "--json"}).out);
  EXPECT_EQ("No matching minute in the next 400 years.\n",
            Run({"occurrence", "next", "2|0.875|0,0,0,0,0,0|0,-1,0,0,0,0,0|0|0"}).out);

  r = Run({"occurrence", "describe", "1|0.875"});
  EXPECT_EQ(2, r.status);
  EXPECT_EQ("twctl: malformed occurrence string \"1|0.875\"\n", r.err);
  r = Run({"occurrence", "check", lastFriday, "27/11/2026"});
  EXPECT_EQ(2, r.status);
  EXPECT_EQ("twctl: invalid time \"27/11/2026\" (expected \"YYYY-MM-DD HH:MM\")\n", r.err);
}

TEST_F(TwctlTest, NotificationsAndSchemesAreSetReadablyAndPreviewed) {
  ASSERT_EQ(0, Run({"job", "add", "Office", "--scheme", "twschemes.gfs", "--time", "02:00"}).status);
  EXPECT_EQ(2, Run({"job", "set", "Office", "--maintenance"}).status) << "no schedule yet";
  Result r = Run({"job", "set", "Office", "--maintenance-monthly", "last:fri@21:00", "--maintenance-subject",
                  "Clean the drive"});
  EXPECT_EQ("Changed backup job Office.\nNote: the maintenance e-mail of Office is off; --maintenance switches it on.\n",
            r.out);
  r = Run({"job", "set", "Office", "--maintenance", "--reminder-time", "16:30", "--reminder-email",
           "--reminder-broadcast", "--print-report", "--no-email-report", "--label", "Disk A", "--method",
           "incremental", "--mode", "append", "--eject", "--description", "Front desk\nand till",
           "--maintenance-body", "Clean it\r\nthen\nrestart"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("Changed backup job Office.\n", r.out);
  const auto json = nlohmann::json::parse(Run({"job", "show", "Office", "--json"}).out);
  EXPECT_EQ("Front desk\r\nand till", json["description"]) << "a lone line feed in a report log broke it";
  EXPECT_EQ("Clean it\r\nthen\r\nrestart", json["notification"]["maintenance_body"]);
  EXPECT_EQ("TWSchemes.GFS", json["scheme"]) << "stored as the registry spells it";
  EXPECT_EQ("Disk A", json["label"]);
  EXPECT_EQ("incremental", json["method"]);
  EXPECT_EQ("append", json["mode"]);
  EXPECT_EQ(true, json["eject"]);
  const auto& n = json["notification"];
  EXPECT_EQ("2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0", n["maintenance_occurrence"]);
  EXPECT_EQ("Last Fri 21:00", n["maintenance_schedule"]);
  EXPECT_EQ(true, n["maintenance_email_enabled"]);
  EXPECT_EQ("Clean the drive", n["maintenance_subject"]);
  EXPECT_EQ("16:30:00", n["reminder_time"]);
  EXPECT_EQ(true, n["media_reminder_by_email"]);
  EXPECT_EQ(true, n["media_reminder_by_broadcast"]);
  EXPECT_EQ(true, n["print_report"]);
  EXPECT_EQ(false, n["send_report_email"]);

  EXPECT_EQ(2, Run({"job", "set", "Office", "--scheme", "TWSchemes.Hourly"}).status);
  EXPECT_EQ(2, Run({"job", "set", "Office", "--method", "differential"}).status);
  r = Run({"job", "set", "Office", "--maintenance-weekly", "funday@10:00"});
  EXPECT_EQ("twctl: unknown day \"funday\" (expected sun, mon, tue, wed, thu, fri, sat) for --maintenance-weekly\n",
            r.err);
  r = Run({"job", "set", "Office", "--maintenance-occurrence", "1|0.5"});
  EXPECT_EQ("twctl: malformed occurrence string \"1|0.5\" for --maintenance-occurrence\n", r.err);

  // The clock stands at Tuesday 30 January 2024, 21:00; a 02:00 run belongs to the day before it starts.
  r = Run({"job", "preview", "Office", "--days", "4"});
  EXPECT_EQ("STARTS                RUN DATE    RUNS  LABEL      METHOD       MODE\n"
            "Wed 2024-01-31 02:00  2024-01-30  yes   Daily-Tue  incremental  overwrite\n"
            "Thu 2024-02-01 02:00  2024-01-31  yes   Daily-Wed  incremental  overwrite\n"
            "Fri 2024-02-02 02:00  2024-02-01  yes   Daily-Thu  incremental  overwrite\n"
            "Sat 2024-02-03 02:00  2024-02-02  yes   Weekly-1   full         overwrite\n",
            r.out);
  const auto preview = nlohmann::json::parse(Run({"job", "preview", "Office", "--days", "6", "--json"}).out);
  EXPECT_EQ(false, preview[4]["runs"]) << "Saturday's run date";
  EXPECT_EQ("2024-02-03", preview[4]["run_date"]);

  r = Run({"schemes"});
  EXPECT_EQ(0u, r.out.find("TWSchemes.Daily     every day"));
  EXPECT_NE(std::string::npos, r.out.find("TWSchemes.GFS "));
  EXPECT_EQ("TWSchemes.Daily", nlohmann::json::parse(Run({"schemes", "--json"}).out)[0]["id"]);
}

TEST_F(TwctlTest, ReportLogsAreListedAndShown) {
  EXPECT_EQ("No report logs in " + (dir_ / "Reports") + " yet.\n", Run({"reports"}).out);
  {
    TWSettings settings(SettingsPath());
    clsReportLogs reports(dir_.Path(), settings, clock_, [] { return 0.0; });
    clsReportLogEntry entry;
    entry.TimeStart = 45321.875;
    entry.TimeEnd = 45321.88;
    entry.JobName = "Nightly";
    entry.JobDesc = "Servers\nand desktops";  // a lone line feed, as older versions wrote it
    entry.Status = 2;
    entry.Label = "Daily-Tue";
    entry.Computer = "server1";
    entry.Report = "Tarnwick backup report\r\nErrors: 1\r\n";
    reports.SaveNewEntry(entry);
    settings.Store().SetReportMail("Nightly", 45321.875, {"waiting", 2, 45321.875 + 47.0 / 1440});
  }
  // The newest report log does not read: the listing and "latest" pass over it and say so.
  test::WriteFile(dir_ / "Reports/45322.5.log", "");
  Result r = Run({"reports"});
  EXPECT_EQ("STARTED           JOB      STATUS  MAIL                             LABEL      FILE           REPORT\n"
            "2024-01-30 21:00  Nightly  Errors  waiting: retry 2 of 11 at 21:47  Daily-Tue  45321.875.log  Tarnwick "
            "backup report\n",
            r.out);
  const std::string skipped = "twctl: skipped the report log 45322.5.log: Input past end of file\n";
  EXPECT_EQ(skipped, r.err);
  r = Run({"report", "show", "latest"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(skipped, r.err);
  EXPECT_EQ("File:      " + (dir_ / "Reports/45321.875.log") + "\n"
            "Job:       Nightly (Servers\nand desktops)\n"
            "Started:   2024-01-30 21:00:00\n"
            "Finished:  2024-01-30 21:07:12\n"
            "Status:    Errors (2)\n"
            "Label:     Daily-Tue\n"
            "Computer:  server1\n"
            "Mail:      waiting: retry 2 of 11 at 21:47\n"
            "\n"
            "Tarnwick backup report\nErrors: 1\n",
            r.out);
  // The FILE column, a position in the list and a job name open it as well.
  for (const std::string handle : {"45321.875.log", "1", "nightly"}) {
    EXPECT_EQ(r.out, Run({"report", "show", handle}).out) << handle;
  }
  r = Run({"report", "show", "2"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ(skipped + "twctl: there is no report log at position 2 ('twctl reports' lists 1)\n", r.err);
  // In JSON every time carries its offset from UTC.
  const auto listed = nlohmann::json::parse(Run({"reports", "--json"}).out);
  EXPECT_EQ("Errors", listed[0]["status_word"]);
  EXPECT_EQ("2024-01-30T21:00:00+00:00", listed[0]["time_start"]);
  const auto shown = nlohmann::json::parse(Run({"report", "show", "1", "--json"}).out);
  EXPECT_EQ(dir_ / "Reports/45321.875.log", shown["file"]);
  EXPECT_EQ("2024-01-30T21:07:12+00:00", shown["time_end"]);
  EXPECT_EQ("Tarnwick backup report\r\nErrors: 1\r\n", shown["report"]);
  EXPECT_EQ(1, Run({"report", "show", "nothing.log"}).status);
  fs::remove(dir_ / "Reports/45321.875.log");
  r = Run({"report", "show", "latest"});
  EXPECT_EQ(skipped + "twctl: no report log reads in " + (dir_ / "Reports") + "\n", r.err);
}

TEST_F(TwctlTest, MailTestReportsWhatTheServerSaid) {
  ASSERT_EQ(0, Run({"config", "set", "mail.server", "127.0.0.1"}).status);
  ASSERT_EQ(0, Run({"config", "set", "mail.port", "1"}).status);
  Result r = Run({"mail", "test"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("twctl: no recipient: give --to ADDRESS or set mail.reminder_recipients\n", r.err);
  r = Run({"mail", "test", "--to", "ops@example.org"});
  EXPECT_EQ(1, r.status);
  EXPECT_NE(std::string::npos, r.out.find("Server: smtp://127.0.0.1:1 (security none)\n")) << "the transcript";
  EXPECT_EQ(0u, r.err.find("twctl: the test e-mail could not be sent through smtp://127.0.0.1:1 (none): "));

  test::SmtpServer server;
  ASSERT_EQ(0, Run({"config", "set", "mail.port", std::to_string(server.Port())}).status);
  // The mail names the product as the service's mails do.
  ASSERT_EQ(0, Run({"config", "set", "options.custom_product_name", "Acme Backup"}).status);
  r = Run({"mail", "test", "--to", "ops@example.org"});
  EXPECT_EQ(0, r.status) << r.out;
  EXPECT_EQ("Test e-mail sent to ops@example.org through smtp://127.0.0.1:" + std::to_string(server.Port()) +
                " (none).\n",
            r.out);
  ASSERT_EQ(1, server.Count());
  const std::string mail = server.Read(1);
  EXPECT_NE(std::string::npos, mail.find("\"subject\": \"Acme Backup test e-mail\"")) << mail;
  EXPECT_NE(std::string::npos, mail.find("\"from\": \"Acme Backup <")) << mail;
  EXPECT_NE(std::string::npos, mail.find("If you can read it, Acme Backup can send its reports")) << mail;
}

TEST_F(TwctlTest, RequestsAreWrittenOrRefusedAndTheirAnswersFollowed) {
  ASSERT_EQ(0, Run({"job", "add", "Nightly", "--time", "22:15"}).status);
  TWSettings settings(SettingsPath());
  SettingsStore& store = settings.Store();
  clsConsole console = settings.General().Console();
  console.AppendTestLine("Performing test backup...");
  console.AppendTestLine("RESULT: Backup process encountered errors");

  Result r = Run({"request", "test-backup", "nightly"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("Requested a test backup of Nightly; 'twctl answers --follow' shows the answers.\nTWService is not "
            "running: the request waits, and nothing happens until it starts.\n",
            r.out);
  EXPECT_EQ("Nightly", console.RequestJobName());
  EXPECT_TRUE(store.ReadBool("console.test_backup_requested"));

  // Refusals write nothing: an unknown job, a bad date, a request still waiting.
  EXPECT_EQ(1, Run({"request", "run", "Weekly"}).status);
  EXPECT_EQ(2, Run({"request", "run", "Nightly", "--date", "2024-02-30"}).status);
  r = Run({"request", "run", "Nightly", "--date", "2024-01-31"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("twctl: a test backup of \"Nightly\" still waits for the service (is TWService running?); --replace "
            "replaces it\n",
            r.err);
  EXPECT_EQ("", console.RunJobRequest());
  EXPECT_TRUE(store.ReadBool("console.test_backup_requested"));

  r = Run({"request", "run", "Nightly", "--date", "2024-01-31", "--replace"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("45322", console.RunJobRequest());
  EXPECT_FALSE(store.ReadBool("console.test_backup_requested")) << "the replaced request is gone";
  console.RunJobRequest("");
  ASSERT_EQ(0, Run({"request", "run", "Nightly"}).status);
  EXPECT_EQ("45321", console.RunJobRequest()) << "today by default";
  console.RunJobRequest("");

  // The service answers the test backup; answers start after the lines already there.
  ASSERT_EQ(0, Run({"request", "test-backup", "Nightly"}).status);
  EXPECT_TRUE(console.TestBackupRequested());
  console.AppendTestLine("Performing test backup...");
  console.AppendTestLine("Backup launched...");
  console.AppendTestLine("RESULT: Backup process completed normally");
  r = Run({"answers", "--follow"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("Performing test backup...\nBackup launched...\nRESULT: Backup process completed normally\n", r.out);
  r = Run({"answers", "--follow", "--all"});
  EXPECT_EQ(1, r.status) << "the first result was a failure";
  EXPECT_EQ("Performing test backup...\nRESULT: Backup process encountered errors\n", r.out);
  const auto answered = nlohmann::json::parse(Run({"answers", "--json"}).out);
  ASSERT_EQ(3u, answered.size());
  EXPECT_EQ("RESULT: Backup process completed normally", answered[2]["line"]);
  EXPECT_EQ(2, Run({"answers", "--json", "--follow"}).status);

  RecordServiceState(store, servicestate::kPaused, clock_.Now(), clock_.Now());
  r = Run({"request", "test-reminder", "Nightly", "--broadcast"});
  ASSERT_EQ(0, r.status) << r.err;
  EXPECT_EQ("Requested a reminder test of Nightly by broadcast; 'twctl answers --follow' shows the answers.\n"
            "TWService is paused: nothing happens until it continues ('twctl service continue').\n",
            r.out);
  EXPECT_TRUE(console.ReminderByBroadcastSelected());
  EXPECT_FALSE(console.ReminderByEmailSelected());
  EXPECT_TRUE(console.ReminderRequested());
  // Without a service's heartbeat no answer can come: following ends at once and says why.
  r = Run({"answers", "--follow"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("", r.out);
  EXPECT_EQ("twctl: no \"RESULT: \" line yet, and TWService is paused: nothing happens until it continues ('twctl "
            "service continue').\n",
            r.err);
  RecordServiceState(store, servicestate::kRunning, clock_.Now(), clock_.Now());
  r = Run({"answers", "--follow", "--timeout", "0"});
  EXPECT_EQ(1, r.status);
  EXPECT_NE(std::string::npos, r.err.find("no \"RESULT: \" line within 0 s")) << r.err;
  console.AppendTestLine("Sending reminders...");
  console.AppendTestLine("RESULT: Test complete.");
  r = Run({"answers", "--follow"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("Sending reminders...\nRESULT: Test complete.\n", r.out);
}

TEST_F(TwctlTest, StatusTellsTheServiceStateEachJobAndAnExitStatusForScripts) {
  ASSERT_EQ(0, Run({"job", "add", "Nightly", "--time", "22:15"}).status);
  ASSERT_EQ(0, Run({"job", "add", "Archive", "--time", "02:00", "--suspended"}).status);
  TWSettings store(SettingsPath());
  {
    clsJob nightly = store.General().JobByName("Nightly");
    nightly.RunStatus(-2);
    nightly.RunStartTime(clock_.Now() - 75.0 / 1440);
    test::WriteFile(dir_ / "BackupLog-Archive.txt", "tar: /srv\n");
    // Report logs of an older version, which kept no record of the last run: status reads them.
    clsReportLogs reports(dir_.Path(), store, clock_, [] { return 0.0; });
    for (const int32_t status : {2, 0}) {
      clsReportLogEntry entry;
      entry.TimeStart = clock_.Now() - 1;
      entry.TimeEnd = entry.TimeStart + 0.01;
      entry.JobName = "Archive";
      entry.Status = status;
      reports.SaveNewEntry(entry);
      clock_.AdvanceSeconds(1);
    }
  }
  Result r = Run({"status"});
  EXPECT_EQ(3, r.status) << "no service runs";
  EXPECT_EQ("Service: not running (it has never run with these settings)\n\n"
            "JOB      NEXT RUN                          RUNNING         LAST RUN                  OUTCOME  MAIL\n"
            "Nightly  2024-01-30 22:15 (in 1 h 14 min)  for 1 h 15 min  none                      none\n"
            "Archive  suspended                         yes             2024-01-29 21:00, 14 min  normal   -\n",
            r.out);

  // The service's heartbeat makes it running; every last outcome normal or none: exit 0.
  RecordServiceState(store.Store(), servicestate::kRunning, clock_.Now() - 1.0 / 24, clock_.Now());
  store.Store().SetReportMail("Archive", clock_.Now() - 1 - 1.0 / 86400, {"sent", 0, clock_.Now() - 0.99});
  r = Run({"status"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0u, r.out.find("Service: running since 2024-01-30 20:00:02\n")) << r.out;
  EXPECT_NE(std::string::npos, r.out.find("normal   sent 2024-01-29 21:14\n")) << r.out;

  // A run past its time-out and five minutes more shows as timed out, never as running, and calls
  // for a look: exit 1. Nightly has run 75 minutes: within 70 and five, past 69 and five.
  clsJob nightly = store.General().JobByName("Nightly");
  nightly.BackupTimeout(70);
  EXPECT_NE(std::string::npos, Run({"status"}).out.find("for 1 h 15 min")) << "not yet timed out";
  nightly.BackupTimeout(69);
  r = Run({"status"});
  EXPECT_EQ(1, r.status);
  EXPECT_NE(std::string::npos, r.out.find("timed out, since 2024-01-30 19:45")) << r.out;
  auto json = nlohmann::json::parse(Run({"status", "--json"}).out);
  EXPECT_EQ("running", json["service"]["state"]);
  EXPECT_FALSE(json["healthy"]);
  EXPECT_EQ("2024-01-30T22:15:00+00:00", json["jobs"][0]["next_run"]);
  EXPECT_EQ(true, json["jobs"][0]["timed_out"]);
  EXPECT_EQ(4502, json["jobs"][0]["running_seconds"]);
  EXPECT_EQ("normal", json["jobs"][1]["last_outcome"]);
  EXPECT_EQ("sent", json["jobs"][1]["last_run"]["mail"]["state"]);
  nightly.LastRun(clock_.Now() - 2, clock_.Now() - 2 + 0.01, 2, "45319.875.log");
  EXPECT_EQ("errors", nlohmann::json::parse(Run({"status", "--json"}).out)["jobs"][0]["last_outcome"]);
  // A run missed before the last run that ran is not the last outcome.
  clsJob archive = store.General().JobByName("Archive");
  archive.RecordMissedRuns(clock_.Now() - 2, 1);
  EXPECT_EQ("normal", nlohmann::json::parse(Run({"status", "--json"}).out)["jobs"][1]["last_outcome"]);

  // A missed run after the last one that ran is the last outcome; a heartbeat older than three
  // polls is a service that is not running.
  archive.RecordMissedRuns(clock_.Now() - 0.5, 1);
  clock_.AdvanceSeconds(31);
  r = Run({"status"});
  EXPECT_EQ(3, r.status);
  EXPECT_EQ(0u, r.out.find("Service: not running (last heartbeat 2024-01-30 21:00:02, 31 s ago)\n")) << r.out;
  EXPECT_NE(std::string::npos, r.out.find("missed 2024-01-30 09:00")) << r.out;
  json = nlohmann::json::parse(Run({"status", "--json"}).out);
  EXPECT_EQ("not running", json["service"]["state"]);
  EXPECT_EQ("missed", json["jobs"][1]["last_outcome"]);
  EXPECT_EQ("2024-01-30T09:00:02+00:00", json["jobs"][1]["last_outcome_time"]);
  EXPECT_EQ("2024-01-28T21:14:26+00:00", json["jobs"][0]["last_outcome_time"]) << "the end of the last run";
  EXPECT_EQ(2, json["jobs"][1]["missed_runs"]);

  // The same facts for Prometheus; a name with a quote and a backslash is escaped in its label.
  ASSERT_EQ(0, Run({"job", "add", "Odd \"one\" \\ x", "--backup-log-id", "odd"}).status);
  const std::string metrics = Run({"metrics"}).out;
  for (const char* line : {"tarnwick_service_state{state=\"not running\"} 1\n",
                           "tarnwick_service_heartbeat_age_seconds 31\n",
                           "tarnwick_job_last_outcome{job=\"Archive\",outcome=\"missed\"} 1\n",
                           "tarnwick_job_timed_out{job=\"Nightly\"} 1\n",
                           "tarnwick_job_missed_runs_total{job=\"Archive\"} 2\n",
                           "tarnwick_job_running{job=\"Odd \\\"one\\\" \\\\ x\"} 0\n",
                           "tarnwick_report_mails_waiting 0\n"}) {
    EXPECT_NE(std::string::npos, metrics.find(line)) << line << metrics;
  }
  ASSERT_EQ(0, Run({"metrics", "--textfile", dir_ / "tarnwick.prom"}).status);
  EXPECT_EQ(metrics, test::ReadFile(dir_ / "tarnwick.prom"));
  struct stat info {};
  ASSERT_EQ(0, ::stat((dir_ / "tarnwick.prom").c_str(), &info));
  EXPECT_EQ(0644u, info.st_mode & 0777) << "the collector reads it under its own account";
  EXPECT_EQ(1, Run({"metrics", "--textfile", dir_ / "missing/tarnwick.prom"}).status);

  // A running job is not asked for again, and is removed only when told to; a request that waits
  // for a removed job goes with it.
  r = Run({"request", "test-backup", "Nightly"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("twctl: Nightly is running (since 2024-01-30 19:45); a test backup can be asked for once that run has "
            "ended\n",
            r.err);
  EXPECT_EQ(1, Run({"request", "run", "archive"}).status) << "its marker is not empty";
  ASSERT_EQ(0, Run({"request", "test-reminder", "Nightly", "--email"}).status) << "a reminder test starts no run";
  r = Run({"job", "remove", "Nightly"});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ("twctl: Nightly is running (since 2024-01-30 19:45); remove it once the run has ended, or give --force to "
            "remove it now\n",
            r.err);
  r = Run({"job", "remove", "nightly", "--force"});
  EXPECT_EQ("Removed backup job Nightly.\nWithdrew a reminder test of \"Nightly\", which still waited for the "
            "service.\nIts run under way goes on and is reported when it ends.\n",
            r.out);
  TWSettings settings(SettingsPath());
  EXPECT_FALSE(settings.Store().ReadBool("console.reminder_requested"));
  EXPECT_EQ("RESULT: Request withdrawn: the backup job Nightly was removed.",
            settings.General().Console().AnswersAfter(0).back().second);
  test::WriteFile(dir_ / "BackupLog-Archive.txt", "");
  EXPECT_EQ(false, nlohmann::json::parse(Run({"status", "--json"}).out)["jobs"][0]["running"]) << "an empty marker";
  ASSERT_EQ(0, Run({"request", "run", "Archive"}).status);
  EXPECT_EQ("Removed backup job Archive.\nWithdrew a run of \"Archive\", which still waited for the service.\n",
            Run({"job", "remove", "Archive"}).out);
  EXPECT_EQ("", settings.General().Console().RunJobRequest());
}

TEST_F(TwctlTest, HelpIsAvailableEverywhere) {
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"--help"}, {"job", "--help"}, {"job", "add", "--help"}, {"config", "set", "-h"}, {"logs", "--help"}}) {
    const Result r = Run(args);
    EXPECT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("Usage: twctl")) << r.out;
  }
  EXPECT_NE(std::string::npos, Run({"job", "add", "--help"}).out.find("--backup-log-id"));

  // Every page in plain words: the value an option takes as one word, limits and defaults in its
  // description, and defaults only where a command has them.
  const std::vector<std::vector<std::string>> pages = {
      {}, {"job"}, {"job", "add"}, {"job", "set"}, {"job", "list"}, {"job", "show"}, {"job", "preview"},
      {"job", "remove"}, {"config"}, {"config", "list"}, {"config", "get"}, {"config", "set"}, {"logs"},
      {"occurrence"}, {"occurrence", "describe"}, {"occurrence", "check"}, {"occurrence", "next"}, {"schemes"},
      {"reports"}, {"report"}, {"report", "show"}, {"mail"}, {"mail", "test"}, {"request"},
      {"request", "test-backup"}, {"request", "run"}, {"request", "test-reminder"}, {"answers"}, {"status"},
      {"service"}, {"service", "pause"}, {"service", "continue"}};
  for (auto args : pages) {
    args.push_back("--help");
    const std::string page = Run(args).out;
    for (const char* notation : {"TEXT", "INT", "FLOAT", "NUMBER", "REQUIRED", "Excludes", "Needs", "...", " in [",
                                 "Option Group", "Positionals:"}) {
      EXPECT_EQ(std::string::npos, page.find(notation)) << notation << " in\n" << page;
    }
  }
  const std::string logsHelp = Run({"logs", "--help"}).out;
  EXPECT_NE(std::string::npos,
            logsHelp.find("\n  -n N                        number of entries, up to 100000 (default 20, or all with "
                          "--since)\n"));
  const std::string set = Run({"job", "set", "--help"}).out;
  EXPECT_NE(std::string::npos, set.find("\n  --time HH:MM[:SS]           daily start time\n"));
  EXPECT_NE(std::string::npos,
            set.find("\n  --source PATH               replaces all the job's sources; repeat for more\n"));
  EXPECT_EQ(std::string::npos, set.find("default")) << set;
  EXPECT_NE(std::string::npos, Run({"job", "add", "--help"}).out.find("daily start time (default 21:00)\n"));
}

}  // namespace
}  // namespace tw
