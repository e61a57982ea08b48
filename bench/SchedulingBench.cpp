// The cost of finding schedule matches, and of one poll tick's due checks over many jobs.
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

// One pass of the three due checks over every job, at a moment when nothing is due: what an idle
// poll tick costs in the real store.
void BM_DueChecksPass(benchmark::State& state) {
  const int jobs = static_cast<int>(state.range(0));
  char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
  const std::string folder = mkdtemp(pattern);
  {
    tw::TWSettings settings(folder + "/settings.db");
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
  tw::TWSettings settings(folder + "/settings.db");
  tw::ManualClock clock(tw::DateSerial(2026, 11, 23) + tw::TimeSerial(12, 0, 30));
  tw::BlockingPump pump;
  tw::clsLogs logs(folder, settings, clock, pump);
  tw::modLogging logging(logs, settings, pump);
  tw::clsDueChecks checks(clock, logging);
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
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_DueChecksPass)->ArgName("jobs")->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
