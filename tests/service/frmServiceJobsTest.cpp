// frmService at work: the poll tick, launching jobs into the ten slots, and what a finished run
// leaves behind. Time is a manual clock; the rights launcher is a stand-in script.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "service/frmService.h"
#include "tests/service/ServiceFakes.h"
#include "common/NumberText.h"
#include "common/Utf16.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CountStartingWith;

// Points the event log at a socket of the test's own before anything reads the setting.
struct SyslogAt {
  explicit SyslogAt(const std::string& path) { ::setenv("TARNWICK_SYSLOG_SOCKET", path.c_str(), 1); }
  ~SyslogAt() { ::unsetenv("TARNWICK_SYSLOG_SOCKET"); }
};

class FrmServiceJobsTest : public ::testing::Test {
 protected:
  FrmServiceJobsTest() {
    auto options = host_.settings.General().Options();
    options.EventLogEnabled(true);
    options.SbsReportingEnabled(true);
  }

  // A rights launcher whose executor starts and never ends: it marks every job running, records
  // its arguments and answers as the real one does.
  void HangingLauncher() {
    Script("DesktopRights", "echo \"$@\" >> '" + (dir_ / "launched") + "'; sqlite3 '" + (dir_ / "settings.db") +
                                "' 'UPDATE jobs SET run_status = -2'; exit 255");
  }
  void Script(const std::string& name, const std::string& body) {
    test::WriteFile(dir_ / name, "#!/bin/sh\n" + body + "\n");
    ::chmod((dir_ / name).c_str(), 0755);
  }
  clsJob Job(const std::string& name, Date time) {
    clsJob job = host_.settings.General().AddJob(name, name);
    job.ScheduledTime(time);
    return job;
  }
  // Entries newest first, as "title | message".
  std::vector<std::string> Entries(int count) {
    std::vector<clsLogEntry> entries(static_cast<size_t>(count));
    host_.logs.GetLastLogs(count, entries);
    std::vector<std::string> lines;
    for (const auto& e : entries) {
      if (!e.Title.empty()) lines.push_back(e.Title + " | " + e.Message);
    }
    return lines;
  }
  // Event-log entries received: "SOURCE EVENT-ID".
  std::vector<std::string> Events() {
    std::vector<std::string> events;
    while (auto datagram = syslog_.Receive(200)) {
      events.push_back(test::SyslogSourceAndId(*datagram));
    }
    return events;
  }
  // Until the rights launcher of the run in slot 0 has answered.
  void WaitForTheLauncher() {
    ASSERT_TRUE(test::WaitUntil([&] {
      loop_.Sleep(10);
      return service_.Slot(0) && !service_.Slot(0)->Shell().Busy();
    }));
  }
  int Occupied() {
    int count = 0;
    for (size_t i = 0; i < 10; ++i) count += service_.Slot(i) != nullptr;
    return count;
  }

  test::TempDir dir_;
  SyslogAt syslogAt_{dir_ / "syslog"};
  test::DatagramReceiver syslog_{dir_ / "syslog"};
  ManualClock clock_{DateSerial(2026, 11, 23) + TimeSerial(21, 0, 30)};
  platform::EventLoop loop_;
  ServiceHost host_{dir_.Path(), dir_ / "settings.db", clock_, loop_, loop_};
  test::FakeServiceControl control_;
  test::FakeDialog dialog_;
  std::ostringstream err_;
  frmService service_{host_, control_, dialog_, err_};
};

TEST_F(FrmServiceJobsTest, TenJobsRunAtOnceAndAnEleventhIsReportedUnder20007) {
  HangingLauncher();
  for (int i = 0; i < 11; ++i) Job("Job" + std::to_string(i), TimeSerial(21, 0, 0));

  service_.tmrPoll_Timer();
  EXPECT_EQ(10, Occupied());
  EXPECT_EQ(11, service_.JobManager().JobsRunning()) << "the eleventh run stays registered until it times out";
  const auto entries = Entries(40);
  EXPECT_EQ("Number of backup jobs currently running: 11 | ", entries[1]);
  EXPECT_EQ(0u, entries[0].rfind("Internal error #20007 - please submit a diagnostics report to ", 0)) << entries[0];
  EXPECT_EQ(11u, CountStartingWith(entries, "Number of backup jobs currently running: "));
  EXPECT_TRUE(test::WaitUntil([&] {
    const std::string launched = test::ReadFile(dir_ / "launched");
    return std::count(launched.begin(), launched.end(), '\n') == 10;
  })) << "ten rights launchers started";

  // The next tick in the same minute launches nothing again.
  clock_.AdvanceSeconds(10);
  service_.tmrPoll_Timer();
  EXPECT_EQ(11, service_.JobManager().JobsRunning());
  EXPECT_EQ(entries, Entries(40));
}

TEST_F(FrmServiceJobsTest, AChangeMadeByAnotherProgramCountsAtTheNextTick) {
  HangingLauncher();
  Job("Nightly", TimeSerial(22, 0, 0));
  service_.tmrPoll_Timer();
  EXPECT_EQ(0, service_.JobManager().JobsRunning());

  // The console, with its own connection to the store, moves the job into this minute.
  TWSettings console(dir_ / "settings.db");
  console.General().JobByName("Nightly").ScheduledTime(TimeSerial(21, 0, 0));
  clock_.AdvanceSeconds(10);
  service_.tmrPoll_Timer();
  EXPECT_EQ(1, service_.JobManager().JobsRunning());

  // A value that cannot be read is reported by the job's check at the next tick, not passed over.
  clsJob broken = console.General().AddJob("Broken", "Broken");
  console.Store().SetJobText(broken.Id(), JobField::ScheduledTime, "soon");
  clock_.AdvanceSeconds(10);
  service_.tmrPoll_Timer();
  const auto entries = Entries(1);
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ(0u, entries[0].rfind("Internal error #20001 - ", 0)) << entries[0];
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
  EXPECT_EQ("", console.RunJobRequest());
  EXPECT_EQ(1, service_.JobManager().JobsRunning()) << "the due job waits for the next tick";

  console.RequestJobName("Late");
  console.RunJobRequest(NumberToText(day));
  service_.tmrPoll_Timer();
  EXPECT_NEAR(day + TimeSerial(6, 1, 0), late.NextRunTime(), 1e-9);

  // A job under way is not launched a second time: it would share its marker and its status.
  console.RequestJobName("late");
  console.TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_FALSE(service_.TestRun());
  EXPECT_EQ(2, service_.JobManager().JobsRunning());
  // A test backup answers the console and marks the run as a test.
  Job("Spare", TimeSerial(3, 0, 0));
  console.RequestJobName("Spare");
  console.TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_TRUE(service_.TestRun());
  EXPECT_EQ(3, service_.JobManager().JobsRunning());

  // A request for a job that is gone is answered and withdrawn, once; the time-out check of the
  // same tick still runs, and the next tick walks the jobs.
  console.RequestJobName("Gone");
  console.RunJobRequest(NumberToText(day));
  service_.JobManager().Jobs().front()->BackupTimeout = -6;
  service_.tmrPoll_Timer();
  EXPECT_EQ("", console.RunJobRequest());
  EXPECT_EQ(2, service_.JobManager().JobsRunning()) << "the late run was reported in the same tick";
  std::vector<std::string> answers;
  for (const auto& [number, line] : console.AnswersAfter(0)) answers.push_back(line);
  EXPECT_EQ((std::vector<std::string>{
                "RESULT: The backup job Late is already running (since 2026-11-23 21:00:30). The request was not "
                "carried out.",
                "Performing test backup...", "Backup launched...",
                "RESULT: Request not served: there is no backup job Gone."}),
            answers);
  service_.tmrPoll_Timer();
  EXPECT_EQ(3, service_.JobManager().JobsRunning());
  EXPECT_EQ("Due", service_.JobManager().Jobs().back()->BackupJob->Name());
  const auto entries = Entries(30);
  EXPECT_EQ(1u, CountStartingWith(entries, "Console request not served | "));
  EXPECT_EQ(0u, CountStartingWith(entries, "Internal error"));
}

TEST_F(FrmServiceJobsTest, ALaunchThatCannotStartTakesNothing) {
  HangingLauncher();
  // Ten launches fail after taking a slot: a time-out that does not read, or a job removed between
  // its due check and its launch.
  clsJob unreadable = Job("Unreadable", TimeSerial(21, 0, 0));
  host_.settings.Store().SetJobText(unreadable.Id(), JobField::BackupTimeout, "long");
  for (int i = 0; i < 5; ++i) service_.ScheduledLaunch(unreadable);
  for (int i = 0; i < 5; ++i) {
    clsJob removed = Job("Removed" + std::to_string(i), TimeSerial(21, 0, 0));
    host_.settings.General().RemoveJob(removed);
    service_.ScheduledLaunch(removed);
  }
  // A test backup that cannot start is answered, and waits for no other run's result.
  host_.settings.General().Console().RequestJobName("Unreadable");
  host_.settings.General().Console().TestBackupRequested(true);
  service_.tmrPoll_Timer();
  EXPECT_FALSE(service_.TestRun());
  EXPECT_EQ("RESULT: The test backup could not be started. The application log says why.",
            host_.settings.General().Console().AnswersAfter(0).back().second);
  EXPECT_EQ(0, Occupied());
  EXPECT_EQ(0, service_.JobManager().JobsRunning()) << "no run is left to time out later";
  EXPECT_EQ(10u, CountStartingWith(Entries(60), "Internal error #20007 - "));

  clsJob good = Job("Good", TimeSerial(21, 0, 0));
  service_.tmrPoll_Timer();
  EXPECT_EQ(1, Occupied());
  ASSERT_EQ(1, service_.JobManager().JobsRunning());
  EXPECT_EQ("Good", service_.JobManager().Jobs().front()->JobName);

  // The same job due again while its run goes on is skipped with a warning.
  service_.ScheduledLaunch(good);
  EXPECT_EQ(1, service_.JobManager().JobsRunning());
  EXPECT_EQ(0u, Entries(1)[0].rfind("Backup job already running | The backup job Good is due, but its run that began at "
                                    "2026-11-23 21:00:30 is still under way.", 0))
      << Entries(1)[0];
}

TEST_F(FrmServiceJobsTest, AJobRemovedWhileItRunsIsReportedOnceUnderItsName) {
  HangingLauncher();
  clsJob job = Job("Old", TimeSerial(21, 0, 0));
  job.Description("old job");
  service_.tmrPoll_Timer();
  ASSERT_EQ(1, Occupied());
  WaitForTheLauncher();
  const std::string marker = dir_ / ("BackupLog-" + job.BackupLogId() + ".txt");
  TWSettings console(dir_ / "settings.db");
  console.General().RemoveJob(console.General().JobByName("Old"));

  // Until the executor has written its report the run goes on, quietly.
  for (int i = 0; i < 3; ++i) service_.Slot(0)->tmrPoll_Timer();
  EXPECT_EQ(1, Occupied());
  EXPECT_EQ(0u, CountStartingWith(Entries(20), "Internal error"));
  ASSERT_TRUE(WriteUnicodeFile(marker, "Tarnwick backup report\r\nResult: Backup encountered errors.\r\n"));
  service_.Slot(0)->tmrPoll_Timer();
  EXPECT_EQ(0, service_.JobManager().JobsRunning());
  EXPECT_TRUE(test::WaitUntil([&] {
    loop_.Sleep(10);
    return Occupied() == 0;
  })) << "the slot is free";
  auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Old", reports[0].JobName);
  EXPECT_EQ("old job", reports[0].JobDesc);
  EXPECT_EQ(2, reports[0].Status);

  // A removed job's run that never ends is reported once by its time-out, and the slot is freed.
  clsJob other = Job("Other", TimeSerial(21, 1, 0));
  other.BackupTimeout(0);
  clock_.AdvanceSeconds(60);
  service_.tmrPoll_Timer();
  ASSERT_EQ(1, service_.JobManager().JobsRunning());
  console.General().RemoveJob(console.General().JobByName("Other"));
  clock_.AdvanceSeconds(6 * 60);
  for (int i = 0; i < 3; ++i) {
    service_.tmrPoll_Timer();
    clock_.AdvanceSeconds(10);
  }
  EXPECT_EQ(0, service_.JobManager().JobsRunning());
  reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(2u, reports.size());
  EXPECT_EQ("Other", reports[0].JobName);
  EXPECT_EQ(1, reports[0].Status);
  const auto entries = Entries(40);
  EXPECT_EQ(1u, CountStartingWith(entries, "Backup process timed out | "));
  EXPECT_EQ(0u, CountStartingWith(entries, "Internal error"));
}

TEST_F(FrmServiceJobsTest, AFinishedRunIsReportedByItsOutcome) {
  Script("DesktopRights", "cat >> '" + (dir_ / "input") + "'; echo \"$@\" >> '" + (dir_ / "launched") + "'; exit 255");
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.JobNotification().PrintReport(true);
  host_.settings.General().Options().PrintSetting("office");
  host_.settings.General().Identity().IdentityValue1("back\"up");
  host_.settings.General().Identity().IdentityValue2("pa\\ss");

  struct Case {
    int16_t status;
    int32_t reportStatus;
    std::vector<std::string> events;
  };
  const std::vector<Case> cases = {{1, 0, {"SmallBusinessServer 5633", "Tarnwick 1000"}},
                                   {2, 2, {"SmallBusinessServer 5634", "Tarnwick 1001"}},
                                   {3, 1, {"SmallBusinessServer 5634", "Tarnwick 1002"}}};
  for (const auto& c : cases) {
    RunningJob record = service_.JobManager().AddJob(job);
    record->Status = c.status;
    record->TapeLabel = "Daily-Mon";
    record->BackupReport = "report of status " + std::to_string(c.status);
    record->BackupEndTime = clock_.Now();
    service_.CompletionHandling(record);
    EXPECT_EQ(0, service_.JobManager().JobsRunning());
    const auto reports = host_.reports.GetSummaries(1);
    ASSERT_EQ(1u, reports.size());
    EXPECT_EQ(c.reportStatus, reports[0].Status);
    EXPECT_EQ(record->BackupReport, reports[0].Report);
    EXPECT_EQ("Daily-Mon", reports[0].Label);
    EXPECT_EQ(c.events, Events()) << "status " << c.status;
    clock_.AdvanceSeconds(1);  // report logs are named by their time
  }
  // With only failure recipients, a successful run is not mailed at all, and a failed one is.
  auto mail = host_.settings.General().MailSettings();
  mail.EmailEnabled(true);
  mail.FailureReportRecipients("ops@example.org");
  host_.settings.Store().WriteInt("mail.port", 1);
  job.JobNotification().SendReportEmail(true);
  for (const int16_t status : {1, 2}) {
    RunningJob record = service_.JobManager().AddJob(job);
    record->Status = status;
    service_.CompletionHandling(record);
    EXPECT_EQ(status == 2, host_.mail.reportEmail) << "status " << status;
    clock_.AdvanceSeconds(1);
  }
  Events();

  // The print-out goes through the rights launcher, the account's values escaped, the password
  // on its standard input.
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "launched"); }));
  EXPECT_EQ("back\"up -  " + dir_.Path() + "/TWPrintOut",
            test::ReadFile(dir_ / "launched").substr(0, test::ReadFile(dir_ / "launched").find('\n')));
  EXPECT_EQ(0u, test::ReadFile(dir_ / "input").find("pa\\ss"));

  // A test run is answered once.
  host_.settings.General().Console().RequestJobName("Nightly");
  host_.settings.General().Console().TestBackupRequested(true);
  service_.tmrPoll_Timer();
  ASSERT_TRUE(service_.TestRun());
  RunningJob record = service_.JobManager().Jobs().back();
  record->Status = 2;
  service_.CompletionHandling(record);
  EXPECT_FALSE(service_.TestRun());
  const auto answers = host_.settings.General().Console().AnswersAfter(0);
  EXPECT_EQ("RESULT: Backup process encountered errors", answers.back().second);
}

TEST_F(FrmServiceJobsTest, AReportThatCannotBeWrittenIsWrittenAtALaterTickAndItsMarkerWaits) {
  HangingLauncher();
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.BackupTimeout(0);
  test::WriteFile(dir_ / "Reports", "in the way");  // as a full disk: no report can be written
  service_.tmrPoll_Timer();
  WaitForTheLauncher();
  const std::string marker = dir_ / ("BackupLog-" + job.BackupLogId() + ".txt");
  ASSERT_TRUE(WriteUnicodeFile(marker, "Tarnwick backup report\r\nResult: Backup completed normally.\r\n"));
  job.RunStatus(1);
  service_.Slot(0)->tmrPoll_Timer();
  EXPECT_EQ(1, service_.JobManager().JobsRunning()) << "registered until its report is written";
  EXPECT_TRUE(fs::exists(marker));

  // Past its time-out it is not reported again as timed out, and the failure is said once.
  for (int i = 0; i < 3; ++i) {
    clock_.AdvanceSeconds(5 * 60);
    service_.tmrPoll_Timer();
  }
  auto entries = Entries(40);
  EXPECT_EQ(0u, CountStartingWith(entries, "Backup process timed out"));
  EXPECT_EQ(1u, CountStartingWith(entries, "Internal error #20012 - "));
  EXPECT_EQ(1, service_.JobManager().JobsRunning());

  // Space comes back: the next tick writes it, whole, and the run is done.
  fs::remove(dir_ / "Reports");
  clock_.AdvanceSeconds(10);
  service_.tmrPoll_Timer();
  const auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ(0, reports[0].Status);
  EXPECT_EQ("Tarnwick backup report\r\nResult: Backup completed normally.\r\n", reports[0].Report);
  EXPECT_EQ(0, service_.JobManager().JobsRunning());
  EXPECT_FALSE(fs::exists(marker));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(dir_ / "Reports"), fs::directory_iterator()))
      << "nothing half-written beside it";
}

TEST_F(FrmServiceJobsTest, AtStartAMarkerNeverClaimedGoesAndARunThatEndedIsReportedOnce) {
  HangingLauncher();
  clsJob ended = Job("Ended", TimeSerial(21, 0, 0));
  service_.tmrPoll_Timer();
  WaitForTheLauncher();
  // The executor ends; the service stops before it has written the report log.
  const std::string endedMarker = dir_ / ("BackupLog-" + ended.BackupLogId() + ".txt");
  ASSERT_TRUE(WriteUnicodeFile(endedMarker, "Tarnwick backup report\r\nResult: Backup encountered errors.\r\n"));
  ended.RunStatus(2);
  // Another job's marker was written just before a stop: its executor never began.
  clsJob never = Job("Never", TimeSerial(3, 0, 0));
  const std::string neverMarker = dir_ / ("BackupLog-" + never.BackupLogId() + ".txt");
  ASSERT_TRUE(WriteUnicodeFile(neverMarker, "Tarnwick run 20261123210020-0badf00d\r\n"));

  frmService restarted{host_, control_, dialog_, err_};
  restarted.AdoptRunsInProgress();
  EXPECT_FALSE(fs::exists(neverMarker));
  EXPECT_EQ(1u, CountStartingWith(Entries(5), "Backup run never began | The run of backup job Never launched at "));
  ASSERT_EQ(1, restarted.JobManager().JobsRunning());
  restarted.Slot(0)->tmrPoll_Timer();
  auto reports = host_.reports.GetSummaries(5);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("Ended", reports[0].JobName);
  EXPECT_EQ(2, reports[0].Status);
  EXPECT_FALSE(fs::exists(endedMarker));
  // A second start finds nothing left to report.
  frmService again{host_, control_, dialog_, err_};
  again.AdoptRunsInProgress();
  EXPECT_EQ(0, again.JobManager().JobsRunning());
}

TEST_F(FrmServiceJobsTest, ThePrintOutStartsFromAFolderWithABlankAndOneThatCannotStartIsReported) {
  const std::string folder = dir_ / "Tarnwick app";
  fs::create_directory(folder);
  ServiceHost host{folder, folder + "/settings.db", clock_, loop_, loop_};
  frmService service{host, control_, dialog_, err_};
  host.settings.General().Options().PrintSetting("office");
  clsJob job = host.settings.General().AddJob("Nightly", "Nightly");
  job.JobNotification().PrintReport(true);
  auto complete = [&] {
    RunningJob record = service.JobManager().AddJob(job);
    record->Status = 1;
    service.CompletionHandling(record);
    std::vector<clsLogEntry> entries(1);
    host.logs.GetLastLogs(1, entries);
    return entries[0].Title + " | " + entries[0].Message;
  };

  // No rights launcher: the print step fails, and says so.
  const std::string failed = complete();
  EXPECT_EQ(0u, failed.rfind("Internal error #20012 - ", 0)) << failed;
  EXPECT_NE(std::string::npos, failed.find("The print-out could not be started: " + folder + "/DesktopRights"));

  test::WriteFile(folder + "/DesktopRights", "#!/bin/sh\necho \"$@\" > '" + (dir_ / "printed") + "'\n");
  ::chmod((folder + "/DesktopRights").c_str(), 0755);
  clock_.AdvanceSeconds(1);
  complete();
  EXPECT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "printed"); }));
  EXPECT_NE(std::string::npos, test::ReadFile(dir_ / "printed").find(folder + "/TWPrintOut"));
}

TEST_F(FrmServiceJobsTest, ARunPastItsTimeOutIsReportedAsTimedOut) {
  HangingLauncher();
  clsJob job = Job("Nightly", TimeSerial(21, 0, 0));
  job.BackupTimeout(0);
  service_.tmrPoll_Timer();
  ASSERT_EQ(1, service_.JobManager().JobsRunning());
  ASSERT_EQ(1, Occupied());
  Events();

  // Five minutes of grace: late once six minute boundaries have passed.
  clock_.AdvanceSeconds(5 * 60);
  service_.tmrPoll_Timer();
  EXPECT_EQ(1, service_.JobManager().JobsRunning());
  clock_.AdvanceSeconds(60);
  service_.tmrPoll_Timer();
  EXPECT_EQ(0, service_.JobManager().JobsRunning());
  EXPECT_EQ(0, Occupied()) << "the slot is free for the next run";
  EXPECT_FALSE(fs::exists(dir_ / ("BackupLog-" + job.BackupLogId() + ".txt")))
      << "a marker left behind would have the run picked up and reported again at the next start";

  const std::string message =
      "The Tarnwick service has detected that the backup operation failed to complete within the timeout period. "
      "Please check the backup result manually.";
  const auto entries = Entries(10);
  EXPECT_EQ(1u, CountStartingWith(entries, "Backup process timed out | " + message));
  const auto reports = host_.reports.GetSummaries(1);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ(1, reports[0].Status);
  EXPECT_EQ(message, reports[0].Report);
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5634", "Tarnwick 1002"}), Events());

  // The picture of an executor killed at a launch counts as a screenshot; it goes out with one
  // report only.
  Script("twprocess", "exit 1");
  Script("DesktopRights", "[ -n \"$TARNWICK_SCREENSHOT\" ] && echo png > \"$TARNWICK_SCREENSHOT\"; exit 255");
  ASSERT_TRUE(service_.KillPreviousBackup("TWExecutor"));
  EXPECT_TRUE(service_.ScreenshotTaken());
  RunningJob odd = service_.JobManager().AddJob(job);
  odd->Status = 3;
  service_.CompletionHandling(odd);
  EXPECT_FALSE(service_.ScreenshotTaken());
}

}  // namespace
}  // namespace tw
