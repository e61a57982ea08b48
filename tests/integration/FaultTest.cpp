// The built service when its surroundings fail. In each case it keeps running (or stops cleanly), says
// what happened where the administrator looks, and loses nothing that could still be written.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "settings/Database.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CountStartingWith;
using Texts = std::vector<std::string>;

class FaultTest : public test::ServiceFixture {
 protected:
  // A shell stand-in for a helper program: `ready` tells the rights launcher the executor has started,
  // `status N` sets the run's status, `report TEXT` writes the report in UTF-16LE as the executor does.
  void StandIn(const std::string& program, const std::string& body) {
    test::WriteScript(dir_ / program,
                      "db='" + (dir_ / "settings.db") + "'\nmarker=$(ls '" + dir_.Path() +
                          "'/BackupLog-*.txt | head -n 1)\n"
                          "ready() { printf R > /proc/$$/fd/$TARNWICK_READY_FD; }\n"
                          "status() { sqlite3 -cmd '.timeout 5000' \"$db\" \"UPDATE jobs SET run_status = $1\"; }\n"
                          "report() { { printf '\\377\\376'; printf \"$1\" | iconv -f UTF-8 -t UTF-16LE; } "
                          "> \"$marker\"; }\n"
                          "report 'Tarnwick backup report\\r\\n'\n" +
                          body);
  }
};

TEST_F(FaultTest, ASettingsFileLockedDeletedOrCorruptIsReportedAndNoRunIsLost) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Another program holds the file: no one else may write meanwhile.
  auto lock = std::make_unique<Database>(dir_ / "settings.db");
  lock->Execute("BEGIN EXCLUSIVE; UPDATE settings SET value = value WHERE key = 'mail.server'");
  Start("2026-11-23 21:00:05 x3");
  // The scheduled check cannot record that its minute has fired: it says so and tries at the next tick.
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(100), "Internal error #20001 - ") > 0; }, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  // Once the lock is gone, the run still goes ahead within its minute.
  lock.reset();
  ASSERT_TRUE(ReportsArrive(1) && MailsArrive(1)) << test::ReadFile(dir_ / "Logs/TWLog.0000");

  // Deleted and made afresh as the console does: the new file is read, not a write-ahead log left over.
  auto removeFile = [&] {
    for (const char* name : {"settings.db", "settings.db-wal", "settings.db-shm"}) fs::remove(dir_ / name);
  };
  removeFile();
  {
    TWSettings fresh(dir_ / "settings.db");
    clsJob job = fresh.General().AddJob("Fresh", "Fresh");
    job.ScheduledTime(TimeSerial(21, 1, 0));
    job.Sources({dir_ / "src"});
    job.Destination().Path(dir_ / "dest");
  }
  ASSERT_TRUE(ReportsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  Stop();
  EXPECT_EQ("Fresh", Reports()[0].JobName);

  // Garbage in place of the settings (a restore gone wrong): reported at every tick, the file left alone.
  const std::string garbage(8192, '\x5a');
  auto errors = [&] { return CountStartingWith(Titles(100), "Internal error #20000 - "); };
  const size_t before = errors();
  removeFile();
  test::WriteFile(dir_ / "settings.db", garbage);
  Start("2026-11-23 21:00:05 x3");
  ASSERT_TRUE(test::WaitUntil([&] { return errors() > before; }, 30000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  Stop();
  EXPECT_EQ(garbage, test::ReadFile(dir_ / "settings.db"));
}

TEST_F(FaultTest, AFullLogFolderLosesOnlyTheEntriesItCannotHold) {
  if (test::RunWithMounts({}, [] { return 0; }) != 0) GTEST_SKIP() << "mounting a file system needs root and unshare";
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Entries written before the fault, 4,000 bytes of them: just short of a page of the file system.
  const std::string seed = "46349.5\tEarlier entry\t0\t" + std::string(4000 - 28, 'x') + "\t0\r\n";
  test::WriteFile(dir_ / "seed", seed);
  const std::string logs = dir_ / "Logs";

  // A log folder on a file system that is full: its last page holds 96 bytes more.
  Start("2026-11-23 21:00:05 x3", "mkdir -p " + logs + "\nmount -t tmpfs -o size=16k tmpfs " + logs + "\n(cd " + logs +
                                   " && mkdir Attachments && cp " + (dir_ / "seed") +
                                   " TWLog.0000 && { head -c 1M /dev/zero > filler 2>/dev/null || true; })");
  ASSERT_TRUE(ReportsArrive(1) && MailsArrive(1)) << test::ReadFile(dir_ / "service.out");
  // Room again: the next entries are whole, and so is every entry before them.
  const std::string seen = "/proc/" + std::to_string(service_->Pid()) + "/root" + dir_.Path();
  fs::remove(seen + "/Logs/filler");
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(test::WaitUntil([&] { return test::LogTitles(seen, 1) == Texts{"Tarnwick service pausing"}; }))
      << test::ReadFile(seen + "/Logs/TWLog.0000").substr(3900);
  EXPECT_EQ(seed, test::ReadFile(seen + "/Logs/TWLog.0000").substr(0, seed.size()));
  for (const auto& file : fs::directory_iterator(seen + "/Logs")) {
    std::istringstream lines(file.is_regular_file() ? test::ReadFile(file.path()) : "");
    for (std::string line; std::getline(lines, line);) EXPECT_EQ(4, std::ranges::count(line, '\t')) << line;
  }
  Stop();
}

TEST_F(FaultTest, MailThatIsRefusedOrHangsIsReportedAndSentAgainAcrossAStop) {
  // The clock runs sixty times faster, with a stand-in for the rights launcher whose run ends at once.
  StandIn("DesktopRights", "status -2\n( report 'Quick run\\r\\nResult: done\\r\\n'; status 1 ) >/dev/null 2>&1 &\n"
                           "exit 255\n");
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  settings_.Store().WriteText("options.metrics_textfile", dir_ / "tarnwick.prom");
  settings_.Store().WriteInt("mail.port", 1);  // refused
  RequestTestBackup();
  Start("2026-11-23 21:30:00 x60");
  ASSERT_TRUE(TitleArrives("Report email could not be sent", 5, 20000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  Stop();
  EXPECT_EQ("stopping", settings_.Store().ReadText("service.state"));
  EXPECT_EQ(0, std::system(("promtool check metrics < " + (dir_ / "tarnwick.prom")).c_str()));

  // Twenty minutes later the server is back: the re-send goes on where it was.
  settings_.Store().WriteInt("mail.port", smtp_.Port());
  Start("2026-11-23 21:50:00 x60");
  ASSERT_TRUE(TitleArrives("Attempting to re-send email (retry #1)", 10, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_TRUE(MailsArrive(1));

  // A server that never answers holds up only the mail, and a stop with a mail hanging is at once.
  test::SmtpServer silent({"--silent"});
  settings_.Store().WriteInt("mail.port", silent.Port());
  settings_.Store().WriteInt("mail.timeout", 360);
  const size_t failures = CountStartingWith(Titles(50), "Report email could not be sent");
  RequestTestBackup();
  ASSERT_TRUE(ReportsArrive(2));
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(TitleArrives("Tarnwick service pausing", 5, 3000)) << "the service answers while the mail hangs";
  service_->Signal(SIGUSR2);
  ASSERT_TRUE(test::WaitUntil(
      [&] { return CountStartingWith(Titles(50), "Report email could not be sent") > failures; }, 20000));
  settings_.Store().WriteInt("mail.timeout", 3600);
  RequestTestBackup();
  ASSERT_TRUE(ReportsArrive(3));
  Stop();
}

TEST_F(FaultTest, HelpersThatAreMissingCrashOrFloodEndTheRunWithTheirOutcome) {
  // Not due while the test runs: only the test backups asked for run.
  Job("Nightly", TimeSerial(23, 0, 0), dir_ / "src").BackupTimeout(0);
  // Thirty times faster: the five minutes of grace pass within seconds.
  Start("2026-11-23 21:00:05 x30");

  // The rights launcher cannot start an executor that is not there.
  fs::remove(dir_ / "TWExecutor");
  EXPECT_EQ("RESULT: Backup process encountered errors", TestBackup());

  // A run that floods its output and writes a report of several megabytes: all of it is kept.
  std::string longReport;
  for (int i = 0; i < 100000; ++i) longReport += "Copied file number " + std::to_string(i) + "\r\n";
  longReport += "Result: done\r\n";
  test::WriteFile(dir_ / "long.txt", longReport);
  StandIn("TWExecutor", "status -2\nready\nhead -c 20000000 /dev/zero\n"
                        "{ printf '\\377\\376'; iconv -f UTF-8 -t UTF-16LE '" +
                            (dir_ / "long.txt") + "'; } > \"$marker\"\nstatus 1\n");
  EXPECT_EQ("RESULT: Backup process completed normally", TestBackup());
  ASSERT_TRUE(ReportsArrive(2));
  EXPECT_EQ(1, std::ranges::count_if(Reports(), [&](const auto& r) { return r.Report == longReport; }));

  // Crashed once started, without setting its status: timed out, not given the last run's status.
  StandIn("TWExecutor", "ready\nkill -SEGV $$\n");
  EXPECT_EQ("RESULT: Backup process timed out", TestBackup());
  Stop();
}

TEST_F(FaultTest, AThousandJobsDueInOneMinuteRunTenAtOnceAndReportTheRest) {
  // Due for one minute only, the walk must end within it; under the sanitizers 300 take half of it.
#if defined(__SANITIZE_ADDRESS__)
  const size_t jobs = 300;
#else
  const size_t jobs = 1000;
#endif
  settings_.Store().InTransaction([&] {
    for (size_t i = 0; i < jobs; ++i) {
      Job("Job" + std::to_string(i), TimeSerial(21, 0, 0), dir_ / "src").JobNotification().SendReportEmail(false);
    }
  });
  Start("2026-11-23 21:00:05");
  // Every job is either run, ten at once, or reported as not started (20007).
  auto notStarted = [&] { return CountStartingWith(Titles(20000), "Internal error #20007 - "); };
  ASSERT_TRUE(ReportsArrive(10, 120000));
  ASSERT_TRUE(test::WaitUntil([&] { return Reports().size() + notStarted() == jobs; }, 180000))
      << Reports().size() << " run, " << notStarted() << " not started";
  Stop();
  for (const auto& report : Reports()) EXPECT_EQ(0, report.Status) << report.JobName << "\n" << report.Report;
}

TEST_F(FaultTest, SigtermDuringARunStopsTheServiceAndTheNextStartWatchesTheRunToItsEnd) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Slow to start and to finish: stopped while the launcher waits, started again while the executor works.
  StandIn("TWExecutor",
          "sleep 2\nstatus -2\nready\nsleep 6\nreport 'Interrupted run\\r\\nResult: done\\r\\n'\nstatus 1\n");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "BackupLog-Nightly.txt"); }, 20000));
  const auto stopped = std::chrono::steady_clock::now();
  Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(5)) << "it does not wait for the run";
  ASSERT_TRUE(test::WaitUntil([&] { return settings_.General().JobByName("Nightly").RunStatus() == -2; }, 20000));
  Start("2026-11-23 21:00:40");
  ASSERT_TRUE(ReportsArrive(1) && MailsArrive(1)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_EQ("Interrupted run\r\nResult: done\r\n", Reports()[0].Report);
  Stop();
}

}  // namespace
}  // namespace tw
