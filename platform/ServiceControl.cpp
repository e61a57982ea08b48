#include "platform/ServiceControl.h"

#include <signal.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include "common/Strings.h"
#include "platform/Environment.h"
#include "platform/Process.h"
#include "platform/UnitTemplate.h"

namespace tw::platform {
namespace {

namespace fs = std::filesystem;

// The control value that lets pause and continue through.
constexpr int32_t kAcceptPauseContinue = 2;

std::string FirstLine(const std::string& text) {
  const std::string trimmed(TrimWhitespace(text));
  return trimmed.substr(0, trimmed.find('\n'));
}

// systemd expands specifiers ("%n", "%h" ...) in every setting written here; "%%" is a percent sign.
std::string EscapeSpecifiers(const std::string& text) { return ReplaceAll(text, "%", "%%"); }

// systemd refuses quotes, backslashes and control characters in the name of the program it
// starts, however they are escaped; in the program's arguments they are fine.
bool SystemdAcceptsAsProgram(const std::string& path) {
  return std::none_of(path.begin(), path.end(), [](char c) {
    return c == '"' || c == '\'' || c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
  });
}

// One argument of ExecStart: quoted, C escapes for what ends or escapes the quote and for control
// characters, and "$$" for a dollar sign, which would start a variable.
std::string QuotedArgument(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c == '$') {
      quoted += "$$";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      static constexpr char kHex[] = "0123456789abcdef";
      quoted += "\\x";
      quoted += kHex[(c >> 4) & 0xf];
      quoted += kHex[c & 0xf];
    } else {
      quoted += c;
    }
  }
  return EscapeSpecifiers(quoted + "\"");
}

std::string ExecStartValue(const std::string& program) {
  if (SystemdAcceptsAsProgram(program)) {
    // Blanks would split it into words; the name itself is not searched for variables.
    const std::string name = EscapeSpecifiers(program);
    return program.find(' ') == std::string::npos ? name : "\"" + name + "\"";
  }
  // The shell replaces itself with the program, which so keeps the process systemd started and
  // watches.
  return "/bin/sh -c " + QuotedArgument("exec \"$0\"") + " " + QuotedArgument(program);
}

// A unit file is read line by line, and each value loses its trailing blanks.
std::optional<std::string> UnwritablePath(const std::string& path) {
  if (path.find_first_of("\r\n") != std::string::npos) return "a line break";
  if (!path.empty() && std::isspace(static_cast<unsigned char>(path.back()))) return "a blank at its end";
  return std::nullopt;
}

// A private folder beside the unit file, removed with everything in it. A file renamed from here
// replaces the unit in one step: systemd never reads a half-written one.
class StagingFolder {
 public:
  explicit StagingFolder(const std::string& beside) {
    std::string pattern = beside + "/.wtarnwick-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~StagingFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;
  // Empty when the folder could not be made.
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::optional<std::string> ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

}  // namespace

UnitSettings DefaultUnitSettings() {
  UnitSettings settings;
  settings.unitDirectory = GetEnv("TARNWICK_UNIT_DIR").value_or("/etc/systemd/system");
  const std::string folder = ExecutableFolder();
  settings.executable = folder + "/TWService";
  settings.applicationFolder = folder;
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
  std::string text = kUnitTemplate;
  text = ReplaceAll(text, "{{EXEC_START}}", ExecStartValue(settings_.executable));
  text = ReplaceAll(text, "{{APPLICATION_FOLDER}}", EscapeSpecifiers(settings_.applicationFolder));
  return ReplaceAll(text, "{{USER}}", user.empty() ? "" : "User=" + EscapeSpecifiers(user) + "\n");
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

bool SystemdServiceControl::Verify(const std::string& unitPath) {
  // Without systemd-analyze (a minimal system) the unit goes in unchecked.
  const auto analyze = FindOnPath(settings_.systemdAnalyze);
  if (!analyze) return true;
  const CommandResult result = RunCommand({*analyze, "verify", unitPath});
  if (result.started && result.exitCode == 0) return true;
  // Its reason names the staged file, which is gone by the time anyone reads it.
  const std::string why = result.started ? FirstLine(ReplaceAll(result.output, unitPath, UnitPath())) : result.error;
  lastError_ = "systemd would not accept the unit: " + why;
  return false;
}

bool SystemdServiceControl::PlaceUnit(const std::string& text, bool verify) {
  const StagingFolder staging(settings_.unitDirectory);
  if (staging.Path().empty()) {
    lastError_ = "cannot write in " + settings_.unitDirectory + ": " + std::generic_category().message(errno);
    return false;
  }
  // systemd-analyze tells the unit's type by its name, so the staged file has the real one.
  const std::string staged = staging.Path() + "/" + kUnitName;
  {
    std::ofstream unit(staged, std::ios::binary | std::ios::trunc);
    unit << text;
    unit.close();
    if (!unit) {
      lastError_ = "cannot write " + staged;
      return false;
    }
  }
  if (verify && !Verify(staged)) return false;
  std::error_code error;
  fs::permissions(staged, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                              fs::perms::others_read, error);
  fs::rename(staged, UnitPath(), error);
  if (error) {
    lastError_ = "cannot write " + UnitPath() + ": " + error.message();
    return false;
  }
  return true;
}

bool SystemdServiceControl::Install() {
  lastError_.clear();
  retryMayHelp_ = false;
  const std::string user = UserFor(account_);
  if (!user.empty() && !AccountExists(user)) {
    lastError_ = "there is no account \"" + user + "\" on this system";
    return false;
  }
  for (const std::string& path : {settings_.executable, settings_.applicationFolder}) {
    if (const auto what = UnwritablePath(path)) {
      lastError_ = "a unit file cannot hold the path \"" + path + "\": it has " + *what;
      return false;
    }
  }
  const std::optional<std::string> before = ReadWholeFile(UnitPath());
  if (!PlaceUnit(UnitText(), true)) return false;
  if (Systemctl({"daemon-reload"}) && Systemctl({"enable", kUnitName})) return true;
  retryMayHelp_ = true;
  // A failed installation leaves the unit that was there before, or none.
  const std::string why = lastError_;
  std::error_code ignored;
  if (before) {
    PlaceUnit(*before, false);
  } else {
    fs::remove(UnitPath(), ignored);
  }
  lastError_ = why;
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
  // The start event may run the loop itself (each log entry lets waiting events through): a stop
  // that arrives then waits for the start to end, or it would be lost and the process never end.
  bool starting = true;
  bool stopWaits = false;
  auto stop = [this, &events, &starting, &stopWaits] {
    if (starting) {
      stopWaits = true;
      return;
    }
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
  // The pings come from a timer of the loop, so they stop when the loop stops running its timers.
  uint64_t watchdogUsec = 0;
  EventLoop::SourceId watchdog = 0;
  if (sd_watchdog_enabled(0, &watchdogUsec) > 0) {
    const auto halfPeriodMs = static_cast<int>(std::clamp<uint64_t>(watchdogUsec / 2000, 1, INT32_MAX));
    watchdog = loop_.AddTimer(halfPeriodMs, [] { sd_notify(0, "WATCHDOG=1"); });
    loop_.TimerEnabled(watchdog, true);
  }
  bool started = false;
  events.start(started);
  starting = false;
  sd_notify(0, started ? "READY=1\nSTATUS=Running" : "READY=1\nSTATUS=Start failed");
  if (stopWaits) {
    stop();
  } else {
    loop_.Run();
  }
  for (auto source : {sigterm, sigint, sigusr1, sigusr2, watchdog}) {
    if (source != 0) loop_.Remove(source);
  }
}

}  // namespace tw::platform
