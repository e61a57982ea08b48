#pragma once
// The launcher of one backup run (one job slot). DoBackup writes the run's marker file and starts
// the executor through the rights launcher "DesktopRights", which runs it under the backup
// account; the launcher turns the rights launcher's answer into log entries and explanations,
// then watches the job's run status every two seconds until the executor has finished, reads the
// executor's report from the marker and raises BackupComplete, once per run.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "execution/ExecutionHost.h"
#include "execution/clsAdvShell.h"
#include "scheduling/clsCurrentJobManager.h"

namespace tw {

class frmBackup {
 public:
  // Often enough to notice the end of a run soon; a run takes minutes.
  static constexpr int kPollIntervalMs = 2000;

  explicit frmBackup(ExecutionHost& host);
  ~frmBackup();
  frmBackup(const frmBackup&) = delete;
  frmBackup& operator=(const frmBackup&) = delete;

  // Starts the run of `job` described by `record` and returns at once. False when it failed before
  // the rights launcher was started: no run is under way, and BackupComplete is never raised.
  bool DoBackup(const RunningJob& record, const clsJob& job);
  // Watches a run that is already under way (its marker in place, begun before the service last
  // stopped) until it ends, as for a run this form started.
  void Adopt(const RunningJob& record, const clsJob& job);
  const RunningJob& Record() const { return record_; }

  // Raised once per run, with the record's end time, status and report filled in. Its handler
  // must not destroy this form in the same call; release it from the event loop afterwards.
  std::function<void(const RunningJob&)> BackupComplete;

  // Suppresses reading the report from the marker when the run completes.
  bool StopFlag = false;

  // The poll timer's tick; the timer calls it every two seconds while it runs.
  void tmrPoll_Timer();
  bool PollTimerEnabled() const;
  // The marker file of the run: <application folder>/BackupLog-<backup log id>.txt.
  std::string BackupLogPath() const { return backupLogPath_; }
  clsAdvShell& Shell() { return mobjAdvShell_; }

 private:
  void mobjAdvShell_ReturnProg(int32_t exitCode);
  void DeleteBackupLog();
  // The run status the executor set; for a job removed while it ran, read from its report.
  int16_t RunStatusNow();
  // Gives the backup account what the executor must reach when it runs as that account.
  void ShareRunFiles(clsIdentity identity);
  // Ends the run with `status` and `report`: end time, status, report, BackupComplete.
  void Complete(int16_t status, const std::string& report);

  ExecutionHost& host_;
  clsAdvShell mobjAdvShell_;
  platform::EventLoop::SourceId tmrPoll_;
  RunningJob record_;
  std::optional<clsJob> job_;
  std::string backupLogPath_;
  bool completed_ = false;
};

}  // namespace tw
