// The built service as an attacker and a careful administrator see it: the backup account's password,
// what the service leaves readable, and a pause sent to every process of the service during a backup.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "common/Date.h"
#include "platform/Accounts.h"
#include "platform/Process.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// Every process started from `folder`'s service, the detached executor too: all carry its TARNWICK_HOME.
std::vector<int> ProcessesOf(const std::string& folder) {
  const std::string grep = "grep -lzxF 'TARNWICK_HOME=" + folder + "' /proc/[0-9]*/environ 2>/dev/null";
  std::istringstream found(platform::RunCommand({"/bin/sh", "-c", grep}).output);
  std::vector<int> pids;
  for (std::string path; std::getline(found, path);) pids.push_back(std::stoi(path.substr(6)));
  return pids;
}

std::string Twctl(const std::string& folder, const std::string& arguments) {
  return platform::RunCommand({"/bin/sh", "-c", "TARNWICK_HOME='" + folder + "' " TW_BIN_DIR "/twctl " + arguments})
      .output;
}

void ExpectPrivate(const fs::path& path) {
  struct stat info {};
  ASSERT_EQ(0, ::lstat(path.c_str(), &info)) << path;
  EXPECT_EQ(S_ISDIR(info.st_mode) ? 0700u : 0600u, info.st_mode & 07777) << path;
  if (!S_ISDIR(info.st_mode)) return;
  for (const auto& entry : fs::directory_iterator(path)) ExpectPrivate(entry.path());
}

class SecurityTest : public test::ServiceFixture {};

TEST_F(SecurityTest, ABackupAccountsRunShowsOthersNothingAndOutlivesAPauseSentToEveryProcess) {
  if (!platform::RunningAsRoot()) GTEST_SKIP() << "switching to a backup account needs root";
  const std::string user = "twbackup" + std::to_string(::getpid() % 100000);
  const std::string password = "Pw-" + std::to_string(::getpid()) + "-only-in-the-store";
  ASSERT_EQ(0, platform::RunCommand({"useradd", "--no-create-home", "--shell", "/usr/sbin/nologin", user}).exitCode);
  struct RemoveUser {
    std::string name;
    ~RemoveUser() { platform::RunCommand({"userdel", name}); }
  } removeUser{user};
  ASSERT_EQ(0, platform::RunCommand({"/bin/sh", "-c", "echo '" + user + ":" + password + "' | chpasswd"}).exitCode);
  const auto account = platform::LookUpAccount(user);
  ASSERT_TRUE(account);

  // The account reaches the folder and copies of its programs, reads the sources (large enough that
  // tar and gzip are still at work while the test looks) and owns the destination; nothing else.
  fs::permissions(dir_.Path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  for (const char* program : {"DesktopRights", "TWExecutor"}) {
    fs::remove(dir_ / program);
    fs::copy_file(std::string(TW_BIN_DIR) + "/" + program, dir_ / program);
  }
  fs::create_directories(dir_ / "big");
  platform::RunCommand({"/bin/sh", "-c", "head -c 24000000 /dev/urandom > '" + (dir_ / "big/data.bin") + "'"});
  platform::RunCommand({"chmod", "-R", "a+rX", dir_ / "big"});
  fs::create_directory(dir_ / "dest");
  ASSERT_EQ(0, ::chown((dir_ / "dest").c_str(), account->uid, account->gid));
  ::chmod((dir_ / "dest").c_str(), 0700);
  auto identity = settings_.General().Identity();
  identity.IdentityValue1(user);
  identity.IdentityValue2(password);
  settings_.General().Options().DetailedLogging(true);
  settings_.General().Options().PrintSetting("office");
  settings_.Store().WriteInt("mail.port", 1);  // refused: the failed attempt leaves its transcript
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "big").JobNotification().PrintReport(true);

  // Another local user watches every process's arguments and environment; the pattern is in a file.
  test::TempDir watch;
  fs::permissions(watch.Path(), fs::perms::all);
  test::WriteFile(watch / "pattern", password + "\n");
  ::chmod((watch / "pattern").c_str(), 0644);
  test::ChildProcess watcher({"/usr/bin/setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "/bin/sh", "-c",
                              "cd /proc; while :; do grep -l -a -F -f '" + (watch / "pattern") +
                                  "' [0-9]*/cmdline [0-9]*/environ >> '" + (watch / "seen") +
                                  "' 2>/dev/null; grep -l -a 'TWExecuto[r]' [0-9]*/cmdline >> '" +
                                  (watch / "executors") + "' 2>/dev/null; done"});
  const mode_t saved = ::umask(0);
  Start("2026-11-23 21:00:05 x3");
  ::umask(saved);
  ASSERT_TRUE(test::WaitUntil([&] {
    for (int pid : ProcessesOf(dir_.Path())) {
      if (test::ReadFile("/proc/" + std::to_string(pid) + "/comm") == "gzip\n") return true;
    }
    return false;
  }, 30000)) << "the run is under way";
  // As "systemctl kill -s SIGUSR1" without --kill-whom=main: every process, again and again.
  size_t most = 0;
  ASSERT_TRUE(test::WaitUntil([&] {
    const auto pids = ProcessesOf(dir_.Path());
    most = std::max(most, pids.size());
    for (int pid : pids) ::kill(pid, SIGUSR1);
    return !Reports().empty();
  }, 60000)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  EXPECT_GE(most, 3u) << "the service, the executor and tar were reached";
  EXPECT_EQ(0, Reports()[0].Status) << Reports()[0].Report;

  // The console's pause and continue reach the main process; a second service on the folder refuses.
  Twctl(dir_.Path(), "service pause");
  ASSERT_TRUE(test::WaitUntil([&] { return Titles(1) == std::vector<std::string>{"Tarnwick service pausing"}; }));
  Twctl(dir_.Path(), "service continue");
  ASSERT_TRUE(test::WaitUntil([&] { return Titles(1) == std::vector<std::string>{"Tarnwick service continuing"}; }));
  test::ChildProcess second({dir_ / "TWService", "-debug"}, {"TARNWICK_HOME=" + dir_.Path()}, dir_ / "second.out");
  EXPECT_EQ(1, second.Wait(10000));
  EXPECT_NE(std::string::npos, test::ReadFile(dir_ / "second.out").find(") is running on the application folder"));
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir_ / "Mail") && !fs::is_empty(dir_ / "Mail"); }, 20000));
  Stop();
  watcher.Signal(SIGKILL);

  EXPECT_FALSE(test::ReadFile(watch / "executors").empty()) << "the watcher saw the executor at work";
  EXPECT_EQ("", test::ReadFile(watch / "seen")) << "the password was visible in these processes";
  // The run's archive was written by the backup account.
  struct stat info {};
  ASSERT_EQ(0, ::stat(fs::directory_iterator(dir_ / "dest/Nightly")->path().c_str(), &info));
  EXPECT_EQ(account->uid, info.st_uid);
  // Under an open umask, every folder and file the service and its helpers made is private.
  for (const char* made : {"Logs", "Reports", "Mail", "Spool", "Snapshots", "dest", "TWService.lock"}) {
    ExpectPrivate(dir_ / made);
  }
  // Nothing the service wrote holds the password, in UTF-8 or in UTF-16: only the settings do.
  std::string utf16;
  for (char c : password) utf16 += std::string{c, '\0'};
  for (const auto& file : fs::recursive_directory_iterator(dir_.Path())) {
    if (!file.is_regular_file() || file.path().filename().string().starts_with("settings.db")) continue;
    const std::string content = test::ReadFile(file.path());
    EXPECT_EQ(std::string::npos, content.find(password)) << file.path();
    EXPECT_EQ(std::string::npos, content.find(utf16)) << file.path();
  }
}

}  // namespace
}  // namespace tw
