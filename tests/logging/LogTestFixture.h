#pragma once
// An application folder in a temporary folder with a real settings store, a manual clock at
// 30 January 2024 21:00 and no time-stamp jitter, so that log files are known byte for byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/Clock.h"
#include "logging/clsLogs.h"
#include "settings/TWSettings.h"
#include "tests/support/LogEntries.h"
#include "tests/support/TestSupport.h"

namespace tw::test {

class LogTestFixture : public ::testing::Test {
 protected:
  // Entries read back, newest first; at most `count`.
  std::vector<clsLogEntry> Last(int count) { return NewestEntries(logs_, count); }
  std::string LogFile(const std::string& name) const { return ReadFile(dir_ / ("Logs/" + name)); }

  TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{45321.875};
  RecordingPump pump_;
  clsLogs logs_{dir_.Path(), settings_, clock_, pump_, [] { return 0.0; }};
};

}  // namespace tw::test
