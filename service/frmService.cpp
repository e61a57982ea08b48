#include "service/frmService.h"

#include <iostream>

#include "common/Error.h"
#include "common/Strings.h"
#include "logging/LogDisplay.h"
#include "monitoring/Metrics.h"
#include "platform/Accounts.h"
#include "platform/Environment.h"
#include "platform/FileLock.h"
#include "platform/Ownership.h"
#include "service/ServiceAccountData.h"

namespace tw {
namespace {

const ServiceEventTexts kStart{"Tarnwick service starting", "The Tarnwick service has been instructed to start",
                               "Tarnwick service unable to start"};
const ServiceEventTexts kStop{"Tarnwick service stopping", "The Tarnwick service has been instructed to stop",
                              "Tarnwick service unable to stop"};
const ServiceEventTexts kPause{"Tarnwick service pausing", "The Tarnwick service has been instructed to pause",
                               "Tarnwick service unable to pause"};
const ServiceEventTexts kContinue{"Tarnwick service continuing",
                                  "The Tarnwick service has been instructed to continue",
                                  "Tarnwick service unable to continue"};

// The value that accepts pause and continue besides stop.
constexpr int32_t kAcceptPauseContinue = 2;

const char* const kUsage =
    "Usage: TWService [-install | -setup USER PASSWORD | -uninstall | -unsetup | -debug | -version]\n"
    "With no option it runs as the service (under systemd); -debug runs it in the foreground.";

}  // namespace

void RunServiceEvent(modLogging& logging, const ServiceEventTexts& texts, const std::function<void()>& switchTimer,
                     bool& success) {
  success = false;
  try {
    std::string title = texts.title;
    std::string message = texts.message;
    logging.BrandText(title);
    logging.BrandText(message);
    logging.Logs().AddLogSimple(0, title, message, 0, "");
    switchTimer();
    success = true;
  } catch (...) {
    const TWError error = CurrentError("TWService");
    std::string title = texts.failureTitle;
    logging.BrandText(title);
    logging.Logs().AddLogSimple(2, title,
                                "Details: " + std::to_string(error.Number) + " / " + error.Description + " / " +
                                    error.Source,
                                0, "");
  }
}

frmService::frmService(ServiceHost& host, platform::IServiceControl& control, IInstallDialog& dialog,
                       std::ostream& err)
    : jobManager_(std::make_unique<clsCurrentJobManager>(host.clock)),
      host_(host),
      control_(control),
      dialog_(dialog),
      err_(err) {
  tmrPoll_ = host_.loop.AddTimer(kPollIntervalMs, [this] { tmrPoll_Timer(); });
  tmrHeartbeat_ = host_.loop.AddTimer(kPollIntervalMs, [this] { Heartbeat(false); });
}

frmService::~frmService() {
  host_.loop.Remove(tmrHeartbeat_);
  host_.loop.Remove(tmrPoll_);
}

int frmService::Load(const std::string& commandLine) {
  displayName_ = host_.logging.BrandText(control_.DisplayName());
  if (commandLine == "-install") return InstallationDialog();
  if (commandLine.compare(0, 6, "-setup") == 0) {
    // The account text begins after "-setup" and one separator.
    return Setup(commandLine.size() > 7 ? commandLine.substr(7) : std::string());
  }
  if (commandLine == "-uninstall") return Uninstall(false);
  if (commandLine == "-unsetup") return Uninstall(true);
  if (commandLine == "-debug") {
    control_.Debug(true);
    return RunService(true);
  }
  if (commandLine.empty()) return RunService(false);
  err_ << host_.logging.BrandText("Tarnwick Monitor Service: Invalid command option. Do not try installing the "
                                  "Tarnwick Service manually, unless instructed to do so by Tarnwick Support.\n")
       << kUsage << "\n";
  return 2;
}

bool frmService::Install(const std::string& user, const std::string& password) {
  SetAccount(user, password);
  return control_.Install();
}

void frmService::SetAccount(const std::string& user, const std::string& password) {
  control_.Interactive(true);
  if (!user.empty()) {
    // A name without a domain is a local account.
    control_.Account(user.find('\\') == std::string::npos ? ".\\" + user : user);
    control_.Password(password);
  } else {
    control_.Account("");
    control_.Password("");
  }
}

bool frmService::PrepareData(std::string& failure) {
  if (!platform::RunningAsRoot()) return true;
  ServiceDataPlaces places{host_.applicationFolder, host_.settings.Path(), ""};
  try {
    places.defaultDestination = host_.settings.General().DefaultDestination();
  } catch (...) {
    failure = "the default destination could not be read: " + CurrentError("TWService").Description;
    return false;
  }
  const std::string user = control_.ServiceUser();
  if (user.empty()) {
    // The service runs as root: nothing changes owner.
    failure = places.defaultDestination.empty() ? "" : platform::CreateFolder(places.defaultDestination, 0700);
  } else if (const auto account = platform::LookUpAccount(user)) {
    failure = GiveServiceDataTo(*account, places);
    if (!failure.empty()) failure = "the data could not be given to " + user + ": " + failure;
  } else {
    failure = "there is no account \"" + user + "\" on this system";
  }
  return failure.empty();
}

void frmService::RecordInstalled(bool installed) {
  try {
    // Without a settings file the service reads as not installed already: none is made to say so.
    if (!installed && !host_.settings.Store().Exists()) return;
    host_.settings.General().Options().ServiceInstalled(installed);
  } catch (...) {
    err_ << "TWService: the installation could not be recorded in the settings: "
         << CurrentError("TWService").Description << "\n";
  }
}

int frmService::Setup(const std::string& accountText) {
  std::string user, password;
  if (!accountText.empty()) {
    // The password is everything after the first blank and may itself hold blanks. A text without
    // a blank is a user name without a password.
    const size_t blank = accountText.find(' ');
    user = accountText.substr(0, blank);
    password = blank == std::string::npos ? std::string() : accountText.substr(blank + 1);
  }
  if (!user.empty() && !password.empty()) {
    err_ << "TWService: note: the password is not used, since systemd starts services without one; leave it out, "
            "as a command line can be read by every local user\n";
  }
  // A mistyped account must not cost the administrator the service that is installed now.
  SetAccount(user, password);
  if (const std::string name = control_.ServiceUser(); !name.empty() && !platform::LookUpAccount(name)) {
    err_ << "TWService: there is no account \"" << name << "\" on this system; the installed service was left as it was\n";
    return 1;
  }
  bool installed = control_.Install();
  const bool retried = !installed && control_.RetryMayHelp();
  if (retried) {
    // Retry once after stopping and removing whatever instance of the service is there.
    err_ << "TWService: installing failed (" << control_.LastError() << "); stopping wtarnwick, waiting 4 seconds\n";
    control_.StopService();
    host_.pump.Sleep(4000);
    host_.pump.Pump();
    err_ << "TWService: removing wtarnwick, waiting 2 seconds\n";
    control_.Uninstall();
    host_.pump.Sleep(2000);
    host_.pump.Pump();
    err_ << "TWService: installing wtarnwick again\n";
    installed = Install(user, password);
  }
  if (!installed) {
    // Without the retry, the service installed before is still there.
    if (retried) RecordInstalled(false);
    err_ << displayName_
         << host_.logging.BrandText(" failed to install. Try uninstalling and re-installing Tarnwick and make sure "
                                    "you're logged on as root.\n");
    if (!control_.LastError().empty()) err_ << "Reason: " << control_.LastError() << "\n";
    return 1;
  }
  RecordInstalled(true);
  std::string failure;
  if (PrepareData(failure)) return 0;
  err_ << "TWService: the service is installed, but " << failure << "\n";
  return 1;
}

int frmService::Uninstall(bool quietly) {
  if (control_.Uninstall()) {
    RecordInstalled(false);
    return 0;
  }
  if (!quietly) {
    err_ << displayName_ << " failed to uninstall. Please ensure the service has been stopped.\n";
    if (!control_.LastError().empty()) err_ << "Reason: " << control_.LastError() << "\n";
  }
  return 1;
}

int frmService::InstallationDialog() {
  InstallForm form;
  form.caption = host_.logging.BrandText(form.caption);
  bool passwordsOnly = false;
  while (auto filled = dialog_.Show(form, passwordsOnly)) {
    form = *filled;
    if (form.password1 != form.password2) {
      dialog_.Message("The passwords entered do not match.", true);
      passwordsOnly = true;
      continue;
    }
    passwordsOnly = false;
    if (Install(form.user, form.password1)) {
      RecordInstalled(true);
      if (std::string failure; !PrepareData(failure)) {
        dialog_.Message(displayName_ + " is installed, but " + failure, true);
        return 1;
      }
      dialog_.Message(displayName_ + " installed successfully", false);
      return 0;
    }
    RecordInstalled(false);
    std::string text = displayName_ +
                       " failed to install.\r\nPlease make sure the username assigned to the service is valid, and "
                       "this user has \"Log on as a service\" rights.";
    if (!control_.LastError().empty()) text += "\nReason: " + control_.LastError();
    // The dialog stays for another try.
    dialog_.Message(text, true);
  }
  return 1;
}

int frmService::RunService(bool debug) {
  // Two services on one application folder would both pick up, and report, every run in progress.
  const std::string lockPath = platform::ServiceLockPath(host_.applicationFolder);
  const auto folderLock = platform::LockedFile::CreateAndLock(lockPath);
  if (!folderLock) {
    const std::string holder(TrimWhitespace(platform::ReadWhileLocked(lockPath).value_or("")));
    err_ << "TWService: another TWService" << (holder.empty() ? "" : " (process " + holder + ")")
         << " is running on the application folder " << host_.applicationFolder
         << "; one folder has one service, or every run would be reported twice. Lock file: " << lockPath << "\n";
    return 1;
  }
  // twctl reads the process to signal from here.
  folderLock->Replace(std::to_string(platform::ProcessId()) + "\n");
  if (debug) {
    host_.logs.SetEcho([this](const clsLogEntry& entry) { err_ << FormatLogEntry(entry) << std::flush; });
  }
  control_.ControlsAccepted(kAcceptPauseContinue);
  control_.StartService({
      [this](bool& success) { ServiceStart(success); },
      [this](bool& success) { ServiceStop(success); },
      [this](bool& success) { ServicePause(success); },
      [this](bool& success) { ServiceContinue(success); },
  });
  return 0;
}

void frmService::ServiceStart(bool& success) {
  RunServiceEvent(host_.logging, kStart, [this] { host_.loop.TimerEnabled(tmrPoll_, true); }, success);
  AdoptRunsInProgress();
  RecordLastRunsFromReports();
  host_.mail.RestoreRetryState();
  if (!success) return;
  ReportMissedRuns();
  RecordState(servicestate::kRunning);
}

void frmService::ServiceStop(bool& success) {
  // Nothing else: running backups are neither waited for nor killed.
  RunServiceEvent(host_.logging, kStop, [this] { host_.loop.TimerEnabled(tmrPoll_, false); }, success);
  host_.loop.TimerEnabled(tmrHeartbeat_, false);
  RecordState(servicestate::kStopping);
}

void frmService::ServicePause(bool& success) {
  RunServiceEvent(host_.logging, kPause, [this] { host_.loop.TimerEnabled(tmrPoll_, false); }, success);
  if (!success) return;
  host_.loop.TimerEnabled(tmrHeartbeat_, true);
  RecordState(servicestate::kPaused);
}

void frmService::ServiceContinue(bool& success) {
  RunServiceEvent(host_.logging, kContinue, [this] { host_.loop.TimerEnabled(tmrPoll_, true); }, success);
  if (!success) return;
  host_.loop.TimerEnabled(tmrHeartbeat_, false);
  ReportMissedRuns();
  RecordState(servicestate::kRunning);
}

void frmService::RecordState(std::string_view state) {
  unrecordedState_ = state;
  unrecordedSince_ = host_.clock.Now();
  try {
    // A file another program holds is not waited for: the heartbeat writes the state later.
    if (RecordServiceState(host_.settings.Store(), state, unrecordedSince_, unrecordedSince_)) unrecordedState_.clear();
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

void frmService::Heartbeat(bool polled) {
  try {
    const Date now = host_.clock.Now();
    if (!unrecordedState_.empty()) {
      if (RecordServiceState(host_.settings.Store(), unrecordedState_, unrecordedSince_, now)) unrecordedState_.clear();
    }
    RecordHeartbeat(host_.settings.Store(), now, polled);
    if (MinutesBetween(metricsWritten_, now) < 1) return;
    metricsWritten_ = now;
    const std::string path = host_.settings.General().Options().MetricsTextfile();
    if (path.empty()) return;
    const std::string failure =
        WriteMetricsFile(path, MetricsText(ReadMetricsInput(host_.settings, host_.applicationFolder, now)));
    // Said once, not each minute while the folder stays unwritable; said again once it was fixed.
    if (!failure.empty() && failure != metricsFailure_) {
      host_.logs.AddLogSimple(1, "Metrics file not written", failure, 0, "");
    }
    metricsFailure_ = failure;
  } catch (...) {
    host_.logging.ReportInternalError("20000", CurrentError("TWService"));
  }
}

bool frmService::PollTimerEnabled() const { return host_.loop.TimerEnabled(tmrPoll_); }

}  // namespace tw
