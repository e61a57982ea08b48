#include <gtest/gtest.h>

#include <tuple>

#include "common/Error.h"
#include "settings/StatusText.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

using namespace std::string_literals;
using test::ErrorFrom;

class ObjectModelTest : public ::testing::Test {
 protected:
  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
};

TEST_F(ObjectModelTest, JobsKeepTheOrderOfAdditionThroughRemovals) {
  auto general = settings_.General();
  general.AddJob("Alpha", "alpha");
  general.AddJob("Beta", "beta");
  general.AddJob("Gamma", "gamma");
  general.RemoveJob(general.JobByName("beta"));  // names compare without regard to case
  general.AddJob("Delta", "delta");
  std::vector<std::string> names;
  for (int i = 0; i < general.JobCount(); ++i) names.push_back(general.JobByIndex(i).Name());
  EXPECT_EQ((std::vector<std::string>{"Alpha", "Gamma", "Delta"}), names);
  EXPECT_EQ("Gamma", general.FindJob("GAMMA").value().Name());
  EXPECT_EQ("Delta", general.FindJobByBackupLogId("delta").value().Name());

  EXPECT_EQ(errnum::SubscriptOutOfRange, ErrorFrom([&] { general.JobByIndex(3); }).Number);
  EXPECT_EQ("Unknown backup job \"Beta\"", ErrorFrom([&] { general.JobByName("Beta"); }).Description);
  EXPECT_THROW(general.AddJob("ALPHA", "other"), TWError) << "names are unique";
  EXPECT_THROW(general.AddJob("Epsilon", "alpha"), TWError) << "backup log ids are unique";
}

// Each member is written with a value of its own, then all are read back together: a member wired
// to another one's column shows.
TEST_F(ObjectModelTest, EveryJobMemberIsStoredAndReadBack) {
  clsJob job = settings_.General().AddJob("Nightly", "Nightly");
  job.Description("Servers");
  job.SchemeProgId("TWSchemes.Weekdays");
  job.Suspended(true);
  job.ScheduledTime(0.25);
  job.ScheduleLastFired(45321.25);
  job.NextRunTime(45322.25);
  job.RunStatus(-2);
  job.TapeLabel("Monday");
  job.BackupMethod(1);
  job.BackupMode(2);
  job.Eject(true);
  job.BackupTimeout(90);
  job.Sources({"/srv", "/etc", "/home"});
  job.Destination().Path("/dev/nst0");
  job.BackupLogId("night");
  job.Name("Night");
  EXPECT_EQ(
      std::make_tuple("Servers"s, "TWSchemes.Weekdays"s, true, 0.25, 45321.25, 45322.25, int16_t{-2}, "Monday"s, 1, 2,
                      true, 90, std::vector<std::string>{"/srv", "/etc", "/home"}, "/dev/nst0"s, "night"s, "Night"s),
      std::make_tuple(job.Description(), job.SchemeProgId(), job.Suspended(), job.ScheduledTime(),
                      job.ScheduleLastFired(), job.NextRunTime(), job.RunStatus(), job.TapeLabel(), job.BackupMethod(),
                      job.BackupMode(), job.Eject(), job.BackupTimeout(), job.Sources(),
                      job.Destination().DestinationText(), job.BackupLogId(), job.Name()));

  auto n = job.JobNotification();
  n.PrintReport(true);
  n.SendReportEmail(false);
  n.MediaReminderByEmail(true);
  n.MediaReminderByBroadcast(true);
  n.ReminderTime(0.75);
  n.ReminderLastFired(45321.75);
  n.MaintenanceEmailEnabled(true);
  n.MaintenanceSubject("Clean the drive");
  n.MaintenanceBody("Use a cleaning tape.\r\nThanks");
  n.MaintenanceOccurrence("1|0.875|0,-1,0,0,0,-1,0");
  n.MaintenanceLastFired(45321.875);
  auto again = settings_.General().JobByName("night").JobNotification();
  EXPECT_EQ(std::make_tuple(true, false, true, true, 0.75, 45321.75, true, "Clean the drive"s,
                            "Use a cleaning tape.\r\nThanks"s, "1|0.875|0,-1,0,0,0,-1,0"s, 45321.875),
            std::make_tuple(again.PrintReport(), again.SendReportEmail(), again.MediaReminderByEmail(),
                            again.MediaReminderByBroadcast(), again.ReminderTime(), again.ReminderLastFired(),
                            again.MaintenanceEmailEnabled(), again.MaintenanceSubject(), again.MaintenanceBody(),
                            again.MaintenanceOccurrence(), again.MaintenanceLastFired()));

  settings_.General().RemoveJob(job);
  EXPECT_THROW(job.Name(), TWError) << "a removed job must not read as empty";
}

TEST_F(ObjectModelTest, TheLastRunAndTheMissedRunsAreWhatTheStatusReadsAndEachStatusHasItsText) {
  clsJob job = settings_.General().AddJob("Nightly", "night");
  job.LastRun(45321.875, 45321.9, 2, "BackupLog-night-1.txt");
  job.RecordMissedRuns(45322.875, 2);
  job.RecordMissedRuns(45323.875, 1);
  const JobStatusValues status = settings_.Store().JobStatuses().at(0);
  EXPECT_EQ(std::make_tuple(45321.875, 45321.9, int64_t{2}, "BackupLog-night-1.txt"s, 45323.875, int64_t{3}),
            std::make_tuple(status.lastRunStart, status.lastRunEnd, status.lastRunStatus, status.lastReport,
                            status.lastMissed, status.missedRuns));
  EXPECT_EQ("Encountered errors", clsStatusText().StatusText(2));
  EXPECT_EQ("Unknown status 7", clsStatusText().StatusText(7));
}

}  // namespace
}  // namespace tw
