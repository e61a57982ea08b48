#pragma once
// Stand-ins for what frmService talks to besides the host: the service manager and the
// installation dialog. Both record what they were asked. And the application log as text.
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "logging/clsLogs.h"
#include "platform/ServiceControl.h"
#include "service/InstallDialog.h"
#include "tests/support/LogEntries.h"

namespace tw::test {

// Records what the form asks of the service manager; Install answers from a script.
class FakeServiceControl final : public platform::IServiceControl {
 public:
  std::string DisplayName() const override { return "Tarnwick"; }
  void Account(const std::string& text) override {
    account = text;
    calls.push_back("Account(" + text + ")");
  }
  void Password(const std::string& password) override { calls.push_back("Password(" + password + ")"); }
  void Interactive(bool on) override { calls.push_back("Interactive(" + std::to_string(on) + ")"); }
  void Debug(bool on) override { calls.push_back("Debug(" + std::to_string(on) + ")"); }
  void ControlsAccepted(int32_t controls) override { calls.push_back("ControlsAccepted(" + std::to_string(controls) + ")"); }
  std::string ServiceUser() const override { return platform::SystemdServiceControl::UserFor(account); }
  bool Install() override {
    calls.push_back("Install");
    const bool ok = installResults.empty() || installResults.front();
    if (!installResults.empty()) installResults.pop_front();
    return ok;
  }
  bool Uninstall() override {
    calls.push_back("Uninstall");
    return uninstallResult;
  }
  std::string LastError() const override { return lastError; }
  bool RetryMayHelp() const override { return retryMayHelp; }
  void StopService() override { calls.push_back("StopService"); }
  void StartService(Events events) override {
    calls.push_back("StartService");
    onStart(events);
  }

  std::vector<std::string> calls;
  std::string account;
  std::deque<bool> installResults;
  bool retryMayHelp = true;
  bool uninstallResult = true;
  std::string lastError;
  std::function<void(Events&)> onStart = [](Events&) {};
};

class FakeDialog final : public IInstallDialog {
 public:
  std::optional<InstallForm> Show(const InstallForm& form, bool passwordsOnly) override {
    shown.push_back(form.caption + ": " + form.user + (passwordsOnly ? " (passwords)" : ""));
    if (answers.empty()) return std::nullopt;
    InstallForm filled = answers.front();
    answers.pop_front();
    filled.caption = form.caption;
    if (passwordsOnly) filled.user = form.user;
    return filled;
  }
  void Message(const std::string& text, bool isError) override { messages.push_back((isError ? "! " : "") + text); }

  std::deque<InstallForm> answers;
  std::vector<std::string> shown;
  std::vector<std::string> messages;
};

// The newest `count` entries, newest first, as "TYPE TITLE | MESSAGE", with " [TYPE]" of an attachment.
inline std::vector<std::string> EntryLines(clsLogs& logs, int count) {
  std::vector<std::string> lines;
  for (const auto& e : NewestEntries(logs, count)) {
    lines.push_back(std::to_string(e.LogType) + " " + e.Title + " | " + e.Message +
                    (e.AttachmentType ? " [" + std::to_string(e.AttachmentType) + "]" : ""));
  }
  return lines;
}

}  // namespace tw::test
