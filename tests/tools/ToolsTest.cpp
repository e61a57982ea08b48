// The helper programs, run as a separate process where their behaviour is their exit status.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <unistd.h>
#include <utmpx.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "common/Version.h"
#include "platform/Accounts.h"
#include "platform/Process.h"
#include "settings/PrintRequest.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"
#include "tools/Executor.h"
#include "tools/PrintOut.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

const std::string kBin = TW_BIN_DIR;

// A program's exit status and what it said, in one text: "2 1326\r\n".
std::string Said(const std::vector<std::string>& argv) {
  const auto result = platform::RunCommand(argv);
  return std::to_string(result.exitCode) + " " + result.output;
}

class ToolsTest : public ::testing::Test {
 protected:
  // Stand-ins for the system's commands go in "bin", ahead of the real ones.
  ToolsTest() { fs::create_directory(dir_ / "bin"); }

  test::TempDir dir_;
  const test::ScopedEnvironment path_{{{"PATH", (dir_ / "bin") + ":" + getenv("PATH")}}};
};

TEST_F(ToolsTest, TheRightsLauncherAnswersWithItsExitStatusAndANumber) {
  const std::string rights = kBin + "/DesktopRights";
  EXPECT_EQ(0u, Said({rights, "a", "b", "c"}).find("1 Usage: "));
  EXPECT_EQ("2 1326\r\n", Said({rights, "no-such-user-here", "", "", "/bin/true"}));
  // A program that ends without saying it has started: what it said on the way follows the number.
  test::WriteScript(dir_ / "quiet", "echo 'no marker waits' >&2; exit 0");
  EXPECT_EQ("2 1067\r\nno marker waits\r\n", Said({rights, "", "", "", dir_ / "quiet"}));
  // A domain of this computer's own name is no domain.
  EXPECT_EQ("backup", platform::AccountNameFor("backup", "SERVER1", "server1"));
  EXPECT_EQ("backup@CORP", platform::AccountNameFor("backup", "CORP", "server1"));
}

TEST_F(ToolsTest, ThePrintOutSendsEachRequestToTheQueueAndKeepsFailures) {
  test::WriteScript(dir_ / "bin/lp",
                    "echo \"$@\" >> \"" + (dir_ / "lp-calls") + "\"; [ ! -f \"" + (dir_ / "lp-fails") + "\" ]");
  TWSettings settings(dir_ / "settings.db");
  std::ostringstream err;
  EXPECT_EQ(1, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err)) << "no printer is set";

  settings.General().Options().PrintSetting("office");
  SystemClock clock;
  clsPrintRequest request(dir_ / "Spool", clock);
  const std::string spooled = request.Print("Backup Nightly completed normally", "All fine.\r\n");
  EXPECT_EQ(0, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err));
  EXPECT_EQ("-d office -t Backup Nightly completed normally -- " + spooled + "\n", test::ReadFile(dir_ / "lp-calls"));
  EXPECT_FALSE(fs::exists(spooled));

  test::WriteFile(dir_ / "lp-fails", "");
  const std::string kept = request.Print("Another", "Body");
  EXPECT_EQ(1, tools::RunPrintOut(dir_.Path(), dir_ / "settings.db", err));
  EXPECT_TRUE(fs::exists(kept)) << "a request that was not printed waits for the next time";
}

class ArchiveFolderTest : public ToolsTest {
 protected:
  ArchiveFolderTest() {
    fs::create_directory(dir_ / "src");
    test::WriteFile(dir_ / "src/a", "a");
  }
  tools::BackupPlan Plan(const std::string& destination, const std::string& snapshots) {
    tools::BackupPlan plan;
    plan.backupLogId = "job";
    plan.sources = {dir_ / "src"};
    plan.destination = destination;
    plan.snapshotFolder = snapshots;
    return plan;
  }
  const Date kStart = DateSerial(2026, 11, 23) + 0.875;
};

TEST_F(ArchiveFolderTest, ATapeIsWoundAndEjectedAroundTheArchive) {
  test::WriteScript(dir_ / "bin/mt", "echo \"$@\" >> \"" + (dir_ / "mt-calls") + "\"");
  tools::BackupPlan plan = Plan("/dev/null", dir_ / "Snapshots");  // a character device, as a tape drive is
  plan.mode = 1;
  plan.eject = true;
  const auto outcome = tools::PerformBackup(plan, kStart);
  EXPECT_TRUE(outcome.ok()) << (outcome.errors.empty() ? "" : outcome.errors[0]);
  EXPECT_TRUE(outcome.tape);
  EXPECT_EQ("-f /dev/null eod\n-f /dev/null offline\n", test::ReadFile(dir_ / "mt-calls"));

  const std::string report = tools::ComposeReport(plan, outcome, kStart, kStart + 7201.0 / 86400);
  EXPECT_NE(std::string::npos, report.find("\r\nDuration: 02:00:01\r\n")) << report;
}

TEST_F(ArchiveFolderTest, ArchivesTakeFreshNamesAndAreNeverWrittenThroughLinks) {
  // A sticky destination everyone may write in, as /tmp is, is accepted; links planted there are not followed.
  test::WriteFile(dir_ / "victim", "precious");
  fs::create_directories(dir_ / "dest/job");
  fs::permissions(dir_ / "dest", fs::perms(01777));
  fs::create_symlink(dir_ / "victim", dir_ / "dest/job/job-2026-11-23_210000-full.tar.gz");
  fs::create_directories(dir_ / "dest/job/job-2026-11-23_210000_2-full.tar.gz");

  // The names the run would take are already there.
  const auto outcome = tools::PerformBackup(Plan(dir_ / "dest", dir_ / "Snapshots"), kStart);
  ASSERT_TRUE(outcome.ok()) << outcome.errors[0];
  EXPECT_EQ(dir_ / "dest/job/job-2026-11-23_210000_3-full.tar.gz", outcome.archive);
  EXPECT_EQ("precious", test::ReadFile(dir_ / "victim"));
}

// A destination others can plant links in is refused, and so are the job's folder and the
// snapshot folder unless they are the service's own.
TEST_F(ArchiveFolderTest, FoldersOthersCanWriteInAreRefused) {
  // Per case: the folder changed, its mode, an owner or none, and the problem.
  const std::string plant = "; another user could plant links in it";
  const std::tuple<std::string, fs::perms, std::string, std::string> cases[] = {
      {"dest", fs::perms(0775), "", " is writable by other users (mode 0775) and not sticky" + plant},
      {"Snapshots", fs::perms(0777), "", " is writable by other users (mode 0777)"},
      {"dest", fs::perms(0755), "nobody", " belongs to another user (nobody), who could plant links in it"},
      {"dest/job", fs::perms(0700), "nobody", " belongs to nobody, not to this service's account (root)"},
  };
  int number = 0;
  for (const auto& [folder, mode, owner, problem] : cases) {
    if (!owner.empty() && !platform::RunningAsRoot()) GTEST_SKIP() << "giving a folder to another user needs root";
    const std::string base = dir_ / ("case" + std::to_string(++number));
    fs::create_directories(base + "/" + folder);
    fs::permissions(base + "/" + folder, mode);
    if (!owner.empty()) {
      const auto account = platform::LookUpAccount(owner);
      ASSERT_TRUE(account) << owner;
      ASSERT_EQ(0, ::chown((base + "/" + folder).c_str(), account->uid, account->gid));
    }
    const auto outcome = tools::PerformBackup(Plan(base + "/dest", base + "/Snapshots"), kStart);
    const auto written = std::ranges::count_if(fs::recursive_directory_iterator(base),
                                               [](const fs::directory_entry& file) { return file.is_regular_file(); });
    EXPECT_EQ(std::vector<std::string>{"The backup was not written: " + base + "/" + folder + problem + "."},
              outcome.errors)
        << folder;
    EXPECT_EQ(0, written) << folder << ": nothing is written";
  }
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
  std::strncpy(record.ut_user, "alice", sizeof record.ut_user);
  std::strncpy(record.ut_line, terminal + 5, sizeof record.ut_line);  // without "/dev/"
  ASSERT_NE(nullptr, ::pututxline(&record));
  ::endutxent();

  const std::string records = "TARNWICK_UTMP=" + (dir_ / "utmp");
  // The broadcast comes from the product under the name the settings give it.
  TWSettings(dir_ / "settings.db").General().Options().CustomProductName("Acme Backup");
  EXPECT_EQ("0 ", Said({"env", records, "TARNWICK_SETTINGS=" + (dir_ / "settings.db"), kBin + "/twmessage", "alice",
                        " Tape reminder\x14\x14Load tape 7\x14today"}));
  pollfd ready{master, POLLIN, 0};
  ASSERT_EQ(1, ::poll(&ready, 1, 2000));
  char buffer[1024] = {};
  std::string plain(buffer, static_cast<size_t>(::read(master, buffer, sizeof buffer)));
  std::erase(plain, '\r');
  EXPECT_NE(std::string::npos, plain.find("Broadcast message from Acme Backup on ")) << plain;
  EXPECT_NE(std::string::npos, plain.find(":\n\nTape reminder\n\nLoad tape 7\ntoday\n")) << plain;

  EXPECT_EQ(0u, Said({"env", records, kBin + "/twmessage", "bob", "hello"}).find("1 twmessage: bob is not logged in"));
  EXPECT_EQ("2 Usage: twmessage RECIPIENT TEXT\n", Said({kBin + "/twmessage", "alice"}));
  ::close(master);
  ::close(slave);
}

TEST_F(ToolsTest, EveryProgramHasHelpAndSaysItsVersion) {
  for (const std::string program : {"DesktopRights", "TWExecutor", "twprocess", "TWCam", "TWPrintOut", "twmessage"}) {
    EXPECT_EQ(0u, Said({kBin + "/" + program, "--help"}).find("0 Usage: ")) << program;
    EXPECT_EQ("0 " + program + " " + kVersion + "\n", Said({kBin + "/" + program, "--version"}));
  }
}

}  // namespace
}  // namespace tw
