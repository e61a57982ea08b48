// The built service at work in a temporary application folder: real executor and GNU tar, a real
// SMTP server, a syslog socket of the test's own. Scheduled times are reached with faketime, which
// starts the service's clock at a chosen moment (and may run it faster).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "common/EventPump.h"
#include "common/NumberText.h"
#include "logging/clsLogs.h"
#include "platform/Process.h"
#include "reporting/clsReportLogs.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const char* const kFakeTimeLibrary = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";

class EndToEndTest : public ::testing::Test {
 protected:
  EndToEndTest() {
    // twprocess and TWCam stay out: a lingering-executor check must not reach other tests' runs.
    for (const char* program : {"TWService", "DesktopRights", "TWExecutor", "TWPrintOut", "twmessage"}) {
      fs::create_symlink(std::string(TW_BIN_DIR) + "/" + program, dir_ / program);
    }
    fs::create_directories(dir_ / "src/sub");
    test::WriteFile(dir_ / "src/a.txt", "alpha\n");
    test::WriteFile(dir_ / "src/sub/b.txt", "beta\n");
    auto general = settings_.General();
    settings_.Store().WriteBool("mail.email_enabled", true);
    settings_.Store().WriteText("mail.server", "127.0.0.1");
    settings_.Store().WriteInt("mail.port", smtp_.Port());
    settings_.Store().WriteText("mail.success_recipients", "ok@example.org");
    settings_.Store().WriteText("mail.failure_recipients", "failed@example.org");
    settings_.Store().WriteText("mail.reminder_recipients", "reminders@example.org");
    general.Options().SbsReportingEnabled(true);
    general.Options().EventLogEnabled(true);
  }

  clsJob Job(const std::string& name, Date time, const std::string& source) {
    clsJob job = settings_.General().AddJob(name, name);
    job.ScheduledTime(time);
    job.Sources({source});
    job.Destination().Path(dir_ / "dest");
    job.JobNotification().SendReportEmail(true);
    return job;
  }
  // Starts TWService; with `fakeStart` ("2026-11-23 21:00:05", or with " x30" to run faster) its
  // clock starts there.
  void Start(const std::string& fakeStart = "") {
    std::vector<std::string> environment{"TARNWICK_HOME=" + dir_.Path(), "TARNWICK_SYSLOG_SOCKET=" + (dir_ / "syslog")};
    if (!fakeStart.empty()) {
      // The library itself rather than the faketime wrapper, so that signals reach the service.
      environment.push_back("LD_PRELOAD=" + std::string(kFakeTimeLibrary));
      environment.push_back("FAKETIME=@" + fakeStart);
    }
    service_ = std::make_unique<test::ChildProcess>(std::vector<std::string>{dir_ / "TWService"}, environment);
  }
  void Stop() {
    service_->Signal(SIGTERM);
    EXPECT_EQ(0, service_->Wait(10000));
  }
  std::vector<clsReportLogEntry> Reports() {
    SystemClock clock;
    clsReportLogs reports(dir_.Path(), settings_, clock);
    return reports.GetSummaries(0);
  }
  bool ReportsArrive(size_t count, int timeoutMs = 40000) {
    return test::WaitUntil([&] { return Reports().size() >= count; }, timeoutMs);
  }
  std::vector<std::string> Titles(int count) {
    SystemClock clock;
    BlockingPump pump;
    clsLogs logs(dir_.Path(), settings_, clock, pump);
    std::vector<clsLogEntry> entries(static_cast<size_t>(count));
    logs.GetLastLogs(count, entries);
    std::vector<std::string> titles;
    for (const auto& e : entries) {
      if (!e.Title.empty()) titles.push_back(e.Title);
    }
    return titles;
  }
  // Event-log entries received so far, as "APP-NAME MSGID", sorted.
  std::vector<std::string> Events() {
    std::vector<std::string> events;
    while (auto datagram = syslog_.Receive(100)) {
      events.push_back(test::SyslogSourceAndId(*datagram));
    }
    std::sort(events.begin(), events.end());
    return events;
  }
  std::vector<std::string> Subjects() {
    std::vector<std::string> subjects;
    for (int i = 1; i <= smtp_.Count(); ++i) subjects.push_back(Json::parse(smtp_.Read(i))["subject"]);
    std::sort(subjects.begin(), subjects.end());
    return subjects;
  }
  std::vector<std::string> Answers() {
    std::vector<std::string> lines;
    for (const auto& [number, line] : settings_.General().Console().AnswersAfter(0)) lines.push_back(line);
    return lines;
  }
  bool AnswerArrives(const std::string& line, int timeoutMs = 40000) {
    return test::WaitUntil([&] {
      const auto answers = Answers();
      return std::find(answers.begin(), answers.end(), line) != answers.end();
    }, timeoutMs);
  }
  // A rights launcher whose executor takes `seconds` to finish, or never finishes (-1): it marks the
  // run as under way, answers as the real launcher does, and later writes a report and status 1.
  void SlowLauncher(int seconds) {
    fs::remove(dir_ / "DesktopRights");
    const std::string db = dir_ / "settings.db";
    std::string body = "sqlite3 '" + db + "' 'UPDATE jobs SET run_status = -2'\n";
    if (seconds >= 0) {
      body += "( sleep " + std::to_string(seconds) + "; marker=$(ls '" + dir_.Path() +
              "'/BackupLog-*.txt); { printf '\\377\\376'; printf 'Slow run\\r\\nResult: done\\r\\n' | "
              "iconv -f UTF-8 -t UTF-16LE; } > \"$marker\"; sqlite3 '" + db +
              "' 'UPDATE jobs SET run_status = 1' ) >/dev/null 2>&1 &\n";
    }
    body += "exit 255\n";
    test::WriteFile(dir_ / "DesktopRights", "#!/bin/sh\n" + body);
    ::chmod((dir_ / "DesktopRights").c_str(), 0755);
  }

  test::TempDir dir_;
  test::DatagramReceiver syslog_{dir_ / "syslog"};
  test::SmtpServer smtp_;
  TWSettings settings_{dir_ / "settings.db"};
  std::unique_ptr<test::ChildProcess> service_;
};

TEST_F(EndToEndTest, ScheduledRunsAreBackedUpReportedMailedAndLogged) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Job("Broken", TimeSerial(21, 0, 0), dir_ / "missing");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(ReportsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 2; }, 20000));
  Stop();

  auto reports = Reports();
  std::sort(reports.begin(), reports.end(), [](const auto& a, const auto& b) { return a.JobName < b.JobName; });
  EXPECT_EQ("Broken", reports[0].JobName);
  EXPECT_EQ(2, reports[0].Status) << reports[0].Report;
  EXPECT_EQ("Nightly", reports[1].JobName);
  EXPECT_EQ(0, reports[1].Status) << reports[1].Report;
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Broken encountered errors",
                                      "Tarnwick backup Nightly completed normally"}),
            Subjects());
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5633", "SmallBusinessServer 5634", "Tarnwick 1000",
                                      "Tarnwick 1001"}),
            Events());

  // The archive restores the tree.
  std::vector<fs::path> archives;
  for (const auto& entry : fs::directory_iterator(dir_ / "dest/Nightly")) archives.push_back(entry.path());
  ASSERT_EQ(1u, archives.size()) << "one run, one archive";
  fs::create_directory(dir_ / "restore");
  const auto restore = platform::RunCommand({"tar", "-xzf", archives[0].string(), "-C", dir_ / "restore"});
  ASSERT_EQ(0, restore.exitCode) << restore.output;
  EXPECT_EQ("beta\n", test::ReadFile(dir_ / "restore" + (dir_ / "src/sub/b.txt")));
}

TEST_F(EndToEndTest, AHungExecutorIsReportedAsTimedOut) {
  SlowLauncher(-1);
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src").BackupTimeout(0);
  // Thirty times faster: the five minutes of grace pass within seconds.
  Start("2026-11-23 21:00:05 x30");
  ASSERT_TRUE(ReportsArrive(1, 60000));
  Stop();
  const auto reports = Reports();
  EXPECT_EQ(1, reports[0].Status);
  EXPECT_EQ(0u, reports[0].Report.find("The Tarnwick service has detected that the backup operation failed"));
  const auto titles = Titles(10);
  EXPECT_NE(titles.end(), std::find(titles.begin(), titles.end(), "Backup process timed out"));
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5634", "Tarnwick 1002"}), Events());
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }));
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly did not complete in time"}), Subjects());
}

TEST_F(EndToEndTest, ConsoleRequestsAreServedAndAnswered) {
  clsJob job = Job("Nightly", TimeSerial(3, 0, 0), dir_ / "src");
  auto console = settings_.General().Console();
  console.RequestJobName("Nightly");
  console.TestBackupRequested(true);
  Start();
  ASSERT_TRUE(AnswerArrives("RESULT: Backup process completed normally"));
  EXPECT_EQ((std::vector<std::string>{"Performing test backup...", "Backup launched...",
                                      "RESULT: Backup process completed normally"}),
            Answers());
  ASSERT_TRUE(ReportsArrive(1));
  EXPECT_EQ("Test", Reports()[0].Label);

  // Run now, for the night that begins on 1 December.
  console.RunJobRequest(NumberToText(DateSerial(2026, 12, 1)));
  ASSERT_TRUE(ReportsArrive(2));
  EXPECT_EQ(DateSerial(2026, 12, 2) + TimeSerial(3, 0, 0), job.NextRunTime());
  EXPECT_EQ("", console.RunJobRequest());

  // A reminder test with both tasks.
  settings_.Store().WriteText("options.broadcast_recipients", "nobody-logged-in");
  console.ReminderByEmailSelected(true);
  console.ReminderByBroadcastSelected(true);
  console.ReminderRequested(true);
  ASSERT_TRUE(AnswerArrives("RESULT: Email sent successfully."));
  const auto answers = Answers();
  EXPECT_EQ((std::vector<std::string>{"Sending reminders...", "Sending network broadcast reminder...",
                                      "Sending test reminder email...", "RESULT: Email sent successfully."}),
            std::vector<std::string>(answers.end() - 4, answers.end()));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly completed normally",
                                      "Tarnwick backup Nightly completed normally", "Tarnwick test reminder"}),
            Subjects());
}

TEST_F(EndToEndTest, ARunOutlivesPauseContinueAndStop) {
  SlowLauncher(3);
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "BackupLog-Nightly.txt"); }, 20000));
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(ReportsArrive(1)) << "a paused service still reports the run it watches";
  service_->Signal(SIGUSR2);
  Stop();
  EXPECT_EQ("Slow run\r\nResult: done\r\n", Reports()[0].Report);

  // Stopped while a run is under way: the next start picks the run up and reports it.
  settings_.General().JobByName("Nightly").ScheduledTime(TimeSerial(21, 10, 0));
  Start("2026-11-23 21:10:05");
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "BackupLog-Nightly.txt"); }, 20000));
  Stop();
  EXPECT_EQ(1u, Reports().size());
  Start("2026-11-23 21:10:30");
  ASSERT_TRUE(ReportsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  Stop();
  const auto titles = Titles(10);
  EXPECT_NE(titles.end(), std::find(titles.begin(), titles.end(), "Backup run picked up again"));
}

TEST_F(EndToEndTest, ElevenJobsInOneMinuteRunTenAndReportTheEleventh) {
  for (int i = 0; i < 11; ++i) Job("Job" + std::to_string(i), TimeSerial(21, 0, 0), dir_ / "src");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(ReportsArrive(10));
  const auto titles = Titles(40);
  EXPECT_EQ(1, std::count_if(titles.begin(), titles.end(), [](const std::string& title) {
              return title.rfind("Internal error #20007 - ", 0) == 0;
            }));
  EXPECT_NE(titles.end(), std::find(titles.begin(), titles.end(), "Number of backup jobs currently running: 11"));
  Stop();
  EXPECT_EQ(10u, Reports().size());
  for (const auto& report : Reports()) EXPECT_EQ(0, report.Status) << report.JobName << "\n" << report.Report;
}

}  // namespace
}  // namespace tw
