// The built service when its surroundings fail: a settings file that is locked, corrupt or deleted,
// a log folder that is full or read-only, a mail server that refuses, rejects or never answers,
// helper programs that are missing, crash, hang or flood, a thousand jobs due at once, and SIGTERM
// in the middle of a run. In each case the service keeps running (or stops cleanly), says what
// happened where the administrator looks, and loses nothing that could still be written.
#include <signal.h>

#include <algorithm>
#include <filesystem>

#include "common/NumberText.h"
#include "platform/Process.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CountStartingWith;

bool HasTitle(const std::vector<std::string>& titles, const std::string& title) {
  return std::find(titles.begin(), titles.end(), title) != titles.end();
}

// Mounts need root and a mount namespace of our own; elsewhere the cases that need them are skipped.
bool CanMountPrivately() {
  const auto probe = platform::RunCommand({"/usr/bin/unshare", "-m", "/bin/sh", "-c", "mount -t tmpfs tmpfs /mnt"});
  return probe.started && probe.exitCode == 0;
}

class FaultTest : public test::ServiceFixture {
 protected:
  // A stand-in executor, started by the real rights launcher in place of TWExecutor: `body` runs
  // with $db the settings file and $marker the run's marker; `ready` says it has started.
  void StandInExecutor(const std::string& body) {
    test::WriteScript(dir_ / "TWExecutor",
                      "db='" + (dir_ / "settings.db") + "'\nmarker=$(ls '" + dir_.Path() +
                          "'/BackupLog-*.txt | head -n 1)\n"
                          // Claimed at once, as the executor claims its run's marker.
                          "{ printf '\\377\\376'; printf 'Tarnwick backup report\\r\\n' | iconv -f UTF-8 -t UTF-16LE; } "
                          "> \"$marker\"\n"
                          "ready() { printf R > /proc/$$/fd/$TARNWICK_READY_FD; }\n"
                          "status() { sqlite3 -cmd '.timeout 5000' \"$db\" \"UPDATE jobs SET run_status = $1\"; }\n"
                          // A report as the executor writes it: UTF-16LE with a byte-order mark.
                          "report() { { printf '\\377\\376'; printf \"$1\" | iconv -f UTF-8 -t UTF-16LE; } "
                          "> \"$marker\"; }\n" +
                          body);
  }
  // The newest answer that ends a test. (A launch that fails at once answers before "Backup
  // launched...".)
  std::string LastResult() {
    const auto answers = Answers();
    for (auto it = answers.rbegin(); it != answers.rend(); ++it) {
      if (it->rfind("RESULT: ", 0) == 0) return *it;
    }
    return {};
  }
  // Asks for a test backup of Nightly and waits for the answer that ends it; returns that answer.
  std::string TestBackup(int timeoutMs) {
    auto console = settings_.General().Console();
    console.RequestJobName("Nightly");
    console.TestBackupRequested(true);
    ++testBackups_;
    EXPECT_TRUE(test::WaitUntil([&] {
      const auto answers = Answers();
      return std::count_if(answers.begin(), answers.end(), [](const std::string& line) {
               return line.rfind("RESULT: ", 0) == 0;
             }) == testBackups_;
    }, timeoutMs));
    return LastResult();
  }
  // The newest application-log entries whose title begins with `prefix`, newest first.
  std::vector<clsLogEntry> EntriesStartingWith(const std::string& prefix, int count = 100) {
    auto entries = test::LastLogs(dir_.Path(), count);
    std::erase_if(entries, [&](const clsLogEntry& e) { return e.Title.rfind(prefix, 0) != 0; });
    return entries;
  }
  // Every line of every log file, to check that none is broken.
  std::vector<std::string> LogLines(const std::string& logFolder) {
    std::vector<std::string> lines;
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(logFolder)) {
      if (entry.path().filename().string().rfind("TWLog.", 0) == 0) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      const std::string text = test::ReadFile(file);
      for (size_t at = 0; at < text.size();) {
        const size_t end = text.find("\r\n", at);
        lines.push_back(text.substr(at, end == std::string::npos ? std::string::npos : end - at));
        if (end == std::string::npos) break;
        at = end + 2;
      }
    }
    return lines;
  }

  int testBackups_ = 0;  // test backups asked for so far
};

TEST_F(FaultTest, ASettingsFileLockedForHalfAMinuteDelaysTheRunButLosesNothing) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Another program holds the file for 30 seconds: no one else may write meanwhile.
  test::WriteFile(dir_ / "lock.py",
                  "import sqlite3, sys, time\n"
                  "db = sqlite3.connect(sys.argv[1], isolation_level=None)\n"
                  "db.execute('BEGIN EXCLUSIVE')\n"
                  "db.execute(\"UPDATE settings SET value = value WHERE key = 'mail.server'\")\n"
                  "print('LOCKED', flush=True)\n"
                  "time.sleep(30)\n"
                  "db.execute('COMMIT')\n");
  test::ChildProcess lock({"/usr/bin/python3", dir_ / "lock.py", dir_ / "settings.db"}, {}, dir_ / "lock.out");
  ASSERT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "lock.out") == "LOCKED\n"; }));
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(TitleArrives("Tarnwick service starting"));
  // The scheduled check cannot record that its minute has fired: it reports that under its own
  // code and tries again at the next tick.
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(20), "Internal error #20001 - ") > 0; }, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  const auto errors = EntriesStartingWith("Internal error #20001 - ");
  EXPECT_NE(std::string::npos, errors.back().Message.find("  Error description: Cannot "))
      << errors.back().Message;
  EXPECT_NE(std::string::npos, errors.back().Message.find("database is locked")) << errors.back().Message;
  EXPECT_EQ(std::nullopt, service_->Wait(0)) << "the service keeps running";

  // Once the lock is gone, the run still goes ahead within its minute and is reported in full.
  EXPECT_EQ(0, lock.Wait(40000));
  ASSERT_TRUE(ReportsArrive(1, 40000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  Stop();
  EXPECT_EQ(0, Reports()[0].Status) << Reports()[0].Report;
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly completed normally"}), Subjects());
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5633", "Tarnwick 1000"}), Events());
  EXPECT_TRUE(HasTitle(Titles(100), "Tarnwick service stopping"));
}

TEST_F(FaultTest, ACorruptOrDeletedSettingsFileIsReportedAndAFreshOneIsUsed) {
  // Garbage in place of the settings at start: reported at every tick, and the file is left alone.
  const std::string garbage(8192, '\x5a');
  test::WriteFile(dir_ / "settings.db", garbage);
  // The fixture's own connection must not lend the service its write-ahead log.
  fs::remove(dir_ / "settings.db-wal");
  fs::remove(dir_ / "settings.db-shm");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(20), "Internal error #20000 - ") > 0; }, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_NE(std::string::npos,
            EntriesStartingWith("Internal error #20000 - ")[0].Message.find("file is not a database"));
  Stop();
  EXPECT_EQ(garbage, test::ReadFile(dir_ / "settings.db"));
  EXPECT_TRUE(HasTitle(Titles(20), "Tarnwick service stopping"));

  // Garbage put in the file's place while the service runs (a restore gone wrong).
  fs::remove(dir_ / "settings.db");
  TWSettings settings(dir_ / "settings.db");
  settings.General().AddJob("Later", "Later").ScheduledTime(TimeSerial(23, 0, 0));
  settings.Store().WriteText("deployment.support_email", "help@example.org");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(TitleArrives("Tarnwick service starting"));
  // The old file's write-ahead log goes first: met beside the new file, it would be read as the
  // new file's own and hide the garbage.
  fs::remove(dir_ / "settings.db-wal");
  fs::remove(dir_ / "settings.db-shm");
  test::WriteFile(dir_ / "settings.new", garbage);
  fs::rename(dir_ / "settings.new", dir_ / "settings.db");
  const size_t before = CountStartingWith(Titles(100), "Internal error #20000 - ");
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(100), "Internal error #20000 - ") > before; },
                              30000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_EQ(std::nullopt, service_->Wait(0)) << "the service keeps running";

  // Deleted while the service runs, and made afresh as the console makes it: the new file is read.
  fs::remove(dir_ / "settings.db");
  fs::remove(dir_ / "settings.db-wal");
  fs::remove(dir_ / "settings.db-shm");
  {
    TWSettings fresh(dir_ / "settings.db");
    fresh.Store().WriteBool("mail.email_enabled", true);
    fresh.Store().WriteText("mail.server", "127.0.0.1");
    fresh.Store().WriteInt("mail.port", smtp_.Port());
    fresh.Store().WriteText("mail.success_recipients", "ok@example.org");
    clsJob job = fresh.General().AddJob("Fresh", "Fresh");
    job.ScheduledTime(TimeSerial(21, 0, 0));
    job.Sources({dir_ / "src"});
    job.Destination().Path(dir_ / "dest");
  }
  ASSERT_TRUE(ReportsArrive(1, 40000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_EQ("Fresh", Reports()[0].JobName);
  EXPECT_EQ(0, Reports()[0].Status) << Reports()[0].Report;
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Fresh completed normally"}), Subjects());
}


// Entries written before the fault, 4,000 bytes of them: just short of a page of the file system.
std::string SeedLog() {
  std::string seed;
  for (int i = 0; seed.size() < 4000 - 100; ++i) {
    seed += "46349.5\tEarlier entry " + std::to_string(i) + "\t0\tAll was well.\t0\r\n";
  }
  return seed + "46349.5\tPad\t0\t" + std::string(4000 - seed.size() - 18, 'x') + "\t0\r\n";
}

TEST_F(FaultTest, AFullOrReadOnlyLogFolderLosesOnlyTheEntriesItCannotHold) {
  if (!CanMountPrivately()) GTEST_SKIP() << "mounting a file system needs root and unshare -m";
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  const std::string seed = SeedLog();
  ASSERT_EQ(4000u, seed.size());
  test::WriteFile(dir_ / "seed", seed);
  const std::string logs = dir_ / "Logs";

  // A log folder on a file system that is full: its last page holds 96 bytes more.
  Start("2026-11-23 21:00:05", "mkdir -p " + logs + "\nmount -t tmpfs -o size=16k tmpfs " + logs + "\nmkdir " +
                                   logs + "/Attachments\ncp " + (dir_ / "seed") + " " + logs +
                                   "/TWLog.0000\nhead -c 1M /dev/zero > " + logs + "/filler 2>/dev/null || true");
  ASSERT_TRUE(ReportsArrive(1)) << test::ReadFile(dir_ / "service.out");
  const std::string seen = "/proc/" + std::to_string(service_->Pid()) + "/root" + dir_.Path();
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  EXPECT_EQ(0, Reports()[0].Status) << Reports()[0].Report;
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5633", "Tarnwick 1000"}), Events());
  // Room again: the next entries are whole, and so is every entry before them.
  fs::remove(seen + "/Logs/filler");
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(test::WaitUntil([&] {
    const auto titles = Titles(1, seen);
    return !titles.empty() && titles[0] == "Tarnwick service pausing";
  })) << test::ReadFile(seen + "/Logs/TWLog.0000").substr(3900);
  const auto lines = LogLines(seen + "/Logs");
  for (const auto& line : lines) EXPECT_EQ(4, std::count(line.begin(), line.end(), '\t')) << line;
  EXPECT_EQ(seed, test::ReadFile(seen + "/Logs/TWLog.0000").substr(0, seed.size()));
  Stop();

  // A read-only log folder: nothing is written there, and everything else still is.
  fs::remove_all(logs);
  fs::create_directories(logs + "/Attachments");
  test::WriteFile(logs + "/TWLog.0000", seed);
  settings_.General().JobByName("Nightly").ScheduledTime(TimeSerial(21, 10, 0));
  Start("2026-11-23 21:10:05", "mount --bind " + logs + " " + logs + "\nmount -o remount,bind,ro " + logs);
  ASSERT_TRUE(ReportsArrive(2)) << test::ReadFile(dir_ / "service.out");
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 2; }, 20000));
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5633", "Tarnwick 1000"}), Events());
  Stop();
  EXPECT_EQ(seed, test::ReadFile(logs + "/TWLog.0000"));
}


TEST_F(FaultTest, MailThatHangsIsRefusedOrRejectedIsReportedAndSentAgain) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  auto console = settings_.General().Console();
  auto requestTestBackup = [&] {
    console.RequestJobName("Nightly");
    console.TestBackupRequested(true);
  };

  // A server that takes the connection and never answers holds up nothing but the mail.
  test::SmtpServer silent({"--silent"});
  settings_.Store().WriteInt("mail.port", silent.Port());
  settings_.Store().WriteInt("mail.timeout", 6);
  requestTestBackup();
  Start();
  ASSERT_TRUE(AnswerArrives("RESULT: Backup process completed normally"));
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(TitleArrives("Tarnwick service pausing", 5, 3000)) << "the service answers while the mail hangs";
  service_->Signal(SIGUSR2);
  ASSERT_TRUE(TitleArrives("Report email could not be sent", 20, 20000));
  // Stopping with a mail still hanging stops at once.
  requestTestBackup();
  ASSERT_TRUE(ReportsArrive(2));
  Stop();

  // Refused, then the server is back: the mail goes again after fifteen minutes and arrives. The
  // clock runs sixty times faster, with a stand-in for the rights launcher and the executor.
  SlowLauncher(0);
  settings_.Store().WriteInt("mail.port", 1);
  settings_.Store().WriteInt("mail.timeout", 120);
  requestTestBackup();
  Start("2026-11-23 21:30:00 x60");
  ASSERT_TRUE(test::WaitUntil([&] { return Titles(2) == std::vector<std::string>{"Report email could not be sent",
                                                                                  "Number of backup jobs currently running: 1"}; }));
  const auto failed = test::LastLogs(dir_.Path(), 5);
  const auto refused = std::find_if(failed.begin(), failed.end(), [](const clsLogEntry& e) {
    return e.Title == "Report email could not be sent";
  });
  EXPECT_EQ("The report email could not be sent. Details can be found in the attachment.", refused->Message);
  EXPECT_NE(std::string::npos, refused->Attachment.find("127.0.0.1")) << refused->Attachment;
  settings_.Store().WriteInt("mail.port", smtp_.Port());
  ASSERT_TRUE(TitleArrives("Attempting to re-send email (retry #1)", 5, 60000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  EXPECT_EQ((std::vector<std::string>{"Tarnwick backup Nightly completed normally"}), Subjects());

  // Rejected (5xx): each attempt is logged with the server's answer, and tried again.
  test::SmtpServer rejecting({"--reject", "ok@example.org"});
  settings_.Store().WriteInt("mail.port", rejecting.Port());
  requestTestBackup();
  ASSERT_TRUE(TitleArrives("Attempt to re-send email failed (retry #1)", 10, 90000));
  Stop();
  const auto entries = test::LastLogs(dir_.Path(), 10);
  const auto rejected = std::find_if(entries.begin(), entries.end(), [](const clsLogEntry& e) {
    return e.Title == "Attempt to re-send email failed (retry #1)";
  });
  EXPECT_NE(std::string::npos, rejected->Attachment.find("550")) << rejected->Attachment;
  EXPECT_EQ(0, rejecting.Count());
}

TEST_F(FaultTest, MissingOrNonExecutableHelpersFailTheRunWithTheirCodes) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // One test backup: its result line, and the newest error's title.
  auto testBackup = [&]() -> std::pair<std::string, std::string> {
    const std::string result = TestBackup(40000);
    const auto errors = EntriesStartingWith("Error #", 10);
    return {result, errors.empty() ? std::string() : errors[0].Title};
  };
  Start();
  fs::remove(dir_ / "DesktopRights");
  EXPECT_EQ(std::make_pair(std::string("RESULT: Backup process encountered errors"),
                           std::string("Error #00101 - Unable to launch Backup executor (Code -1)")),
            testBackup());
  fs::copy_file(std::string(TW_BIN_DIR) + "/DesktopRights", dir_ / "DesktopRights");
  fs::permissions(dir_ / "DesktopRights", fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::make_pair(std::string("RESULT: Backup process encountered errors"),
                           std::string("Error #00101 - Unable to launch Backup executor (Code -1)")),
            testBackup());
  fs::permissions(dir_ / "DesktopRights", fs::perms::owner_all);
  fs::remove(dir_ / "TWExecutor");
  EXPECT_EQ(std::make_pair(std::string("RESULT: Backup process encountered errors"),
                           std::string("Error #00106 - Error launching backup")),
            testBackup());
  fs::copy_file(std::string(TW_BIN_DIR) + "/TWExecutor", dir_ / "TWExecutor");
  fs::permissions(dir_ / "TWExecutor", fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::make_pair(std::string("RESULT: Backup process encountered errors"),
                           std::string("Error #00106 - Error launching backup")),
            testBackup());
  ASSERT_TRUE(ReportsArrive(4));
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 4; }, 20000));
  Stop();
  for (const auto& report : Reports()) EXPECT_EQ(2, report.Status) << report.Report;
  EXPECT_FALSE(fs::exists(dir_ / "BackupLog-Nightly.txt")) << "a run that never began leaves no marker";
}

TEST_F(FaultTest, AnExecutorThatCrashesNeverFinishesOrFloodsIsReported) {
  // Not due while the test runs: only the test backups asked for run.
  Job("Nightly", TimeSerial(23, 0, 0), dir_ / "src").BackupTimeout(0);
  auto testBackup = [&] { return TestBackup(60000); };
  // Thirty times faster: the five minutes of grace pass within seconds.
  Start("2026-11-23 21:00:05 x30");

  // Killed before it could say it had started: the rights launcher says so.
  StandInExecutor("kill -ABRT $$\n");
  EXPECT_EQ("RESULT: Backup process encountered errors", testBackup());
  EXPECT_EQ("Error #00106 - Error launching backup", EntriesStartingWith("Error #", 10).at(0).Title);

  // A run that floods its output and writes a report of several megabytes: all of it is kept.
  std::string longReport;
  for (int i = 0; i < 100000; ++i) longReport += "Copied file number " + std::to_string(i) + "\r\n";
  longReport += "Result: done\r\n";
  StandInExecutor("status -2\nready\nhead -c 20000000 /dev/zero\n"
                  "i=0; while [ $i -lt 100000 ]; do printf 'Copied file number %d\\r\\n' $i; i=$((i+1)); done "
                  "> \"$marker.txt\"\nprintf 'Result: done\\r\\n' >> \"$marker.txt\"\n"
                  "{ printf '\\377\\376'; iconv -f UTF-8 -t UTF-16LE \"$marker.txt\"; } > \"$marker\"\nstatus 1\n");
  EXPECT_EQ("RESULT: Backup process completed normally", testBackup());
  ASSERT_TRUE(ReportsArrive(2));
  const auto reports = Reports();
  const auto flood = std::find_if(reports.begin(), reports.end(), [](const auto& r) { return r.Status == 0; });
  ASSERT_NE(reports.end(), flood);
  EXPECT_EQ(longReport.size(), flood->Report.size());
  EXPECT_TRUE(flood->Report == longReport) << flood->Report.substr(0, 200);

  // Crashed after it claimed the run: reported as timed out once the time-out has passed.
  StandInExecutor("status -2\nready\nkill -SEGV $$\n");
  EXPECT_EQ("RESULT: Backup process timed out", testBackup());
  EXPECT_TRUE(HasTitle(Titles(10), "Backup process timed out"));

  // Started, and ended without ever setting the run's status: the last run's status is not taken
  // for this run's.
  StandInExecutor("status -2\nready\nreport 'Done\\r\\n'\nstatus 1\n");
  EXPECT_EQ("RESULT: Backup process completed normally", testBackup());
  StandInExecutor("ready\n");
  EXPECT_NE("RESULT: Backup process completed normally", testBackup());

  ASSERT_TRUE(ReportsArrive(5));
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 5; }, 20000));
  Stop();
  const auto events = Events();
  EXPECT_EQ(1, std::count(events.begin(), events.end(), "Tarnwick 1001")) << ::testing::PrintToString(events);
  EXPECT_EQ(2, std::count(events.begin(), events.end(), "Tarnwick 1000")) << ::testing::PrintToString(events);
  EXPECT_EQ(2, std::count(events.begin(), events.end(), "Tarnwick 1002")) << ::testing::PrintToString(events);
}

TEST_F(FaultTest, AThousandJobsDueInOneMinuteRunTenAtOnceAndReportTheRest) {
  settings_.Store().InTransaction([&] {
    for (int i = 0; i < 1000; ++i) {
      clsJob job = settings_.General().AddJob("Job" + std::to_string(i), "Job" + std::to_string(i));
      job.ScheduledTime(TimeSerial(21, 0, 0));
      job.Sources({dir_ / "src"});
      job.Destination().Path(dir_ / "dest");
      job.JobNotification().SendReportEmail(false);
    }
  });
  Start("2026-11-23 21:00:05");
  // Every job is either run or reported as not started (20007): ten at once, and more when runs end
  // while the walk through the thousand is still going.
  // Each job leaves a few entries; the count reads them all.
  auto notStarted = [&] { return CountStartingWith(Titles(20000), "Internal error #20007 - "); };
  ASSERT_TRUE(ReportsArrive(10, 120000));
  ASSERT_TRUE(test::WaitUntil([&] { return Reports().size() + notStarted() == 1000; }, 600000))
      << Reports().size() << " run, " << notStarted() << " not started";
  // The service is still at its work: it answers at once.
  service_->Signal(SIGUSR1);
  ASSERT_TRUE(test::WaitUntil([&] { return Titles(1) == std::vector<std::string>{"Tarnwick service pausing"}; }));
  Stop();
  EXPECT_EQ(1000u, Reports().size() + notStarted());
  for (const auto& report : Reports()) EXPECT_EQ(0, report.Status) << report.JobName << "\n" << report.Report;
}

TEST_F(FaultTest, SigtermDuringARunStopsTheServiceAndTheRunIsReportedAtTheNextStart) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Slow to start and slow to finish: the service stops while the rights launcher still waits.
  StandInExecutor("sleep 2\nstatus -2\nready\nsleep 3\nreport 'Interrupted run\\r\\nResult: done\\r\\n'\nstatus 1\n");
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "BackupLog-Nightly.txt"); }, 20000));
  const auto stopped = std::chrono::steady_clock::now();
  Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(5)) << "it does not wait for the run";
  EXPECT_EQ("Tarnwick service stopping", Titles(1).at(0));
  EXPECT_TRUE(Reports().empty());
  // The run goes on without the service and leaves its report in the marker.
  ASSERT_TRUE(test::WaitUntil([&] { return settings_.General().JobByName("Nightly").RunStatus() == 1; }, 20000));
  Start("2026-11-23 21:00:40");
  ASSERT_TRUE(ReportsArrive(1));
  ASSERT_TRUE(test::WaitUntil([&] { return smtp_.Count() == 1; }, 20000));
  Stop();
  EXPECT_EQ("Interrupted run\r\nResult: done\r\n", Reports()[0].Report);
  EXPECT_EQ(0, Reports()[0].Status);
  EXPECT_TRUE(HasTitle(Titles(10), "Backup run picked up again"));
  EXPECT_EQ((std::vector<std::string>{"SmallBusinessServer 5633", "Tarnwick 1000"}), Events());
}

}  // namespace
}  // namespace tw
