#pragma once
// TWExecutor, the backup executor: performs one backup run with GNU tar.
//   TWExecutor --backup-log-id ID --run RUN [logging|nologon|zloggingandnologon]
// It claims the marker of its run ("BackupLog-<id>.txt", which must still name RUN: see
// scheduling/RunMarker.h), sets the job's run status to -2 and tells its launcher it has started; then it backs the job's sources up, writes its report into the marker
// and sets the run status to 1 (completed normally) or 2 (encountered errors).
//
// A folder destination receives one archive per run: <destination>/<id>/<id>-<date>-<method>.tar.gz.
// Incremental runs hold what changed since the previous run (tar --listed-incremental; the
// snapshots are kept in <application folder>/Snapshots). A tape device is rewound (overwrite) or
// wound to its end (append) with mt first, and taken offline afterwards when the run ejects.
// The executor may run as root and archives hold whatever the sources hold: it creates every archive
// and snapshot file itself, private (0600, in 0700 folders), in folders it has checked that no other
// user can plant links in, and hands tar the open files (platform/SafeFiles.h).
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "common/Clock.h"

namespace tw::tools {

struct ExecutorEnvironment {
  std::string applicationFolder;
  std::string settingsPath;
  const Clock& clock;
};

int RunExecutor(const std::vector<std::string>& args, const ExecutorEnvironment& environment, std::ostream& out,
                std::ostream& err);

// One run as the job describes it.
struct BackupPlan {
  std::string jobName, jobDescription, backupLogId, computer;
  std::vector<std::string> sources;
  std::string destination;
  int32_t method = 0;  // 0 full, 1 incremental
  int32_t mode = 0;    // 0 overwrite, 1 append
  bool eject = false;
  std::string label;
  std::string options;   // the option word
  bool listFiles = false;  // detailed logging: the report lists every file
  std::string snapshotFolder;
};

struct BackupOutcome {
  std::string archive;
  bool tape = false;
  int64_t files = 0;
  int64_t bytesWritten = 0;  // what tar wrote, before compression
  int64_t archiveBytes = -1;
  std::vector<std::string> fileList, warnings, errors, notes;
  bool ok() const { return errors.empty(); }
};

BackupOutcome PerformBackup(const BackupPlan& plan, Date start);
std::string ComposeReport(const BackupPlan& plan, const BackupOutcome& outcome, Date start, Date end);

}  // namespace tw::tools
