#pragma once
// The service's e-mail: the state of the one mail in flight, the report mail of a finished run,
// media reminders, maintenance mails and reminder tests, and the re-send of a failed mail every
// fifteen minutes, up to eleven times. A new mail replaces the state of the one before; the
// replaced mailer's outcome still arrives, at the same handlers. The state of a mail waiting for a
// re-send is kept in the settings store as well, so that a restart goes on where it was; what
// became of each report's mail is recorded there too.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "execution/ExecutionHost.h"
#include "reporting/Mailer.h"
#include "reporting/frmMailer.h"
#include "scheduling/DueChecks.h"

namespace tw {

class ServiceMail {
 public:
  // A failed mail is sent again once more than this many minute boundaries have passed.
  static constexpr int64_t kResendAfterMinutes = 15;
  // The re-send that would be the twelfth sends nothing: a mail is given up after eleven.
  static constexpr int16_t kGiveUpAtRetry = 12;

  ServiceMail(ExecutionHost& host, Mailer& mailer, clsDueChecks& checks)
      : host_(host), mailer_(mailer), checks_(checks) {}

  // The mail state.
  bool testEmail = false;
  bool reminderEmail = false;
  bool reportEmail = false;
  bool retryPending = false;
  std::string subject;
  std::string body;
  int32_t mailType = 0;
  std::string attachment;
  int16_t retryCount = 0;
  Date lastAttempt = 0;
  std::shared_ptr<frmMailer> objMailer;
  // The run whose report the mail state carries; empty for any other mail.
  std::string reportJob;
  Date reportStart = 0;

  // A report of a finished run; `success` picks the mail type. Location code 20005.
  void SendReportMail(const std::string& subject, const std::string& body, bool success, const std::string& attachment,
                      const std::string& jobName = {}, Date runStart = 0);
  // Records that a run's report mail was not asked for (mail off, or no recipients).
  void ReportMailNotAskedFor(const std::string& jobName, Date runStart);
  // The scheduled runs missed while the service was stopped or paused, one line each, in one mail
  // to the failure recipients. It stands beside the mail state: a report waiting for its re-send
  // keeps waiting. A failure is logged and not sent again.
  void MissedBackupMail(const std::vector<std::string>& missedRuns);
  // Takes up the mail that waited for a re-send when the service last stopped.
  void RestoreRetryState();
  void objMailer_SendFailed(const std::string& transcriptPath);  // location code 20011
  void objMailer_SendSuccessful();                               // location code 20010
  // Whether the poll loop should call ResendMail now.
  bool ResendDue() const;
  void ResendMail();  // location code 20019

  // The report subject for an outcome (1 normal, 2 errors, else timed out). Location code 20021.
  std::string ReportSubject(const std::string& jobName, int16_t status);
  std::string ReminderSubject(clsJob job);  // location code 20022
  // The reminder body with the media label for the present moment. Location code 20015.
  std::string ReminderBody(clsJob job);

  void MediaReminder(clsJob job);     // location code 20003
  void MaintenanceEmail(clsJob job);  // location code 20020
  void ReminderTest(clsJob job);      // location code 20006

 private:
  // A new mailer, made the current one, its events bound to this state.
  void NewMailer();
  void LogFailure(const std::string& title, const std::string& message, const std::string& transcriptPath);
  void ReleaseCurrentMailer();
  // The mail state, written to the store as it stands; a failure is reported, never raised.
  void SaveRetryState();
  // What became of the report mail in the state, when it carries one, or of another one.
  void RecordReportMail(const std::string& state, int32_t retry, Date at);
  void RecordOutcomeOf(const std::string& job, Date start, const ReportMailOutcome& outcome);
  // Starting a new mail drops the one waiting for a re-send, if any: its report mail is given up.
  void DropWaitingReport();

  ExecutionHost& host_;
  Mailer& mailer_;
  clsDueChecks& checks_;
  // Mailers replaced while their mail was in flight; kept until their outcome has arrived.
  std::vector<std::shared_ptr<frmMailer>> inFlight_;
};

}  // namespace tw
