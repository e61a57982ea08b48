#pragma once
// The registry of the backup jobs the service has launched and not yet seen complete. Records are
// kept in the order they were added and found again by identity.
#include <cstdint>
#include <memory>
#include <vector>

#include "common/Clock.h"
#include "scheduling/clsCurrentBackupJob.h"

namespace tw {

using RunningJob = std::shared_ptr<clsCurrentBackupJob>;

class clsCurrentJobManager {
 public:
  explicit clsCurrentJobManager(const Clock& clock) : clock_(clock) {}

  // A new record for `job`, appended, with its start time set to now.
  RunningJob AddJob(const clsJob& job);
  void RemoveJob(const RunningJob& record);
  int32_t JobsRunning() const;
  // True when a record has run past its time-out: more minute boundaries since its start than
  // its BackupTimeout plus the grace period. The sum is 32-bit and raises Overflow (6) when it
  // does not fit.
  bool JobTimedOut() const;
  // The first late record in the order of addition, or null. A record whose report is pending has
  // ended and is never late.
  RunningJob FirstTimedOutJob() const;
  const std::vector<RunningJob>& Jobs() const { return jobs_; }
  // The record of a run of the job `jobId` under way, or null.
  RunningJob RunOf(int64_t jobId) const;

 private:
  const Clock& clock_;
  std::vector<RunningJob> jobs_;
};

}  // namespace tw
