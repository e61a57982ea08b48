// The cost of listing the newest report logs as the report folder fills up: one report log per
// run, so a folder of years of runs of many jobs holds a hundred thousand. The folder is read at
// the first call and watched after that. And `twctl status` over a thousand jobs beside them.
//   build/bin/bench_reports
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "common/Clock.h"
#include "common/NumberText.h"
#include "console/Twctl.h"
#include "reporting/clsReportLogs.h"

namespace {

namespace fs = std::filesystem;

// An application folder with `count` report logs a minute apart. The first is saved by the real
// code, the others are hard links to it (or to a copy): the listing reads only the newest files,
// and the folder scan sees them all.
class ReportFolder {
 public:
  explicit ReportFolder(int count) {
    char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    tw::TWSettings settings(path_ + "/settings.db");
    tw::ManualClock clock(tw::DateSerial(2020, 1, 1));
    tw::clsReportLogs reports(path_, settings, clock, [] { return 0.5; });
    tw::clsReportLogEntry entry;
    entry.JobName = "Nightly";
    entry.Computer = "server";
    entry.Label = "Daily-Mon";
    entry.Report = "Backup of /srv\r\n12,345 files, 6.7 GB written\r\nResult: Backup process completed normally";
    entry.TimeStart = clock.Now();
    entry.TimeEnd = clock.Now();
    reports.SaveNewEntry(entry);
    std::string model = entry.Filename();
    for (int i = 1; i < count; ++i) {
      clock.AdvanceSeconds(60);
      const std::string name = reports.ReportLogsDirectory() + "/" + tw::NumberToText(clock.Now()) + ".log";
      // A file takes at most 65,000 links: every 50,000th report is a copy, the model of the next.
      if (i % 50000 == 0) {
        fs::copy_file(model, name);
        model = name;
      } else {
        fs::create_hard_link(model, name);
      }
    }
  }
  ~ReportFolder() { fs::remove_all(path_); }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

void BM_GetSummaries20(benchmark::State& state) {
  ReportFolder folder(static_cast<int>(state.range(0)));
  tw::TWSettings settings(folder.Path() + "/settings.db");
  tw::SystemClock clock;
  tw::clsReportLogs reports(folder.Path(), settings, clock);
  for (auto _ : state) {
    const auto entries = reports.GetSummaries(20);
    if (entries.size() != 20) state.SkipWithError("not twenty report logs");
    benchmark::DoNotOptimize(entries.data());
  }
}
BENCHMARK(BM_GetSummaries20)->ArgName("reports")->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The first call of a new report-log object, which reads the whole folder once.
void BM_GetSummaries20FirstCall(benchmark::State& state) {
  ReportFolder folder(static_cast<int>(state.range(0)));
  tw::TWSettings settings(folder.Path() + "/settings.db");
  tw::SystemClock clock;
  for (auto _ : state) {
    tw::clsReportLogs reports(folder.Path(), settings, clock);
    const auto entries = reports.GetSummaries(20);
    if (entries.size() != 20) state.SkipWithError("not twenty report logs");
    benchmark::DoNotOptimize(entries.data());
  }
}
BENCHMARK(BM_GetSummaries20FirstCall)->ArgName("reports")->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

// `twctl status` as an administrator runs it: a new process each time, so nothing is kept from one
// call to the next; 1,000 jobs beside 100,000 report logs. With each job's last run recorded by
// the service, as it does; and, for comparison, from a settings file of a version that kept no
// record, when the report logs are read instead.
void BM_StatusOf1000Jobs(benchmark::State& state) {
  ReportFolder folder(100000);
  {
    tw::TWSettings settings(folder.Path() + "/settings.db");
    tw::SettingsStore& store = settings.Store();
    store.InTransaction([&] {
      for (int i = 0; i < 1000; ++i) {
        tw::clsJob job = settings.General().AddJob("Job" + std::to_string(i), "job" + std::to_string(i));
        job.ScheduledTime(tw::TimeSerial(i % 24, i % 60, 0));
        job.LastRun(tw::DateSerial(2020, 1, 1), tw::DateSerial(2020, 1, 1) + 0.01, 0, "43831.log");
        store.SetReportMail(job.Name(), tw::DateSerial(2020, 1, 1), {"sent", 0, tw::DateSerial(2020, 1, 1) + 0.02});
      }
      store.WriteBool("service.outcomes_recorded", state.range(0) == 1);
    });
  }
  tw::ConsoleEnvironment environment;
  environment.settingsPath = folder.Path() + "/settings.db";
  environment.applicationFolder = folder.Path();
  for (auto _ : state) {
    std::ostringstream out, err;
    tw::RunTwctl({"status"}, out, err, environment);
    if (out.str().find("Job999 ") == std::string::npos) state.SkipWithError("status lacks a job");
  }
}
BENCHMARK(BM_StatusOf1000Jobs)->ArgName("recorded")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace
