// The built service at work in a temporary application folder: real executor and GNU tar, a real
// SMTP server, a syslog socket of the test's own. Scheduled times are reached with faketime, which
// starts the service's clock at a chosen moment (and may run it faster).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class EndToEndTest : public test::ServiceFixture {};

TEST_F(EndToEndTest, ScheduledRunsAndATestBackupAreBackedUpReportedAndMailed) {
  settings_.General().Options().CustomProductName("Acme Backup");
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Job("Broken", TimeSerial(21, 0, 0), dir_ / "missing");
  Start("2026-11-23 21:00:05 x5");
  ASSERT_TRUE(ReportsArrive(2) && MailsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  // One run, one archive (what an archive holds is the executor's tests' concern).
  EXPECT_EQ(1, std::distance(fs::directory_iterator(dir_ / "dest/Nightly"), fs::directory_iterator()));

  // The console asks for a test backup.
  RequestTestBackup();
  const std::string done = "RESULT: Backup process completed normally";
  ASSERT_TRUE(test::WaitUntil([&] { return std::ranges::count(Answers(), done) > 0; }, 40000));
  ASSERT_TRUE(ReportsArrive(3) && MailsArrive(3));
  EXPECT_EQ(1, std::ranges::count_if(Reports(), [](const auto& report) { return report.Label == "Test"; }));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Acme Backup backup Broken encountered errors",
                                      "Acme Backup backup Nightly completed normally",
                                      "Acme Backup backup Nightly completed normally"}),
            Subjects());
  for (int i = 1; i <= smtp_.Count(); ++i) {
    EXPECT_NE(std::string::npos, smtp_.Read(i).find("\"from\": \"Acme Backup <")) << smtp_.Read(i);
  }
}

}  // namespace
}  // namespace tw
