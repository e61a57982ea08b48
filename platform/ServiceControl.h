#pragma once
// The system's service manager as the service sees it: installing and removing the service, and
// the start, stop, pause and continue events of a running one. On Linux that is systemd: the
// service is the unit "wtarnwick.service"; stop is SIGTERM, pause SIGUSR1, continue SIGUSR2.
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/EventLoop.h"

namespace tw::platform {

class IServiceControl {
 public:
  // Each event sets its success flag when the handler completes.
  struct Events {
    std::function<void(bool& success)> start, stop, pause, resume;
  };

  virtual ~IServiceControl() = default;
  virtual std::string DisplayName() const = 0;
  // "" for the default account, ".\user" for a local one, "DOMAIN\user" for a domain account.
  virtual void Account(const std::string& account) = 0;
  virtual void Password(const std::string& password) = 0;
  virtual void Interactive(bool interactive) = 0;
  virtual void Debug(bool debug) = 0;
  // 2 accepts pause and continue besides stop.
  virtual void ControlsAccepted(int32_t controls) = 0;
  // The system account the service would run as for the account set last: "" for the default
  // (root).
  virtual std::string ServiceUser() const = 0;
  // Writes the service's definition and registers it. A definition the system would refuse is
  // never put in place, and a failure leaves the one installed before as it was.
  virtual bool Install() = 0;
  virtual bool Uninstall() = 0;
  // Why the last Install or Uninstall failed.
  virtual std::string LastError() const = 0;
  // Whether stopping and removing the installed service could let the last failed Install
  // succeed: not when the account or the definition itself was refused.
  virtual bool RetryMayHelp() const = 0;
  // Asks the system to stop the installed service ("systemctl stop wtarnwick"), without waiting
  // and without looking at the outcome.
  virtual void StopService() = 0;
  // Runs the service: raises start, then stop, pause and continue as they are asked for, and
  // returns after stop.
  virtual void StartService(Events events) = 0;
};

struct UnitSettings {
  std::string unitDirectory;     // where the unit file goes: /etc/systemd/system unless overridden
  std::string executable;        // ExecStart
  std::string applicationFolder;  // WorkingDirectory
  std::string systemctl = "systemctl";
  std::string systemdAnalyze = "systemd-analyze";  // checks the unit before it goes in; optional
};

// TARNWICK_UNIT_DIR or /etc/systemd/system, this executable and its folder. The installing
// shell's TARNWICK_HOME and TARNWICK_SETTINGS stay out of the unit: the installed service works
// in the folder of its programs.
UnitSettings DefaultUnitSettings();

class SystemdServiceControl final : public IServiceControl {
 public:
  static constexpr const char* kUnitName = "wtarnwick.service";

  SystemdServiceControl(EventLoop& loop, UnitSettings settings) : loop_(loop), settings_(std::move(settings)) {}

  std::string DisplayName() const override { return "Tarnwick"; }
  void Account(const std::string& account) override { account_ = account; }
  void Password(const std::string&) override {}     // systemd starts services without one
  void Interactive(bool interactive) override { interactive_ = interactive; }
  void Debug(bool debug) override { debug_ = debug; }
  void ControlsAccepted(int32_t controls) override { controls_ = controls; }
  std::string ServiceUser() const override { return UserFor(account_); }
  bool Install() override;
  bool Uninstall() override;
  std::string LastError() const override { return lastError_; }
  bool RetryMayHelp() const override { return retryMayHelp_; }
  void StopService() override;
  // Besides the events: while systemd watches the service (WatchdogSec=), the loop tells it
  // "WATCHDOG=1" at half the watchdog period, from a timer, so a loop that hangs stops telling.
  void StartService(Events events) override;

  // The unit file for the current account. Paths are written so that systemd reads them back
  // as they are: specifiers escaped, ExecStart quoted.
  std::string UnitText() const;
  // The unit's User= for an account: ".\backup" is "backup"; "CORP\backup" is "backup@CORP", as
  // SSSD names domain users; "" is none (root, the default for system services).
  static std::string UserFor(const std::string& account);

 private:
  bool Systemctl(const std::vector<std::string>& arguments);
  // Puts `text` in place of the unit file in one step (a rename); with `verify`, only when
  // systemd-analyze accepts it.
  bool PlaceUnit(const std::string& text, bool verify);
  bool Verify(const std::string& unitPath);
  std::string UnitPath() const { return settings_.unitDirectory + "/" + kUnitName; }

  EventLoop& loop_;
  UnitSettings settings_;
  std::string account_;
  bool interactive_ = false;
  bool debug_ = false;
  int32_t controls_ = 1;
  std::string lastError_;
  bool retryMayHelp_ = false;
};

}  // namespace tw::platform
