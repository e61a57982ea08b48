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

#include "common/Version.h"
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

// A program's exit status and what it said, in one text: "2 1326\r\n".
std::string Said(const std::vector<std::string>& argv) {
  const auto result = platform::RunCommand(argv);
  return std::to_string(result.exitCode) + " " + result.output;
}

class ToolsTest : public ::testing::Test {
 protected:
  void Script(const std::string& path, const std::string& body) {
    test::WriteFile(path, "#!/bin/sh\n" + body + "\n");
    ::chmod(path.c_str(), 0755);
  }
  std::string Rights(const std::vector<std::string>& args) {
    std::vector<std::string> argv{kBin + "/DesktopRights"};
    argv.insert(argv.end(), args.begin(), args.end());
    return Said(argv);
  }

  test::TempDir dir_;
};

TEST_F(ToolsTest, TheRightsLauncherAnswersWithItsExitStatusAndANumber) {
  EXPECT_EQ(0u, Rights({"a", "b", "c"}).find("1 Usage: "));
  EXPECT_EQ("2 1326\r\n", Rights({"no-such-user-here", "", "", "/bin/true"}));
  EXPECT_EQ("2 2\r\n", Rights({"", "", "", dir_ / "nothing"}));

  // A program that says it has started: the launcher returns while it still runs.
  Script(dir_ / "ready", "printf R >&\"$TARNWICK_READY_FD\"; sleep 5");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ("255 ", Rights({"", "", "", dir_ / "ready", "logging"}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  // One that ends without saying so: what it said on the way is passed on after the number.
  Script(dir_ / "quiet", "echo 'no marker waits' >&2; exit 0");
  EXPECT_EQ("2 1067\r\nno marker waits\r\n", Rights({"", "", "", dir_ / "quiet"}));

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
  EXPECT_EQ("255 ", Rights({"nobody", "", "", dir_ / "whoami"}));
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
  EXPECT_EQ("1 TWCam: no X display (DISPLAY is not set)\n",
            Said({"env", "-u", "DISPLAY", "TARNWICK_SCREENSHOT=" + (dir_ / "shot.png"), kBin + "/TWCam"}));
  EXPECT_FALSE(fs::exists(dir_ / "shot.png"));
}

TEST_F(ToolsTest, ThePrintOutSendsEachRequestToTheQueueAndKeepsFailures) {
  fs::create_directory(dir_ / "bin");
  Script(dir_ / "bin/lp", "echo \"$@\" >> \"" + (dir_ / "lp-calls") + "\"; cat \"$6\" >> \"" + (dir_ / "printed") +
                              "\"; [ ! -f \"" + (dir_ / "lp-fails") + "\" ]");
  const test::ScopedEnvironment path({{"PATH", (dir_ / "bin") + ":" + getenv("PATH")}});
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
}

// Every regular file under `folder` (none when it does not exist).
std::vector<std::string> FilesUnder(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    if (it->is_regular_file()) files.push_back(it->path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

class ArchiveFolderTest : public ToolsTest {
 protected:
  ArchiveFolderTest() {
    fs::create_directory(dir_ / "src");
    test::WriteFile(dir_ / "src/a", "a");
  }
  // A full run of job "job" from dir_/src into `destination`, its snapshots in `snapshots`.
  tools::BackupPlan Plan(const std::string& destination, const std::string& snapshots) {
    tools::BackupPlan plan;
    plan.jobName = "Job";
    plan.backupLogId = "job";
    plan.sources = {dir_ / "src"};
    plan.destination = destination;
    plan.snapshotFolder = snapshots;
    return plan;
  }
  tools::BackupOutcome Backup(const std::string& destination, const std::string& snapshots) {
    return tools::PerformBackup(Plan(destination, snapshots), kStart);
  }
  const Date kStart = DateSerial(2026, 11, 23) + 0.875;
};

TEST_F(ArchiveFolderTest, ATapeIsWoundAndEjectedAroundTheArchive) {
  fs::create_directory(dir_ / "bin");
  Script(dir_ / "bin/mt", "echo \"$@\" >> \"" + (dir_ / "mt-calls") + "\"");
  const test::ScopedEnvironment path({{"PATH", (dir_ / "bin") + ":" + getenv("PATH")}});
  tools::BackupPlan plan = Plan("/dev/null", dir_ / "Snapshots");  // a character device, as a tape drive is
  plan.mode = 1;
  plan.eject = true;
  const auto outcome = tools::PerformBackup(plan, kStart);
  EXPECT_TRUE(outcome.ok()) << (outcome.errors.empty() ? "" : outcome.errors[0]);
  EXPECT_TRUE(outcome.tape);
  EXPECT_EQ("-f /dev/null eod\n-f /dev/null offline\n", test::ReadFile(dir_ / "mt-calls"));
  EXPECT_EQ(1, outcome.files);

  EXPECT_EQ("Tarnwick backup report\r\n"
            "Job: Job\r\n"
            "Computer: \r\n"
            "Started: 2026-11-23 21:00:00\r\n"
            "Finished: 2026-11-23 23:00:01\r\n"
            "Duration: 02:00:01\r\n"
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
            tools::ComposeReport(plan, outcome, kStart, kStart + 7201.0 / 86400));

  plan.sources.clear();
  EXPECT_EQ(std::vector<std::string>{"The job has no sources to back up (twctl job set Job --source PATH)."},
            tools::PerformBackup(plan, 0).errors);
}

TEST_F(ArchiveFolderTest, ArchivesTakeFreshNamesAndAreNeverWrittenThroughLinks) {
  // A file of another user that links in the destination point at.
  test::WriteFile(dir_ / "victim", "precious");
  const auto nobody = platform::LookUpAccount("nobody");
  if (platform::RunningAsRoot() && nobody) {
    ASSERT_EQ(0, ::chown((dir_ / "victim").c_str(), nobody->uid, nobody->gid));
  }
  struct stat before {};
  ::stat((dir_ / "victim").c_str(), &before);
  fs::create_directories(dir_ / "dest/job");
  fs::create_symlink(dir_ / "victim", dir_ / "dest/job/job-2026-11-23_210000-full.tar.gz");
  fs::create_directories(dir_ / "dest/job/job-2026-11-23_210000_2-full.tar.gz");

  // Two runs within the same second, the names they would take already planted.
  const auto first = Backup(dir_ / "dest", dir_ / "Snapshots");
  const auto second = Backup(dir_ / "dest", dir_ / "Snapshots");
  ASSERT_TRUE(first.ok()) << first.errors[0];
  ASSERT_TRUE(second.ok()) << second.errors[0];
  EXPECT_EQ(dir_ / "dest/job/job-2026-11-23_210000_3-full.tar.gz", first.archive);
  EXPECT_EQ(dir_ / "dest/job/job-2026-11-23_210000_4-full.tar.gz", second.archive);
  for (const auto& archive : {first.archive, second.archive}) {
    const auto listing = platform::RunCommand({"tar", "-tzf", archive});
    EXPECT_NE(std::string::npos, listing.output.find((dir_ / "src/a\n").substr(1))) << listing.output;
  }
  struct stat after {};
  ::stat((dir_ / "victim").c_str(), &after);
  EXPECT_EQ("precious", test::ReadFile(dir_ / "victim"));
  EXPECT_EQ(before.st_uid, after.st_uid);

  // A link at the job's folder is refused, and nothing is written where it leads.
  fs::create_directories(dir_ / "dest2");
  fs::create_directories(dir_ / "elsewhere");
  fs::create_symlink(dir_ / "elsewhere", dir_ / "dest2/job");
  const auto linked = Backup(dir_ / "dest2", dir_ / "Snapshots");
  EXPECT_EQ(std::vector<std::string>{"The backup was not written: " + (dir_ / "dest2/job") + " is a symbolic link."},
            linked.errors);
  EXPECT_TRUE(fs::is_empty(dir_ / "elsewhere"));
}

// A destination others can plant links in is refused, and so are the job's folder and the
// snapshot folder unless they are the service's own.
TEST_F(ArchiveFolderTest, FoldersOthersCanWriteInAreRefused) {
  struct Case {
    std::string folder;  // which folder of the case to change
    fs::perms mode;
    std::string owner;    // an account to give it to, or none
    std::string problem;  // after the folder's path; empty: the run succeeds
  };
  const std::string plant = "; another user could plant links in it";
  const Case cases[] = {
      {"dest", fs::perms(0777), "", " is writable by other users (mode 0777) and not sticky" + plant},
      {"dest", fs::perms(0775), "", " is writable by other users (mode 0775) and not sticky" + plant},
      {"dest", fs::perms(01777), "", ""},
      {"Snapshots", fs::perms(0777), "", " is writable by other users (mode 0777)"},
      // These need a second account to own the folder.
      {"dest", fs::perms(0755), "nobody", " belongs to another user (nobody), who could plant links in it"},
      {"dest/job", fs::perms(0700), "nobody", " belongs to nobody, not to this service's account (root)"},
      {"dest", fs::perms(01777), "nobody", " belongs to another user (nobody), who could plant links in it"},
  };
  int number = 0;
  for (const auto& c : cases) {
    if (!c.owner.empty() && !platform::RunningAsRoot()) GTEST_SKIP() << "giving a folder to another user needs root";
    const std::string base = dir_ / ("case" + std::to_string(++number));
    fs::create_directories(base + "/" + c.folder);
    fs::permissions(base + "/" + c.folder, c.mode);
    if (!c.owner.empty()) {
      const auto account = platform::LookUpAccount(c.owner);
      ASSERT_TRUE(account) << c.owner;
      ASSERT_EQ(0, ::chown((base + "/" + c.folder).c_str(), account->uid, account->gid));
    }
    const auto outcome = Backup(base + "/dest", base + "/Snapshots");
    if (c.problem.empty()) {
      EXPECT_TRUE(outcome.ok()) << c.folder << ": " << outcome.errors[0];
      EXPECT_EQ(1u, FilesUnder(base + "/dest").size());
      continue;
    }
    EXPECT_EQ(std::vector<std::string>{"The backup was not written: " + base + "/" + c.folder + c.problem + "."},
              outcome.errors)
        << c.folder;
    EXPECT_EQ(std::vector<std::string>{}, FilesUnder(base)) << c.folder << ": nothing is written";
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
  record.ut_pid = ::getpid();
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

  EXPECT_EQ("1 twmessage: bob is not logged in on a terminal here\n",
            Said({"env", records, kBin + "/twmessage", "bob", "hello"}));
  EXPECT_EQ("2 Usage: twmessage RECIPIENT TEXT\n", Said({kBin + "/twmessage", "alice"}));
  ::close(master);
  ::close(slave);
}

TEST_F(ToolsTest, EveryProgramHasHelpAndSaysItsVersion) {
  for (const std::string program : {"DesktopRights", "TWExecutor", "twprocess", "TWCam", "TWPrintOut", "twmessage"}) {
    EXPECT_EQ(0u, Said({kBin + "/" + program, "--help"}).find("0 Usage: ")) << program;
    EXPECT_EQ("0 " + program + " " + kVersion + "\n", Said({kBin + "/" + program, "--version"}));
  }
  // The service's switches take one dash; it understands the usual two as well.
  EXPECT_EQ("0 TWService " + std::string(kVersion) + "\n", Said({kBin + "/TWService", "-version"}));
  EXPECT_EQ("0 TWService " + std::string(kVersion) + "\n", Said({kBin + "/TWService", "--version"}));
  EXPECT_EQ("0 twctl " + std::string(kVersion) + "\n", Said({kBin + "/twctl", "--version"}));
}

}  // namespace
}  // namespace tw
