#include "settings/SettingKeys.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"

namespace tw {

const std::vector<SettingKey>& AllSettingKeys() {
  using K = ValueKind;
  static const std::vector<SettingKey> keys = {
      {"general.default_destination", K::Text, "/var/backups/tarnwick",
       "destination of jobs added without --destination"},
      {"general.default_timeout", K::Integer, "240", "time-out in minutes of jobs added without --timeout",
       false, true, true, 0, 525600},

      {"mail.email_enabled", K::Boolean, "false", "send e-mail at all"},
      {"mail.success_recipients", K::Text, "", "recipients of reports of successful runs (separated by ;)", false,
       true, true, 0, 0, {}, TextForm::List},
      {"mail.failure_recipients", K::Text, "", "recipients of reports of failed or timed-out runs", false, true, true,
       0, 0, {}, TextForm::List},
      {"mail.reminder_recipients", K::Text, "", "recipients of reminders, maintenance and test e-mails", false, true,
       true, 0, 0, {}, TextForm::List},
      {"mail.server", K::Text, "localhost", "SMTP server host name"},
      {"mail.port", K::Integer, "25", "SMTP server port", false, true, true, 1, 65535},
      {"mail.security", K::Choice, "none", "connection security: none, starttls or tls", false, true, true, 0, 0,
       {"none", "starttls", "tls"}},
      {"mail.user", K::Text, "", "SMTP user name; empty for no authentication"},
      {"mail.password", K::Text, "", "SMTP password", true},
      {"mail.sender", K::Text, "", "sender address; empty for tarnwick@<host name>"},
      {"mail.ca_file", K::Text, "", "certificate authorities to trust besides the system's (PEM file)"},
      {"mail.verify_certificate", K::Boolean, "true", "check the server's TLS certificate"},
      {"mail.connect_timeout", K::Integer, "30", "seconds to wait for the connection", false, true, true, 1, 600},
      {"mail.timeout", K::Integer, "120", "seconds one attempt may take in all", false, true, true, 1, 3600},

      {"options.service_installed", K::Boolean, "false", "set by TWService -setup and -uninstall", false, false},
      {"options.detailed_logging", K::Boolean, "false", "write detail entries to the application log"},
      {"options.print_setting", K::Text, "", "printer (CUPS queue) for report print-outs; empty for none"},
      {"options.broadcast_recipients", K::Text, "", "user names that receive reminder messages (separated by ;)"},
      {"options.custom_product_name", K::Text, "", "name that replaces \"Tarnwick\" in every message"},
      {"options.sbs_reporting", K::Boolean, "false", "write SmallBusinessServer entries to syslog"},
      {"options.event_log", K::Boolean, "true", "write a Tarnwick syslog entry for every finished run"},
      {"options.executor_nologon", K::Boolean, "false", "start the executor with its no-logon option"},
      {"options.metrics_textfile", K::Text, "",
       "file the service rewrites each minute with its metrics for node_exporter's textfile collector; empty for "
       "none"},

      {"identity.user", K::Text, "", "account the backups run as"},
      {"identity.password", K::Text, "", "password of that account", true},
      {"identity.domain", K::Text, "", "domain of that account; empty for a local account"},

      {"templates.subject_completed_normally", K::Text, "Tarnwick backup %JOBNAME% completed normally",
       "subject of a success report"},
      {"templates.subject_encountered_errors", K::Text, "Tarnwick backup %JOBNAME% encountered errors",
       "subject of a failure report"},
      {"templates.subject_other_outcome", K::Text, "Tarnwick backup %JOBNAME% did not complete in time",
       "subject of a time-out report"},
      {"templates.test_reminder_subject", K::Text, "Tarnwick test reminder", "subject of a test reminder"},
      {"templates.test_reminder_body", K::Text, "This is a test reminder sent by the Tarnwick service.",
       "body of a test reminder", false, true, true, 0, 0, {}, TextForm::Lines},
      {"templates.reminder_subject", K::Text, "Tarnwick media reminder for %JOBNAME%",
       "subject of a media reminder"},
      {"templates.reminder_body", K::Text, "Please load the backup media labelled %LABEL%.",
       "body of a media reminder", false, true, true, 0, 0, {}, TextForm::Lines},

      {"deployment.support_email", K::Text, "support@tarnwick.example", "support e-mail address in error reports"},
      {"deployment.troubleshooting_page", K::Text, "https://tarnwick.example/support/diagnostics",
       "page on compiling diagnostics"},
      {"deployment.auth_troubleshooting_page", K::Text, "https://tarnwick.example/support/logon-errors",
       "page on logon errors of the backup account"},

      {"console.request_job_name", K::Text, "", "job of the pending console request", false, false, false},
      {"console.test_backup_requested", K::Boolean, "false", "a test backup is requested", false, false, false},
      {"console.run_job_request", K::Text, "", "day number of a pending run-now request", false, false, false},
      {"console.reminder_requested", K::Boolean, "false", "a reminder test is requested", false, false, false},
      {"console.reminder_by_email", K::Boolean, "false", "the reminder test sends e-mail", false, false, false},
      {"console.reminder_by_broadcast", K::Boolean, "false", "the reminder test broadcasts", false, false, false},
      {"console.test_finished", K::Boolean, "true", "no test is in progress", false, false, false},
      {"console.log_last_changed", K::Date, "0", "time of the newest log entry", false, false, false},
      {"console.latest_report_time", K::Date, "0", "time of the newest report log", false, false, false},
      {"console.answers_start", K::Integer, "0", "newest answer line when the latest request was made", false,
       false, false, 0, 2147483647},

      // What the service writes about itself, for the console and the next start.
      {"service.state", K::Text, "", "running, paused, stopping or stopped", false, false, false},
      {"service.state_since", K::Date, "0", "when the service's state began", false, false, false},
      {"service.heartbeat", K::Date, "0", "the service's latest sign of life", false, false, false},
      {"service.last_poll", K::Date, "0", "the latest poll tick that looked at the schedules", false, false, false},
      {"service.outcomes_recorded", K::Boolean, "false", "each job's last run was read from the report logs",
       false, false, false},
      // The report or reminder mail waiting for a re-send, so that a restart does not lose it.
      {"mail_retry.pending", K::Boolean, "false", "a mail waits for a re-send", false, false, false},
      {"mail_retry.subject", K::Text, "", "its subject", false, false, false},
      {"mail_retry.body", K::Text, "", "its body", false, false, false, 0, 0, {}, TextForm::Lines},
      {"mail_retry.type", K::Integer, "0", "its kind", false, false, false, 0, 10},
      {"mail_retry.attachment", K::Text, "", "its attachment", false, false, false},
      {"mail_retry.retry_count", K::Integer, "0", "re-sends made", false, false, false, 0, 100},
      {"mail_retry.last_attempt", K::Date, "0", "the latest try", false, false, false},
      {"mail_retry.report_job", K::Text, "", "the job of the report it carries", false, false, false},
      {"mail_retry.report_start", K::Date, "0", "the start of the run it reports", false, false, false},
  };
  return keys;
}

const SettingKey* FindSettingKey(std::string_view key) {
  const auto& keys = AllSettingKeys();
  const auto found = std::find_if(keys.begin(), keys.end(), [&](const SettingKey& k) { return k.key == key; });
  return found == keys.end() ? nullptr : &*found;
}

const SettingKey& SettingKeyOf(std::string_view key) {
  const SettingKey* found = FindSettingKey(key);
  if (found == nullptr) throw TWError(errnum::InvalidProcedureCall, "Unknown setting " + std::string(key), "TWSettings");
  return *found;
}

std::optional<bool> ParseBooleanWord(std::string_view text) {
  const std::string word = ToLower(TrimWhitespace(text));
  if (word == "true" || word == "yes" || word == "on" || word == "1") return true;
  if (word == "false" || word == "no" || word == "off" || word == "0") return false;
  return std::nullopt;
}

std::optional<std::string> TextProblem(std::string_view text, TextForm form, std::string_view what) {
  size_t character = 0;
  for (size_t i = 0; i < text.size(); ++character) {
    const auto [c, length] = Utf8CharAt(text, i);
    if (length == 0) {
      char byte[5];
      std::snprintf(byte, sizeof byte, "0x%02X", static_cast<unsigned char>(text[i]));
      return std::string(what) + " is not UTF-8 text (byte " + byte + " at position " + std::to_string(i + 1) + ")";
    }
    i += length;
    if (!IsControlCharacter(c)) continue;
    const bool spacing = c == '\t' || c == '\r' || c == '\n';
    if (form != TextForm::Line && spacing) continue;
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
    const std::string found = std::string(" holds the control character ") + code + " at character " +
                              std::to_string(character + 1);
    if (form == TextForm::Line) return std::string(what) + " must be one line of text, but" + found;
    return std::string(what) + found + " (only tabs and line breaks may be used)";
  }
  return std::nullopt;
}

std::optional<std::string> ValidateSettingText(const SettingKey& key, std::string_view text) {
  if (auto problem = TextProblem(text, key.kind == ValueKind::Text ? key.form : TextForm::Line, key.key)) {
    return problem;
  }
  const std::string shown = "\"" + std::string(text) + "\"";
  switch (key.kind) {
    case ValueKind::Text:
      return std::nullopt;
    case ValueKind::Boolean:
      if (ParseBooleanWord(text)) return std::nullopt;
      return "invalid value " + shown + " for " + std::string(key.key) + " (expected true or false)";
    case ValueKind::Integer: {
      const auto number = ParseNumber(text);
      // The range first: a number beyond every integer type must not be converted to one.
      if (number && *number >= static_cast<double>(key.minimum) && *number <= static_cast<double>(key.maximum) &&
          *number == std::trunc(*number)) {
        return std::nullopt;
      }
      return "invalid number " + shown + " for " + std::string(key.key) + " (expected a whole number from " +
             std::to_string(key.minimum) + " to " + std::to_string(key.maximum) + ")";
    }
    case ValueKind::Date:
      if (ParseNumber(text)) return std::nullopt;
      return "invalid date " + shown + " for " + std::string(key.key);
    case ValueKind::Choice: {
      const std::string word = ToLower(TrimWhitespace(text));
      if (std::find(key.choices.begin(), key.choices.end(), word) != key.choices.end()) return std::nullopt;
      std::vector<std::string> names(key.choices.begin(), key.choices.end());
      return "invalid value " + shown + " for " + std::string(key.key) + " (expected one of: " + Join(names, ", ") +
             ")";
    }
  }
  return std::nullopt;
}

}  // namespace tw
