#include "console/ReportCommands.h"

#include <filesystem>
#include <random>

#include "common/Error.h"
#include "common/ProductName.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "platform/HostName.h"
#include "reporting/MailMessage.h"
#include "reporting/Mailer.h"
#include "reporting/clsReportLogs.h"

namespace tw::console {
namespace {

std::string FirstLine(const std::string& text) {
  const std::string trimmed(TrimWhitespace(text));
  return trimmed.substr(0, trimmed.find_first_of("\r\n"));
}

std::string Shown(const std::string& text) { return ReplaceAll(text, "\r\n", "\n"); }

void NameSkipped(const std::vector<std::string>& skipped, std::ostream& err) {
  for (const auto& file : skipped) err << "twctl: skipped the report log " << file << "\n";
}

}  // namespace

int Reports(TWSettings& settings, const ConsoleEnvironment& environment, int32_t count, bool json, std::ostream& out,
            std::ostream& err) {
  SystemClock systemClock;
  clsReportLogs reports(environment.applicationFolder, settings, environment.clock ? *environment.clock : systemClock);
  std::vector<std::string> skipped;
  const auto entries = reports.GetSummaries(count, &skipped);
  NameSkipped(skipped, err);
  if (json) {
    Json list = Json::array();
    for (const auto& e : entries) {
      list.push_back({{"file", std::filesystem::path(e.Filename()).filename().string()},
                      {"time_start", IsoText(e.TimeStart)},
                      {"time_end", IsoText(e.TimeEnd)},
                      {"job", e.JobName},
                      {"description", e.JobDesc},
                      {"status", e.Status},
                      {"status_word", e.StatusString()},
                      {"label", e.Label},
                      {"computer", e.Computer},
                      {"first_line", FirstLine(e.Report)}});
    }
    PrintJson(out, list);
    return 0;
  }
  if (entries.empty()) {
    out << "No report logs in " << reports.ReportLogsDirectory() << " yet.\n";
    return 0;
  }
  std::vector<std::vector<std::string>> rows = {{"STARTED", "JOB", "STATUS", "LABEL", "REPORT"}};
  for (const auto& e : entries) {
    rows.push_back({IsoText(e.TimeStart).substr(0, 16), e.JobName, e.StatusString(), e.Label, FirstLine(e.Report)});
  }
  PrintTable(out, rows);
  return 0;
}

int ReportShow(TWSettings& settings, const ConsoleEnvironment& environment, const std::string& which,
               std::ostream& out, std::ostream& err) {
  SystemClock systemClock;
  clsReportLogs reports(environment.applicationFolder, settings, environment.clock ? *environment.clock : systemClock);
  clsReportLogEntry entry;
  if (which == "latest") {
    std::vector<std::string> skipped;
    auto newest = reports.GetSummaries(1, &skipped);
    NameSkipped(skipped, err);
    if (newest.empty()) {
      throw Failure((skipped.empty() ? "there are no report logs in " : "no report log reads in ") +
                    reports.ReportLogsDirectory());
    }
    entry = newest[0];
  } else {
    std::error_code error;
    const std::string path = std::filesystem::exists(which, error) ? which : reports.ReportLogsDirectory() + "/" + which;
    if (!std::filesystem::exists(path, error)) throw Failure("no report log " + Quoted(which));
    try {
      entry.Load(path);
    } catch (const TWError& e) {
      throw Failure("the report log " + path + " cannot be read: " + e.Description);
    }
  }
  out << "File:      " << entry.Filename() << "\n"
      << "Job:       " << entry.JobName << (entry.JobDesc.empty() ? "" : " (" + Shown(entry.JobDesc) + ")") << "\n"
      << "Started:   " << IsoText(entry.TimeStart) << "\n"
      << "Finished:  " << IsoText(entry.TimeEnd) << "\n"
      << "Status:    " << entry.StatusString() << " (" << entry.Status << ")\n"
      << "Label:     " << entry.Label << "\n"
      << "Computer:  " << entry.Computer << "\n";
  for (const auto& key : entry.ExtraFieldKeys()) out << key << ": " << Shown(entry.ExtraField(key)) << "\n";
  out << "\n" << Shown(entry.Report);
  if (!entry.Report.empty() && entry.Report.back() != '\n') out << "\n";
  return 0;
}

int MailTest(TWSettings& settings, const ConsoleEnvironment& environment, const std::optional<std::string>& to,
             std::ostream& out, std::ostream& err) {
  SystemClock systemClock;
  const Clock& clock = environment.clock ? *environment.clock : systemClock;
  if (to) {
    CheckText(*to, TextForm::List, "--to");
    if (auto problem = MailAddressProblem(*to, true, "--to")) throw UsageError(*problem);
  }
  const MailServer server = MailServerFromSettings(settings);
  const std::vector<std::string> recipients = to ? SplitRecipients(*to) : RecipientsFor(settings, mailtype::kReminder);
  if (recipients.empty()) throw Failure("no recipient: give --to ADDRESS or set mail.reminder_recipients");
  char host[256] = {};
  platform::GetHostName(host, sizeof host - 1);
  // Named as the service names itself in its mails; the texts are branded before the host is put in.
  const std::string name = settings.General().Options().CustomProductName();
  MailMessage message{SenderAddress(server), Branded(kProductName, name), recipients,
                      Branded("Tarnwick test e-mail", name),
                      Branded("This is a test e-mail sent with twctl on ", name) + host +
                          Branded(".\r\nIf you can read it, Tarnwick can send its reports and reminders.\r\n", name),
                      ""};
  // Two tests within one second still get Message-IDs of their own.
  const std::string unique = std::to_string(std::random_device{}());
  const std::string mime = ComposeMime(message, clock.Now(), FormatStamp(clock.Now()) + ".twctl." + unique + "@" + host,
                                       "=_Tarnwick_twctl");
  const SendOutcome outcome = SendMail(server, recipients, mime);
  const std::string where = (server.security == "tls" ? "smtps://" : "smtp://") + server.host + ":" +
                            std::to_string(server.port) + " (" + server.security + ")";
  if (outcome.ok) {
    out << "Test e-mail sent to " << Join(recipients, ", ") << " through " << where << ".\n";
    return 0;
  }
  out << outcome.transcript;
  err << "twctl: the test e-mail could not be sent through " << where << ": " << outcome.error << "\n";
  return 1;
}

}  // namespace tw::console
