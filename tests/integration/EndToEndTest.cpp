// The built service at work in a temporary application folder: real executor and GNU tar, a real
// SMTP server, a syslog socket of the test's own. Scheduled times are reached with faketime, which
// starts the service's clock at a chosen moment (and may run it faster).
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>

#include "common/NumberText.h"
#include "common/Utf16.h"
#include "platform/Process.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class EndToEndTest : public test::ServiceFixture {};

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
  // The report mail goes out just after the report is saved; stopping first would abandon it.
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  Stop();
  const auto reports = Reports();
  EXPECT_EQ(1, reports[0].Status);
  EXPECT_EQ(0u, reports[0].Report.find("The Tarnwick service has detected that the backup operation failed"));
  const auto titles = Titles(10);
  EXPECT_NE(titles.end(), std::find(titles.begin(), titles.end(), "Backup process timed out"));
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5634", "Tarnwick 1002"}), Events());
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly did not complete in time"}), Subjects());
}

TEST_F(EndToEndTest, ConsoleRequestsAreServedAndAnswered) {
  settings_.General().Options().CustomProductName("Acme Backup");
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
  EXPECT_EQ((std::vector<std::string>{"Acme Backup backup Nightly completed normally",
                                      "Acme Backup backup Nightly completed normally", "Acme Backup test reminder"}),
            Subjects());
  for (int i = 1; i <= smtp_.Count(); ++i) {
    EXPECT_NE(std::string::npos, smtp_.Read(i).find("\"from\": \"Acme Backup <")) << smtp_.Read(i);
  }
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
  // Under way: the run's executor has claimed its marker.
  ASSERT_TRUE(test::WaitUntil([&] {
    std::string marker;
    return ReadUnicodeFile(dir_ / "BackupLog-Nightly.txt", marker) && marker.starts_with("Tarnwick backup report");
  }, 20000));
  Stop();
  EXPECT_EQ(1u, Reports().size());
  Start("2026-11-23 21:10:30");
  ASSERT_TRUE(ReportsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  Stop();
  const auto titles = Titles(10);
  EXPECT_NE(titles.end(), std::find(titles.begin(), titles.end(), "Backup run picked up again"));
}

TEST_F(EndToEndTest, AStopBetweenTwoRetriesLosesNoMailAndMissedRunsAreToldOnce) {
  // The clock runs sixty times faster, with a stand-in for the rights launcher and the executor.
  SlowLauncher(0);
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Job("Evening", TimeSerial(21, 40, 0), dir_ / "src");
  settings_.Store().WriteText("options.metrics_textfile", dir_ / "tarnwick.prom");
  settings_.Store().WriteInt("mail.port", 1);  // refused
  auto console = settings_.General().Console();
  console.RequestJobName("Nightly");
  console.TestBackupRequested(true);
  Start("2026-11-23 21:30:00 x60");
  ASSERT_TRUE(TitleArrives("Report email could not be sent", 5, 20000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_EQ("running", settings_.Store().ReadText("service.state"));
  ASSERT_TRUE(ReportsArrive(1));
  const Date runStart = Reports()[0].TimeStart;
  auto mail = settings_.Store().ReportMail("Nightly", runStart);
  ASSERT_TRUE(mail.has_value());
  EXPECT_EQ("waiting", mail->state);
  EXPECT_EQ(1, mail->retry);
  Stop();
  EXPECT_EQ("stopping", settings_.Store().ReadText("service.state"));
  EXPECT_TRUE(settings_.Store().ReadBool("mail_retry.pending"));
  // The metrics the service wrote pass Prometheus' own check.
  EXPECT_EQ(0, std::system(("promtool check metrics < " + (dir_ / "tarnwick.prom")).c_str()));

  // Twenty minutes later the server is back: the re-send goes on where it was, and Evening's 21:40,
  // which passed while the service was stopped, is told once: a warning and a mail, never a late run.
  settings_.Store().WriteInt("mail.port", smtp_.Port());
  Start("2026-11-23 21:50:00 x60");
  ASSERT_TRUE(TitleArrives("Attempting to re-send email (retry #1)", 10, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 2; }, 20000));
  ASSERT_TRUE(test::WaitUntil([&] { return settings_.Store().ReportMail("Nightly", runStart)->state == "sent"; }));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly completed normally", "Tarnwick missed backup"}),
            Subjects());
  const auto titles = Titles(30);
  EXPECT_EQ(1, std::count(titles.begin(), titles.end(), "Backup run missed"));
  const auto entries = test::LastLogs(dir_.Path(), 30);
  const auto warning = std::find_if(entries.begin(), entries.end(),
                                    [](const clsLogEntry& e) { return e.Title == "Backup run missed"; });
  EXPECT_NE(std::string::npos, warning->Message.find("The backup job Evening was due at 2026-11-23 21:40"))
      << warning->Message;
  EXPECT_EQ(1u, Reports().size()) << "the missed run was not started late";
  clsJob evening = settings_.General().JobByName("Evening");
  EXPECT_EQ(1, settings_.Store().JobInt(evening.Id(), JobField::MissedRuns));
  EXPECT_FALSE(settings_.Store().ReadBool("mail_retry.pending"));
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
