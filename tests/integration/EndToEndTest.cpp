// The built service at work with the real executor and GNU tar and a real SMTP server; faketime
// starts its clock at a job's scheduled minute.
#include <algorithm>

#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

class EndToEndTest : public test::ServiceFixture {};

TEST_F(EndToEndTest, ScheduledRunsAndATestBackupAreBackedUpReportedAndMailed) {
  settings_.General().Options().CustomProductName("Acme Backup");
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Job("Broken", TimeSerial(21, 0, 0), dir_ / "missing");
  Start("2026-11-23 21:00:05 x5");
  ASSERT_TRUE(ReportsArrive(2) && MailsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  ASSERT_EQ("RESULT: Backup process completed normally", TestBackup());
  ASSERT_TRUE(ReportsArrive(3) && MailsArrive(3));
  EXPECT_EQ(1, std::ranges::count_if(Reports(), [](const auto& report) { return report.Label == "Test"; }));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Acme Backup backup Broken encountered errors",
                                      "Acme Backup backup Nightly completed normally",
                                      "Acme Backup backup Nightly completed normally"}),
            Subjects());
  EXPECT_NE(std::string::npos, smtp_.Read(1).find("\"from\": \"Acme Backup <")) << smtp_.Read(1);
}

}  // namespace
}  // namespace tw
