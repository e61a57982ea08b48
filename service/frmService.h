#pragma once
// The service's main form. Its load logic is the program's entry: it reads the command line and
// installs or removes the service, shows the installation dialog, or starts the service. While the
// service runs, the service manager's start, stop, pause and continue events switch the poll timer,
// which is what makes the service do its work.
#include <array>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "execution/frmBackup.h"
#include "platform/ServiceControl.h"
#include "reporting/clsReportLogEntry.h"
#include "scheduling/clsCurrentJobManager.h"
#include "service/InstallDialog.h"
#include "service/ServiceHost.h"

namespace tw {

// The texts of one service event and what it does to the poll timer.
struct ServiceEventTexts {
  const char* title;
  const char* message;
  const char* failureTitle;
};

// Logs the event's entry and switches the timer; on an error, logs the "unable to" entry instead
// and leaves `success` false.
void RunServiceEvent(modLogging& logging, const ServiceEventTexts& texts, const std::function<void()>& switchTimer,
                     bool& success);

class frmService {
 public:
  // Poll every ten seconds: often enough that a job starts within its minute, and the checks
  // fire in the 59 seconds after their time.
  static constexpr int kPollIntervalMs = 10000;

  frmService(ServiceHost& host, platform::IServiceControl& control, IInstallDialog& dialog, std::ostream& err);
  ~frmService();

  // Runs the program for its command line (its arguments joined by single blanks) and returns
  // the exit status. The service modes return when the service stops.
  int Load(const std::string& commandLine);

  // Installs the service to run under `user` (empty: the system's default account).
  bool Install(const std::string& user, const std::string& password);

  void ServiceStart(bool& success);
  void ServiceStop(bool& success);
  void ServicePause(bool& success);
  void ServiceContinue(bool& success);

  bool PollTimerEnabled() const;
  clsCurrentJobManager& JobManager() { return *jobManager_; }

  // The poll timer's tick: at most one console request, else the job walk; then the time-out
  // check, or a pending e-mail re-send. Location code 20000.
  void tmrPoll_Timer();

  // Launching a job into the lowest free slot. With all ten slots busy the launch fails under its
  // location code: 20008, 20007, 20007b.
  void TestLaunch(clsJob job);
  void ScheduledLaunch(clsJob job);
  void RunNowLaunch(clsJob job);

  // A run has ended: the outcome reported in every way the settings ask for, and the run removed
  // from the registry. Location code 20012.
  void CompletionHandling(const RunningJob& record);

  // Looks for earlier executors by `processArgument` and kills them, photographing the desktop.
  bool KillPreviousBackup(const std::string& processArgument);
  // Photographs the desktop; remembered for the report of a timed-out run.
  std::string CaptureScreenshot();

  // Picks up runs begun before the service last stopped: their markers are still in the
  // application folder; each is watched in a slot until it ends, and reported then.
  void AdoptRunsInProgress();

  // Writes one warning entry for each scheduled run missed since the last poll that looked at the
  // schedules (the service was stopped or paused), and one mail listing them; records them with
  // their jobs. A run the scheme would have skipped is not missed, nor one in the present minute,
  // whose check still fires. Missed runs are never started late.
  void ReportMissedRuns();

  const std::shared_ptr<frmBackup>& Slot(size_t index) const { return objBackup_.at(index); }
  bool TestRun() const { return testRun_ != nullptr; }
  bool ScreenshotTaken() const { return screenshotTaken_; }

 private:
  enum class LaunchKind { Test, Scheduled, RunNow };
  void Launch(clsJob job, LaunchKind kind);
  // Takes the pending console request, if any, and serves it; a request that cannot be served is
  // answered and logged once. True when there was a request: the job walk waits for the next tick.
  bool ServeConsoleRequest();
  // The job the console request names; when there is none, the request is answered and logged.
  std::optional<clsJob> RequestedJob(clsGeneral& general);
  // Appends a line to the console's answers; a failure is reported, never raised.
  void Answer(const std::string& line);
  // A job already running is not launched again: a scheduled run is skipped with a warning entry,
  // a request answered.
  void RefuseSecondRun(clsJob job, LaunchKind kind, const RunningJob& running);
  // Writes the report logs of ended runs that could not be written yet; each one written frees its
  // run's marker and registry record.
  void SavePendingReports();
  // Undoes a launch that did not start the rights launcher.
  void AbandonLaunch(const std::shared_ptr<frmBackup>& slot, const RunningJob& record, bool test);
  // The lowest empty slot, filled with a new launcher; null when all ten are busy.
  std::shared_ptr<frmBackup> TakeFreeSlot();
  void objBackup_BackupComplete(size_t slot, const RunningJob& record);
  // Empties the slot that holds `form`; the form is destroyed from the loop, after the call that
  // is running now has returned.
  void ReleaseSlot(size_t slot);
  // Gives up watching the run of `record`: its slot is released and its marker removed.
  void AbandonRunOf(const RunningJob& record);

  int InstallationDialog();
  int Setup(const std::string& accountText);
  void SetAccount(const std::string& user, const std::string& password);
  // After an installation: the account the service runs as gets its data (as root only); for
  // root, the default destination is made. False, with the reason, when that failed.
  bool PrepareData(std::string& failure);
  int Uninstall(bool quietly);
  int RunService(bool debug);
  void RecordInstalled(bool installed);
  // The service's state for the console, with a heartbeat; a failure is reported, never raised.
  void RecordState(std::string_view state);
  // The heartbeat of a tick; each minute, the metrics file when one is set.
  void Heartbeat(bool polled);
  // Each job's last run taken once from the report logs, for a settings file that kept no record.
  void RecordLastRunsFromReports();

  std::unique_ptr<clsCurrentJobManager> jobManager_;  // made before anything else
  ServiceHost& host_;
  platform::IServiceControl& control_;
  IInstallDialog& dialog_;
  std::ostream& err_;
  std::string displayName_;
  // The ten job slots objBackup0 .. objBackup9; empty until a job is launched into one.
  std::array<std::shared_ptr<frmBackup>, 10> objBackup_;
  platform::EventLoop::SourceId tmrPoll_;
  // Keeps the heartbeat going while the poll timer is off for a pause.
  platform::EventLoop::SourceId tmrHeartbeat_;
  Date metricsWritten_ = 0;
  std::string unrecordedState_;  // a state that could not be written yet, and since when
  Date unrecordedSince_ = 0;
  std::string metricsFailure_;  // the last one logged, so that it is logged once
  struct PendingReport {
    RunningJob record;
    clsReportLogEntry entry;
    bool failureLogged = false;
  };
  std::vector<PendingReport> pendingReports_;
  RunningJob testRun_;            // the test run under way: set by its launch, cleared by its completion
  bool screenshotTaken_ = false;  // set by the last screenshot
  std::string screenshotPath_;
};

}  // namespace tw
