#include "service/frmService.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "common/Error.h"
#include "platform/Accounts.h"
#include "tests/service/ServiceFakes.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class FrmServiceTest : public ::testing::Test {
 protected:
  // Setting the service up as root makes the default destination: here, not in /var/backups.
  FrmServiceTest() { host_.settings.Store().WriteText("general.default_destination", dir_ / "Archives"); }
  bool Installed() { return host_.settings.General().Options().ServiceInstalled(); }
  std::vector<std::string> Entries(int count) { return test::EntryLines(host_.logs, count); }

  test::TempDir dir_;
  ManualClock clock_{DateSerial(2026, 11, 23) + 0.5};
  platform::EventLoop loop_;
  test::RecordingPump pump_;
  ServiceHost host_{dir_.Path(), dir_ / "settings.db", clock_, loop_, pump_};
  test::FakeServiceControl control_;
  test::FakeDialog dialog_;
  std::ostringstream err_;
  frmService form_{host_, control_, dialog_, err_};
};

TEST_F(FrmServiceTest, SetupTakesTheAccountAfterOneSeparator) {
  // Only "-setup" is compared; the account text starts at the eighth character, the password may hold spaces.
  EXPECT_EQ(0, form_.Load("-setupX.\\backup pass word"));
  EXPECT_EQ((std::vector<std::string>{"Interactive(1)", "Account(.\\backup)", "Password(pass word)", "Install"}),
            control_.calls);
  control_.calls.clear();
  err_.str("");
  EXPECT_EQ(0, form_.Load("-setup"));
  EXPECT_EQ((std::vector<std::string>{"Interactive(1)", "Account()", "Password()", "Install"}), control_.calls);
  EXPECT_EQ("", err_.str()) << "only a password given draws the note that it is not used";
}

TEST_F(FrmServiceTest, AFailedSetupIsRetriedOnceUnlessOnlyTheInstalledServiceWouldBeLost) {
  control_.installResults = {false, true};
  control_.lastError = "systemctl daemon-reload failed: Access denied";
  EXPECT_EQ(0, form_.Load("-setup backup pw"));
  EXPECT_EQ((std::vector<std::string>{"Interactive(1)", "Account(.\\backup)", "Password(pw)", "Install", "StopService",
                                      "Uninstall", "Interactive(1)", "Account(.\\backup)", "Password(pw)", "Install"}),
            control_.calls);
  EXPECT_EQ((std::vector<std::string>{"sleep 4000", "pump", "sleep 2000", "pump"}), pump_.calls);
  EXPECT_TRUE(Installed());
  // The password given has no use under systemd, and a command line is there for every user to read.
  const std::string note = "TWService: note: the password is not used, since systemd starts services without one; "
                           "leave it out, as a command line can be read by every local user\n";
  EXPECT_TRUE(err_.str().starts_with(note + "TWService: installing failed (systemctl daemon-reload failed: Access "
                                            "denied); stopping wtarnwick"));

  err_.str("");
  control_.installResults = {false, false};
  EXPECT_EQ(1, form_.Load("-setup backup pw"));
  EXPECT_FALSE(Installed());
  EXPECT_TRUE(err_.str().ends_with("Tarnwick failed to install. Try uninstalling and re-installing Tarnwick and make "
                                   "sure you're logged on as root.\nReason: systemctl daemon-reload failed: Access "
                                   "denied\n"));

  // A unit that systemd refuses is not worth removing the installed one for.
  control_.calls.clear();
  control_.installResults = {false};
  control_.retryMayHelp = false;
  host_.settings.General().Options().ServiceInstalled(true);
  EXPECT_EQ(1, form_.Load("-setup backup pw"));
  EXPECT_EQ((std::vector<std::string>{"Interactive(1)", "Account(.\\backup)", "Password(pw)", "Install"}), control_.calls);
  EXPECT_TRUE(Installed()) << "the service installed before is still there";
}

TEST_F(FrmServiceTest, SetupAsRootGivesTheDataToTheServiceAccount) {
  const auto backup = platform::LookUpAccount("backup");
  if (!platform::RunningAsRoot() || !backup) GTEST_SKIP() << "needs root and the account \"backup\"";
  const auto ownerOf = [](const std::string& path) {
    struct stat info {};
    EXPECT_EQ(0, ::lstat(path.c_str(), &info)) << path;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", info.st_mode & 07777);
    return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid) + " " + mode;
  };
  const std::string account = std::to_string(backup->uid) + ":" + std::to_string(backup->gid) + " ";
  // An earlier run as root left its data; a link in the log folder leads to a file of root's.
  test::TempDir elsewhere;
  test::WriteFile(elsewhere / "secret", "");
  fs::create_directories(dir_ / "Logs/Attachments");
  fs::permissions(dir_ / "Logs", fs::perms::owner_all);
  fs::create_symlink(elsewhere / "secret", dir_ / "Logs/link");
  for (const char* path : {"Logs/Attachments/1.txt", "BackupLog-Nightly.txt", "TWService"}) {
    test::WriteFile(dir_ / path, "");
    fs::permissions(dir_ / path, fs::perms::owner_read | fs::perms::owner_write);
  }
  const std::string before = ownerOf(elsewhere / "secret");

  EXPECT_EQ(0, form_.Load("-setup backup")) << err_.str();
  EXPECT_EQ("", err_.str());
  EXPECT_EQ("0:" + std::to_string(backup->gid) + " 1770", ownerOf(dir_.Path()))
      << "the account adds files there but replaces none of root's";
  EXPECT_EQ("0:0 600", ownerOf(dir_ / "TWService"));
  for (const char* path : {"settings.db", "BackupLog-Nightly.txt", "Logs/Attachments/1.txt"}) {
    EXPECT_EQ(account + "600", ownerOf(dir_ / path)) << path;
  }
  EXPECT_EQ(account + "700", ownerOf(dir_ / "Logs"));
  EXPECT_EQ(account + "700", ownerOf(dir_ / "Archives"));
  EXPECT_EQ(before, ownerOf(elsewhere / "secret")) << "a link is not followed";
}

TEST_F(FrmServiceTest, UninstallReportsFailureUnlessQuiet) {
  host_.settings.General().Options().ServiceInstalled(true);
  EXPECT_EQ(0, form_.Load("-uninstall"));
  EXPECT_FALSE(Installed());
  control_.uninstallResult = false;
  host_.settings.General().Options().ServiceInstalled(true);
  EXPECT_EQ(1, form_.Load("-unsetup"));
  EXPECT_EQ("", err_.str());
  EXPECT_TRUE(Installed()) << "a failed removal leaves the flag as it was";
  EXPECT_EQ(1, form_.Load("-uninstall"));
  EXPECT_EQ("Tarnwick failed to uninstall. Please ensure the service has been stopped.\n", err_.str());
}

TEST_F(FrmServiceTest, TheServiceEventsLogAndSwitchThePollTimerOrLogWhyTheyCouldNot) {
  host_.settings.General().Options().CustomProductName("Acme Backup");
  std::vector<bool> timer;
  control_.onStart = [&](platform::IServiceControl::Events& events) {
    for (const auto& event : {events.start, events.pause, events.resume, events.stop}) {
      bool ok = false;
      event(ok);
      EXPECT_TRUE(ok);
      timer.push_back(form_.PollTimerEnabled());
    }
  };
  EXPECT_EQ(0, form_.Load("-debug"));
  EXPECT_EQ((std::vector<std::string>{"Debug(1)", "ControlsAccepted(2)", "StartService"}), control_.calls);
  EXPECT_EQ((std::vector<bool>{true, false, true, false}), timer);
  EXPECT_EQ("0 Acme Backup service stopping | The Acme Backup service has been instructed to stop", Entries(1)[0]);

  control_.calls.clear();
  EXPECT_EQ(0, form_.Load(""));
  EXPECT_EQ((std::vector<std::string>{"ControlsAccepted(2)", "StartService"}), control_.calls);

  // An event that fails logs its "unable to" entry instead.
  bool success = true;
  RunServiceEvent(host_.logging, {"Tarnwick service starting", "The Tarnwick service has been instructed to start",
                                  "Tarnwick service unable to start"},
                  [] { throw TWError(6, "Overflow", "TWService"); }, success);
  EXPECT_FALSE(success);
  EXPECT_EQ("2 Acme Backup service unable to start | Details: 6 / Overflow / TWService", Entries(2)[0]);
  EXPECT_TRUE(Entries(2)[1].starts_with("0 Acme Backup service starting | ")) << "the start is told first";
}

TEST_F(FrmServiceTest, TheDialogAsksAgainAfterAFailure) {
  // The custom product name names the dialog and its messages; a mismatch of the passwords is the terminal's test.
  host_.settings.General().Options().CustomProductName("Acme Backup");
  control_.installResults = {false};
  control_.lastError = "there is no account \"admin\" on this system";
  dialog_.answers = {{"admin", "pw", "pw"}};
  EXPECT_EQ(1, form_.Load("-install")) << "the administrator gave up";
  EXPECT_EQ((std::vector<std::string>{"Acme Backup Service Installation: ", "Acme Backup Service Installation: admin"}),
            dialog_.shown)
      << "shown again after a failure, the user name proposed empty at first: the system's default account";
  ASSERT_EQ(1u, dialog_.messages.size());
  EXPECT_TRUE(dialog_.messages[0].starts_with("! Acme Backup failed to install.\r\n"));
  EXPECT_TRUE(dialog_.messages[0].ends_with("\nReason: there is no account \"admin\" on this system"));
  EXPECT_FALSE(Installed());
  EXPECT_TRUE(Entries(1).empty()) << "a failed interactive install writes no log entry";
}

}  // namespace
}  // namespace tw
