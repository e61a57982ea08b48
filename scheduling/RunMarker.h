#pragma once
// The marker of a backup run: BackupLog-<backup log id>.txt in the application folder, a Unicode
// text file. The launcher writes it naming the run it belongs to; the executor started for that run
// claims it, and only it, and writes its report into it; the service removes it once the run's
// report log is written. A marker still naming its run when the service starts belongs to a run
// whose executor never began.
#include <optional>
#include <string>

#include "common/Date.h"

namespace tw::runmarker {

std::string PathFor(const std::string& applicationFolder, const std::string& backupLogId);

// A new run's name: the launch's time and a random part, unique for each launch.
std::string NewRunId(Date now);

// What the launcher writes: one line naming the run.
std::string UnclaimedText(const std::string& runId);
// What the executor writes when it claims the marker, until its report replaces it.
std::string ClaimedText(const std::string& runId);
// The run an unclaimed marker names; nothing for a marker already claimed or filled.
std::optional<std::string> UnclaimedRun(const std::string& text);

// A backup log id names a file and a folder: ".", ".." and one holding "/" would lead elsewhere.
bool IsSafeBackupLogId(const std::string& id);

}  // namespace tw::runmarker
