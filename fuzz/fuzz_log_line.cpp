// Application-log files: the console reads the newest entries back from files any program (or a
// person with an editor) may have written, and shows them. Besides not failing, a title or
// message read back is the text that was written, for every text without the code-1 character
// (which the format has always read back as "\").
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "fuzz/FuzzSupport.h"
#include "logging/LogDisplay.h"
#include "logging/LogLine.h"
#include "logging/clsLogs.h"
#include "settings/TWSettings.h"

namespace {

using namespace tw;

struct Fixture {
  fuzz::ScratchFolder folder{"tw-fuzz-log"};
  TWSettings settings{folder / "settings.db"};  // never written: reading the log needs no setting
  ManualClock clock{46349.875};
  BlockingPump pump;
  clsLogs logs{folder.Path(), settings, clock, pump, [] { return 0.25; }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Fixture fixture;
  fuzz::WriteInput(fixture.logs.LogDirectory() + "/TWLog.0000", data, size);

  std::vector<clsLogEntry> entries(101);
  fixture.logs.GetLastLogs(101, entries);
  for (const auto& entry : entries) FormatLogEntry(entry);

  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find('\x01') == std::string::npos && UnescapeLogField(EscapeLogField(text)) != text) {
    fuzz::PropertyFailed("an escaped log field does not read back as itself");
  }
  return 0;
}
