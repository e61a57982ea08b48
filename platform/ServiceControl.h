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
  virtual bool Install() = 0;
  virtual bool Uninstall() = 0;
  // Why the last Install or Uninstall failed.
  virtual std::string LastError() const = 0;
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
  std::vector<std::pair<std::string, std::string>> environment;  // variables the service must see
  std::string systemctl = "systemctl";
};

// TARNWICK_UNIT_DIR or /etc/systemd/system, this executable, its application folder, and the
// TARNWICK_HOME and TARNWICK_SETTINGS of the installing process when they are set.
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
  bool Install() override;
  bool Uninstall() override;
  std::string LastError() const override { return lastError_; }
  void StopService() override;
  void StartService(Events events) override;

  // The unit file for the current account.
  std::string UnitText() const;
  // The unit's User= for an account: ".\backup" is "backup"; "CORP\backup" is "backup@CORP", as
  // SSSD names domain users; "" is none (root, the default for system services).
  static std::string UserFor(const std::string& account);

 private:
  bool Systemctl(const std::vector<std::string>& arguments);
  std::string UnitPath() const { return settings_.unitDirectory + "/" + kUnitName; }

  EventLoop& loop_;
  UnitSettings settings_;
  std::string account_;
  bool interactive_ = false;
  bool debug_ = false;
  int32_t controls_ = 1;
  std::string lastError_;
};

}  // namespace tw::platform
