#include "platform/ServiceControl.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/Environment.h"
#include "tests/support/TestSupport.h"

namespace tw::platform {
namespace {

namespace fs = std::filesystem;

class ServiceControlTest : public ::testing::Test {
 protected:
  ServiceControlTest() {
    fs::create_directory(dir_ / "units");
    // A systemctl that records its arguments and answers as the test says.
    test::WriteScript(dir_ / "systemctl", "echo \"$@\" >> \"" + (dir_ / "calls") + "\"\nif [ -f \"" + (dir_ / "fail") +
                                              "\" ]; then echo 'Failed to connect to bus' >&2; exit 1; fi");
  }
  // An installation from the build folder, with the test's unit folder and systemctl.
  UnitSettings Settings() {
    UnitSettings settings = DefaultUnitSettings();
    settings.systemctl = dir_ / "systemctl";
    return settings;
  }
  std::string Unit() { return dir_ / "units/wtarnwick.service"; }

  test::TempDir dir_;
  const test::ScopedEnvironment environment_{{{"TARNWICK_UNIT_DIR", dir_ / "units"}}};
  EventLoop loop_;
};

TEST_F(ServiceControlTest, InstallWritesAVerifiedUnitAndEnablesIt) {
  SystemdServiceControl control(loop_, Settings());
  control.Account(".\\backup");
  EXPECT_EQ("backup@CORP", SystemdServiceControl::UserFor("CORP\\backup"));
  ASSERT_TRUE(control.Install()) << control.LastError();
  const std::string unit = test::ReadFile(Unit());
  EXPECT_NE(std::string::npos, unit.find("\n[Service]\nType=notify\nExecStart=" TW_BIN_DIR "/TWService\n"
                                         "WorkingDirectory=" TW_BIN_DIR "\nUser=backup\nRestart=on-failure\n"))
      << unit;
  EXPECT_EQ("daemon-reload\nenable wtarnwick.service\n", test::ReadFile(dir_ / "calls"));

  ASSERT_TRUE(control.Uninstall()) << control.LastError();
  EXPECT_FALSE(fs::exists(Unit()));
  EXPECT_TRUE(test::ReadFile(dir_ / "calls").ends_with("\ndisable wtarnwick.service\ndaemon-reload\n"));
  EXPECT_FALSE(control.Uninstall()) << "the service is not installed";

  // The retry of "-setup" stops a running instance first, without waiting for it.
  control.StopService();
  EXPECT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "calls").ends_with("\nstop wtarnwick\n"); }))
      << test::ReadFile(dir_ / "calls");
}

TEST_F(ServiceControlTest, PathsReachSystemdAsTheyAre) {
  // systemd expands "%" in every path, splits ExecStart at blanks, and refuses quotes, backslashes and
  // control characters in the program's own name, so such a program is started through the shell.
  const struct {
    std::string folder, execStart, workingDirectory;
  } cases[] = {
      {"Tarn %n wick", "\"" + (dir_ / "Tarn %%n wick/TWService\""), dir_ / "Tarn %%n wick"},
      {"it's \"here\"\t\\ $HOME", "/bin/sh -c \"exec \\\"$$0\\\"\" \"" + (dir_ / "it's \\\"here\\\"\\x09\\\\ $$HOME/TWService\""),
       dir_ / "it's \"here\"\t\\ $HOME"},
  };
  for (const auto& c : cases) {
    fs::create_directory(dir_ / c.folder);
    test::WriteScript(dir_ / c.folder + "/TWService", "");
    UnitSettings settings = Settings();
    settings.executable = dir_ / c.folder + "/TWService";
    settings.applicationFolder = dir_ / c.folder;
    SystemdServiceControl control(loop_, settings);
    ASSERT_TRUE(control.Install()) << c.folder << ": " << control.LastError();
    // Installing verified the unit with systemd.
    const std::string unit = test::ReadFile(Unit());
    EXPECT_NE(std::string::npos,
              unit.find("\nExecStart=" + c.execStart + "\nWorkingDirectory=" + c.workingDirectory + "\n"))
        << unit;
  }
}

TEST_F(ServiceControlTest, TheLoopPingsTheWatchdogOnlyWhileItRunsItsTimers) {
  // systemd's side: a notify socket of the test's own, and a watchdog period of 400 ms.
  test::DatagramReceiver notify(dir_ / "notify");
  const test::ScopedEnvironment environment(
      {{"NOTIFY_SOCKET", dir_ / "notify"}, {"WATCHDOG_USEC", "400000"}, {"WATCHDOG_PID", std::to_string(ProcessId())}});
  const auto pings = [&] {
    int count = 0;
    while (const auto datagram = notify.Receive(0)) count += *datagram == "WATCHDOG=1" ? 1 : 0;
    return count;
  };
  // One second of a free loop, then a handler that blocks it for a second.
  int free = -1, blocked = -1;
  const EventLoop::SourceId block = loop_.AddTimer(1000, [&] {
    loop_.TimerEnabled(block, false);
    free = pings();
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    blocked = pings();
  });
  loop_.TimerEnabled(block, true);
  loop_.TimerEnabled(loop_.AddTimer(2100, [&] { ::raise(SIGTERM); }), true);
  const auto done = [](bool& ok) { ok = true; };
  SystemdServiceControl(loop_, Settings()).StartService({done, done, [](bool&) {}, [](bool&) {}});

  EXPECT_GE(free, 3) << "a ping every 200 ms";
  EXPECT_LE(free, 6);
  EXPECT_EQ(0, blocked) << "a blocked loop sends nothing";
}

TEST_F(ServiceControlTest, AStopThatArrivesDuringTheStartIsServedOnceTheStartHasEnded) {
  SystemdServiceControl control(loop_, Settings());
  std::vector<std::string> events;
  // The start handler lets the loop run, as a log entry does, after the stop signal has come.
  control.StartService({[&](bool& ok) {
                          ::raise(SIGTERM);
                          loop_.Pump();
                          events.push_back("started");
                          ok = true;
                        },
                        [&](bool& ok) {
                          events.push_back("stopped");
                          ok = true;
                        },
                        [](bool&) {}, [](bool&) {}});
  // Returning at all is the point: the stop was not lost.
  EXPECT_EQ((std::vector<std::string>{"started", "stopped"}), events);
}

TEST_F(ServiceControlTest, InstallFailsCleanlyAndSaysWhy) {
  SystemdServiceControl control(loop_, Settings());
  test::WriteFile(dir_ / "fail", "");
  EXPECT_FALSE(control.Install());
  EXPECT_EQ("systemctl daemon-reload failed: Failed to connect to bus", control.LastError());
  EXPECT_TRUE(control.RetryMayHelp());
  EXPECT_FALSE(fs::exists(Unit())) << "a failed installation leaves no unit behind";

  // A working unit survives both a unit that systemd would refuse and a failed registration.
  test::WriteFile(Unit(), "[Service]\nExecStart=/bin/true\n");
  UnitSettings settings = Settings();
  settings.executable = dir_ / "nowhere/TWService";
  SystemdServiceControl refused(loop_, settings);
  EXPECT_FALSE(refused.Install());
  EXPECT_TRUE(refused.LastError().starts_with("systemd would not accept the unit: ")) << refused.LastError();
  EXPECT_FALSE(refused.RetryMayHelp()) << "removing the working unit would not make this one acceptable";
  EXPECT_FALSE(control.Install());
  EXPECT_EQ("[Service]\nExecStart=/bin/true\n", test::ReadFile(Unit()));
  EXPECT_EQ("daemon-reload\ndaemon-reload\n", test::ReadFile(dir_ / "calls"));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(dir_ / "units"), fs::directory_iterator()))
      << "nothing staged is left";

  settings.applicationFolder = dir_ / "two\nlines";
  SystemdServiceControl broken(loop_, settings);
  EXPECT_FALSE(broken.Install());
  EXPECT_TRUE(broken.LastError().ends_with("\": it has a line break")) << broken.LastError();
}

}  // namespace
}  // namespace tw::platform
