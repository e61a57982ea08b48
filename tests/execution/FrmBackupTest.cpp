#include "execution/frmBackup.h"

#include <gtest/gtest.h>

#include "common/Utf16.h"
#include "tests/execution/ExecutionFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class FrmBackupTest : public test::ExecutionFixture {
 protected:
  FrmBackupTest() {
    form_.BackupComplete = [this](const RunningJob& record) { completions_.push_back(record); };
    record_->BackupTimeout = 60;
  }
  void Start() { form_.DoBackup(record_, job_); }
  std::string Marker() { return dir_ / "BackupLog-nightly.txt"; }
  // The stand-in's command line, as the shell recorded it.
  std::string ComLine() { return form_.Shell().ComLine(); }

  clsCurrentJobManager manager_{clock_};
  clsJob job_ = settings_.General().AddJob("Nightly", "nightly");
  RunningJob record_ = manager_.AddJob(job_);
  frmBackup form_{host_};
  std::vector<RunningJob> completions_;
};

TEST_F(FrmBackupTest, AStartedExecutorIsWatchedUntilItsStatusChanges) {
  settings_.General().Options().DetailedLogging(true);
  settings_.General().Identity().IdentityValue1("back\\up");
  settings_.General().Identity().IdentityValue2("pa\"ss");
  job_.RunStatus(1);  // the last run's status, still there
  // The rights launcher: the executor sets -2 before it returns.
  Script("DesktopRights", "cat > '" + (dir_ / "stdin") + "'; sleep 0.3; sqlite3 '" + (dir_ / "settings.db") +
                              "' 'UPDATE jobs SET run_status = -2'; echo launched; exit 255");
  Start();
  EXPECT_TRUE(form_.PollTimerEnabled());
  // The password travels on standard input; its place on the command line holds "-". The executor
  // is told its run, which the marker names.
  const std::string start = "DesktopRights \"back\\\\up\" \"-\" \"\" \"" + dir_.Path() +
                            "/TWExecutor\" --backup-log-id \"nightly\" --run ";
  ASSERT_EQ(0u, ComLine().rfind(start, 0)) << ComLine();
  ASSERT_TRUE(ComLine().ends_with(" logging"));
  const std::string run = ComLine().substr(start.size(), ComLine().size() - start.size() - 8);
  EXPECT_EQ(Utf16FileBytes("Tarnwick run " + run + "\r\n"), test::ReadFile(Marker()));
  EXPECT_EQ(Marker(), record_->MarkerPath);
  form_.tmrPoll_Timer();
  EXPECT_TRUE(completions_.empty()) << "a stale status must not end the run while the launcher runs";

  ASSERT_TRUE(LoopUntil([&] { return !form_.Shell().Busy(); }));
  EXPECT_EQ("pa\"ss", test::ReadFile(dir_ / "stdin"));
  form_.tmrPoll_Timer();
  EXPECT_TRUE(completions_.empty()) << "the executor is still running";
  // The executor finishes: report first, status last.
  ASSERT_TRUE(WriteUnicodeFile(Marker(), "Tarnwick backup report\r\nFiles backed up: 3\r\nResult: Backup completed normally.\r\n"));
  job_.RunStatus(1);
  form_.tmrPoll_Timer();
  ASSERT_EQ(1u, completions_.size());
  EXPECT_EQ(1, completions_[0]->Status);
  EXPECT_EQ("Tarnwick backup report\r\nFiles backed up: 3\r\nResult: Backup completed normally.\r\n",
            completions_[0]->BackupReport);
  EXPECT_GT(completions_[0]->BackupEndTime, 0);
  EXPECT_TRUE(fs::exists(Marker())) << "kept until the run's report log is written";
  EXPECT_FALSE(form_.PollTimerEnabled());
  form_.tmrPoll_Timer();
  EXPECT_EQ(1u, completions_.size()) << "BackupComplete comes once per run";

  const auto entries = Logs(2);
  EXPECT_EQ("DesktopRights finished executing", entries[0].Title);
  EXPECT_EQ("Returned from the desktop rights program successfully.", entries[0].Message);
  EXPECT_EQ("DesktopRights", entries[1].Title);
  EXPECT_EQ(3, entries[1].LogType);
  EXPECT_EQ(ComLine(), entries[1].Message);
  EXPECT_EQ("0\r\n\r\n", entries[1].Attachment) << "the start result and the output so far";
}

TEST_F(FrmBackupTest, EachRightsLauncherAnswerEndsTheRunWithItsReport) {
  // The explanations name the product by its custom name; the help page keeps its own address.
  settings_.General().Options().CustomProductName("Acme Backup");
  settings_.Store().WriteText("deployment.auth_troubleshooting_page", "https://example.net/Tarnwick");
  struct Case {
    std::string script;
    std::string title;
    std::string report;
  };
  const Case cases[] = {
      {"exit 1", "Error #00102 - Unable to launch Backup executor due to incorrect arguments.",
       "Unable to launch Backup executor due to incorrect arguments. The backup could not be performed because the "
       "Backup Executor could not be started. Please report this to support@tarnwick.example."},
      {"echo 5; exit 5", "Error #00106 - Error launching backup",
       "An error occured whilst launching the backup. Please read the report below to take corrective action.\r\n\r\n"
       "Unrecognized error\r\n------------------\r\nAn unrecognized user authentication error has occurred.\r\n"
       "Error number 5 at location 106\r\n\r\n"},
      {"printf '1326\\r\\n'; exit 2", "Error #00106 - Error launching backup",
       "An error occured whilst launching the backup. Please read the report below to take corrective action.\r\n\r\n"
       "Incorrect password/username/domain (Error 1326)\r\n-----------------------------------------------\r\n"
       "The username/password combination entered in the Backup User Identity settings (Acme Backup Administration "
       "Console -> View -> Navigator -> Settings) is incorrect.  Please check that these fields have the correct "
       "details and that the account they refer to has not been changed or deleted.\r\n\r\n"
       "Please visit https://example.net/Tarnwick for more details on how to correct this.\r\n\r\n"},
      // What the executor printed before it ended follows the number, and ends the report.
      {"printf '1067\\r\\nTWExecutor: no marker\\n'; exit 2", "Error #00106 - Error launching backup",
       "An error occured whilst launching the backup. Please read the report below to take corrective action.\r\n\r\n"},
  };
  for (const auto& c : cases) {
    completions_.clear();
    Script("DesktopRights", c.script);
    Start();
    ASSERT_TRUE(LoopUntil([&] { return !completions_.empty(); })) << c.script;
    EXPECT_EQ(2, completions_[0]->Status);
    EXPECT_EQ(0u, completions_[0]->BackupReport.find(c.report)) << completions_[0]->BackupReport;
    const bool said = c.script.find("no marker") != std::string::npos;
    EXPECT_EQ(said, completions_[0]->BackupReport.ends_with("\r\n\r\nTWExecutor: no marker")) << c.script;
    EXPECT_EQ(c.title, Logs(1)[0].Title);
    EXPECT_FALSE(fs::exists(Marker())) << c.script;
    EXPECT_FALSE(form_.PollTimerEnabled());
  }
  // Without detailed logging the detail entries are not written at all.
  for (const auto& entry : Logs(20)) EXPECT_NE(3, entry.LogType) << entry.Title;

  completions_.clear();
  fs::remove(dir_ / "DesktopRights");
  Start();
  ASSERT_EQ(1u, completions_.size()) << "a launcher that is not there ends the run at once";
  EXPECT_EQ(2, completions_[0]->Status);
  EXPECT_EQ("Unable to launch backup executor.", completions_[0]->BackupReport);
  EXPECT_EQ("Error #00101 - Unable to launch Backup executor (Code -1)", Logs(1)[0].Title);
  EXPECT_EQ("Error #00101 has occurred. Please check the description of this error for more details.\r\n\r\n"
            "Description: The backup could not be performed because the Backup Executor could not be started. The "
            "file DesktopRights.exe appears to be missing. Please reinstall Acme Backup to correct this error.",
            Logs(1)[0].Message);
  EXPECT_FALSE(fs::exists(Marker()));
}

}  // namespace
}  // namespace tw
