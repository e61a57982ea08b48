#include "scheduling/RunMarker.h"

#include <random>

namespace tw::runmarker {
namespace {

const std::string kUnclaimedStart = "Tarnwick run ";
const char* const kCrLf = "\r\n";

}  // namespace

std::string PathFor(const std::string& applicationFolder, const std::string& backupLogId) {
  return applicationFolder + "/BackupLog-" + backupLogId + ".txt";
}

std::string NewRunId(Date now) {
  static std::mt19937 random{std::random_device{}()};
  char part[16];
  std::snprintf(part, sizeof part, "%08x", static_cast<unsigned>(random()));
  return FormatStamp(now) + "-" + part;
}

std::string UnclaimedText(const std::string& runId) { return kUnclaimedStart + runId + kCrLf; }

std::string ClaimedText(const std::string& runId) {
  return std::string("Tarnwick backup report") + kCrLf + "Run: " + runId + kCrLf + "The backup is running." + kCrLf;
}

std::optional<std::string> UnclaimedRun(const std::string& text) {
  if (text.rfind(kUnclaimedStart, 0) != 0 || !text.ends_with(kCrLf)) return std::nullopt;
  const std::string run = text.substr(kUnclaimedStart.size(), text.size() - kUnclaimedStart.size() - 2);
  if (run.empty() || run.find_first_of("\r\n") != std::string::npos) return std::nullopt;
  return run;
}

bool IsSafeBackupLogId(const std::string& id) {
  return !id.empty() && id != "." && id != ".." && id.find('/') == std::string::npos &&
         id.find('\0') == std::string::npos;
}

}  // namespace tw::runmarker
