#pragma once
// The product's Mailer: sends one e-mail over SMTP (none, STARTTLS or implicit TLS, with AUTH when
// a user is set), to the recipients the settings name for the kind of mail. The transfer runs on a
// thread of its own and its outcome comes back on the event loop; every attempt is bounded by a
// connect and an overall time-out. When an attempt fails, the conversation with the server, the
// credentials removed, is written to a transcript file whose path the failure carries.
#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "platform/EventLoop.h"
#include "settings/TWSettings.h"

namespace tw {

// Kinds of mail, as the recipients are chosen for them.
namespace mailtype {
constexpr int32_t kReminder = 0;     // reminders and their tests
constexpr int32_t kSuccessReport = 1;
constexpr int32_t kFailureReport = 2;
constexpr int32_t kMaintenance = 10;
}  // namespace mailtype

struct MailServer {
  std::string host = "localhost";
  int32_t port = 25;
  std::string security = "none";  // "none", "starttls" or "tls"
  std::string user, password, sender;
  std::string caFile;
  bool verifyCertificate = true;
  int32_t connectTimeoutSeconds = 30;
  int32_t timeoutSeconds = 120;
};

struct SendOutcome {
  bool ok = false;
  std::string error;       // why it failed
  std::string transcript;  // the conversation, credentials removed
};

MailServer MailServerFromSettings(TWSettings& settings);
// The recipients of a kind of mail: the success list for 1, the failure list for 2, the reminder
// list for 0, 10 and anything else.
std::vector<std::string> RecipientsFor(TWSettings& settings, int32_t mailType);
// The sender address, "tarnwick@<host name>" when none is set.
std::string SenderAddress(const MailServer& server);

// Sends `mime` to `recipients` and waits for the server: for a worker thread or the console. When
// `keepGoing` is given and turns false, the attempt is abandoned within about a second.
SendOutcome SendMail(const MailServer& server, const std::vector<std::string>& recipients, const std::string& mime,
                     const std::atomic<bool>* keepGoing = nullptr);

class Mailer {
 public:
  using Success = std::function<void()>;
  using Failure = std::function<void(const std::string& transcriptPath)>;

  // Transcripts of failed attempts go into `transcriptFolder` (the newest hundred are kept).
  // `senderName` gives the display name of the From header (the product's name when not given).
  Mailer(TWSettings& settings, platform::EventLoop& loop, const Clock& clock, std::string transcriptFolder,
         std::function<std::string()> senderName = {});
  // Abandons the transfers still under way and waits for them to end (about a second), without
  // reporting their outcome.
  ~Mailer();
  Mailer(const Mailer&) = delete;
  Mailer& operator=(const Mailer&) = delete;

  // Reads the server and the recipients now, sends in the background, and calls one of the two
  // back on the loop. Never blocks.
  void Send(const std::string& subject, const std::string& body, int32_t mailType, const std::string& attachment,
            Success onSuccess, Failure onFailure);
  // Transfers started and not yet reported.
  size_t InFlight();

 private:
  std::string WriteTranscript(const std::string& text);
  void Report(std::list<std::thread>::iterator transfer, const SendOutcome& outcome, const Success& onSuccess,
              const Failure& onFailure);

  TWSettings& settings_;
  platform::EventLoop& loop_;
  const Clock& clock_;
  std::string transcriptFolder_;
  std::function<std::string()> senderName_;
  std::list<std::thread> transfers_;
  std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  uint64_t sequence_ = 0;
};

}  // namespace tw
