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

bool HasTitle(const std::vector<std::string>& titles, const std::string& title) {
  return std::find(titles.begin(), titles.end(), title) != titles.end();
}

size_t CountStartingWith(const std::vector<std::string>& titles, const std::string& prefix) {
  return static_cast<size_t>(std::count_if(titles.begin(), titles.end(), [&](const std::string& title) {
    return title.rfind(prefix, 0) == 0;
  }));
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
                          "ready() { printf R > /proc/$$/fd/$TARNWICK_READY_FD; }\n"
                          "status() { sqlite3 \"$db\" \"UPDATE jobs SET run_status = $1\"; }\n"
                          // A report as the executor writes it: UTF-16LE with a byte-order mark.
                          "report() { { printf '\\377\\376'; printf \"$1\" | iconv -f UTF-8 -t UTF-16LE; } "
                          "> \"$marker\"; }\n" +
                          body);
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
};

TEST_F(FaultTest, ASettingsFileLockedForHalfAMinuteDelaysTheRunButLosesNothing) {
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  // Another program holds the file for 30 seconds: no one else may write, or read, meanwhile.
  test::WriteFile(dir_ / "lock.py",
                  "import sqlite3, sys, time\n"
                  "db = sqlite3.connect(sys.argv[1], isolation_level=None)\n"
                  "db.execute('PRAGMA locking_mode = EXCLUSIVE')\n"
                  "db.execute('BEGIN EXCLUSIVE')\n"
                  "db.execute(\"UPDATE settings SET value = value WHERE key = 'mail.server'\")\n"
                  "print('LOCKED', flush=True)\n"
                  "time.sleep(30)\n"
                  "db.execute('COMMIT')\n");
  test::ChildProcess lock({"/usr/bin/python3", dir_ / "lock.py", dir_ / "settings.db"}, {}, dir_ / "lock.out");
  ASSERT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "lock.out") == "LOCKED\n"; }));
  Start("2026-11-23 21:00:05");
  ASSERT_TRUE(TitleArrives("Tarnwick service starting"));
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(20), "Internal error #20000 - ") > 0; }, 30000))
      << test::ReadFile(dir_ / "Logs/TWLog.0000");
  const auto errors = EntriesStartingWith("Internal error #20000 - ");
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
  test::WriteFile(dir_ / "settings.new", garbage);
  fs::rename(dir_ / "settings.new", dir_ / "settings.db");
  fs::remove(dir_ / "settings.db-wal");
  fs::remove(dir_ / "settings.db-shm");
  const size_t before = CountStartingWith(Titles(100), "Internal error #20000 - ");
  ASSERT_TRUE(test::WaitUntil([&] { return CountStartingWith(Titles(100), "Internal error #20000 - ") > before; },
                              30000));
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

}  // namespace
}  // namespace tw
