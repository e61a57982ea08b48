#include "scheduling/clsCurrentJobManager.h"

#include <algorithm>
#include <limits>

#include "common/Error.h"

namespace tw {
namespace {

// Minutes every job gets beyond its own time-out before it counts as hung: a run that ends a
// little late should finish, not be reported as timed out.
constexpr int32_t kGraceMinutes = 5;

int32_t AllowedMinutes(int32_t timeout) {
  if (timeout > std::numeric_limits<int32_t>::max() - kGraceMinutes) {
    throw TWError(errnum::Overflow, "Overflow", "TWService");
  }
  return timeout + kGraceMinutes;
}

}  // namespace

RunningJob clsCurrentJobManager::AddJob(const clsJob& job) {
  auto record = std::make_shared<clsCurrentBackupJob>();
  record->BackupJob = job;
  jobs_.push_back(record);
  record->BackupStartTime = clock_.Now();
  return record;
}

RunningJob clsCurrentJobManager::RunOf(int64_t jobId) const {
  for (const auto& record : jobs_) {
    if (record->BackupJob && record->BackupJob->Id() == jobId) return record;
  }
  return nullptr;
}

void clsCurrentJobManager::RemoveJob(const RunningJob& record) {
  jobs_.erase(std::remove(jobs_.begin(), jobs_.end(), record), jobs_.end());
}

int32_t clsCurrentJobManager::JobsRunning() const { return static_cast<int32_t>(jobs_.size()); }

bool clsCurrentJobManager::JobTimedOut() const { return FirstTimedOutJob() != nullptr; }

RunningJob clsCurrentJobManager::FirstTimedOutJob() const {
  const Date now = clock_.Now();
  for (const auto& record : jobs_) {
    if (record->ReportPending) continue;  // it ended; only its report is still to be written
    if (MinutesBetween(record->BackupStartTime, now) > AllowedMinutes(record->BackupTimeout)) return record;
  }
  return nullptr;
}

}  // namespace tw
