#pragma once
// A temporary application folder with real settings, logs and event loop, for running real programs.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "execution/ExecutionHost.h"
#include "logging/clsLogs.h"
#include "logging/modLogging.h"
#include "platform/EventLoop.h"
#include "settings/TWSettings.h"
#include "tests/support/LogEntries.h"
#include "tests/support/TestSupport.h"

namespace tw::test {

class ExecutionFixture : public ::testing::Test {
 protected:
  // Runs the event loop until `condition` holds; false after `timeoutMs`.
  bool LoopUntil(const std::function<bool()>& condition, int timeoutMs = 10000) {
    return WaitUntil([&] {
      loop_.Sleep(10);
      return condition();
    }, timeoutMs);
  }
  // Makes the built program `name` (from build/bin) part of the application folder.
  void LinkProgram(const std::string& name) {
    std::filesystem::create_symlink(std::string(TW_BIN_DIR) + "/" + name, dir_ / name);
  }
  void Script(const std::string& name, const std::string& body) { WriteScript(dir_ / name, body); }
  std::vector<clsLogEntry> Logs(int count) { return NewestEntries(logs_, count); }

  TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  SystemClock clock_;
  platform::EventLoop loop_;
  clsLogs logs_{dir_.Path(), settings_, clock_, loop_};
  modLogging logging_{logs_, settings_, loop_};
  ExecutionHost host_{dir_.Path(), settings_, logging_, clock_, loop_, loop_};
};

}  // namespace tw::test
