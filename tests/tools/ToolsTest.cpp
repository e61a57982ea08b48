// The helper programs, run as a separate process where their behaviour is their exit status.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>
#include <utmpx.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "platform/Accounts.h"
#include "platform/Process.h"
#include "settings/PrintRequest.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"
#include "tools/Executor.h"
#include "tools/Messenger.h"
#include "tools/PrintOut.h"
#include "tools/RightsLauncher.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

const std::string kBin = TW_BIN_DIR;

class ToolsTest : public ::testing::Test {
 protected:
  void Script(const std::string& path, const std::string& body) {
    test::WriteFile(path, "#!/bin/sh\n" + body + "\n");
    ::chmod(path.c_str(), 0755);
  }
  platform::CommandResult Rights(const std::vector<std::string>& args) {
    std::vector<std::string> argv{kBin + "/DesktopRights"};
    argv.insert(argv.end(), args.begin(), args.end());
    return platform::RunCommand(argv);
  }

  test::TempDir dir_;
};

TEST_F(ToolsTest, TheRightsLauncherAnswersWithItsExitStatusAndANumber) {
  EXPECT_EQ(1, Rights({"a", "b", "c"}).exitCode);
  auto unknown = Rights({"no-such-user-here", "", "", "/bin/true"});
  EXPECT_EQ(2, unknown.exitCode);
  EXPECT_EQ("1326\r\n", unknown.output);
  auto missing = Rights({"", "", "", dir_ / "nothing"});
  EXPECT_EQ(2, missing.exitCode);
  EXPECT_EQ("2\r\n", missing.output);

  // A program that says it has started: the launcher returns while it still runs.
  Script(dir_ / "ready", "printf R >&\"$TARNWICK_READY_FD\"; sleep 5");
  const auto start = std::chrono::steady_clock::now();
  auto ready = Rights({"", "", "", dir_ / "ready", "logging"});
  EXPECT_EQ(255, ready.exitCode) << ready.output;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  // One that ends without saying so.
  // One that ends without saying so: what it said on the way is passed on after the number.
  Script(dir_ / "quiet", "echo 'no marker waits' >&2; exit 0");
  auto quiet = Rights({"", "", "", dir_ / "quiet"});
  EXPECT_EQ(2, quiet.exitCode);
  EXPECT_EQ("1067\r\nno marker waits\r\n", quiet.output);

  EXPECT_EQ("backup", platform::AccountNameFor("backup", "", "server1"));
  EXPECT_EQ("backup", platform::AccountNameFor("backup", "SERVER1", "server1"));
  EXPECT_EQ("backup@CORP", platform::AccountNameFor("backup", "CORP", "server1"));
}

TEST_F(ToolsTest, AsRootTheRightsLauncherSwitchesToTheAccount) {
  if (!platform::RunningAsRoot()) GTEST_SKIP() << "switching accounts needs root";
  fs::create_directory(dir_ / "shared");
  fs::permissions(dir_.Path(), fs::perms::all);
  fs::permissions(dir_ / "shared", fs::perms::all);
  Script(dir_ / "whoami", "id -un > \"" + (dir_ / "shared/who") + "\"; printf R >&\"$TARNWICK_READY_FD\"");
  EXPECT_EQ(255, Rights({"nobody", "", "", dir_ / "whoami"}).exitCode);
  ASSERT_TRUE(test::WaitUntil([&] { return !test::ReadFile(dir_ / "shared/who").empty(); }));
  EXPECT_EQ("nobody\n", test::ReadFile(dir_ / "shared/who"));
}

TEST_F(ToolsTest, TheProcessToolCountsAndKills) {
  fs::copy_file("/bin/sleep", dir_ / "TWCountMe");
  test::ChildProcess first({dir_ / "TWCountMe", "30"});
  test::ChildProcess second({dir_ / "TWCountMe", "30"});
  ASSERT_TRUE(test::WaitUntil([] { return platform::RunCommand({kBin + "/twprocess", "TWCountMe"}).exitCode == 2; }));
  EXPECT_EQ(2, platform::RunCommand({kBin + "/twprocess", "TWCountMe", "/kill"}).exitCode);
  EXPECT_EQ(128 + SIGKILL, first.Wait());
  EXPECT_EQ(128 + SIGKILL, second.Wait());
  EXPECT_EQ(0, platform::RunCommand({kBin + "/twprocess", "TWCountMe"}).exitCode);
}

TEST_F(ToolsTest, TheCameraWithoutADisplayWritesNothing) {
  auto result = platform::RunCommand({"env", "-u", "DISPLAY", "TARNWICK_SCREENSHOT=" + (dir_ / "shot.png"),
                                      kBin + "/TWCam"});
  EXPECT_EQ(1, result.exitCode);
  EXPECT_EQ("TWCam: no X display (DISPLAY is not set)\n", result.output);
  EXPECT_FALSE(fs::exists(dir_ / "shot.png"));
}

TEST_F(ToolsTest, ThePrintOutSendsEachRequestToTheQueueAndKeepsFailures) {
  fs::create_directory(dir_ / "bin");
  Script(dir_ / "bin/lp", "echo \"$@\" >> \"" + (dir_ / "lp-calls") + "\"; cat \"$6\" >> \"" + (dir_ / "printed") +
                              "\"; [ ! -f \"" + (dir_ / "lp-fails") + "\" ]");
  const std::string path = getenv("PATH");
  ::setenv("PATH", ((dir_ / "bin") + ":" + path).c_str(), 1);
  TWSettings settings(dir_ / "settings.db");
  std::ostringstream err;
  EXPECT_EQ(1, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err));
  EXPECT_EQ("TWPrintOut: no printer is set (twctl config set options.print_setting QUEUE)\n", err.str());

  settings.General().Options().PrintSetting("office");
  SystemClock clock;
  clsPrintRequest request(dir_ / "Spool", clock);
  const std::string spooled = request.Print("Backup Nightly completed normally", "All fine.\r\n");
  EXPECT_EQ(0, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err));
  EXPECT_EQ("-d office -t Backup Nightly completed normally -- " + spooled + "\n", test::ReadFile(dir_ / "lp-calls"));
  EXPECT_EQ("Backup Nightly completed normally\n\nAll fine.\r\n", test::ReadFile(dir_ / "printed"));
  EXPECT_FALSE(fs::exists(spooled));

  test::WriteFile(dir_ / "lp-fails", "");
  const std::string kept = request.Print("Another", "Body");
  EXPECT_EQ(1, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err));
  EXPECT_TRUE(fs::exists(kept)) << "a request that was not printed waits for the next time";
  ::setenv("PATH", path.c_str(), 1);
}

TEST_F(ToolsTest, ATapeIsWoundAndEjectedAroundTheArchive) {
  fs::create_directory(dir_ / "bin");
  Script(dir_ / "bin/mt", "echo \"$@\" >> \"" + (dir_ / "mt-calls") + "\"");
  const std::string path = getenv("PATH");
  ::setenv("PATH", ((dir_ / "bin") + ":" + path).c_str(), 1);
  fs::create_directory(dir_ / "src");
  test::WriteFile(dir_ / "src/a", "a");

  tools::BackupPlan plan;
  plan.jobName = "Tape";
  plan.backupLogId = "tape";
  plan.sources = {dir_ / "src"};
  plan.destination = "/dev/null";  // a character device, as a tape drive is
  plan.mode = 1;
  plan.eject = true;
  plan.snapshotFolder = dir_ / "Snapshots";
  const auto outcome = tools::PerformBackup(plan, DateSerial(2026, 11, 23) + 0.875);
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_TRUE(outcome.ok()) << (outcome.errors.empty() ? "" : outcome.errors[0]);
  EXPECT_TRUE(outcome.tape);
  EXPECT_EQ("-f /dev/null eod\n-f /dev/null offline\n", test::ReadFile(dir_ / "mt-calls"));
  EXPECT_EQ(1, outcome.files);

  const std::string report = tools::ComposeReport(plan, outcome, DateSerial(2026, 11, 23) + 0.875,
                                                  DateSerial(2026, 11, 23) + 0.875 + 75.0 / 86400);
  EXPECT_EQ("Tarnwick backup report\r\n"
            "Job: Tape\r\n"
            "Computer: \r\n"
            "Started: 2026-11-23 21:00:00\r\n"
            "Finished: 2026-11-23 21:01:15\r\n"
            "Duration: 00:01:15\r\n"
            "Method: full\r\n"
            "Media: label \"\", append, ejected afterwards\r\n"
            "Sources: 1\r\n"
            "  " + (dir_ / "src") + "\r\n"
            "Destination: /dev/null\r\n"
            "Archive: /dev/null\r\n"
            "Files backed up: 1\r\n"
            "Bytes written: 10240\r\n"
            "Warnings: none\r\n"
            "Errors: none\r\n"
            "Result: Backup completed normally.\r\n",
            report);

  plan.sources.clear();
  const auto nothing = tools::PerformBackup(plan, 0);
  ASSERT_EQ(1u, nothing.errors.size());
  EXPECT_EQ("The job has no sources to back up (twctl job set Tape --source PATH).", nothing.errors[0]);
}

TEST_F(ToolsTest, TheMessengerWritesToTheRecipientsTerminals) {
  int master = -1, slave = -1;
  char terminal[64] = {};
  ASSERT_EQ(0, ::openpty(&master, &slave, terminal, nullptr, nullptr));
  // A login record of our own: alice on that terminal.
  test::WriteFile(dir_ / "utmp", "");
  ::utmpxname((dir_ / "utmp").c_str());
  ::setutxent();
  utmpx record{};
  record.ut_type = USER_PROCESS;
  record.ut_pid = ::getpid();
  std::strncpy(record.ut_user, "alice", sizeof record.ut_user);
  std::strncpy(record.ut_line, terminal + 5, sizeof record.ut_line);  // without "/dev/"
  ASSERT_NE(nullptr, ::pututxline(&record));
  ::endutxent();

  const std::string records = "TARNWICK_UTMP=" + (dir_ / "utmp");
  auto sent = platform::RunCommand({"env", records, kBin + "/twmessage", "alice",
                                    " Tape reminder\x14\x14Load tape 7\x14today"});
  EXPECT_EQ(0, sent.exitCode) << sent.output;
  pollfd ready{master, POLLIN, 0};
  ASSERT_EQ(1, ::poll(&ready, 1, 2000));
  char buffer[1024] = {};
  const std::string shown(buffer, static_cast<size_t>(::read(master, buffer, sizeof buffer)));
  std::string plain;
  for (char c : shown) {
    if (c != '\r') plain += c;
  }
  EXPECT_NE(std::string::npos, plain.find("Broadcast message from Tarnwick on "));
  EXPECT_NE(std::string::npos, plain.find(":\n\nTape reminder\n\nLoad tape 7\ntoday\n")) << plain;

  auto nobody = platform::RunCommand({"env", records, kBin + "/twmessage", "bob", "hello"});
  EXPECT_EQ(1, nobody.exitCode);
  EXPECT_EQ("twmessage: bob is not logged in on a terminal here\n", nobody.output);
  EXPECT_EQ(2, platform::RunCommand({kBin + "/twmessage", "alice"}).exitCode);
  ::close(master);
  ::close(slave);
}

TEST_F(ToolsTest, EveryHelperHasHelp) {
  for (const char* program : {"DesktopRights", "TWExecutor", "twprocess", "TWCam", "TWPrintOut", "twmessage"}) {
    const auto result = platform::RunCommand({kBin + "/" + program, "--help"});
    EXPECT_EQ(0, result.exitCode) << program;
    EXPECT_NE(std::string::npos, result.output.find("Usage: ")) << program;
  }
}

}  // namespace
}  // namespace tw
