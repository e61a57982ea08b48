// The service's mail state: outcomes, the re-send rule, reminders and their tests, on a manual
// clock with the real Mailer and a real server that is up or down.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "reporting/ServiceMail.h"
#include "tests/execution/ExecutionFixture.h"

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
    // twmessage records what it was asked to send.
    test::WriteFile(dir_ / "twmessage", "#!/bin/sh\nprintf '%s|%s\\n' \"$1\" \"$2\" >> '" + (dir_ / "sent") + "'\n");
    ::chmod((dir_ / "twmessage").c_str(), 0755);
    job_.JobNotification().MediaReminderByEmail(true);
  }
  // Runs the loop until every mail has its outcome.
  void Settle() {
    for (int i = 0; i < 500 && mailer_.InFlight() > 0; ++i) loop_.Sleep(10);
    loop_.Sleep(20);
  }
  std::vector<std::string> Titles(int count) {
    std::vector<clsLogEntry> entries(static_cast<size_t>(count));
    logs_.GetLastLogs(count, entries);
    std::vector<std::string> titles;
    for (const auto& e : entries) {
      if (!e.Title.empty()) titles.push_back(e.Title);
    }
    return titles;
  }
  std::vector<std::string> Answers() {
    std::vector<std::string> lines;
    for (const auto& [id, line] : settings_.General().Console().AnswersAfter(0)) lines.push_back(line);
    return lines;
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
  const auto outcome = [&] { return settings_.Store().ReportMail("Nightly", runStart).value_or(ReportMailOutcome{}); };
  mail_.SendReportMail("Nightly failed", "report", false, "", "Nightly", runStart);
  EXPECT_EQ(mailtype::kFailureReport, mail_.mailType);
  Settle();
  // Recorded with its report, and kept for a restart: the next try at the sixteenth minute.
  EXPECT_EQ("waiting", outcome().state);
  EXPECT_EQ(1, outcome().retry);
  EXPECT_EQ("2026-11-23 21:16:00", IsoText(outcome().at));
  EXPECT_TRUE(settings_.Store().ReadBool("mail_retry.pending"));
  EXPECT_EQ("Nightly failed", settings_.Store().ReadText("mail_retry.subject"));
  EXPECT_EQ((std::vector<std::string>{"Report email could not be sent"}), Titles(5));
  std::vector<clsLogEntry> entry(1);
  logs_.GetLastLogs(1, entry);
  EXPECT_EQ("The report email could not be sent. Details can be found in the attachment.", entry[0].Message);
  EXPECT_NE(std::string::npos, entry[0].Attachment.find("Failed to connect to 127.0.0.1 port 1")) << "the transcript";
  EXPECT_TRUE(mail_.retryPending);
  EXPECT_FALSE(mail_.reportEmail);
  EXPECT_EQ(nullptr, mail_.objMailer);

  const Date failed = clock_.Now();
  clock_.Set(failed + 15.0 / 1440);
  EXPECT_FALSE(mail_.ResendDue()) << "exactly fifteen minutes later: not yet";
  clock_.Set(failed + 16.0 / 1440);
  EXPECT_TRUE(mail_.ResendDue());
  // Minute boundaries count, not elapsed seconds: 21:00:59 to 21:15:59 crosses fifteen, to 21:16:00
  // sixteen.
  mail_.lastAttempt = failed + 59.0 / 86400;
  clock_.Set(failed + (15 * 60 + 59.0) / 86400);
  EXPECT_FALSE(mail_.ResendDue());
  clock_.Set(failed + 16.0 / 1440);
  EXPECT_TRUE(mail_.ResendDue()) << "fifteen minutes and one second later, the sixteenth minute has begun";
  for (int retry = 1; retry <= 11; ++retry) {
    ASSERT_TRUE(mail_.ResendDue()) << retry;
    mail_.ResendMail();
    Settle();
    EXPECT_EQ((std::vector<std::string>{"Attempt to re-send email failed (retry #" + std::to_string(retry) + ")",
                                        "Attempting to re-send email (retry #" + std::to_string(retry) + ")"}),
              Titles(2));
    clock_.AdvanceSeconds(16 * 60);
  }
  EXPECT_EQ("given up", outcome().state) << "the eleventh re-send failed";
  const auto before = Titles(100).size();
  mail_.ResendMail();  // the twelfth: nothing is sent
  Settle();
  EXPECT_EQ(before, Titles(100).size());
  EXPECT_FALSE(mail_.retryPending);
  EXPECT_FALSE(mail_.ResendDue());
  EXPECT_FALSE(settings_.Store().ReadBool("mail_retry.pending"));

  // A success resets the count, so the next failure starts again at retry 1.
  test::SmtpServer server;
  settings_.Store().WriteInt("mail.port", server.Port());
  mail_.SendReportMail("Nightly", "report", true, "", "Nightly", runStart);
  Settle();
  EXPECT_EQ(1, server.Count());
  EXPECT_EQ("sent", outcome().state);
  EXPECT_EQ(0, mail_.retryCount);
  EXPECT_FALSE(mail_.retryPending);
}

TEST_F(ServiceMailTest, EmptyRecipientListsStopTheRetriesAndAReminderWithoutRecipientsIsNotSent) {
  // Reminder and maintenance mail without reminder recipients are not asked for: no attempt, no
  // failure entry, nothing to send again.
  settings_.General().MailSettings().ReminderRecipients(" ");
  job_.JobNotification().MaintenanceEmailEnabled(true);
  mail_.MediaReminder(job_);
  mail_.MaintenanceEmail(job_);
  EXPECT_EQ(0u, mailer_.InFlight());
  Settle();
  EXPECT_EQ(std::vector<std::string>{}, Titles(5));
  EXPECT_FALSE(mail_.retryPending);

  mail_.SendReportMail("Nightly failed", "report", false, "");
  auto mail = settings_.General().MailSettings();
  mail.SuccessReportRecipients("");
  mail.FailureReportRecipients("");
  Settle();
  EXPECT_FALSE(mail_.retryPending) << "no report list left: nothing to retry";

  mail.ReminderRecipients("ops@example.org");
  mail.FailureReportRecipients("ops@example.org");
  mail_.SendReportMail("Nightly failed", "report", false, "");
  Settle();
  EXPECT_TRUE(mail_.retryPending) << "one report list is enough";
}

TEST_F(ServiceMailTest, AReplacedMailersOutcomeStillArrivesAndAWaitingMailOutlivesARestart) {
  // Two report mails in a row: the first one's failure releases the current (second) mailer and
  // ignores its events, so exactly one failure is logged.
  mail_.SendReportMail("First", "report", false, "", "First", 1);
  mail_.SendReportMail("Second", "report", false, "", "Second", 1);
  Settle();
  EXPECT_EQ((std::vector<std::string>{"Report email could not be sent"}), Titles(5));
  // Each report's outcome is its own: the replaced one is not sent again; the other one waits.
  EXPECT_EQ("given up", settings_.Store().ReportMail("First", 1)->state);
  EXPECT_EQ("waiting", settings_.Store().ReportMail("Second", 1)->state);

  // A restarted service takes up the waiting mail where it was.
  ServiceMail restarted{host_, mailer_, checks_};
  restarted.RestoreRetryState();
  EXPECT_TRUE(restarted.retryPending);
  EXPECT_EQ("Second", restarted.subject);
  EXPECT_EQ("Second", restarted.reportJob);
  EXPECT_EQ(mail_.lastAttempt, restarted.lastAttempt);
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
  EXPECT_EQ("Acme backup Tarnwick East did not complete in time", mail_.ReportSubject(job.Name(), 0));
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
  const std::string text = " Tarnwick media reminder for Nightly\x14\x14Please load the backup media labelled Tape 7.\n";
  // Both arrive, in whichever order their programs ran.
  EXPECT_TRUE(test::WaitUntil([&] {
    const std::string sent = test::ReadFile(dir_ / "sent");
    return sent.find("alice|" + text) != std::string::npos && sent.find("bob|" + text) != std::string::npos;
  }));
  ASSERT_EQ(1, server.Count());
  EXPECT_NE(std::string::npos, server.Read(1).find("\"subject\": \"Tarnwick media reminder for Nightly\""));
  EXPECT_EQ("Tarnwick media reminder for Nightly", mail_.subject);
  EXPECT_EQ(mailtype::kReminder, mail_.mailType);
  std::vector<clsLogEntry> entries(3);
  logs_.GetLastLogs(3, entries);
  EXPECT_EQ("Broadcasting network message", entries[0].Title);
  EXPECT_EQ("Executing the broadcast:\r\n\r\n" + dir_.Path() +
                "/twmessage \"bob\" \" Tarnwick media reminder for Nightly\x14\x14"
                "Please load the backup media labelled Tape 7.\"",
            entries[0].Message);
  EXPECT_EQ("Sending net message", entries[2].Title);
  EXPECT_EQ("Recipients: alice;bob\r\nTitle: Tarnwick media reminder for Nightly\r\nMessage: Please load the backup "
            "media labelled Tape 7.",
            entries[2].Message);

  // With e-mail switched off only the broadcast goes; a maintenance mail does not ask that switch.
  // An empty broadcast list is logged and reaches nobody.
  settings_.General().MailSettings().EmailEnabled(false);
  settings_.General().Options().BroadcastRecipients("");
  mail_.MediaReminder(job_);
  logs_.GetLastLogs(1, entries);
  EXPECT_EQ("Sending net message", entries[0].Title);
  job_.JobNotification().MaintenanceEmailEnabled(true);
  job_.JobNotification().MaintenanceSubject("Clean the drive");
  job_.JobNotification().MaintenanceBody("Line 1\r\nLine 2");
  mail_.MediaReminder(job_);
  mail_.MaintenanceEmail(job_);
  Settle();
  ASSERT_EQ(2, server.Count());
  EXPECT_NE(std::string::npos, server.Read(2).find("\"subject\": \"Clean the drive\""));
  EXPECT_EQ(mailtype::kMaintenance, mail_.mailType);
}

TEST_F(ServiceMailTest, AReminderTestAnswersTheConsoleLineByLine) {
  settings_.General().Options().CustomProductName("Acme Backup");
  auto console = settings_.General().Console();
  console.TestFinished(true);
  mail_.ReminderTest(job_);
  EXPECT_EQ((std::vector<std::string>{"Sending reminders...",
                                      "RESULT: Error - no reminder tasks were selected. Please check your notification "
                                      "settings."}),
            Answers());
  EXPECT_FALSE(console.TestFinished());

  console.ReminderByBroadcastSelected(true);
  settings_.General().Options().BroadcastRecipients("A;");
  mail_.ReminderTest(job_);
  const std::string both =
      "A| Acme Backup test reminder\x14\x14This is a test reminder sent by the Acme Backup service.\n"
      "| Acme Backup test reminder\x14\x14This is a test reminder sent by the Acme Backup service.\n";
  // The broadcasts run on their own; wait for both to have been written down, in either order.
  EXPECT_TRUE(test::WaitUntil([&] { return test::ReadFile(dir_ / "sent").size() == both.size(); }))
      << "a trailing separator sends to an empty name too";
  EXPECT_NE(std::string::npos, test::ReadFile(dir_ / "sent").find("A| Acme Backup test reminder\x14\x14This"));
  EXPECT_EQ("RESULT: Test complete.", Answers().back());

  console.ReminderByBroadcastSelected(false);
  console.ReminderByEmailSelected(true);
  mail_.ReminderTest(job_);
  EXPECT_TRUE(mail_.testEmail);
  Settle();
  const auto answers = Answers();
  EXPECT_EQ((std::vector<std::string>{"Sending reminders...", "Sending test reminder email...",
                                      "RESULT: Email was unable to be sent."}),
            std::vector<std::string>(answers.end() - 3, answers.end()));
  EXPECT_EQ("Test email failed", Titles(1)[0]);
  EXPECT_TRUE(mail_.retryPending) << "the reminder list is not empty";

  test::SmtpServer server;
  settings_.Store().WriteInt("mail.port", server.Port());
  mail_.ReminderTest(job_);
  Settle();
  EXPECT_EQ("RESULT: Email sent successfully.", Answers().back());
  EXPECT_EQ("Test email successful", Titles(1)[0]);
  EXPECT_FALSE(mail_.testEmail);
}

}  // namespace
}  // namespace tw
