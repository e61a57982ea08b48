#include "platform/ServiceControl.h"

#include <signal.h>
#include <systemd/sd-daemon.h>

#include <filesystem>
#include <fstream>

#include "common/Strings.h"
#include "platform/Environment.h"
#include "platform/Process.h"
#include "platform/UnitTemplate.h"

namespace tw::platform {
namespace {

// The control value that lets pause and continue through.
constexpr int32_t kAcceptPauseContinue = 2;

std::string UnitWord(const std::string& text) {
  // systemd splits ExecStart at blanks unless the word is quoted.
  return text.find(' ') == std::string::npos ? text : "\"" + text + "\"";
}

std::string FirstLine(const std::string& text) {
  const std::string trimmed(TrimWhitespace(text));
  return trimmed.substr(0, trimmed.find('\n'));
}

}  // namespace

UnitSettings DefaultUnitSettings() {
  UnitSettings settings;
  settings.unitDirectory = GetEnv("TARNWICK_UNIT_DIR").value_or("/etc/systemd/system");
  const std::string folder = ExecutableFolder();
  settings.executable = folder + "/TWService";
  settings.applicationFolder = ApplicationFolder();
  for (const char* name : {"TARNWICK_HOME", "TARNWICK_SETTINGS", "TARNWICK_SYSLOG_SOCKET"}) {
    if (auto value = GetEnv(name)) settings.environment.emplace_back(name, *value);
  }
  return settings;
}

std::string SystemdServiceControl::UserFor(const std::string& account) {
  if (account.empty()) return {};
  const size_t slash = account.find('\\');
  if (slash == std::string::npos) return account;
  const std::string domain = account.substr(0, slash);
  const std::string user = account.substr(slash + 1);
  if (domain == ".") return user;
  return user + "@" + domain;
}

std::string SystemdServiceControl::UnitText() const {
  const std::string user = UserFor(account_);
  std::string environment;
  for (const auto& [name, value] : settings_.environment) environment += "Environment=\"" + name + "=" + value + "\"\n";
  std::string text = kUnitTemplate;
  text = ReplaceAll(text, "{{EXEC_START}}", UnitWord(settings_.executable));
  text = ReplaceAll(text, "{{APPLICATION_FOLDER}}", settings_.applicationFolder);
  text = ReplaceAll(text, "{{USER}}", user.empty() ? "" : "User=" + user + "\n");
  return ReplaceAll(text, "{{ENVIRONMENT}}", environment);
}

bool SystemdServiceControl::Systemctl(const std::vector<std::string>& arguments) {
  const auto program = FindOnPath(settings_.systemctl);
  if (!program) {
    lastError_ = settings_.systemctl + " was not found: installing the service needs systemd";
    return false;
  }
  std::vector<std::string> argv{*program};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const CommandResult result = RunCommand(argv);
  if (result.started && result.exitCode == 0) return true;
  const std::string why = result.started ? FirstLine(result.output) : result.error;
  lastError_ = "systemctl " + Join(arguments, " ") + " failed" + (why.empty() ? "" : ": " + why);
  return false;
}

bool SystemdServiceControl::Install() {
  lastError_.clear();
  const std::string user = UserFor(account_);
  if (!user.empty() && !AccountExists(user)) {
    lastError_ = "there is no account \"" + user + "\" on this system";
    return false;
  }
  {
    std::ofstream unit(UnitPath(), std::ios::binary | std::ios::trunc);
    unit << UnitText();
    unit.close();
    if (!unit) {
      lastError_ = "cannot write " + UnitPath();
      return false;
    }
  }
  if (Systemctl({"daemon-reload"}) && Systemctl({"enable", kUnitName})) return true;
  // A failed installation leaves nothing behind.
  std::error_code ignored;
  std::filesystem::remove(UnitPath(), ignored);
  return false;
}

bool SystemdServiceControl::Uninstall() {
  lastError_.clear();
  std::error_code error;
  if (!std::filesystem::exists(UnitPath(), error)) {
    lastError_ = "the service is not installed: there is no " + UnitPath();
    return false;
  }
  if (!Systemctl({"disable", kUnitName})) return false;
  if (!std::filesystem::remove(UnitPath(), error)) {
    lastError_ = "cannot remove " + UnitPath() + ": " + error.message();
    return false;
  }
  return Systemctl({"daemon-reload"});
}

void SystemdServiceControl::StopService() {
  StartDetached({FindOnPath(settings_.systemctl).value_or(settings_.systemctl), "stop", "wtarnwick"});
}

void SystemdServiceControl::StartService(Events events) {
  auto stop = [this, &events] {
    bool success = false;
    events.stop(success);
    // Stopping ends the process whatever the handler managed: systemd would kill it anyway.
    sd_notify(0, "STOPPING=1");
    loop_.Quit();
  };
  const auto sigterm = loop_.AddSignal(SIGTERM, stop);
  const auto sigint = debug_ ? loop_.AddSignal(SIGINT, stop) : 0;
  const auto sigusr1 = loop_.AddSignal(SIGUSR1, [this, &events] {
    if ((controls_ & kAcceptPauseContinue) == 0) return;
    bool success = false;
    events.pause(success);
    if (success) sd_notify(0, "STATUS=Paused");
  });
  const auto sigusr2 = loop_.AddSignal(SIGUSR2, [this, &events] {
    if ((controls_ & kAcceptPauseContinue) == 0) return;
    bool success = false;
    events.resume(success);
    if (success) sd_notify(0, "STATUS=Running");
  });
  bool started = false;
  events.start(started);
  sd_notify(0, started ? "READY=1\nSTATUS=Running" : "READY=1\nSTATUS=Start failed");
  loop_.Run();
  for (auto source : {sigterm, sigint, sigusr1, sigusr2}) {
    if (source != 0) loop_.Remove(source);
  }
}

}  // namespace tw::platform
