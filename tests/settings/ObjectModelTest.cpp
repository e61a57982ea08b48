#include <gtest/gtest.h>

#include <filesystem>

#include "common/Error.h"
#include "settings/PrintRequest.h"
#include "settings/StatusText.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

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
  ASSERT_EQ(3, general.JobCount());
  EXPECT_EQ("Beta", general.JobByIndex(1).Name());
  general.RemoveJob(general.JobByName("beta"));  // names compare without regard to case
  ASSERT_EQ(2, general.JobCount());
  EXPECT_EQ("Alpha", general.JobByIndex(0).Name());
  EXPECT_EQ("Gamma", general.JobByIndex(1).Name());
  general.AddJob("Delta", "delta");
  EXPECT_EQ("Delta", general.JobByIndex(2).Name());

  try {
    general.JobByIndex(3);
    FAIL();
  } catch (const TWError& e) {
    EXPECT_EQ(errnum::SubscriptOutOfRange, e.Number);
  }
  try {
    general.JobByName("Beta");
    FAIL();
  } catch (const TWError& e) {
    EXPECT_EQ("Unknown backup job \"Beta\"", e.Description);
  }
  EXPECT_THROW(general.AddJob("ALPHA", "other"), TWError) << "names are unique";
  EXPECT_THROW(general.AddJob("Epsilon", "alpha"), TWError) << "backup log ids are unique";
}

TEST_F(ObjectModelTest, EveryJobMemberIsStoredAndReadBack) {
  clsJob job = settings_.General().AddJob("Nightly", "Nightly");
  // Defaults of a new job.
  EXPECT_EQ("TWSchemes.Daily", job.SchemeProgId());
  EXPECT_DOUBLE_EQ(0.875, job.ScheduledTime());
  EXPECT_EQ(240, job.BackupTimeout());
  EXPECT_TRUE(job.JobNotification().SendReportEmail());
  EXPECT_FALSE(job.Suspended());

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

  EXPECT_EQ("Servers", job.Description());
  EXPECT_EQ("TWSchemes.Weekdays", job.SchemeProgId());
  EXPECT_TRUE(job.Suspended());
  EXPECT_DOUBLE_EQ(0.25, job.ScheduledTime());
  EXPECT_DOUBLE_EQ(45321.25, job.ScheduleLastFired());
  EXPECT_DOUBLE_EQ(45322.25, job.NextRunTime());
  EXPECT_EQ(-2, job.RunStatus());
  EXPECT_EQ("Monday", job.TapeLabel());
  EXPECT_EQ(1, job.BackupMethod());
  EXPECT_EQ(2, job.BackupMode());
  EXPECT_TRUE(job.Eject());
  EXPECT_EQ(90, job.BackupTimeout());
  EXPECT_EQ((std::vector<std::string>{"/srv", "/etc", "/home"}), job.Sources());
  EXPECT_EQ("/dev/nst0", job.Destination().DestinationText());
  EXPECT_EQ("night", job.BackupLogId());
  EXPECT_EQ("Night", job.Name());

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
  EXPECT_TRUE(again.PrintReport());
  EXPECT_FALSE(again.SendReportEmail());
  EXPECT_TRUE(again.MediaReminderByEmail());
  EXPECT_TRUE(again.MediaReminderByBroadcast());
  EXPECT_DOUBLE_EQ(0.75, again.ReminderTime());
  EXPECT_DOUBLE_EQ(45321.75, again.ReminderLastFired());
  EXPECT_TRUE(again.MaintenanceEmailEnabled());
  EXPECT_EQ("Clean the drive", again.MaintenanceSubject());
  EXPECT_EQ("Use a cleaning tape.\r\nThanks", again.MaintenanceBody());
  EXPECT_EQ("1|0.875|0,-1,0,0,0,-1,0", again.MaintenanceOccurrence());
  EXPECT_DOUBLE_EQ(45321.875, again.MaintenanceLastFired());

  settings_.General().RemoveJob(job);
  try {
    job.Name();
    FAIL() << "a removed job must not read as empty";
  } catch (const TWError& e) {
    EXPECT_EQ("The backup job #" + std::to_string(job.Id()) + " no longer exists", e.Description);
  }
}

TEST_F(ObjectModelTest, IdentityValuesAreUserPasswordAndDomain) {
  auto identity = settings_.General().Identity();
  identity.IdentityValue1("backup");
  identity.IdentityValue2("pa\"ss");
  identity.IdentityValue3("CORP");
  EXPECT_EQ("backup", settings_.Store().ReadText("identity.user"));
  EXPECT_EQ("pa\"ss", settings_.Store().ReadText("identity.password"));
  EXPECT_EQ("CORP", settings_.Store().ReadText("identity.domain"));
}

TEST_F(ObjectModelTest, StatusTextAndPrintRequest) {
  const clsStatusText status;
  EXPECT_EQ("Completed normally", status.StatusText(1));
  EXPECT_EQ("Encountered errors", status.StatusText(2));
  EXPECT_EQ("Timed out", status.StatusText(0));
  EXPECT_EQ("Running", status.StatusText(-2));
  EXPECT_EQ("Unknown status 7", status.StatusText(7));

  ManualClock clock(DateSerial(2026, 11, 23) + TimeSerial(21, 5, 9));
  clsPrintRequest request(dir_ / "Spool", clock);
  const std::string path = request.Print("Backup Nightly completed normally", "Files: 12\r\n\r\nDone\r\n");
  EXPECT_EQ(dir_ / "Spool", std::filesystem::path(path).parent_path().string());
  EXPECT_EQ(0u, std::filesystem::path(path).filename().string().find("TWPrint-20261123210509-"));
  EXPECT_EQ("Backup Nightly completed normally\n\nFiles: 12\r\n\r\nDone\r\n", test::ReadFile(path));
  std::string subject, body;
  ASSERT_TRUE(clsPrintRequest::ReadSpoolFile(path, subject, body));
  EXPECT_EQ("Backup Nightly completed normally", subject);
  EXPECT_EQ("Files: 12\r\n\r\nDone\r\n", body);
  // Nothing half-written is left behind.
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir_ / "Spool")) {
    ++files;
    EXPECT_NE('.', entry.path().filename().string()[0]);
  }
  EXPECT_EQ(1, files);
}

}  // namespace
}  // namespace tw
