// Report-log files: the console lists and shows the report logs of the Reports folder, whatever
// wrote them. Each input is one such file, read as the listing and the detail view read it.
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Clock.h"
#include "common/Date.h"
#include "common/Error.h"
#include "fuzz/FuzzSupport.h"
#include "reporting/clsReportLogEntry.h"
#include "reporting/clsReportLogs.h"
#include "settings/TWSettings.h"

namespace {

using namespace tw;

struct Fixture {
  fuzz::ScratchFolder folder{"tw-fuzz-report"};
  TWSettings settings{folder / "settings.db"};  // never written: listing reports needs no setting
  ManualClock clock{46349.875};
  clsReportLogs reports{folder.Path(), settings, clock, [] { return 0.25; }};
};

// What the console shows of an entry.
void Show(const clsReportLogEntry& entry) {
  IsoText(entry.TimeStart);
  IsoText(entry.TimeEnd);
  entry.StatusString();
  for (const auto& key : entry.ExtraFieldKeys()) entry.ExtraField(key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Fixture fixture;
  const std::string path = fixture.reports.ReportLogsDirectory() + "/46349.875.log";
  fuzz::WriteInput(path, data, size);

  for (const auto& entry : fixture.reports.GetSummaries(0)) Show(entry);

  clsReportLogEntry entry;
  try {
    entry.Load(path);
  } catch (const TWError&) {
    return 0;  // a short or malformed file: left out of the listing
  }
  Show(entry);
  return 0;
}
