#include "platform/ServiceControl.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/Process.h"
#include "tests/support/TestSupport.h"

namespace tw::platform {
namespace {

namespace fs = std::filesystem;

class ServiceControlTest : public ::testing::Test {
 protected:
  ServiceControlTest() {
    fs::create_directory(dir_ / "units");
    // A systemctl that records its arguments and answers as the test says.
    test::WriteFile(dir_ / "systemctl",
                    "#!/bin/sh\necho \"$@\" >> \"" + (dir_ / "calls") + "\"\n"
                    "if [ -f \"" + (dir_ / "fail") + "\" ]; then echo 'Failed to connect to bus' >&2; exit 1; fi\n");
    ::chmod((dir_ / "systemctl").c_str(), 0755);
  }
  UnitSettings Settings() {
    UnitSettings settings;
    settings.unitDirectory = dir_ / "units";
    settings.executable = TW_BIN_DIR "/TWService";
    settings.applicationFolder = "/opt/tarnwick";
    settings.environment = {{"TARNWICK_HOME", "/opt/tarnwick"}};
    settings.systemctl = dir_ / "systemctl";
    return settings;
  }
  std::string Unit() { return dir_ / "units/wtarnwick.service"; }

  test::TempDir dir_;
  EventLoop loop_;
};

TEST_F(ServiceControlTest, AccountsBecomeTheUnitsUser) {
  EXPECT_EQ("", SystemdServiceControl::UserFor(""));
  EXPECT_EQ("backup", SystemdServiceControl::UserFor(".\\backup"));
  EXPECT_EQ("backup@CORP", SystemdServiceControl::UserFor("CORP\\backup"));
  EXPECT_EQ("backup", SystemdServiceControl::UserFor("backup"));
}

TEST_F(ServiceControlTest, InstallWritesAVerifiedUnitAndEnablesIt) {
  SystemdServiceControl control(loop_, Settings());
  EXPECT_EQ("Tarnwick", control.DisplayName());
  control.Account(".\\backup");
  ASSERT_TRUE(control.Install()) << control.LastError();
  EXPECT_EQ(std::string("# The Tarnwick scheduling service, written by \"TWService -setup\" or \"TWService -install\" and\n"
                        "# removed by \"TWService -uninstall\".\n"
                        "[Unit]\n"
                        "Description=Tarnwick\n"
                        "After=network-online.target\n"
                        "Wants=network-online.target\n"
                        "\n"
                        "[Service]\n"
                        "Type=notify\n"
                        "ExecStart=") + TW_BIN_DIR "/TWService\n"
                        "WorkingDirectory=/opt/tarnwick\n"
                        "User=backup\n"
                        "Environment=\"TARNWICK_HOME=/opt/tarnwick\"\n"
                        "Restart=on-failure\n"
                        "RestartSec=10s\n"
                        "# Stopping the service stops its polling only: backups that are running finish on their own.\n"
                        "KillMode=process\n"
                        "TimeoutStopSec=30s\n"
                        "\n"
                        "[Install]\n"
                        "WantedBy=multi-user.target\n",
            test::ReadFile(Unit()));
  EXPECT_EQ("daemon-reload\nenable wtarnwick.service\n", test::ReadFile(dir_ / "calls"));

  const CommandResult verify = RunCommand({"systemd-analyze", "verify", Unit()});
  ASSERT_TRUE(verify.started) << verify.error;
  EXPECT_EQ(0, verify.exitCode) << verify.output;

  control.Account("");
  ASSERT_TRUE(control.Install());
  EXPECT_EQ(std::string::npos, test::ReadFile(Unit()).find("User=")) << "the default account is root";

  ASSERT_TRUE(control.Uninstall()) << control.LastError();
  EXPECT_FALSE(fs::exists(Unit()));
  EXPECT_EQ("daemon-reload\nenable wtarnwick.service\ndaemon-reload\nenable wtarnwick.service\n"
            "disable wtarnwick.service\ndaemon-reload\n",
            test::ReadFile(dir_ / "calls"));
  EXPECT_FALSE(control.Uninstall());
  EXPECT_EQ("the service is not installed: there is no " + Unit(), control.LastError());

  // The retry of "-setup" stops a running instance first, without waiting for it.
  control.StopService();
  EXPECT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "calls").ends_with("\nstop wtarnwick\n"); }))
      << test::ReadFile(dir_ / "calls");
}

TEST_F(ServiceControlTest, InstallFailsCleanlyAndSaysWhy) {
  SystemdServiceControl control(loop_, Settings());
  control.Account(".\\no-such-user-here");
  EXPECT_FALSE(control.Install());
  EXPECT_EQ("there is no account \"no-such-user-here\" on this system", control.LastError());
  EXPECT_FALSE(fs::exists(dir_ / "calls"));

  control.Account("");
  test::WriteFile(dir_ / "fail", "");
  EXPECT_FALSE(control.Install());
  EXPECT_EQ("systemctl daemon-reload failed: Failed to connect to bus", control.LastError());
  EXPECT_FALSE(fs::exists(Unit())) << "a failed installation leaves no unit behind";

  UnitSettings settings = Settings();
  settings.systemctl = dir_ / "nowhere/systemctl";
  SystemdServiceControl withoutSystemd(loop_, settings);
  EXPECT_FALSE(withoutSystemd.Install());
  EXPECT_EQ((dir_ / "nowhere/systemctl") + " was not found: installing the service needs systemd",
            withoutSystemd.LastError());
}

}  // namespace
}  // namespace tw::platform
