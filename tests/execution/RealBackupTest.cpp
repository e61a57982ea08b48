// A backup through the real DesktopRights and TWExecutor, restored with plain tar.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>

#include "common/Utf16.h"
#include "execution/HungProcessRecovery.h"
#include "execution/frmBackup.h"
#include "platform/Process.h"
#include "tests/execution/ExecutionFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Archives(const fs::path& folder) {
  std::vector<std::string> archives;
  for (const auto& entry : fs::directory_iterator(folder)) archives.push_back(entry.path().string());
  std::sort(archives.begin(), archives.end());
  return archives;
}

class RealBackupTest : public test::ExecutionFixture {
 protected:
  RealBackupTest() {
    LinkProgram("DesktopRights");
    LinkProgram("TWExecutor");
    ::setenv("TARNWICK_HOME", dir_.Path().c_str(), 1);
    ::unsetenv("TARNWICK_SETTINGS");
    fs::create_directories(dir_ / "src/sub/deep");
    fs::create_directories(dir_ / "src/empty");
    test::WriteFile(dir_ / "src/a.txt", "alpha\n");
    test::WriteFile(dir_ / "src/sub/b.bin", std::string("\x00\x01\x02\xff", 4) + std::string(5000, 'b'));
    test::WriteFile(dir_ / "src/sub/deep/c.txt", "gamma\n");
    job_.Sources({dir_ / "src"});
    job_.Destination().Path(dir_ / "dest");
    form_.BackupComplete = [this](const RunningJob& record) { completions_.push_back(record); };
  }
  ~RealBackupTest() override { ::unsetenv("TARNWICK_HOME"); }

  RunningJob Run() {
    completions_.clear();
    auto record = manager_.AddJob(job_);
    form_.DoBackup(record, job_);
    // The poll timer ticks every two seconds; asking it often ends the wait sooner.
    EXPECT_TRUE(LoopUntil([&] {
      form_.tmrPoll_Timer();
      return !completions_.empty();
    }, 30000));
    return completions_.empty() ? record : completions_[0];
  }

  clsCurrentJobManager manager_{clock_};
  clsJob job_ = settings_.General().AddJob("Nightly", "nightly");
  frmBackup form_{host_};
  std::vector<RunningJob> completions_;
};

TEST_F(RealBackupTest, AFullAndAnIncrementalRunRestoreTheTreeFileForFile) {
  const RunningJob full = Run();
  ASSERT_EQ(1, full->Status) << full->BackupReport;
  const auto first = Archives(dir_ / "dest/nightly");
  ASSERT_EQ(1u, first.size());
  EXPECT_NE(std::string::npos, full->BackupReport.find("\r\nArchive: " + first[0] + "\r\n"));

  // Change the tree; an incremental run holds only what changed, and the two restore it.
  test::WriteFile(dir_ / "src/a.txt", "alpha, changed\n");
  test::WriteFile(dir_ / "src/new.txt", "new\n");
  fs::remove(dir_ / "src/sub/deep/c.txt");
  job_.RunBackupMethod(1);  // as a launch writes the scheme's choice for the run
  ::sleep(1);  // a new archive name, a second later
  const RunningJob incremental = Run();
  ASSERT_EQ(1, incremental->Status) << incremental->BackupReport;
  EXPECT_NE(std::string::npos, incremental->BackupReport.find("\r\nFiles backed up: 2\r\n"));
  const auto both = Archives(dir_ / "dest/nightly");
  ASSERT_EQ(2u, both.size());
  EXPECT_NE(std::string::npos, both[1].find("-incremental.tar.gz"));
  fs::create_directory(dir_ / "restore");
  for (const auto& archive : both) {
    const auto tar = platform::RunCommand(
        {"tar", "--extract", "--listed-incremental=/dev/null", "--file", archive, "-C", dir_ / "restore"});
    ASSERT_EQ(0, tar.exitCode) << tar.output;
  }
  // GNU diff compares contents and finds files and folders on one side only: the deletion is restored too.
  const auto diff = platform::RunCommand({"diff", "-r", dir_ / "src", dir_ / "restore" + (dir_ / "src")});
  EXPECT_EQ(0, diff.exitCode) << diff.output;
}

TEST_F(RealBackupTest, AnExecutorTakesOnlyTheMarkerOfItsOwnRun) {
  // A marker left behind by a run that never began waits for that run's executor alone.
  const std::string marker = dir_ / "BackupLog-nightly.txt";
  const std::string waiting = Utf16FileBytes("Tarnwick run 20261123210000-aaaaaaaa\r\n");
  test::WriteFile(marker, waiting);
  const std::string executor = dir_ / "TWExecutor";
  const std::pair<std::vector<std::string>, std::string> refused[] = {
      {{executor, "--backup-log-id", "nightly", "--run", "20261123210500-bbbbbbbb"},
       "does not wait for the run 20261123210500-bbbbbbbb but for 20261123210000-aaaaaaaa"},
      {{executor, "--backup-log-id", "..", "--run", "20261123210000-aaaaaaaa"}, "\"..\" is no backup log id"},
  };
  for (const auto& [args, said] : refused) {
    const auto result = platform::RunCommand(args);
    EXPECT_EQ(2, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find(said)) << result.output;
  }
  EXPECT_EQ(waiting, test::ReadFile(marker)) << "left as it was";
  EXPECT_FALSE(fs::exists(dir_ / "dest"));

  // A run that fails once it has claimed its marker says why there, and does not leave the status at -2.
  test::WriteFile(marker, Utf16FileBytes("Tarnwick run 20261123220000-cccccccc\r\n"));
  platform::RunCommand({"sqlite3", dir_ / "settings.db", "UPDATE jobs SET run_backup_method = 'many'"});
  const auto bad = platform::RunCommand({executor, "--backup-log-id", "nightly", "--run", "20261123220000-cccccccc"});
  EXPECT_EQ(2, bad.exitCode) << bad.output;
  EXPECT_EQ(2, job_.RunStatus());
  std::string report;
  ASSERT_TRUE(ReadUnicodeFile(marker, report));
  EXPECT_EQ(0u, report.find("Tarnwick backup report\r\nThe backup could not run: ")) << report;
}

TEST_F(RealBackupTest, WhatTarCannotReadIsAnErrorAndWhatItLeavesOutAWarning) {
  job_.Sources({dir_ / "src", dir_ / "no-such-folder"});
  const test::DatagramReceiver socket(dir_ / "src/log.sock");
  const RunningJob run = Run();
  EXPECT_EQ(2, run->Status);
  EXPECT_TRUE(run->BackupReport.ends_with("\r\nWarnings: 1\r\n  tar: " + (dir_ / "src/log.sock") +
                                          ": socket ignored\r\nErrors: 1\r\n  tar: " + (dir_ / "no-such-folder") +
                                          ": Cannot stat: No such file or directory\r\n"
                                          "Result: Backup encountered errors.\r\n"))
      << run->BackupReport;
  EXPECT_NE(std::string::npos, run->BackupReport.find("\r\nFiles backed up: 3\r\n")) << "the rest was backed up";
  EXPECT_TRUE(fs::is_empty(dir_ / "Snapshots")) << "a failed run keeps no snapshot and no working files";
}

TEST_F(RealBackupTest, AHungExecutorIsPhotographedKilledAndLogged) {
  if (!fs::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "Xvfb is not installed";
  LinkProgram("twprocess");
  LinkProgram("TWCam");
  // Xvfb picks a free display and writes its number once it accepts connections.
  test::ChildProcess display({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "320x200x24", "-nolisten", "tcp"},
                             {}, dir_ / "display");
  ASSERT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "display").find('\n') != std::string::npos; }));
  const std::string written = test::ReadFile(dir_ / "display");
  const test::ScopedEnvironment environment({{"DISPLAY", ":" + written.substr(0, written.find('\n'))}});
  // A process by the name looked for, as a hung executor would be; the name is this test's own, since
  // every process of that name is killed.
  const std::string name = "TWHung" + std::to_string(::getpid() % 100000);
  fs::copy_file("/bin/sleep", dir_ / name);
  test::ChildProcess hung({dir_ / name, "60"});
  ASSERT_TRUE(test::WaitUntil([&] { return !platform::RunCommand({"pgrep", "-x", name}).output.empty(); }));

  HungProcessRecovery recovery(host_);
  EXPECT_TRUE(recovery.KillPreviousBackup(name));
  EXPECT_EQ(128 + SIGKILL, hung.Wait());
  const auto entries = Logs(1);
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ("Previous backup process killed", entries[0].Title);
  EXPECT_EQ(0u, test::ReadFile(entries[0].Attachment).find("\x89PNG\r\n")) << "a real picture of the display";

  EXPECT_FALSE(recovery.KillPreviousBackup(name)) << "nothing left to kill";
  display.Signal(SIGTERM);
}

}  // namespace
}  // namespace tw
