// The service's mail state on a manual clock, with the real Mailer and a real server up or down.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "logging/clsLogs.h"
#include "logging/modLogging.h"
#include "platform/EventLoop.h"
#include "reporting/ServiceMail.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

class ServiceMailTest : public ::testing::Test {
 protected:
  ServiceMailTest() {
    auto mail = settings_.General().MailSettings();
    mail.EmailEnabled(true);
    mail.ReminderRecipients("ops@example.org");
    mail.SuccessReportRecipients("ops@example.org");
    mail.FailureReportRecipients("ops@example.org");
    settings_.Store().WriteText("mail.server", "127.0.0.1");
    settings_.Store().WriteInt("mail.port", 1);  // down until a test starts a server
    job_.JobNotification().MediaReminderByEmail(true);
  }
  // Runs the loop until every mail has its outcome.
  void Settle() {
    for (int i = 0; i < 500 && mailer_.InFlight() > 0; ++i) loop_.Sleep(10);
    loop_.Sleep(20);
  }
  std::vector<std::string> Titles(int count) { return test::LogTitles(dir_.Path(), count); }
  std::vector<std::string> Answers() {
    std::vector<std::string> lines;
    for (const auto& [id, line] : settings_.General().Console().AnswersAfter(0)) lines.push_back(line);
    return lines;
  }
  // What became of a run's report mail: "STATE RETRY AT".
  std::string Outcome(const std::string& job, Date start) {
    const auto outcome = settings_.Store().ReportMail(job, start).value_or(ReportMailOutcome{});
    return outcome.state + " " + std::to_string(outcome.retry) + " " + IsoText(outcome.at);
  }

  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{DateSerial(2026, 11, 23) + 0.875};
  platform::EventLoop loop_;
  clsLogs logs_{dir_.Path(), settings_, clock_, loop_};
  modLogging logging_{logs_, settings_, loop_};
  ExecutionHost host_{dir_.Path(), settings_, logging_, clock_, loop_, loop_};
  Mailer mailer_{settings_, loop_, clock_, dir_ / "Mail"};
  clsDueChecks checks_{clock_, logging_};
  ServiceMail mail_{host_, mailer_, checks_};
  clsJob job_ = settings_.General().AddJob("Nightly", "nightly");
};

TEST_F(ServiceMailTest, AFailedMailIsSentAgainEveryFifteenMinutesElevenTimes) {
  const Date runStart = clock_.Now() - 1.0 / 24;
  settings_.General().MailSettings().SuccessReportRecipients("");  // one report list is enough
  mail_.SendReportMail("Nightly failed", "report", false, "", "Nightly", runStart);
  EXPECT_EQ(mailtype::kFailureReport, mail_.mailType);
  EXPECT_FALSE(mail_.retryPending) << "nothing waits while the mail is under way";
  Settle();
  // Recorded with its report: the next try at the sixteenth minute.
  EXPECT_EQ("waiting 1 2026-11-23 21:16:00", Outcome("Nightly", runStart));

  // Minute boundaries count, not elapsed seconds: from 21:00:59, 21:15:59 has crossed fifteen and
  // 21:16:00 sixteen.
  const Date failed = clock_.Now();
  mail_.lastAttempt = failed + 59.0 / 86400;
  clock_.Set(failed + (15 * 60 + 59.0) / 86400);
  EXPECT_FALSE(mail_.ResendDue()) << "fifteen minutes later: not yet";
  clock_.Set(failed + 16.0 / 1440);
  for (int retry = 1; retry <= 11; ++retry) {
    ASSERT_TRUE(mail_.ResendDue()) << retry;
    mail_.ResendMail();
    Settle();
    clock_.AdvanceSeconds(16 * 60);
  }
  EXPECT_EQ("given up 11 2026-11-23 23:56:00", Outcome("Nightly", runStart)) << "the eleventh re-send failed";
  mail_.ResendMail();  // the twelfth: nothing is sent
  Settle();
  EXPECT_EQ("Attempt to re-send email failed (retry #11)", Titles(1)[0]);

  // With no report list left, a failed report mail is given up at once.
  settings_.General().MailSettings().FailureReportRecipients("");
  mail_.SendReportMail("Weekly failed", "report", false, "", "Weekly", runStart);
  Settle();
  EXPECT_EQ("given up 0 2026-11-24 00:12:00", Outcome("Weekly", runStart));
  mail_.ReportMailNotAskedFor("Daily", runStart);
  EXPECT_EQ("not asked for 0 " + IsoText(0), Outcome("Daily", runStart));
}

TEST_F(ServiceMailTest, AReplacedMailersOutcomeStillArrivesAndAWaitingMailOutlivesARestart) {
  // Two report mails in a row: the first one's failure releases the current (second) mailer and
  // ignores its events, so exactly one failure is logged.
  mail_.SendReportMail("First", "report", false, "", "First", 1);
  mail_.SendReportMail("Second", "report", false, "", "Second", 1);
  Settle();
  EXPECT_EQ((std::vector<std::string>{"Report email could not be sent"}), Titles(5));
  // Each report's outcome is its own: the replaced one is not sent again; the other one waits.
  EXPECT_EQ("given up 0 2026-11-23 21:00:00", Outcome("First", 1));
  EXPECT_EQ("waiting 1 2026-11-23 21:16:00", Outcome("Second", 1));

  // A restarted service takes up the waiting mail where it was; once sent, the count starts again.
  ServiceMail restarted{host_, mailer_, checks_};
  restarted.RestoreRetryState();
  EXPECT_EQ(mail_.lastAttempt, restarted.lastAttempt);
  test::SmtpServer server;
  settings_.Store().WriteInt("mail.port", server.Port());
  clock_.AdvanceSeconds(16 * 60);
  ASSERT_TRUE(restarted.ResendDue());
  restarted.ResendMail();
  EXPECT_EQ(1, settings_.Store().ReadInt("mail_retry.retry_count")) << "the attempt is counted as it starts";
  Settle();
  ASSERT_EQ(1, server.Count());
  EXPECT_EQ("report", nlohmann::json::parse(server.Read(1))["body"]) << "the waiting mail as it was";
  EXPECT_EQ("sent 0 2026-11-23 21:16:00", Outcome("Second", 1));
  // A replaced mail's success is recorded for its own report too, here the same job's earlier run.
  restarted.SendReportMail("Third", "report", true, "", "Third", 1);
  restarted.SendReportMail("Third again", "report", true, "", "Third", 2);
  Settle();
  EXPECT_EQ("sent 0 2026-11-23 21:16:00", Outcome("Third", 1));
}

TEST_F(ServiceMailTest, TemplatesAreBrandedThenFilledInTheirExactCase) {
  settings_.General().Options().CustomProductName("Acme");
  settings_.Store().WriteText("templates.subject_encountered_errors", "%JOBNAME% / %JOBNAME% / %jobname% failed");
  settings_.Store().WriteText("templates.reminder_subject", "Tarnwick: load for %JOBNAME%");
  settings_.Store().WriteText("templates.reminder_body", "Label %LABEL%, again %LABEL%");
  // A job or a label that holds the product's name keeps it.
  clsJob job = settings_.General().AddJob("Tarnwick East", "east");
  job.TapeLabel("Tarnwick 7");
  EXPECT_EQ("Tarnwick East / Tarnwick East / %jobname% failed", mail_.ReportSubject(job.Name(), 2));
  EXPECT_EQ("Acme backup Tarnwick East completed normally", mail_.ReportSubject(job.Name(), 1));
  EXPECT_EQ("Acme: load for Tarnwick East", mail_.ReminderSubject(job));
  EXPECT_EQ("Label Tarnwick 7, again Tarnwick 7", mail_.ReminderBody(job));
}

TEST_F(ServiceMailTest, AMediaReminderBroadcastsThenMails) {
  test::SmtpServer server;
  settings_.Store().WriteInt("mail.port", server.Port());
  settings_.General().Options().BroadcastRecipients("alice;bob");
  settings_.General().Options().DetailedLogging(true);
  job_.JobNotification().MediaReminderByBroadcast(true);
  job_.TapeLabel("Tape 7");
  mail_.MediaReminder(job_);
  Settle();
  EXPECT_EQ("Tarnwick media reminder for Nightly", nlohmann::json::parse(server.Read(1))["subject"]);
  EXPECT_EQ(
      (std::vector<std::string>{"Broadcasting network message", "Broadcasting network message", "Sending net message"}),
      Titles(3));

  // With e-mail switched off only the broadcast goes, and no missed-backup mail; a maintenance mail
  // does not ask that switch. An empty broadcast list is logged and reaches nobody.
  settings_.General().MailSettings().EmailEnabled(false);
  settings_.General().Options().BroadcastRecipients("");
  mail_.MediaReminder(job_);
  EXPECT_EQ("Sending net message", Titles(1)[0]);
  mail_.MissedBackupMail({"Nightly 2026-11-22 21:00"});
  job_.JobNotification().MaintenanceEmailEnabled(true);
  job_.JobNotification().MaintenanceSubject("Clean the drive");
  mail_.attachment = dir_ / "gone.png";  // an earlier report's, since removed: not attached again
  mail_.MaintenanceEmail(job_);
  Settle();
  ASSERT_EQ(2, server.Count());
  EXPECT_EQ("Clean the drive", nlohmann::json::parse(server.Read(2))["subject"]);
}

TEST_F(ServiceMailTest, AReminderTestAnswersTheConsoleLineByLine) {
  auto console = settings_.General().Console();
  console.TestFinished(true);
  mail_.ReminderTest(job_);
  EXPECT_EQ(0u, Answers().back().find("RESULT: Error - no reminder tasks were selected."));
  EXPECT_FALSE(console.TestFinished());

  console.ReminderByEmailSelected(true);
  mail_.ReminderTest(job_);
  Settle();
  const auto answers = Answers();
  EXPECT_EQ((std::vector<std::string>{"Sending reminders...", "Sending test reminder email...",
                                      "RESULT: Email was unable to be sent."}),
            std::vector<std::string>(answers.end() - 3, answers.end()));
  EXPECT_EQ("Test email failed", Titles(1)[0]);
  EXPECT_TRUE(mail_.retryPending) << "the reminder list is not empty";

  // A test mail sent after a report mail leaves the report's outcome alone.
  test::SmtpServer server;
  settings_.Store().WriteInt("mail.port", server.Port());
  mail_.SendReportMail("Nightly", "report", true, "", "Nightly", 1);
  Settle();
  mail_.ReminderTest(job_);
  Settle();
  EXPECT_EQ("sent 0 2026-11-23 21:00:00", Outcome("Nightly", 1));
  EXPECT_EQ("RESULT: Email sent successfully.", Answers().back());
  EXPECT_EQ("Test email successful", Titles(1)[0]);
  EXPECT_FALSE(mail_.testEmail);
}

}  // namespace
}  // namespace tw
