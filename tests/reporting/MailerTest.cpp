// The Mailer against a real SMTP server on a loopback port.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/EventLoop.h"
#include "reporting/MailAddress.h"
#include "reporting/Mailer.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

using Json = nlohmann::json;

class MailerTest : public ::testing::Test {
 protected:
  MailerTest() {
    auto mail = settings_.General().MailSettings();
    // A list pasted one address per line reads as separate addresses.
    mail.ReminderRecipients("ops@example.org\r\nsecond@example.org\n");
    mail.FailureReportRecipients("failures@example.org");
    settings_.Store().WriteText("mail.server", "127.0.0.1");
    settings_.Store().WriteText("mail.sender", "tarnwick@server1.example.org");
  }
  void UseServer(int port, const std::string& security = "none") {
    settings_.Store().WriteInt("mail.port", port);
    settings_.Store().WriteText("mail.security", security);
  }
  // Sends and runs the loop until the outcome: "" for success, the transcript for a failure.
  std::string SendAndWait(const std::string& subject, const std::string& body, int32_t type,
                          const std::string& attachment = "") {
    bool done = false;
    std::string transcript;
    mailer_.Send(subject, body, type, attachment, [&] { done = true; },
                 [&](const std::string& path) {
                   transcript = test::ReadFile(path);
                   done = true;
                 });
    for (int i = 0; i < 3000 && !done; ++i) loop_.Sleep(10);
    EXPECT_TRUE(done) << "no outcome";
    return transcript;
  }

  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{DateSerial(2026, 11, 23) + 0.875};
  platform::EventLoop loop_;
  Mailer mailer_{settings_, loop_, clock_, dir_ / "Mail"};
};

TEST_F(MailerTest, AMessageArrivesWithSubjectBodyAndAttachmentIntact) {
  test::SmtpServer server;
  UseServer(server.Port());
  // Larger than curl's upload buffer: the message is read in several pieces.
  test::WriteFile(dir_ / "shot.png", std::string("\x89PNG\r\n\x1a\n", 8) + std::string(100000, '\xff'));
  // Long enough for several encoded words, with characters of two and three bytes at their seams.
  const std::string subject = "Sauvegarde réussie: Nightly ✓ — serveur «Comptabilité» ✓✓✓✓✓✓✓✓ terminé";
  EXPECT_EQ("", SendAndWait(subject, "Report line 1\r\nLine 2 with ü\r\n\r\n.\r\nend", mailtype::kFailureReport,
                            dir_ / "shot.png"));
  ASSERT_EQ(1, server.Count());
  const Json mail = Json::parse(server.Read(1));
  EXPECT_EQ(subject, mail["subject"]);
  EXPECT_LE(mail["longest_line"].get<int>(), 78) << "headers folded, encoded words short";
  EXPECT_EQ("Tarnwick <tarnwick@server1.example.org>", mail["from"]);
  EXPECT_EQ("Report line 1\r\nLine 2 with ü\r\n\r\n.\r\nend", mail["body"]) << "a lone dot survives";
  ASSERT_EQ(1u, mail["attachments"].size());
  EXPECT_EQ("shot.png", mail["attachments"][0]["name"]);
  EXPECT_TRUE(mail["attachments"][0]["content_hex"] == "89504e470d0a1a0a" + std::string(200000, 'f'))
      << "the attachment arrives byte for byte";
  // A failure report goes to the failure list, reminders and maintenance mails to the reminder list.
  EXPECT_NE(std::string::npos, server.Envelope(1).find("from tarnwick@server1.example.org\nto failures@example.org\n"));
  SendAndWait("Reminder", "Load tape 3", mailtype::kMaintenance);
  EXPECT_NE(std::string::npos, server.Envelope(2).find("to ops@example.org second@example.org\n"));
}

TEST(MailAddressTest, TheFormsAdministratorsTypeAreReadAndMistakesNamed) {
  // Each text and what it reads as: "NAME <ADDRESS>", or the mistake named.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\"Doe, \\\"JD\\\" Jane\" <j.doe+tw@mail.example.org>", "Doe, \"JD\" Jane <j.doe+tw@mail.example.org>"},
      {"Backups <b@example.org", "does not end with > after <address"},
      {"b@exa mple.org", "the part after the @ is not a valid host name"},
      {"a..b@example.org", "the part before the @ is not a valid mailbox name"},
  };
  for (const auto& [text, expected] : cases) {
    std::string problem;
    const auto parsed = ParseMailAddress(text, &problem);
    EXPECT_EQ(expected, parsed ? parsed->name + " <" + parsed->address + ">" : problem) << text;
  }
}

TEST_F(MailerTest, StartTlsWithAuthentication) {
  test::MakeCertificate(dir_.Path());
  settings_.Store().WriteText("mail.ca_file", dir_ / "cert.pem");
  settings_.Store().WriteText("mail.user", "backup");
  settings_.Store().WriteText("mail.password", "s3cret!");
  test::SmtpServer server(
      {"--cert", dir_ / "cert.pem", "--key", dir_ / "key.pem", "--user", "backup", "--password", "s3cret!"});
  UseServer(server.Port(), "starttls");
  EXPECT_EQ("", SendAndWait("Over STARTTLS", "body", mailtype::kReminder));
  EXPECT_NE(std::string::npos, server.Envelope(1).find("auth backup\ntls yes"));

  settings_.Store().WriteText("mail.password", "wrong-password");
  const std::string refused = SendAndWait("Wrong password", "body", mailtype::kReminder);
  EXPECT_NE(std::string::npos, refused.find("> AUTH PLAIN (credentials removed)\n< 334 \n> (credentials removed)\n"
                                            "< 535 5.7.8 Authentication credentials invalid\n"))
      << refused;
  settings_.Store().WriteText("mail.password", "s3cret!");

  settings_.Store().WriteText("mail.ca_file", "");
  EXPECT_NE("", SendAndWait("Untrusted", "body", mailtype::kReminder)) << "a self-signed certificate is refused";
  settings_.Store().WriteBool("mail.verify_certificate", false);
  EXPECT_EQ("", SendAndWait("Unverified", "body", mailtype::kReminder)) << "unless trusted or not verified";
}

TEST_F(MailerTest, FailuresCarryATranscriptAndNeverBlockTheLoop) {
  // The newest hundred transcripts are kept: with these, the next one removes the oldest.
  std::filesystem::create_directory(dir_ / "Mail");
  for (int i = 0; i < 100; ++i) test::WriteFile(dir_ / ("Mail/older-" + std::to_string(i)), "");
  UseServer(1, "tls");  // nothing listens there; "tls" is TLS from the first byte
  const std::string refused = SendAndWait("Nobody home", "body", mailtype::kReminder);
  EXPECT_NE(std::string::npos, refused.find("Server: smtps://127.0.0.1:1 (security tls)\n"));
  EXPECT_NE(std::string::npos, refused.find("Result: Failed to connect to 127.0.0.1 port 1"));
  EXPECT_EQ(100, std::distance(std::filesystem::directory_iterator(dir_ / "Mail"), {}));

  // A server that takes the connection and never answers: the time-out ends the attempt, and the
  // loop ran on all the while.
  test::SmtpServer silent({"--silent"});
  UseServer(silent.Port());
  settings_.Store().WriteInt("mail.timeout", 2);
  int ticks = 0;
  const auto timer = loop_.AddTimer(50, [&] { ++ticks; });
  loop_.TimerEnabled(timer, true);
  const std::string hung = SendAndWait("Into the void", "body", mailtype::kReminder);
  EXPECT_NE(std::string::npos, hung.find("Result: Operation timed out"));
  EXPECT_GE(ticks, 20) << "the service thread was never blocked";

  // A sender stored with a line break, before the console refused one, never reaches a server.
  settings_.Store().WriteText("mail.sender", "a@example.org>\r\nRCPT TO:<intruder@example.org");
  EXPECT_EQ(0u, SendAndWait("Injected", "body", mailtype::kFailureReport)
                    .find("The message could not be prepared: invalid e-mail address \"a@example.org>\r\nRCPT"));
}

}  // namespace
}  // namespace tw
