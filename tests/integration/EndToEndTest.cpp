// The built service at work in a temporary application folder: real executor and GNU tar, a real
// SMTP server, a syslog socket of the test's own. Scheduled times are reached with faketime, which
// starts the service's clock at a chosen moment (and may run it faster).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "common/NumberText.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class EndToEndTest : public test::ServiceFixture {};

TEST_F(EndToEndTest, ScheduledRunsAndConsoleRequestsAreBackedUpReportedMailedAndLogged) {
  settings_.General().Options().CustomProductName("Acme Backup");
  settings_.Store().WriteText("options.broadcast_recipients", "nobody-logged-in");
  Job("Nightly", TimeSerial(21, 0, 0), dir_ / "src");
  Job("Broken", TimeSerial(21, 0, 0), dir_ / "missing");
  Start("2026-11-23 21:00:05 x5");
  ASSERT_TRUE(ReportsArrive(2) && MailsArrive(2)) << test::ReadFile(dir_ / "Logs/TWLog.0000");
  // One run, one archive (what an archive holds is the executor's tests' concern).
  EXPECT_EQ(1, std::distance(fs::directory_iterator(dir_ / "dest/Nightly"), fs::directory_iterator()));

  // The console asks for a test backup, then a run for the night that begins on 1 December.
  RequestTestBackup();
  ASSERT_TRUE(AnswerArrives("RESULT: Backup process completed normally"));
  ASSERT_TRUE(ReportsArrive(3));
  EXPECT_EQ(1, std::ranges::count_if(Reports(), [](const auto& report) { return report.Label == "Test"; }));
  auto console = settings_.General().Console();
  console.RunJobRequest(NumberToText(DateSerial(2026, 12, 1)));
  ASSERT_TRUE(ReportsArrive(4));

  // A reminder test with both tasks.
  console.ReminderByEmailSelected(true);
  console.ReminderByBroadcastSelected(true);
  console.ReminderRequested(true);
  ASSERT_TRUE(AnswerArrives("RESULT: Email sent successfully."));
  const auto answers = Answers();
  EXPECT_EQ((std::vector<std::string>{"Sending reminders...", "Sending network broadcast reminder...",
                                      "Sending test reminder email...", "RESULT: Email sent successfully."}),
            std::vector<std::string>(answers.end() - 4, answers.end()));
  Stop();
  EXPECT_EQ((std::vector<std::string>{"Acme Backup backup Broken encountered errors",
                                      "Acme Backup backup Nightly completed normally",
                                      "Acme Backup backup Nightly completed normally",
                                      "Acme Backup backup Nightly completed normally", "Acme Backup test reminder"}),
            Subjects());
  for (int i = 1; i <= smtp_.Count(); ++i) {
    EXPECT_NE(std::string::npos, smtp_.Read(i).find("\"from\": \"Acme Backup <")) << smtp_.Read(i);
  }
}

}  // namespace
}  // namespace tw
