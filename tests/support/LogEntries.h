#pragma once
// The log as the suites read it back: the newest entries, without the empty slots of a short log.
#include <algorithm>
#include <vector>

#include "logging/clsLogs.h"

namespace tw::test {

// At most `count` entries, newest first.
inline std::vector<clsLogEntry> NewestEntries(clsLogs& logs, int count) {
  std::vector<clsLogEntry> entries(static_cast<size_t>(count));
  logs.GetLastLogs(count, entries);
  std::erase_if(entries, [](const clsLogEntry& e) { return e.Title.empty(); });
  return entries;
}

}  // namespace tw::test
