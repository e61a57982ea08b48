// The cost of one poll tick of the service (frmService::tmrPoll_Timer) over many configured jobs in
// the real settings store: at a moment when nothing is due, and when ten jobs reach their
// scheduled minute together.
//   build/bin/bench_service
// The ten due jobs are launched through the real launch path; the rights launcher in the bench's
// application folder is a stand-in that answers "the executor has started" (exit 255) at once,
// and the process tool a stand-in that finds no lingering executor, so no real backup runs and no
// process elsewhere on the machine is touched.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "common/Clock.h"
#include "platform/EventLoop.h"
#include "service/ServiceHost.h"
#include "service/frmService.h"
#include "tests/service/ServiceFakes.h"

namespace {

namespace fs = std::filesystem;

const char* const kLastFriday = "2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0";
// A Monday, half a minute after the due jobs' scheduled time.
const tw::Date kNow = tw::DateSerial(2026, 11, 23) + tw::TimeSerial(12, 0, 30);
constexpr int kDueJobs = 10;

void Script(const std::string& path, const std::string& body) {
  std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
  ::chmod(path.c_str(), 0755);
}

// An application folder with `jobs` jobs: every second one with an e-mail reminder, every third
// one with a maintenance e-mail on the last Friday of the month, all timed at 21:00 except the
// first `due`, timed at 12:00.
class ServiceFolder {
 public:
  ServiceFolder(int jobs, int due) {
    char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    Script(path_ + "/DesktopRights", "exit 255");
    Script(path_ + "/twprocess", "exit 0");
    tw::TWSettings settings(path_ + "/settings.db");
    auto general = settings.General();
    settings.Store().InTransaction([&] {
      for (int i = 0; i < jobs; ++i) {
        auto job = general.AddJob("Job " + std::to_string(i), "job" + std::to_string(i));
        if (i < due) job.ScheduledTime(tw::TimeSerial(12, 0, 0));
        job.JobNotification().MediaReminderByEmail(i % 2 == 0);
        job.JobNotification().MaintenanceEmailEnabled(i % 3 == 0);
        job.JobNotification().MaintenanceOccurrence(kLastFriday);
      }
    });
  }
  ~ServiceFolder() { fs::remove_all(path_); }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

void BM_PollTick(benchmark::State& state) {
  const int jobs = static_cast<int>(state.range(0));
  const int due = static_cast<int>(state.range(1));
  ServiceFolder folder(jobs, due);
  tw::ManualClock clock(kNow);
  tw::platform::EventLoop loop;
  tw::ServiceHost host(folder.Path(), folder.Path() + "/settings.db", clock, loop, loop);
  tw::test::FakeServiceControl control;
  tw::test::FakeDialog dialog;
  std::ostringstream err;
  auto service = std::make_unique<tw::frmService>(host, control, dialog, err);
  int launched = 0;
  for (auto _ : state) {
    service->tmrPoll_Timer();
    if (due > 0) {
      // Each pass starts from the same state: the due jobs not yet fired, every slot free.
      state.PauseTiming();
      launched = service->JobManager().JobsRunning();
      service.reset();
      auto general = host.settings.General();
      host.settings.Store().InTransaction([&] {
        for (int i = 0; i < due; ++i) {
          general.JobByIndex(i).ScheduleLastFired(0);
          general.JobByIndex(i).RunStatus(0);
        }
      });
      service = std::make_unique<tw::frmService>(host, control, dialog, err);
      state.ResumeTiming();
    }
  }
  // Shows that the due jobs were really launched.
  state.counters["launched"] = launched;
}
BENCHMARK(BM_PollTick)
    ->ArgNames({"jobs", "due"})
    ->Args({1000, 0})
    ->Args({1000, kDueJobs})
    ->Args({10000, 0})
    ->Args({10000, kDueJobs})
    ->Unit(benchmark::kMillisecond);

}  // namespace
