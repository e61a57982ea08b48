#pragma once
// The process shell: starts one program, collects its console output when asked, and tells its
// owner when the program has ended and how. It waits in place (synchronous use, keeping the event
// loop running meanwhile) or returns at once and reports the end later through its monitor
// (asynchronous use). One shell watches one program at a time and is reused for later runs.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "execution/ExecutionHost.h"
#include "execution/frmAdvShell.h"
#include "platform/Subprocess.h"

namespace tw {

class clsAdvShell {
 public:
  explicit clsAdvShell(ExecutionHost& host);
  ~clsAdvShell();
  clsAdvShell(const clsAdvShell&) = delete;
  clsAdvShell& operator=(const clsAdvShell&) = delete;

  bool Busy() const { return busy_; }
  int32_t ProcessID() const { return processId_; }
  const std::string& ConsoleOutput() const { return consoleOutput_; }

  // Starts `file` (resolved against the working folder) with `arguments`, a command-line text
  // split by the platform's quoting rules. Synchronous: returns the exit code. Asynchronous:
  // returns 0 once started. -1 when the file is missing, not executable, or cannot be started.
  // The window style has no equivalent here and is only recorded.
  int32_t AdvShell(const std::string& file, const std::string& arguments, const std::string& workDir,
                   int32_t windowStyle, bool asynchronous, bool captureOutput);
  clsAdvShell& ProcessNotification() { return *this; }
  // Ends the running program: at once, its exit code is -3. Does nothing when idle.
  void KillProcess();

  const std::string& AppDir() const { return appDir_; }
  const std::string& AppTitle() const { return appTitle_; }
  const std::string& ComLine() const { return comLine_; }
  const std::string& WorkDir() const { return workDir_; }
  int32_t WindowStyle() const { return windowStyle_; }

  // Adds a variable to the environment of the programs started from now on.
  void Environment(const std::string& name, const std::string& value);
  // What the programs started from now on read on their standard input (empty: nothing). A pipe
  // only the program reads: the way to hand it a secret.
  void Input(const std::string& text) { input_ = text; }

  // Events.
  std::function<void()> LoadProg;
  std::function<void(int32_t exitCode)> ReturnProg;
  std::function<void(int32_t errorCode)> ErrorExecuting;

 private:
  void mfrmMonitor_Monitor();
  // The end of a run: output collected, ReturnProg raised, not busy any more.
  void Finish(int32_t exitCode);

  // A program killed on request reports this.
  static constexpr int32_t kKilled = -3;

  ExecutionHost& host_;
  std::unique_ptr<frmAdvShell> mfrmMonitor_;
  std::unique_ptr<platform::Subprocess> process_;
  std::vector<std::pair<std::string, std::string>> environment_;
  std::string input_;
  bool busy_ = false;
  bool killRequested_ = false;
  bool captureOutput_ = false;
  int32_t processId_ = 0;
  int32_t windowStyle_ = 0;
  std::string consoleOutput_;
  std::string appDir_, appTitle_, comLine_, workDir_;
};

}  // namespace tw
