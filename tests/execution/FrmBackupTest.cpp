#include "execution/frmBackup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/Utf16.h"
#include "logging/clsAuthMessages.h"
#include "platform/Accounts.h"
#include "tests/execution/ExecutionFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class FrmBackupTest : public test::ExecutionFixture {
 protected:
  FrmBackupTest() {
    form_.BackupComplete = [this](const RunningJob& record) { completions_.push_back(record); };
  }
  bool Start() { return form_.DoBackup(record_, job_); }
  std::string Marker() { return dir_ / "BackupLog-nightly.txt"; }
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
  EXPECT_TRUE(Start());
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
  const std::string report = "Tarnwick backup report\r\nResult: Backup completed normally.\r\n";
  ASSERT_TRUE(WriteUnicodeFile(Marker(), report));
  job_.RunStatus(1);
  form_.tmrPoll_Timer();
  ASSERT_EQ(1u, completions_.size());
  EXPECT_EQ(1, completions_[0]->Status);
  EXPECT_EQ(report, completions_[0]->BackupReport);
  EXPECT_GT(completions_[0]->BackupEndTime, 0);
  EXPECT_TRUE(fs::exists(Marker())) << "kept until the run's report log is written";
  EXPECT_FALSE(form_.PollTimerEnabled());
  form_.tmrPoll_Timer();
  EXPECT_EQ(1u, completions_.size()) << "BackupComplete comes once per run";

  // Nothing else was logged: no warning about the marker, which was written.
  const auto entries = Logs(10);
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ("DesktopRights finished executing", entries[0].Title);
  EXPECT_EQ(3, entries[1].LogType);
  EXPECT_EQ(ComLine(), entries[1].Message);
  EXPECT_EQ("0\r\n\r\n", entries[1].Attachment) << "the start result and the output so far";
}

TEST_F(FrmBackupTest, EachRightsLauncherAnswerEndsTheRunWithItsReport) {
  // The explanations name the product by its custom name.
  settings_.General().Options().CustomProductName("Acme Backup");
  // As root the executor runs as the backup account, which is given the files it must reach.
  settings_.General().Identity().IdentityValue1("nobody");
  // The explanation of a logon error number, as the administrator reads it.
  const auto explained = [&](int number) {
    return "An error occured whilst launching the backup. Please read the report below to take corrective "
           "action.\r\n\r\n" +
           clsAuthMessages(settings_, "Acme Backup").GetMessage(number, 106);
  };
  // The launcher's answer, the run's report and the error logged.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"exit 1",
       "Unable to launch Backup executor due to incorrect arguments. The backup could not be performed because the "
       "Backup Executor could not be started. Please report this to support@tarnwick.example.",
       "Error #00102 - Unable to launch Backup executor due to incorrect arguments."},
      {"printf '1326\\r\\n'; exit 2", explained(1326), "Error #00106 - Error launching backup"},
      // Any other answer is an error too; what the executor printed before it ended follows the number.
      {"printf '1067\\nTWExecutor: no marker\\n'; exit 5", explained(1067) + "\r\n\r\nTWExecutor: no marker",
       "Error #00106 - Error launching backup"},
      // No launcher at all.
      {"", "Unable to launch backup executor.", "Error #00101 - Unable to launch Backup executor (Code -1)"},
  };
  for (const auto& [answer, report, error] : cases) {
    completions_.clear();
    Script("DesktopRights", answer);
    if (answer.empty()) fs::remove(dir_ / "DesktopRights");
    EXPECT_TRUE(Start());
    ASSERT_TRUE(LoopUntil([&] { return !completions_.empty(); })) << answer;
    EXPECT_EQ(2, completions_[0]->Status);
    EXPECT_EQ(report, completions_[0]->BackupReport);
    EXPECT_EQ(error, Logs(1)[0].Title);
    EXPECT_FALSE(fs::exists(Marker())) << answer;
    EXPECT_FALSE(form_.PollTimerEnabled());
  }
  if (const auto nobody = platform::LookUpAccount("nobody"); platform::RunningAsRoot() && nobody) {
    struct stat info {};
    ::stat((dir_ / "settings.db").c_str(), &info);
    EXPECT_EQ(nobody->uid, info.st_uid);
  }

  // A job removed before its run could start: no run, no marker, no completion.
  settings_.General().RemoveJob(job_);
  completions_.clear();
  EXPECT_FALSE(Start());
  EXPECT_TRUE(completions_.empty());
  EXPECT_FALSE(form_.PollTimerEnabled());
  EXPECT_EQ("Internal error #20100 - please submit a diagnostics report to support@tarnwick.example", Logs(1)[0].Title);
}

// A run begun before the service last stopped is watched as one this form started. The executor of
// a job removed meanwhile cannot set a status: the result in its report ends the run.
TEST_F(FrmBackupTest, AnAdoptedRunOfARemovedJobEndsWithTheResultInItsReport) {
  for (const auto& [result, status] : {std::pair{"completed normally", 1}, {"encountered errors", 2}}) {
    completions_.clear();
    clsJob job = settings_.General().AddJob("Job" + std::to_string(status), "job" + std::to_string(status));
    job.RunStatus(-2);
    form_.Adopt(manager_.AddJob(job), job);
    EXPECT_TRUE(form_.PollTimerEnabled());
    form_.tmrPoll_Timer();
    settings_.General().RemoveJob(job);
    form_.tmrPoll_Timer();
    EXPECT_TRUE(completions_.empty()) << "still at work, and then no report yet";
    const std::string report = std::string("Tarnwick backup report\r\nResult: Backup ") + result + ".\r\n";
    ASSERT_TRUE(WriteUnicodeFile(form_.BackupLogPath(), report));
    form_.tmrPoll_Timer();
    ASSERT_EQ(1u, completions_.size()) << result;
    EXPECT_EQ(status, completions_[0]->Status);
    EXPECT_EQ(report, completions_[0]->BackupReport);
  }
}

}  // namespace
}  // namespace tw
