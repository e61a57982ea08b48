// The application log's cost per call as the log folder fills up. The folder is read once, by the
// first call of a log object, for the highest file number, which is then followed through the
// folder's changes; each append rereads the newest file only.
//   build/bin/bench_logs
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "logging/clsLogs.h"
#include "settings/TWSettings.h"

namespace {

namespace fs = std::filesystem;

// An application folder whose log holds `files` full files of 100 entries each. The files are
// hard links to one file: the store reads only the newest ones, and the folder scan sees them all.
class LogFolder {
 public:
  explicit LogFolder(int files) {
    char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    fs::create_directories(path_ + "/Logs/Attachments");
    const std::string model = path_ + "/model";
    {
      std::ofstream out(model, std::ios::binary);
      for (int i = 0; i < 100; ++i) {
        out << "46349.875" << i << "\tTarnwick service starting\t0\tThe Tarnwick service has been instructed to start"
            << "\t0\r\n";
      }
    }
    for (int n = 0; n < files; ++n) {
      char name[32];
      std::snprintf(name, sizeof name, "/Logs/TWLog.%04d", n);
      fs::create_hard_link(model, path_ + name);
    }
  }
  ~LogFolder() { fs::remove_all(path_); }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

void BM_AddLogSimple(benchmark::State& state) {
  LogFolder folder(static_cast<int>(state.range(0)));
  tw::TWSettings settings(folder.Path() + "/settings.db");
  tw::SystemClock clock;
  tw::BlockingPump pump;
  tw::clsLogs logs(folder.Path(), settings, clock, pump);
  logs.AddLogSimple(0, "warm-up", "", 0, "");  // creates the settings file
  for (auto _ : state) {
    benchmark::DoNotOptimize(logs.AddLogSimple(0, "Number of backup jobs currently running: 1", "", 0, ""));
  }
}
BENCHMARK(BM_AddLogSimple)->ArgName("files")->Arg(1)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_GetLastLogs100(benchmark::State& state) {
  LogFolder folder(static_cast<int>(state.range(0)));
  tw::TWSettings settings(folder.Path() + "/settings.db");
  tw::SystemClock clock;
  tw::BlockingPump pump;
  tw::clsLogs logs(folder.Path(), settings, clock, pump);
  logs.AddLogSimple(0, "newest", "", 0, "");  // the newest file holds one entry: reading crosses a file
  std::vector<tw::clsLogEntry> entries(100);
  for (auto _ : state) {
    logs.GetLastLogs(100, entries);
    benchmark::DoNotOptimize(entries.data());
  }
}
BENCHMARK(BM_GetLastLogs100)->ArgName("files")->Arg(10000)->Unit(benchmark::kMicrosecond);

// What "twctl logs" does: a new log object, whose first call reads the folder.
void BM_GetLastLogs100FirstCall(benchmark::State& state) {
  LogFolder folder(static_cast<int>(state.range(0)));
  tw::TWSettings settings(folder.Path() + "/settings.db");
  tw::SystemClock clock;
  tw::BlockingPump pump;
  std::vector<tw::clsLogEntry> entries(100);
  for (auto _ : state) {
    tw::clsLogs logs(folder.Path(), settings, clock, pump);
    logs.GetLastLogs(100, entries);
    benchmark::DoNotOptimize(entries.data());
  }
}
BENCHMARK(BM_GetLastLogs100FirstCall)->ArgName("files")->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace


