#include "logging/modLogging.h"

#include <algorithm>

#include "common/ProductName.h"
#include "common/Strings.h"
#include "platform/HostName.h"
#include "settings/SettingKeys.h"

namespace tw {
namespace {

const char* kCrLf = "\r\n";
// The platform's name limit for the computer name buffer.
constexpr size_t kComputerNameBuffer = 256;

}  // namespace

std::string EscapeArgument(const std::string& text) {
  // One pass, so that the backslashes put before quotes are not doubled again; every other
  // character, a code 0 included, stays as it is.
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string DeploymentSetting(TWSettings& settings, std::string_view key) {
  try {
    return settings.Store().ReadText(key);
  } catch (...) {
    return std::string(SettingKeyOf(key).defaultValue);
  }
}

modLogging::modLogging(clsLogs& logs, TWSettings& settings, EventPump& pump, HostNameSource hostName)
    : logs_(logs), settings_(settings), pump_(pump), hostName_(hostName ? std::move(hostName) : platform::GetHostName) {}

void modLogging::ReportError(const std::string& code, const std::string& summary, const std::string& description) {
  try {
    const std::string title = "Error #" + code + " - " + summary;
    const std::string message = "Error #" + code +
                                " has occurred. Please check the description of this error for more details." +
                                kCrLf + kCrLf + "Description: " + description;
    logs_.AddLogSimple(2, title, message, 0, "");
  } catch (...) {
    // A report that cannot be made is lost; the caller carries on.
  }
}

void modLogging::ReportInternalError(const std::string& code, int32_t errNumber, const std::string& errDescription,
                                     const std::string& errSource) {
  try {
    const std::string support = DeploymentSetting(settings_, "deployment.support_email");
    const std::string page = DeploymentSetting(settings_, "deployment.troubleshooting_page");
    const std::string title = "Internal error #" + code + " - please submit a diagnostics report to " + support;
    const std::string message =
        "An unexpected error has been detected. Please include a diagnostics file and report this to " + support +
        " for assistance. For help compiling diagnostics, please visit: " + page + " " + kCrLf + "  " +
        ProductName() + " error #" + code + kCrLf + "  Error number: " + std::to_string(errNumber) + kCrLf +
        "  Error description: " + errDescription + kCrLf + "  Error source: " + errSource;
    logs_.AddLogSimple(2, title, message, 0, "");
  } catch (...) {
    // A report that cannot be made is lost; the caller carries on.
  }
}

void modLogging::ReportInternalError(const std::string& code, const TWError& error) {
  ReportInternalError(code, error.Number, error.Description, error.Source);
}

void modLogging::ReportWarning(const std::string& code, const std::string& description, int32_t errNumber,
                               const std::string& errDescription, const std::string& errSource) {
  try {
    const std::string message =
        std::string("An unexpected condition has been detected. Please examine the warning and take the "
                    "appropriate action. Details: ") +
        kCrLf + "  " + ProductName() + " warning #" + code + kCrLf + "  Description: " + description + kCrLf +
        "  Error number: " + std::to_string(errNumber) + kCrLf + "  Error description: " + errDescription + kCrLf +
        "  Error source: " + errSource;
    logs_.AddLogSimple(1, "Warning #" + code, message, 0, "");
  } catch (...) {
    // A report that cannot be made is lost; the caller carries on.
  }
}

void modLogging::LoadCustomName() {
  if (customNameLoaded_) return;
  // Read once: a name changed in the console takes effect at the next start. A store that cannot
  // be read now is asked again next time.
  customName_ = settings_.General().Options().CustomProductName();
  customNameLoaded_ = true;
}

std::string modLogging::BrandText(std::string& text) {
  try {
    LoadCustomName();
  } catch (...) {
    return text;
  }
  text = Branded(text, customName_);
  return text;
}

std::string modLogging::BrandText(const std::string& text) {
  std::string copy = text;
  return BrandText(copy);
}

std::string modLogging::ProductName() { return BrandText(std::string(kProductName)); }

std::string modLogging::ComputerName() {
  if (!computerName_.empty()) return computerName_;
  std::string buffer(kComputerNameBuffer, ' ');
  if (const int error = hostName_(buffer.data(), kComputerNameBuffer)) {
    throw TWError(errnum::ComputerName, "Unable to get computer name: " + std::to_string(error), "TWService");
  }
  std::string name(TrimBlanks(buffer));
  name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
  // The short name, as other machines on the network know it.
  computerName_ = name.substr(0, name.find('.'));
  return computerName_;
}

void modLogging::WaitSeconds(int32_t seconds) {
  for (int32_t second = 0; second < seconds; ++second) {
    for (int round = 0; round < 5; ++round) {
      pump_.Sleep(200);
      pump_.Pump();
    }
  }
}

}  // namespace tw
