// The cost of finding schedule matches, and of the due checks of one poll tick over many jobs.
//   build/bin/bench_scheduling
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "logging/clsLogs.h"
#include "logging/modLogging.h"
#include "scheduling/DueChecks.h"
#include "scheduling/Occurrence.h"
#include "scheduling/OccurrenceSearch.h"

namespace {

const char* const kLastFriday = "2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0";
const char* const kMondayFriday = "1|0.875|0,-1,0,0,0,-1,0";

// Every match in a year of minutes, found by testing days and times apart.
void BM_NextMatchesYear(benchmark::State& state, const char* text) {
  auto occurrence = tw::clsOccurrenceFactory::CreateOccurrence(text);
  const tw::Date from = tw::DateSerial(2026, 1, 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tw::NextMatches(*occurrence, from, 100000, from + 365));
  }
}
BENCHMARK_CAPTURE(BM_NextMatchesYear, monday_friday, kMondayFriday)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_NextMatchesYear, last_friday, kLastFriday)->Unit(benchmark::kMicrosecond);

// The same by asking every one of the year's 525,600 minutes.
void BM_NextMatchesYearByMinute(benchmark::State& state, const char* text) {
  auto occurrence = tw::clsOccurrenceFactory::CreateOccurrence(text);
  const tw::Date from = tw::DateSerial(2026, 1, 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tw::NextMatchesByMinute(*occurrence, from, 100000, from + 365));
  }
}
BENCHMARK_CAPTURE(BM_NextMatchesYearByMinute, monday_friday, kMondayFriday)->Unit(benchmark::kMillisecond);

// An application folder whose store holds `jobs` jobs, none due at noon on a Monday.
class JobsFolder {
 public:
  explicit JobsFolder(int jobs) {
    char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    tw::TWSettings settings(path_ + "/settings.db");
    auto general = settings.General();
    settings.Store().InTransaction([&] {
      for (int i = 0; i < jobs; ++i) {
        auto job = general.AddJob("Job " + std::to_string(i), "job" + std::to_string(i));
        job.JobNotification().MediaReminderByEmail(i % 2 == 0);
        job.JobNotification().MaintenanceEmailEnabled(i % 3 == 0);
        job.JobNotification().MaintenanceOccurrence(kLastFriday);
      }
    });
  }
  ~JobsFolder() { std::filesystem::remove_all(path_); }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// The due checks over a folder of `jobs` jobs, at a moment when nothing is due.
struct CheckedStore {
  explicit CheckedStore(int jobs) : folder(jobs) {}
  JobsFolder folder;
  tw::TWSettings settings{folder.Path() + "/settings.db"};
  tw::ManualClock clock{tw::DateSerial(2026, 11, 23) + tw::TimeSerial(12, 0, 30)};
  tw::BlockingPump pump;
  tw::clsLogs logs{folder.Path(), settings, clock, pump};
  tw::modLogging logging{logs, settings, pump};
  tw::clsDueChecks checks{clock, logging};
};

// The three due checks asked of every job, one job after the other, at a moment when nothing is
// due: each check reads its values afresh, several small queries a job.
void BM_DueChecksEveryJob(benchmark::State& state) {
  CheckedStore store(static_cast<int>(state.range(0)));
  auto& settings = store.settings;
  auto& checks = store.checks;
  for (auto _ : state) {
    auto general = settings.General();
    const int32_t count = general.JobCount();
    int due = 0;
    for (int32_t i = 0; i < count; ++i) {
      auto job = general.JobByIndex(i);
      if (checks.IsReminderDue(job) || checks.IsScheduledTimeDue(job) || checks.IsMaintenanceDue(job)) ++due;
    }
    benchmark::DoNotOptimize(due);
  }
}
BENCHMARK(BM_DueChecksEveryJob)->ArgName("jobs")->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// What the poll tick does instead: one read of every job's timing values, and the checks asked
// only of the jobs that may be due.
void BM_DueChecksPass(benchmark::State& state) {
  CheckedStore store(static_cast<int>(state.range(0)));
  auto& settings = store.settings;
  auto& checks = store.checks;
  for (auto _ : state) {
    auto general = settings.General();
    int due = 0;
    for (const int32_t i : checks.JobsThatMayBeDue(general.JobTimings())) {
      auto job = general.JobByIndex(i);
      if (checks.IsReminderDue(job) || checks.IsScheduledTimeDue(job) || checks.IsMaintenanceDue(job)) ++due;
    }
    benchmark::DoNotOptimize(due);
  }
}
BENCHMARK(BM_DueChecksPass)->ArgName("jobs")->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
