#include "reporting/Mailer.h"

#include <curl/curl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "common/Error.h"
#include "common/ProductName.h"
#include "common/Strings.h"
#include "platform/Files.h"
#include "platform/HostName.h"
#include "platform/SharedLibrary.h"
#include "reporting/MailMessage.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// Transcripts kept in their folder; older ones are removed.
constexpr size_t kTranscriptsKept = 100;

// libcurl, loaded when the first message goes out. Loading it brings in TLS and directory
// libraries whose start-up work alone takes several megabytes of memory; a service that sends
// no mail has no need of them.
struct Curl {
  CURLcode (*global_init)(long flags);
  CURL* (*easy_init)();
  CURLcode (*easy_setopt)(CURL* handle, CURLoption option, ...);
  CURLcode (*easy_perform)(CURL* handle);
  void (*easy_cleanup)(CURL* handle);
  const char* (*easy_strerror)(CURLcode code);
  curl_slist* (*slist_append)(curl_slist* list, const char* text);
  void (*slist_free_all)(curl_slist* list);
};

template <typename Function>
bool Bind(platform::SharedLibrary& library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(library.Symbol(name));
  return function != nullptr;
}

// The loaded and initialised library, kept for the life of the process; nullptr when it cannot
// be loaded.
const Curl* LoadCurl() {
  static const Curl* loaded = [] () -> const Curl* {
    static platform::SharedLibrary library("libcurl.so.4");
    static Curl curl;
    if (!library.Loaded() || !Bind(library, "curl_global_init", curl.global_init) ||
        !Bind(library, "curl_easy_init", curl.easy_init) || !Bind(library, "curl_easy_setopt", curl.easy_setopt) ||
        !Bind(library, "curl_easy_perform", curl.easy_perform) ||
        !Bind(library, "curl_easy_cleanup", curl.easy_cleanup) ||
        !Bind(library, "curl_easy_strerror", curl.easy_strerror) ||
        !Bind(library, "curl_slist_append", curl.slist_append) ||
        !Bind(library, "curl_slist_free_all", curl.slist_free_all)) {
      return nullptr;
    }
    if (curl.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return nullptr;
    return &curl;
  }();
  return loaded;
}

std::string HostName() {
  char buffer[256] = {};
  if (platform::GetHostName(buffer, sizeof buffer - 1) != 0 || buffer[0] == '\0') return "localhost";
  return buffer;
}

// What the SMTP conversation looked like, without the credentials.
struct Transcript {
  std::string text;
  bool afterChallenge = false;  // the server's last line asked for a credential (334)

  void Add(curl_infotype type, const char* data, size_t size) {
    const std::string chunk(data, size);
    for (auto line : Split(chunk, '\n')) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty()) continue;
      switch (type) {
        case CURLINFO_TEXT: text += "* " + line + "\n"; break;
        case CURLINFO_HEADER_IN:
          text += "< " + line + "\n";
          afterChallenge = line.rfind("334", 0) == 0;
          break;
        case CURLINFO_HEADER_OUT:
          if (line.rfind("AUTH ", 0) == 0) {
            text += "> AUTH " + line.substr(5, line.find(' ', 5) - 5) + " (credentials removed)\n";
          } else if (afterChallenge) {
            text += "> (credentials removed)\n";
          } else {
            text += "> " + line + "\n";
          }
          afterChallenge = false;
          break;
        default: break;  // the message itself and TLS records
      }
    }
  }
};

int OnDebug(CURL*, curl_infotype type, char* data, size_t size, void* user) {
  static_cast<Transcript*>(user)->Add(type, data, size);
  return 0;
}

// Asked by curl about once a second, also while it waits for the server: non-zero abandons.
int OnProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<const std::atomic<bool>*>(user)->load() ? 0 : 1;
}

struct Upload {
  const std::string& data;
  size_t position = 0;
};

size_t OnRead(char* buffer, size_t size, size_t count, void* user) {
  auto* upload = static_cast<Upload*>(user);
  const size_t room = size * count;
  const size_t left = upload->data.size() - upload->position;
  const size_t now = std::min(room, left);
  std::copy_n(upload->data.data() + upload->position, now, buffer);
  upload->position += now;
  return now;
}

// Releases what curl was given, whatever happens.
struct CurlHandles {
  explicit CurlHandles(const Curl* library) : api(library), easy(library ? library->easy_init() : nullptr) {}
  ~CurlHandles() {
    if (api == nullptr) return;
    api->slist_free_all(recipients);
    if (easy != nullptr) api->easy_cleanup(easy);
  }
  const Curl* api;
  CURL* easy;
  curl_slist* recipients = nullptr;
};

}  // namespace

MailServer MailServerFromSettings(TWSettings& settings) {
  auto mail = settings.General().MailSettings();
  SettingsStore& store = settings.Store();
  MailServer server;
  server.host = mail.Server();
  server.port = mail.Port();
  server.security = mail.Security();
  server.user = mail.User();
  server.password = mail.Password();
  server.sender = mail.SenderAddress();
  server.caFile = store.ReadText("mail.ca_file");
  server.verifyCertificate = store.ReadBool("mail.verify_certificate");
  // A zero would mean "wait for ever" to curl: every attempt stays bounded.
  server.connectTimeoutSeconds = std::max(1, store.ReadInt("mail.connect_timeout"));
  server.timeoutSeconds = std::max(1, store.ReadInt("mail.timeout"));
  return server;
}

std::vector<std::string> RecipientsFor(TWSettings& settings, int32_t mailType) {
  auto mail = settings.General().MailSettings();
  switch (mailType) {
    case mailtype::kSuccessReport: return SplitRecipients(mail.SuccessReportRecipients());
    case mailtype::kFailureReport: return SplitRecipients(mail.FailureReportRecipients());
    default: return SplitRecipients(mail.ReminderRecipients());
  }
}

std::string SenderAddress(const MailServer& server) {
  return server.sender.empty() ? "tarnwick@" + HostName() : server.sender;
}

SendOutcome SendMail(const MailServer& server, const std::vector<std::string>& recipients, const std::string& mime,
                     const std::atomic<bool>* keepGoing) {
  SendOutcome outcome;
  const std::string url = (server.security == "tls" ? "smtps://" : "smtp://") + server.host + ":" +
                          std::to_string(server.port);
  Transcript transcript;
  transcript.text = "Server: " + url + " (security " + server.security + ")\nFrom: " + SenderAddress(server) +
                    "\nTo: " + Join(recipients, ", ") + "\n\n";
  if (recipients.empty()) {
    outcome.error = "no recipients are set for this kind of e-mail";
    outcome.transcript = transcript.text + "Result: " + outcome.error + "\n";
    return outcome;
  }
  // The envelope carries bare addresses: a server answers "501 Syntax" to a name there. A line
  // break would reach the server as a command of its own; the console refuses both, but a value
  // may have been stored before it did.
  std::vector<std::string> envelope;
  for (const auto& entry : recipients) {
    std::string problem;
    const auto parsed = ParseMailAddress(entry, &problem);
    if (!parsed) {
      outcome.error = "invalid recipient address \"" + entry + "\" (" + problem + ")";
      outcome.transcript = transcript.text + "Result: " + outcome.error + "\n";
      return outcome;
    }
    envelope.push_back("<" + parsed->address + ">");
  }
  std::string problem;
  const auto sender = ParseMailAddress(SenderAddress(server), &problem);
  if (!sender) {
    outcome.error = "invalid sender address in mail.sender (" + problem + ")";
    outcome.transcript = transcript.text + "Result: " + outcome.error + "\n";
    return outcome;
  }
  const Curl* api = LoadCurl();
  CurlHandles curl(api);
  if (curl.easy == nullptr) {
    outcome.error = "the mail library could not start";
    outcome.transcript = transcript.text + "Result: " + outcome.error + "\n";
    return outcome;
  }
  Upload upload{mime};
  char errorText[CURL_ERROR_SIZE] = {};
  const std::string from = "<" + sender->address + ">";
  for (const auto& recipient : envelope) curl.recipients = api->slist_append(curl.recipients, recipient.c_str());
  api->easy_setopt(curl.easy, CURLOPT_URL, url.c_str());
  if (server.security == "starttls") api->easy_setopt(curl.easy, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
  if (!server.user.empty()) {
    api->easy_setopt(curl.easy, CURLOPT_USERNAME, server.user.c_str());
    api->easy_setopt(curl.easy, CURLOPT_PASSWORD, server.password.c_str());
  }
  if (!server.caFile.empty()) api->easy_setopt(curl.easy, CURLOPT_CAINFO, server.caFile.c_str());
  if (!server.verifyCertificate) {
    api->easy_setopt(curl.easy, CURLOPT_SSL_VERIFYPEER, 0L);
    api->easy_setopt(curl.easy, CURLOPT_SSL_VERIFYHOST, 0L);
  }
  api->easy_setopt(curl.easy, CURLOPT_MAIL_FROM, from.c_str());
  api->easy_setopt(curl.easy, CURLOPT_MAIL_RCPT, curl.recipients);
  api->easy_setopt(curl.easy, CURLOPT_READFUNCTION, OnRead);
  api->easy_setopt(curl.easy, CURLOPT_READDATA, &upload);
  api->easy_setopt(curl.easy, CURLOPT_UPLOAD, 1L);
  api->easy_setopt(curl.easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(mime.size()));
  api->easy_setopt(curl.easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(server.connectTimeoutSeconds));
  api->easy_setopt(curl.easy, CURLOPT_TIMEOUT, static_cast<long>(server.timeoutSeconds));
  api->easy_setopt(curl.easy, CURLOPT_NOSIGNAL, 1L);  // time-outs without signals: we run on a thread
  api->easy_setopt(curl.easy, CURLOPT_ERRORBUFFER, errorText);
  if (keepGoing != nullptr) {
    api->easy_setopt(curl.easy, CURLOPT_NOPROGRESS, 0L);
    api->easy_setopt(curl.easy, CURLOPT_XFERINFOFUNCTION, OnProgress);
    api->easy_setopt(curl.easy, CURLOPT_XFERINFODATA, keepGoing);
  }
  api->easy_setopt(curl.easy, CURLOPT_VERBOSE, 1L);
  api->easy_setopt(curl.easy, CURLOPT_DEBUGFUNCTION, OnDebug);
  api->easy_setopt(curl.easy, CURLOPT_DEBUGDATA, &transcript);
  const CURLcode result = api->easy_perform(curl.easy);
  outcome.ok = result == CURLE_OK;
  if (!outcome.ok) outcome.error = errorText[0] != '\0' ? errorText : api->easy_strerror(result);
  outcome.transcript = transcript.text + "\nResult: " + (outcome.ok ? "sent" : outcome.error) + "\n";
  return outcome;
}

Mailer::Mailer(TWSettings& settings, platform::EventLoop& loop, const Clock& clock, std::string transcriptFolder,
               std::function<std::string()> senderName)
    : settings_(settings),
      loop_(loop),
      clock_(clock),
      transcriptFolder_(std::move(transcriptFolder)),
      senderName_(std::move(senderName)) {}

Mailer::~Mailer() {
  *alive_ = false;
  for (auto& transfer : transfers_) {
    if (transfer.joinable()) transfer.join();
  }
}

size_t Mailer::InFlight() { return transfers_.size(); }

void Mailer::Send(const std::string& subject, const std::string& body, int32_t mailType,
                  const std::string& attachment, Success onSuccess, Failure onFailure) {
  // Everything from the settings is read here, on the service's thread; the transfer only sends.
  MailServer server;
  std::vector<std::string> recipients;
  std::string mime;
  SendOutcome early;
  try {
    server = MailServerFromSettings(settings_);
    recipients = RecipientsFor(settings_, mailType);
    const std::string senderName = senderName_ ? senderName_() : std::string(kProductName);
    MailMessage message{SenderAddress(server), senderName, recipients, subject, body, attachment};
    static std::mt19937_64 random{std::random_device{}()};
    const std::string unique = std::to_string(random());
    mime = ComposeMime(message, clock_.Now(), FormatStamp(clock_.Now()) + "." + unique + "@" + HostName(),
                       "=_Tarnwick_" + unique);
  } catch (...) {
    early.error = CurrentError("Mailer").Description;
    early.transcript = "The message could not be prepared: " + early.error + "\n";
  }
  // The library is loaded here, before the transfer starts, so that the first message takes no
  // longer in flight than the others: a transfer still under way when the service stops is given up.
  LoadCurl();
  auto transfer = transfers_.emplace(transfers_.end());
  auto alive = alive_;
  *transfer = std::thread([this, transfer, alive, server, recipients, mime, early, onSuccess, onFailure] {
    const SendOutcome outcome = early.error.empty() ? SendMail(server, recipients, mime, alive.get()) : early;
    loop_.Post([this, transfer, alive, outcome, onSuccess, onFailure] {
      if (*alive) Report(transfer, outcome, onSuccess, onFailure);
    });
  });
}

void Mailer::Report(std::list<std::thread>::iterator transfer, const SendOutcome& outcome, const Success& onSuccess,
                    const Failure& onFailure) {
  transfer->join();
  transfers_.erase(transfer);
  if (outcome.ok) {
    if (onSuccess) onSuccess();
  } else if (onFailure) {
    onFailure(WriteTranscript(outcome.transcript));
  }
}

std::string Mailer::WriteTranscript(const std::string& text) {
  std::error_code error;
  platform::CreatePrivateFolder(transcriptFolder_);
  const std::string path =
      transcriptFolder_ + "/transcript-" + FormatStamp(clock_.Now()) + "-" + std::to_string(++sequence_) + ".txt";
  std::ofstream(path, std::ios::binary) << text;
  std::vector<fs::path> transcripts;
  for (fs::directory_iterator it(transcriptFolder_, error), end; !error && it != end; it.increment(error)) {
    transcripts.push_back(it->path());
  }
  if (transcripts.size() > kTranscriptsKept) {
    std::sort(transcripts.begin(), transcripts.end(), [](const fs::path& a, const fs::path& b) {
      std::error_code ignored;
      return fs::last_write_time(a, ignored) < fs::last_write_time(b, ignored);
    });
    for (size_t i = 0; i + kTranscriptsKept < transcripts.size(); ++i) fs::remove(transcripts[i], error);
  }
  return path;
}

}  // namespace tw
