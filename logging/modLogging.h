#pragma once
// Error and event reporting into the application log, and the small helpers every part of the
// service shares. Every procedure that can fail traps its errors and reports them here under its
// own five-digit location code, then carries on: no error stops the service.
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/Error.h"
#include "common/EventPump.h"
#include "logging/clsLogs.h"
#include "settings/TWSettings.h"

namespace tw {

// Prepares a value to stand between double quotes on a command line: every "\" becomes "\\" and
// every double quote "\""; nothing else changes.
std::string EscapeArgument(const std::string& text);

// A deployment setting (support address, help pages) for a message. When the store cannot be
// read the built-in default is used, so that the report itself is not lost.
std::string DeploymentSetting(TWSettings& settings, std::string_view key);

class modLogging {
 public:
  using HostNameSource = std::function<int(char* buffer, size_t length)>;

  modLogging(clsLogs& logs, TWSettings& settings, EventPump& pump, HostNameSource hostName = {});

  // A failure the user can act on: log type 2, "Error #<code> - <summary>".
  void ReportError(const std::string& code, const std::string& summary, const std::string& description);
  // An unexpected failure caught by a procedure's error trap: log type 2, asking for a report.
  void ReportInternalError(const std::string& code, int32_t errNumber, const std::string& errDescription,
                           const std::string& errSource);
  void ReportInternalError(const std::string& code, const TWError& error);
  // An unexpected condition: log type 1.
  void ReportWarning(const std::string& code, const std::string& description, int32_t errNumber,
                     const std::string& errDescription, const std::string& errSource);

  // Replaces every "Tarnwick" in `text` by the custom product name, if one is set, in place, and
  // returns the result. The custom name is read once and kept for the life of the process.
  std::string BrandText(std::string& text);
  std::string BrandText(const std::string& text);
  std::string ProductName();
  // The host name up to its first ".", cached; raises 23220 when the system cannot tell it.
  std::string ComputerName();
  // Waits while keeping the service responsive: per second, five rounds of 200 ms of sleep
  // followed by a pass of the event loop.
  void WaitSeconds(int32_t seconds);

  clsLogs& Logs() { return logs_; }

 private:
  void LoadCustomName();

  clsLogs& logs_;
  TWSettings& settings_;
  EventPump& pump_;
  HostNameSource hostName_;
  bool customNameLoaded_ = false;
  std::string customName_;
  std::string computerName_;
};

}  // namespace tw
