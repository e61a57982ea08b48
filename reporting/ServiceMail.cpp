#include "reporting/ServiceMail.h"

#include <fstream>
#include <sstream>

#include "common/Error.h"
#include "common/Strings.h"
#include "reporting/Broadcast.h"

namespace tw {
namespace {

std::string ReadTranscript(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return in ? content.str() : "The transcript " + path + " cannot be read.";
}

}  // namespace

void ServiceMail::NewMailer() {
  auto mailer = std::make_shared<frmMailer>(mailer_, host_.logging);
  // The report this mailer carries: once a later mail has taken the state, its outcome is still
  // recorded for its own report, which is not sent again.
  const std::string job = reportJob;
  const Date start = reportStart;
  const auto replaced = [this, job, start] { return !job.empty() && (job != reportJob || start != reportStart); };
  mailer->SendFailed = [this, job, start, replaced](const std::string& transcript) {
    if (replaced()) RecordOutcomeOf(job, start, {"given up", 0, host_.clock.Now()});
    objMailer_SendFailed(transcript);
  };
  mailer->SendSuccessful = [this, job, start, replaced] {
    if (replaced()) RecordOutcomeOf(job, start, {"sent", 0, host_.clock.Now()});
    objMailer_SendSuccessful();
  };
  std::weak_ptr<frmMailer> weak = mailer;
  mailer->Finished = [this, weak] {
    // Dropped from the loop, not in the middle of its own event.
    host_.loop.Post([this, weak] {
      const auto done = weak.lock();
      std::erase(inFlight_, done);
    });
  };
  inFlight_.push_back(mailer);
  objMailer = mailer;
}

void ServiceMail::ReleaseCurrentMailer() {
  if (objMailer) objMailer->IgnoreEvents = true;
  objMailer.reset();
}

void ServiceMail::RecordOutcomeOf(const std::string& job, Date start, const ReportMailOutcome& outcome) {
  if (job.empty()) return;
  try {
    host_.settings.Store().SetReportMail(job, start, outcome);
  } catch (...) {
    host_.logging.ReportInternalError("20005", CurrentError("TWService"));
  }
}

void ServiceMail::RecordReportMail(const std::string& state, int32_t retry, Date at) {
  RecordOutcomeOf(reportJob, reportStart, {state, retry, at});
}

void ServiceMail::DropWaitingReport() {
  if (retryPending) RecordReportMail("given up", retryCount, lastAttempt);
  reportJob.clear();
  reportStart = 0;
}

void ServiceMail::SaveRetryState() {
  try {
    SettingsStore& store = host_.settings.Store();
    store.InTransaction([&] {
      store.WriteBool("mail_retry.pending", retryPending);
      store.WriteText("mail_retry.subject", retryPending ? subject : "");
      store.WriteText("mail_retry.body", retryPending ? body : "");
      store.WriteInt("mail_retry.type", mailType);
      store.WriteText("mail_retry.attachment", retryPending ? attachment : "");
      store.WriteInt("mail_retry.retry_count", retryCount);
      store.WriteDate("mail_retry.last_attempt", lastAttempt);
      store.WriteText("mail_retry.report_job", reportJob);
      store.WriteDate("mail_retry.report_start", reportStart);
    });
  } catch (...) {
    host_.logging.ReportInternalError("20011", CurrentError("TWService"));
  }
}

void ServiceMail::RestoreRetryState() {
  try {
    SettingsStore& store = host_.settings.Store();
    if (!store.ReadBool("mail_retry.pending")) return;
    retryPending = true;
    subject = store.ReadText("mail_retry.subject");
    body = store.ReadText("mail_retry.body");
    mailType = store.ReadInt("mail_retry.type");
    attachment = store.ReadText("mail_retry.attachment");
    retryCount = static_cast<int16_t>(store.ReadInt("mail_retry.retry_count"));
    lastAttempt = store.ReadDate("mail_retry.last_attempt");
    reportJob = store.ReadText("mail_retry.report_job");
    reportStart = store.ReadDate("mail_retry.report_start");
  } catch (...) {
    retryPending = false;
    host_.logging.ReportInternalError("20019", CurrentError("TWService"));
  }
}

void ServiceMail::ReportMailNotAskedFor(const std::string& jobName, Date runStart) {
  try {
    host_.settings.Store().SetReportMail(jobName, runStart, {"not asked for", 0, 0});
  } catch (...) {
    host_.logging.ReportInternalError("20005", CurrentError("TWService"));
  }
}

void ServiceMail::MissedBackupMail(const std::vector<std::string>& missedRuns) {
  try {
    if (!host_.settings.General().MailSettings().EmailEnabled()) return;
    if (RecipientsFor(host_.settings, mailtype::kFailureReport).empty()) return;
    auto mailer = std::make_shared<frmMailer>(mailer_, host_.logging);
    mailer->SendFailed = [this](const std::string& transcript) {
      LogFailure("Missed backup email could not be sent",
                 "The email about missed backups could not be sent. Details can be found in the attachment.",
                 transcript);
    };
    mailer->SendSuccessful = [] {};
    std::weak_ptr<frmMailer> weak = mailer;
    mailer->Finished = [this, weak] {
      host_.loop.Post([this, weak] { std::erase(inFlight_, weak.lock()); });
    };
    inFlight_.push_back(mailer);
    std::string text = host_.logging.BrandText(
        "The Tarnwick service was not running, or was paused, when these backups were due. They were not started "
        "late; each job runs again at its next scheduled time.\r\n\r\n");
    for (const std::string& line : missedRuns) text += line + "\r\n";
    int32_t type = mailtype::kFailureReport;
    mailer->Mail(host_.logging.BrandText("Tarnwick missed backup"), text, type, "");
  } catch (...) {
    host_.logging.ReportInternalError("20005", CurrentError("TWService"));
  }
}

void ServiceMail::SendReportMail(const std::string& reportSubject, const std::string& reportBody, bool success,
                                 const std::string& reportAttachment, const std::string& jobName, Date runStart) {
  try {
    DropWaitingReport();
    reportJob = jobName;
    reportStart = runStart;
    NewMailer();
    reportEmail = true;
    retryPending = false;
    subject = reportSubject;
    body = reportBody;
    attachment = reportAttachment;
    retryCount = 0;
    lastAttempt = host_.clock.Now();
    mailType = success ? mailtype::kSuccessReport : mailtype::kFailureReport;
    RecordReportMail("waiting", 0, lastAttempt);
    SaveRetryState();
    objMailer->Mail(subject, body, mailType, attachment);
  } catch (...) {
    host_.logging.ReportInternalError("20005", CurrentError("TWService"));
  }
}

void ServiceMail::LogFailure(const std::string& title, const std::string& message, const std::string& transcriptPath) {
  host_.logging.Logs().AddLogSimple(2, title, message, 1, ReadTranscript(transcriptPath));
}

void ServiceMail::objMailer_SendFailed(const std::string& transcriptPath) {
  try {
    auto general = host_.settings.General();
    retryPending = true;
    if (testEmail) {
      general.Console().AppendTestLine("RESULT: Email was unable to be sent.");
      LogFailure("Test email failed", "The test email was unable to be sent. Details can be found in the attachment.",
                 transcriptPath);
      testEmail = false;
      if (general.MailSettings().ReminderRecipients().empty()) retryPending = false;
    }
    if (reportEmail) {
      LogFailure("Report email could not be sent",
                 "The report email could not be sent. Details can be found in the attachment.", transcriptPath);
      reportEmail = false;
      auto mail = general.MailSettings();
      if (mail.SuccessReportRecipients().empty() && mail.FailureReportRecipients().empty()) retryPending = false;
    }
    if (reminderEmail) {
      LogFailure("Reminder email could not be sent",
                 "The reminder email could not be sent. Details can be found in the attachment.", transcriptPath);
      reminderEmail = false;
      if (general.MailSettings().ReminderRecipients().empty()) retryPending = false;
    }
    if (retryCount > 0) {
      LogFailure("Attempt to re-send email failed (retry #" + std::to_string(retryCount) + ")",
                 "The attempt to re-send the email failed. Details can be found in the attachment.", transcriptPath);
    }
    if (!retryPending) {
      RecordReportMail("given up", retryCount, lastAttempt);
    } else if (retryCount + 1 >= kGiveUpAtRetry) {
      // The re-send that would be the twelfth sends nothing.
      RecordReportMail("given up", retryCount, lastAttempt);
    } else {
      // Sent again at the first poll after more than fifteen minute boundaries have passed.
      const DateParts p = SplitDate(lastAttempt);
      const Date nextTry = MakeDate({p.year, p.month, p.day, p.hour, p.minute, 0}) + (kResendAfterMinutes + 1) / 1440.0;
      RecordReportMail("waiting", retryCount + 1, nextTry);
    }
    SaveRetryState();
    ReleaseCurrentMailer();
  } catch (...) {
    host_.logging.ReportInternalError("20011", CurrentError("TWService"));
  }
}

void ServiceMail::objMailer_SendSuccessful() {
  try {
    // A test mail's success ends the re-sends of the mail in the state too, which then never goes.
    const bool stateMailSent = !testEmail;
    if (!stateMailSent && retryPending) RecordReportMail("given up", retryCount, lastAttempt);
    if (stateMailSent) RecordReportMail("sent", 0, host_.clock.Now());
    retryPending = false;
    retryCount = 0;
    if (testEmail) {
      host_.settings.General().Console().AppendTestLine("RESULT: Email sent successfully.");
      host_.logging.Logs().AddLogSimple(0, "Test email successful", "The test email was successfully sent.", 0, "");
      testEmail = false;
    }
    reportEmail = false;
    reminderEmail = false;
    SaveRetryState();
    ReleaseCurrentMailer();
  } catch (...) {
    host_.logging.ReportInternalError("20010", CurrentError("TWService"));
  }
}

bool ServiceMail::ResendDue() const {
  return retryPending && MinutesBetween(lastAttempt, host_.clock.Now()) > kResendAfterMinutes;
}

void ServiceMail::ResendMail() {
  try {
    ++retryCount;
    retryPending = false;
    if (retryCount >= kGiveUpAtRetry) {
      SaveRetryState();
      return;
    }
    lastAttempt = host_.clock.Now();
    SaveRetryState();
    host_.logging.Logs().AddLogSimple(0, "Attempting to re-send email (retry #" + std::to_string(retryCount) + ")",
                                      "Retrying to send email ", 0, "");
    NewMailer();
    objMailer->Mail(subject, body, mailType, attachment);
  } catch (...) {
    host_.logging.ReportInternalError("20019", CurrentError("TWService"));
  }
}

std::string ServiceMail::ReportSubject(const std::string& jobName, int16_t status) {
  try {
    auto templates = host_.settings.General().Templates();
    const std::string text = status == 1   ? templates.SubjectCompletedNormally()
                             : status == 2 ? templates.SubjectEncounteredErrors()
                                           : templates.SubjectOtherOutcome();
    return ReplaceAll(host_.logging.BrandText(text), "%JOBNAME%", jobName);
  } catch (...) {
    host_.logging.ReportInternalError("20021", CurrentError("TWService"));
    return {};
  }
}

std::string ServiceMail::ReminderSubject(clsJob job) {
  try {
    const std::string text = host_.settings.General().Templates().ReminderSubject();
    return ReplaceAll(host_.logging.BrandText(text), "%JOBNAME%", job.Name());
  } catch (...) {
    host_.logging.ReportInternalError("20022", CurrentError("TWService"));
    return {};
  }
}

std::string ServiceMail::ReminderBody(clsJob job) {
  try {
    const std::string text = host_.settings.General().Templates().ReminderBody();
    return ReplaceAll(host_.logging.BrandText(text), "%LABEL%", checks_.GetSchemeLabel(job, host_.clock.Now()));
  } catch (...) {
    host_.logging.ReportInternalError("20015", CurrentError("TWService"));
    return {};
  }
}

void ServiceMail::MediaReminder(clsJob job) {
  try {
    auto notification = job.JobNotification();
    auto general = host_.settings.General();
    if (notification.MediaReminderByBroadcast()) {
      subject = ReminderSubject(job);
      body = ReminderBody(job);
      Broadcast(host_, general.Options().BroadcastRecipients(), subject, body);
    }
    // With no reminder recipients the reminder mail is not asked for: not sent, and not a failure.
    if (notification.MediaReminderByEmail() && general.MailSettings().EmailEnabled() &&
        !RecipientsFor(host_.settings, mailtype::kReminder).empty()) {
      DropWaitingReport();
      NewMailer();
      reminderEmail = true;
      retryPending = false;
      subject = ReminderSubject(job);
      body = ReminderBody(job);
      attachment.clear();
      retryCount = 0;
      mailType = mailtype::kReminder;
      lastAttempt = host_.clock.Now();
      SaveRetryState();
      objMailer->Mail(subject, body, mailType, attachment);
    }
  } catch (...) {
    host_.logging.ReportInternalError("20003", CurrentError("TWService"));
  }
}

void ServiceMail::MaintenanceEmail(clsJob job) {
  try {
    auto notification = job.JobNotification();
    // The job's own switch decides alone: the global e-mail switch is not asked here.
    if (!notification.MaintenanceEmailEnabled()) return;
    // Maintenance mail goes to the reminder recipients; with none it is not asked for.
    if (RecipientsFor(host_.settings, mailtype::kMaintenance).empty()) return;
    DropWaitingReport();
    NewMailer();
    reminderEmail = true;
    retryPending = false;
    subject = notification.MaintenanceSubject();
    body = notification.MaintenanceBody();
    attachment.clear();
    retryCount = 0;
    lastAttempt = host_.clock.Now();
    mailType = mailtype::kMaintenance;
    SaveRetryState();
    objMailer->Mail(subject, body, mailType, attachment);
  } catch (...) {
    host_.logging.ReportInternalError("20020", CurrentError("TWService"));
  }
}

void ServiceMail::ReminderTest(clsJob) {
  try {
    NewMailer();
    auto general = host_.settings.General();
    auto console = general.Console();
    console.AppendTestLine("Sending reminders...");
    console.TestFinished(false);
    const bool byEmail = console.ReminderByEmailSelected();
    const bool byBroadcast = console.ReminderByBroadcastSelected();
    if (!byEmail && !byBroadcast) {
      console.AppendTestLine("RESULT: Error - no reminder tasks were selected. Please check your notification settings.");
      return;
    }
    auto templates = general.Templates();
    const std::string testSubject = host_.logging.BrandText(templates.TestReminderSubject());
    const std::string testBody = host_.logging.BrandText(templates.TestReminderBody());
    if (byBroadcast) {
      console.AppendTestLine("Sending network broadcast reminder...");
      Broadcast(host_, general.Options().BroadcastRecipients(), testSubject, testBody);
    }
    if (byEmail) {
      console.AppendTestLine("Sending test reminder email...");
      testEmail = true;
      // The test mail is not kept in the mail state: a re-send sends the state as it stood.
      int32_t type = mailtype::kReminder;
      objMailer->Mail(testSubject, testBody, type, "");
    } else {
      console.AppendTestLine("RESULT: Test complete.");
      testEmail = false;
    }
  } catch (...) {
    host_.logging.ReportInternalError("20006", CurrentError("TWService"));
  }
}

}  // namespace tw
