#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "common/Date.h"
#include "settings/TWSettings.h"

namespace tw {

// One running backup job: a plain record, filled by the launch and the executor launcher, read by
// completion handling.
struct clsCurrentBackupJob {
  Date BackupStartTime = 0;   // when the record was added
  Date BackupEndTime = 0;     // when the job ended
  std::string TapeLabel;
  int32_t BackupMethod = 0;
  int32_t BackupMode = 0;
  bool Eject = false;
  int32_t BackupTimeout = 0;  // minutes
  std::string BackupReport;
  int16_t Status = 0;         // 1 completed normally, 2 encountered errors, any other value timed out
  Date DateAssigned = 0;      // when the job was launched
  std::optional<clsJob> BackupJob;
  // The job's name and description as the run began: a job removed while it runs is still
  // reported under the name it ran with.
  std::string JobName;
  std::string JobDescription;
  // The run's marker, removed once its report log is written; empty for a run that has none.
  std::string MarkerPath;
  // Completion was handled but the report log could not be written yet: the run stays registered
  // and is not timed out while the report is written again at later ticks.
  bool ReportPending = false;
};

}  // namespace tw
