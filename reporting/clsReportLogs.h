#pragma once
// The folder of report logs, one file per run, named by the time it was saved: saving a new one,
// listing the newest, deleting them all.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/Clock.h"
#include "platform/FolderWatch.h"
#include "reporting/clsReportLogEntry.h"
#include "settings/TWSettings.h"

namespace tw {

class clsReportLogs {
 public:
  // The folder is <applicationFolder>/Reports, created by the first report saved: a folder that is
  // not there yet holds no reports, and a program that only lists them leaves nothing behind.
  clsReportLogs(const std::string& applicationFolder, TWSettings& settings, const Clock& clock,
                std::function<double()> random = {});

  // The sort order of the listing: 1 when `a` sorts before `b`, 0 when equal, -1 after; sorted so,
  // the newest comes first.
  static int IComparator_Compare(const std::string& a, const std::string& b);
  const std::string& ReportLogsDirectory() const { return directory_; }
  void ReportLogsDirectory(const std::string& folder) { directory_ = folder; }
  // Deletes every ".log" file of the folder; errors are ignored.
  void Clear();
  // The newest `maxCount` report logs that read (0: all), newest first, fully loaded. A file that
  // cannot be read is passed over, and named with its reason in `skipped` when given ("45321.9.log:
  // Input past end of file"); a folder that cannot be read raises TWError. The folder's names are
  // read once and then kept up to date by watching the folder, so that a folder of years of
  // reports is not read through at every call; the files themselves are read afresh each time.
  std::vector<clsReportLogEntry> GetSummaries(int32_t maxCount, std::vector<std::string>* skipped = nullptr);
  // Records the time in the settings (for the console), names the entry afresh (never the name of
  // a report already there) and saves it.
  void SaveNewEntry(clsReportLogEntry& entry);

 private:
  // The names of the report logs in the folder, newest first.
  const std::vector<std::string>& ReportLogNames();

  std::string directory_;
  TWSettings& settings_;
  const Clock& clock_;
  std::function<double()> random_;
  // The listing of `watchedDirectory_` as it stands, while `watch_` can tell what changed.
  std::unique_ptr<platform::FolderWatch> watch_;
  std::string watchedDirectory_;
  std::vector<std::string> names_;
};

}  // namespace tw
