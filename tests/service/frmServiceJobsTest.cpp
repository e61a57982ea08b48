// frmService at work: the poll tick, launching jobs into the ten slots, and what a finished run
// leaves behind. Time is a manual clock; the rights launcher is a stand-in script.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "common/NumberText.h"
#include "common/Utf16.h"
#include "service/frmService.h"
#include "tests/service/ServiceFakes.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CountStartingWith;
constexpr size_t npos = std::string::npos;

std::string MadeFolder(const std::string& path) {
  fs::create_directory(path);
  return path;
}

class FrmServiceJobsTest : public ::testing::Test {
 protected:
  FrmServiceJobsTest() {
    auto options = host_.settings.General().Options();
    options.EventLogEnabled(true);
    options.SbsReportingEnabled(true);
  }

  std::string At(const std::string& name) const { return app_ + "/" + name; }
  // A rights launcher whose executor starts and never ends: it marks every job running and answers
  // as the real one does.
  void HangingLauncher() {
    test::WriteScript(At("DesktopRights"),
                      "sqlite3 '" + At("settings.db") + "' 'UPDATE jobs SET run_status = -2'; exit 255");
  }
  clsJob Job(const std::string& name, Date time) {
    clsJob job = host_.settings.General().AddJob(name, name);
    job.ScheduledTime(time);
    return job;
  }
  std::string Marker(clsJob job) const { return At("BackupLog-" + job.BackupLogId() + ".txt"); }
  int Running() { return service_.JobManager().JobsRunning(); }
  int Occupied() {
    int count = 0;
    for (size_t i = 0; i < 10; ++i) count += service_.Slot(i) != nullptr;
    return count;
  }
  // Until the rights launcher of the run in slot 0 has answered.
  void WaitForTheLauncher() {
    ASSERT_TRUE(test::WaitUntil([&] {
      loop_.Sleep(10);
      return service_.Slot(0) && !service_.Slot(0)->Shell().Busy();
    }));
  }
  // A run of `job` that ended now with `status`, through the completion handling.
  void Complete(clsJob job, int16_t status) {
    RunningJob record = service_.JobManager().AddJob(job);
    record->Status = status;
    record->TapeLabel = "Daily-Mon";
    record->BackupEndTime = clock_.Now();
    service_.CompletionHandling(record);
  }
  std::vector<std::string> Entries(int count) { return test::EntryLines(host_.logs, count); }
  std::vector<std::string> Answers() {
    std::vector<std::string> lines;
    for (const auto& [number, line] : host_.settings.General().Console().AnswersAfter(0)) lines.push_back(line);
    return lines;
  }
  // Event-log entries received: "SOURCE EVENT-ID".
  std::vector<std::string> Events() {
    std::vector<std::string> events;
    while (auto datagram = syslog_.Receive(200)) events.push_back(test::SyslogSourceAndId(*datagram));
    return events;
  }

  test::TempDir dir_;
  // The application folder's name holds a blank: every path the service hands a shell stays whole.
  const std::string app_ = MadeFolder(dir_ / "Tarnwick app");
  test::ScopedEnvironment syslogAt_{{{"TARNWICK_SYSLOG_SOCKET", dir_ / "syslog"}}};
  test::DatagramReceiver syslog_{dir_ / "syslog"};
  ManualClock clock_{DateSerial(2026, 11, 23) + TimeSerial(21, 0, 30)};  // a Monday
  platform::EventLoop loop_;
  ServiceHost host_{app_, At("settings.db"), clock_, loop_, loop_};
  test::FakeServiceControl control_;
  test::FakeDialog dialog_;
  std::ostringstream err_;
  frmService service_{host_, control_, dialog_, err_};
};

TEST_F(FrmServiceJobsTest, TenJobsRunAtOnceAndAnEleventhIsReportedUnder20007) {
  HangingLauncher();
  test::WriteScript(At("twprocess"), "echo \"$@\" >> '" + At("looked") + "'");  // finds no executor
  for (int i = 0; i < 11; ++i) Job("Job" + std::to_string(i), TimeSerial(21, 0, 0));

  service_.tmrPoll_Timer();
  EXPECT_EQ(10, Occupied());
  EXPECT_EQ(11, Running()) << "the eleventh run stays registered until it times out";
  const auto entries = Entries(40);
  EXPECT_EQ(0u, entries[0].rfind("2 Internal error #20007 - please submit a diagnostics report to ", 0)) << entries[0];
  EXPECT_NE(npos, entries[0].find("Error number: 91\r\n  Error description: Object variable or With block variable "
                                  "not set\r\n"));
  EXPECT_EQ("TWExecutor\n", test::ReadFile(At("looked"))) << "a lingering executor is looked for by the first only";
}

TEST_F(FrmServiceJobsTest, ADueMaintenanceMailIsSentAtTheTick) {
  auto notification = Job("Drives", TimeSerial(3, 0, 0)).JobNotification();
  notification.MaintenanceEmailEnabled(true);
  notification.MaintenanceSubject("Clean the drive heads");
  notification.MaintenanceOccurrence("1|0.875|0,-1,0,0,0,0,0");  // Mondays at 21:00
  host_.settings.General().MailSettings().ReminderRecipients("ops@example.org");
  service_.tmrPoll_Timer();
  EXPECT_EQ("Clean the drive heads", host_.mail.subject);
}

TEST_F(FrmServiceJobsTest, ARunInTheSmallHoursTakesTheMediaOfTheNightBefore) {
  HangingLauncher();
  clsJob job = Job("Nightly", TimeSerial(2, 0, 0));
  job.SchemeProgId("TWSchemes.GFS");
  clock_.Set(DateSerial(2026, 11, 28) + TimeSerial(2, 0, 30));  // Saturday: the night of the last Friday
  service_.tmrPoll_Timer();
  // What the executor reads from the job: the monthly medium, which leaves the building.
  EXPECT_EQ("Monthly-Nov", job.RunTapeLabel());
  EXPECT_TRUE(job.RunEject());
}

TEST_F(FrmServiceJobsTest, ConsoleRequestsComeBeforeTheJobWalk) {
  HangingLauncher();
  clsJob early = Job("Early", TimeSerial(6, 0, 0));
  clsJob late = Job("Late", TimeSerial(6, 1, 0));
  Job("Due", TimeSerial(21, 0, 0));
  auto console = host_.settings.General().Console();
  const Date day = DateSerial(2026, 12, 1);

  // A run-now request: a job at 06:00 belongs to the night after the requested day.
  console.RequestJobName("Early");
  console.RunJobRequest(NumberToText(day + 0.7));
  service_.tmrPoll_Timer();
  EXPECT_EQ(day + 1 + 0.25, early.NextRunTime());
  EXPECT_EQ(1, Running()) << "the due job waits for the next tick";

  console.RequestJobName("Late");
  console.RunJobRequest(NumberToText(day));
  service_.tmrPoll_Timer();
  EXPECT_NEAR(day + TimeSerial(6, 1, 0), late.NextRunTime(), 1e-9);

  // A job under way is not launched a second time: it would share its marker and its status.
  console.RequestJobName("late");
  console.TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_FALSE(service_.TestRun());
  EXPECT_EQ(2, Running());
  // A test backup answers the console and marks the run as a test.
  Job("Spare", TimeSerial(3, 0, 0));
  console.RequestJobName("Spare");
  console.TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_TRUE(service_.TestRun());
  EXPECT_EQ(3, Running());

  // A request for a job that is gone is answered and withdrawn, once; the time-out check of the
  // same tick still runs.
  console.RequestJobName("Gone");
  console.RunJobRequest(NumberToText(day));
  service_.JobManager().Jobs().front()->BackupTimeout = -6;
  service_.tmrPoll_Timer();
  EXPECT_EQ("", console.RunJobRequest());
  EXPECT_EQ(2, Running()) << "the late run was reported in the same tick";
  EXPECT_EQ((std::vector<std::string>{
                "RESULT: The backup job Late is already running (since 2026-11-23 21:00:30). The request was not "
                "carried out.",
                "Performing test backup...", "Backup launched...",
                "RESULT: Request not served: there is no backup job Gone."}),
            Answers());
  // A reminder test takes its tick too; the tick after it walks the jobs.
  console.RequestJobName("Late");
  console.ReminderRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_EQ(2, Running());
  service_.tmrPoll_Timer();
  EXPECT_EQ(3, Running());
  EXPECT_EQ("Due", service_.JobManager().Jobs().back()->BackupJob->Name());
}

TEST_F(FrmServiceJobsTest, ALaunchThatCannotStartTakesNothing) {
  HangingLauncher();
  // Ten launches fail after taking a slot: a time-out that does not read.
  clsJob unreadable = Job("Unreadable", TimeSerial(21, 0, 0));
  host_.settings.Store().SetJobText(unreadable.Id(), JobField::BackupTimeout, "long");
  for (int i = 0; i < 10; ++i) service_.ScheduledLaunch(unreadable);
  // A test backup that cannot start is answered, and waits for no other run's result.
  auto console = host_.settings.General().Console();
  console.RequestJobName("Unreadable");
  console.TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_FALSE(service_.TestRun());
  EXPECT_EQ("RESULT: The test backup could not be started. The application log says why.", Answers().back());
  EXPECT_EQ(0, Occupied());
  EXPECT_EQ(0, Running()) << "no run is left to time out later";
}

TEST_F(FrmServiceJobsTest, AJobRemovedWhileItRunsIsReportedOnceUnderItsName) {
  HangingLauncher();
  clsJob job = Job("Old", TimeSerial(21, 0, 0));
  const std::string marker = Marker(job);
  service_.tmrPoll_Timer();
  WaitForTheLauncher();
  TWSettings console(At("settings.db"));
  console.General().RemoveJob(console.General().JobByName("Old"));
  ASSERT_TRUE(WriteUnicodeFile(marker, "Tarnwick backup report\r\nResult: Backup encountered errors.\r\n"));
  service_.Slot(0)->tmrPoll_Timer();
  EXPECT_EQ(0, Running());
  EXPECT_TRUE(test::WaitUntil([&] {
    loop_.Sleep(10);
    return Occupied() == 0;
  })) << "the slot is free";
  const auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Old", reports[0].JobName);
}

TEST_F(FrmServiceJobsTest, AFinishedRunIsReportedByItsOutcome) {
  test::WriteScript(At("DesktopRights"),
                    "cat >> '" + At("input") + "'; echo \"$@\" >> '" + At("launched") + "'; exit 255");
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.JobNotification().PrintReport(true);
  auto general = host_.settings.General();
  general.Options().PrintSetting("office");
  general.Identity().IdentityValue1("back\"up");
  general.Identity().IdentityValue2("pa\\ss");

  const std::tuple<int16_t, int32_t, std::vector<std::string>> cases[] = {
      {1, 0, {"SmallBusinessServer 5633", "Tarnwick 1000"}},
      {2, 2, {"SmallBusinessServer 5634", "Tarnwick 1001"}},
      {3, 1, {"SmallBusinessServer 5634", "Tarnwick 1002"}}};
  for (const auto& [status, reportStatus, events] : cases) {
    Complete(job, status);
    const auto reports = host_.reports.GetSummaries(1);
    ASSERT_EQ(1u, reports.size());
    EXPECT_EQ(reportStatus, reports[0].Status);
    EXPECT_EQ(events, Events()) << "status " << status;
    clock_.AdvanceSeconds(1);  // report logs are named by their time
  }
  // With only failure recipients, a successful run is not mailed at all, and a failed one is.
  general.MailSettings().EmailEnabled(true);
  general.MailSettings().FailureReportRecipients("ops@example.org");
  host_.settings.Store().WriteInt("mail.port", 1);
  job.JobNotification().SendReportEmail(true);
  for (const int16_t status : {1, 2}) {
    Complete(job, status);
    EXPECT_EQ(status == 2, host_.mail.reportEmail) << "status " << status;
    clock_.AdvanceSeconds(1);
  }

  // The print-out goes through the rights launcher, the account's values escaped, the password
  // on its standard input.
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(At("launched")); }));
  const std::string launched = test::ReadFile(At("launched"));
  EXPECT_EQ("back\"up -  " + At("TWPrintOut"), launched.substr(0, launched.find('\n')));
  EXPECT_EQ(0u, test::ReadFile(At("input")).find("pa\\ss"));
}

TEST_F(FrmServiceJobsTest, AReportThatCannotBeWrittenIsWrittenAtALaterTickAndItsMarkerWaits) {
  HangingLauncher();
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.BackupTimeout(0);
  test::WriteFile(At("Reports"), "in the way");  // as a full disk: no report can be written
  service_.tmrPoll_Timer();
  WaitForTheLauncher();
  ASSERT_TRUE(WriteUnicodeFile(Marker(job), "Tarnwick backup report\r\nResult: Backup completed normally.\r\n"));
  job.RunStatus(1);
  service_.Slot(0)->tmrPoll_Timer();
  EXPECT_EQ(1, Running()) << "registered until its report is written";
  EXPECT_TRUE(fs::exists(Marker(job)));

  // Past its time-out it is not reported again as timed out, and the failure is said once.
  for (int i = 0; i < 3; ++i) {
    clock_.AdvanceSeconds(5 * 60);
    service_.tmrPoll_Timer();
  }
  const auto entries = Entries(40);
  EXPECT_EQ(0u, CountStartingWith(entries, "1 Backup process timed out"));
  EXPECT_EQ(1u, CountStartingWith(entries, "2 Internal error #20012 - "));

  // Space comes back: the next tick writes it, whole, and the run is done.
  fs::remove(At("Reports"));
  clock_.AdvanceSeconds(10);
  service_.tmrPoll_Timer();
  const auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Tarnwick backup report\r\nResult: Backup completed normally.\r\n", reports[0].Report);
  EXPECT_EQ(0, Running());
  EXPECT_FALSE(fs::exists(Marker(job)));
}

TEST_F(FrmServiceJobsTest, AtStartAMarkerNeverClaimedGoesAndARunThatEndedIsReportedOnce) {
  // Two executors ended; the service stopped before it had written their report logs. Of one run
  // the start is known; of the other, an older version's, it is not.
  clsJob ended = Job("Ended", TimeSerial(20, 0, 0));
  ended.RunStartTime(DateSerial(2026, 11, 23) + TimeSerial(20, 0, 0));
  clsJob older = Job("Older", TimeSerial(3, 0, 0));
  for (clsJob job : {ended, older}) {
    job.RunStatus(2);
    ASSERT_TRUE(WriteUnicodeFile(Marker(job), "Tarnwick backup report\r\nResult: Backup encountered errors.\r\n"));
  }
  // Another job's marker was written just before a stop: its executor never began.
  clsJob never = Job("Never", TimeSerial(3, 0, 0));
  never.RunStartTime(DateSerial(2026, 11, 23) + TimeSerial(21, 0, 20));
  ASSERT_TRUE(WriteUnicodeFile(Marker(never), "Tarnwick run 20261123210020-0badf00d\r\n"));
  test::WriteFile(At("BackupLog-Never.bak"), "");  // no marker

  service_.AdoptRunsInProgress();
  EXPECT_FALSE(fs::exists(Marker(never)));
  EXPECT_TRUE(fs::exists(At("BackupLog-Never.bak")));
  auto entries = Entries(3);
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ((std::vector<std::string>{
                "0 Backup run picked up again | The run of backup job Ended that began at 2026-11-23 20:00:00 was "
                "under way when the service stopped; it is reported when it ends.",
                "0 Backup run picked up again | The run of backup job Older that began at 2026-11-23 21:00:30 was "
                "under way when the service stopped; it is reported when it ends.",
                "1 Backup run never began | The run of backup job Never launched at 2026-11-23 21:00:20 never began: "
                "the service stopped before its executor started. The job runs again at its next time."}),
            entries);
  ASSERT_EQ(2, Running());
  for (size_t i = 0; i < 2; ++i) service_.Slot(i)->tmrPoll_Timer();
  const auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(2u, reports.size());
  for (const auto& report : reports) EXPECT_EQ(2, report.Status) << report.JobName;
  for (clsJob job : {ended, older}) EXPECT_FALSE(fs::exists(Marker(job))) << "a second start finds nothing to report";
}

TEST_F(FrmServiceJobsTest, AStartTellsTheRunsMissedSinceTheLastPollAndTakesLastRunsFromTheReportLogs) {
  test::SmtpServer smtp;
  auto general = host_.settings.General();
  general.MailSettings().EmailEnabled(true);
  general.MailSettings().FailureReportRecipients("ops@example.org");
  host_.settings.Store().WriteText("mail.server", "127.0.0.1");
  host_.settings.Store().WriteInt("mail.port", smtp.Port());
  // Report logs written before the settings kept each job's last run.
  for (const char* name : {"Nightly", "Other"}) {
    Job(name, TimeSerial(22, 0, 0));
    clsReportLogEntry entry;
    entry.JobName = name;
    entry.Status = 2;
    host_.reports.SaveNewEntry(entry);
  }
  service_.tmrPoll_Timer();  // the last poll, Monday 21:00:30
  // Forty days later: only the last 31 days' runs are told, from Wednesday 2 December on.
  clock_.AdvanceSeconds(40 * 86400);
  bool started = false;
  service_.ServiceStart(started);
  ASSERT_TRUE(started);
  for (const auto& job : host_.settings.Store().JobStatuses()) {
    EXPECT_EQ(2, job.lastRunStatus) << job.name;
    EXPECT_EQ(31, job.missedRuns) << job.name;
  }
  EXPECT_TRUE(host_.settings.Store().ReadBool("service.outcomes_recorded"));
  EXPECT_EQ(31u, CountStartingWith(Entries(70), "1 Backup run missed | The backup job Nightly was due at 20"));
  ASSERT_TRUE(test::WaitUntil([&] {
    loop_.Sleep(10);
    return fs::exists(smtp.Maildir() + "/1.env");
  }));
  const std::string mail = smtp.Read(1);
  EXPECT_NE(npos, mail.find("Nightly: 2026-12-02 22:00")) << mail;
  EXPECT_NE(npos, mail.find("Nightly: 2027-01-01 22:00")) << mail;

  // A record that cannot be read is said, not passed over.
  ASSERT_EQ(0, std::system(("sqlite3 '" + At("settings.db") +
                            "' \"UPDATE settings SET value = 'maybe' WHERE key = 'service.outcomes_recorded'\"")
                               .c_str()));
  service_.ServiceStart(started);
  EXPECT_EQ(0u, Entries(1)[0].rfind("2 Internal error #20000 - ", 0)) << Entries(1)[0];
}

TEST_F(FrmServiceJobsTest, ARunPastItsTimeOutIsReportedAsTimedOut) {
  HangingLauncher();
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.BackupTimeout(0);
  const std::string marker = Marker(job);
  service_.tmrPoll_Timer();
  ASSERT_EQ(1, Occupied());
  // Removed while its run hangs, the job is reported once, under its name, when the run times out.
  host_.settings.General().RemoveJob(job);

  // Five minutes of grace: late once six minute boundaries have passed.
  clock_.AdvanceSeconds(5 * 60);
  service_.tmrPoll_Timer();
  EXPECT_EQ(1, Running());
  clock_.AdvanceSeconds(60);
  for (int i = 0; i < 3; ++i) service_.tmrPoll_Timer();
  EXPECT_EQ(0, Running());
  EXPECT_EQ(0, Occupied()) << "the slot is free for the next run";
  EXPECT_FALSE(fs::exists(marker))
      << "a marker left behind would have the run picked up and reported again at the next start";

  const auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Nightly", reports[0].JobName);
  EXPECT_EQ(1, reports[0].Status);
  EXPECT_EQ(0u, reports[0].Report.find("The Tarnwick service has detected that the backup operation failed"));
  const auto entries = Entries(40);
  EXPECT_EQ("1 Backup process timed out | " + reports[0].Report + " [2]", entries[0]) << "with the picture, none here";
  EXPECT_EQ(1u, CountStartingWith(entries, "1 Backup process timed out | "));

  // No camera, no picture. That of an executor killed at a launch counts as a screenshot; it goes
  // out with the report of a failed run only, and with one only.
  EXPECT_EQ("", service_.CaptureScreenshot());
  EXPECT_FALSE(service_.ScreenshotTaken());
  test::WriteScript(At("twprocess"), "exit 1");
  test::WriteScript(At("DesktopRights"),
                    "[ -n \"$TARNWICK_SCREENSHOT\" ] && echo png > \"$TARNWICK_SCREENSHOT\"; exit 255");
  ASSERT_TRUE(service_.KillPreviousBackup("TWExecutor"));
  Complete(job, 1);
  EXPECT_TRUE(service_.ScreenshotTaken()) << "a normal run's report goes without it";
  Complete(job, 3);
  EXPECT_FALSE(service_.ScreenshotTaken());
}

}  // namespace
}  // namespace tw
