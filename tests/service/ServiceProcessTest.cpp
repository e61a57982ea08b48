// The built TWService, run as a separate process in a temporary application folder.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "settings/TWSettings.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class ServiceProcessTest : public ::testing::Test {
 protected:
  bool NewestTitleIs(const std::string& title) {
    return test::WaitUntil([&] { return test::LogTitles(dir_.Path(), 1) == std::vector<std::string>{title}; });
  }
  std::vector<std::string> Environment() {
    return {"TARNWICK_HOME=" + dir_.Path(), "TARNWICK_SYSLOG_SOCKET=" + (dir_ / "none")};
  }
  // With a unit folder and a stand-in systemctl, outside the application folder.
  std::vector<std::string> InstallEnvironment() {
    fs::create_directory(system_ / "units");
    test::WriteScript(system_ / "systemctl", "exit 0\n");
    auto environment = Environment();
    environment.push_back("TARNWICK_UNIT_DIR=" + (system_ / "units"));
    environment.push_back("PATH=" + system_.Path() + ":/usr/bin:/bin");
    return environment;
  }

  test::TempDir dir_;
  test::TempDir system_;
};

// In -debug mode every entry is echoed to standard error, and Ctrl-C stops the service.
TEST_F(ServiceProcessTest, RealSignalsPauseContinueAndStopTheServiceInDebugMode) {
  test::DatagramReceiver notify(dir_ / "notify");
  auto environment = Environment();
  environment.push_back("NOTIFY_SOCKET=" + (dir_ / "notify"));
  test::ChildProcess service({TW_BIN_DIR "/TWService", "-debug"}, environment, dir_ / "out");

  EXPECT_EQ("READY=1\nSTATUS=Running", notify.Receive(5000).value_or(""));
  ASSERT_TRUE(NewestTitleIs("Tarnwick service starting"));
  service.Signal(SIGUSR1);
  ASSERT_TRUE(NewestTitleIs("Tarnwick service pausing"));
  EXPECT_EQ("STATUS=Paused", notify.Receive().value_or(""));
  service.Signal(SIGUSR2);
  ASSERT_TRUE(NewestTitleIs("Tarnwick service continuing"));
  EXPECT_EQ("STATUS=Running", notify.Receive().value_or(""));
  service.Signal(SIGINT);
  EXPECT_EQ(0, service.Wait());
  EXPECT_EQ("STOPPING=1", notify.Receive().value_or(""));
  const std::string out = test::ReadFile(dir_ / "out");
  EXPECT_NE(std::string::npos, out.find("  info     Tarnwick service starting\n"
                                        "    The Tarnwick service has been instructed to start\n"));
}

TEST_F(ServiceProcessTest, TheInstallationDialogRunsOnATerminal) {
  // Installing as root makes the default destination: here, not in /var/backups.
  TWSettings(dir_ / "settings.db").Store().WriteText("general.default_destination", dir_ / "Archives");
  test::PtySession dialog({TW_BIN_DIR "/TWService", "-install"}, InstallEnvironment());
  // Each prompt and what is typed there; after a mismatch the passwords are asked for again.
  const std::pair<const char*, const char*> steps[] = {
      {"User Name: [root] ", "backup\n"},    {"Password: ", "first-try\n"},
      {"Confirm Password: ", "First-try\n"}, {"The passwords entered do not match.", ""},
      {"Password: ", "second-try\n"},        {"Confirm Password: ", "second-try\n"}};
  for (const auto& [prompt, typed] : steps) {
    ASSERT_TRUE(dialog.WaitFor(prompt)) << dialog.Output();
    dialog.Type(typed);
  }
  ASSERT_TRUE(dialog.WaitFor("Tarnwick installed successfully")) << dialog.Output();
  EXPECT_EQ(0, dialog.Wait());
  EXPECT_EQ(std::string::npos, dialog.Output().find("try")) << "passwords are not echoed";
  EXPECT_EQ(std::string::npos, dialog.Output().find("User Name: [root] backup\r\n\r\nTarnwick Service"))
      << "a mismatch asks for the passwords only";

  EXPECT_NE(std::string::npos, test::ReadFile(system_ / "units/wtarnwick.service").find("\nUser=backup\n"));
}

TEST_F(ServiceProcessTest, ModesThatEndAtOnceMakeOnlyWhatTheyNeed) {
  const auto environment = InstallEnvironment();
  test::WriteFile(system_ / "units/wtarnwick.service", "[Service]\n");
  // Only the exact switches are known. Removing needs no settings file: without one, nothing is installed.
  const std::pair<const char*, int> modes[] = {{"-frob", 2},  {"--help", 2},   {"-INSTALL", 2},  {"-install2", 2},
                                               {"-Debug", 2}, {"-unsetup", 0}, {"-uninstall", 1}};
  for (const auto& [mode, status] : modes) {
    test::ChildProcess program({TW_BIN_DIR "/TWService", mode}, environment, system_ / "out");
    EXPECT_EQ(status, program.Wait()) << mode << ": " << test::ReadFile(system_ / "out");
    EXPECT_EQ(status == 2,
              test::ReadFile(system_ / "out").starts_with("Tarnwick Monitor Service: Invalid command option."))
        << mode;
    EXPECT_TRUE(fs::is_empty(dir_.Path())) << mode;
  }
}

}  // namespace
}  // namespace tw
