#include "console/ReportCommands.h"

#include <algorithm>
#include <filesystem>
#include <random>

#include "common/Error.h"
#include "common/ProductName.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "monitoring/JobStates.h"
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

// The newest report logs that read, up to `count`, naming on `err` each one passed over.
std::vector<clsReportLogEntry> Newest(clsReportLogs& reports, int32_t count, std::ostream& err,
                                      bool* anySkipped = nullptr) {
  std::vector<std::string> skipped;
  auto entries = reports.GetSummaries(count, &skipped);
  NameSkipped(skipped, err);
  if (anySkipped != nullptr) *anySkipped = !skipped.empty();
  return entries;
}

bool IsPosition(const std::string& text) {
  return !text.empty() && text.size() <= 6 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
         text != std::string(text.size(), '0');
}

clsReportLogEntry Loaded(const std::string& path) {
  clsReportLogEntry entry;
  try {
    entry.Load(path);
  } catch (const TWError& e) {
    throw Failure("the report log " + path + " cannot be read: " + e.Description);
  }
  return entry;
}

// The report log `which` names, tried in this order: "latest", a position in 'twctl reports'
// (1 is the newest), a path or a file name in Reports, a job name (its newest report log). A file
// name comes before a job name so that what the listing shows always opens its own report.
clsReportLogEntry FindReport(clsReportLogs& reports, const std::string& which, std::ostream& err) {
  const std::string folder = reports.ReportLogsDirectory();
  if (which == "latest" || IsPosition(which)) {
    const int32_t position = which == "latest" ? 1 : std::stoi(which);
    bool skipped = false;
    const auto newest = Newest(reports, position, err, &skipped);
    if (newest.empty()) throw Failure((skipped ? "no report log reads in " : "there are no report logs in ") + folder);
    if (newest.size() < static_cast<size_t>(position)) {
      throw Failure("there is no report log at position " + which + " ('twctl reports' lists " +
                    std::to_string(newest.size()) + ")");
    }
    return newest.back();
  }
  std::error_code error;
  if (std::filesystem::exists(which, error)) return Loaded(which);
  if (which.find('/') == std::string::npos && std::filesystem::exists(folder + "/" + which, error)) {
    return Loaded(folder + "/" + which);
  }
  for (auto& entry : Newest(reports, 0, err)) {  // 0: every report log, newest first
    if (ToLower(entry.JobName) == ToLower(which)) return entry;
  }
  throw Failure("no report log or job with a report log named " + Quoted(which) + " ('twctl reports' lists them)");
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
                      {"time_start", WhenJson(e.TimeStart)},
                      {"time_end", WhenJson(e.TimeEnd)},
                      {"job", e.JobName},
                      {"description", e.JobDesc},
                      {"status", e.Status},
                      {"status_word", e.StatusString()},
                      {"label", e.Label},
                      {"computer", e.Computer},
                      {"first_line", FirstLine(e.Report)},
                      {"mail", MailOutcomeJson(settings.Store().ReportMail(e.JobName, e.TimeStart))}});
    }
    PrintJson(out, list);
    return 0;
  }
  if (entries.empty()) {
    out << "No report logs in " << reports.ReportLogsDirectory() << " yet.\n";
    return 0;
  }
  // FILE is what 'twctl report show' takes to open the line's report log.
  std::vector<std::vector<std::string>> rows = {{"STARTED", "JOB", "STATUS", "MAIL", "LABEL", "FILE", "REPORT"}};
  for (const auto& e : entries) {
    rows.push_back({IsoText(e.TimeStart).substr(0, 16), e.JobName, e.StatusString(),
                    MailOutcomeText(settings.Store().ReportMail(e.JobName, e.TimeStart)), e.Label,
                    std::filesystem::path(e.Filename()).filename().string(), FirstLine(e.Report)});
  }
  PrintTable(out, rows);
  return 0;
}

int ReportShow(TWSettings& settings, const ConsoleEnvironment& environment, const std::string& which, bool json,
               std::ostream& out, std::ostream& err) {
  SystemClock systemClock;
  clsReportLogs reports(environment.applicationFolder, settings, environment.clock ? *environment.clock : systemClock);
  const clsReportLogEntry entry = FindReport(reports, which, err);
  if (json) {
    Json extra = Json::object();
    for (const auto& key : entry.ExtraFieldKeys()) extra[key] = entry.ExtraField(key);
    PrintJson(out, {{"file", entry.Filename()},
                    {"job", entry.JobName},
                    {"description", entry.JobDesc},
                    {"time_start", WhenJson(entry.TimeStart)},
                    {"time_end", WhenJson(entry.TimeEnd)},
                    {"status", entry.Status},
                    {"status_word", entry.StatusString()},
                    {"label", entry.Label},
                    {"computer", entry.Computer},
                    {"fields", extra},
                    {"mail", MailOutcomeJson(settings.Store().ReportMail(entry.JobName, entry.TimeStart))},
                    {"report", entry.Report}});
    return 0;
  }
  out << "File:      " << entry.Filename() << "\n"
      << "Job:       " << entry.JobName << (entry.JobDesc.empty() ? "" : " (" + Shown(entry.JobDesc) + ")") << "\n"
      << "Started:   " << IsoText(entry.TimeStart) << "\n"
      << "Finished:  " << IsoText(entry.TimeEnd) << "\n"
      << "Status:    " << entry.StatusString() << " (" << entry.Status << ")\n"
      << "Label:     " << entry.Label << "\n"
      << "Computer:  " << entry.Computer << "\n"
      << "Mail:      " << MailOutcomeText(settings.Store().ReportMail(entry.JobName, entry.TimeStart)) << "\n";
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
