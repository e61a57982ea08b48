#pragma once
// The service's main form. Its load logic is the program's entry: it reads the command line and
// installs or removes the service, shows the installation dialog, or starts the service. While the
// service runs, the service manager's start, stop, pause and continue events switch the poll timer,
// which is what makes the service do its work.
#include <array>
#include <memory>
#include <ostream>
#include <string>

#include "platform/ServiceControl.h"
#include "scheduling/clsCurrentJobManager.h"
#include "service/InstallDialog.h"
#include "service/ServiceHost.h"

namespace tw {

class frmBackup;

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

 private:
  int InstallationDialog();
  int Setup(const std::string& accountText);
  int Uninstall(bool quietly);
  int RunService(bool debug);
  void RecordInstalled(bool installed);
  void PollTick();

  std::unique_ptr<clsCurrentJobManager> jobManager_;  // made before anything else
  ServiceHost& host_;
  platform::IServiceControl& control_;
  IInstallDialog& dialog_;
  std::ostream& err_;
  std::string displayName_;
  // The ten job slots objBackup0 .. objBackup9; empty until a job is launched into one.
  std::array<std::shared_ptr<frmBackup>, 10> objBackup_;
  platform::EventLoop::SourceId tmrPoll_;
};

}  // namespace tw
