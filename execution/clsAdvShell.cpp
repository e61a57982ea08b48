#include "execution/clsAdvShell.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/CommandLine.h"
#include "common/Error.h"
#include "platform/Process.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// How long a synchronous wait sleeps between passes of the event loop. Helper programs run this
// way are short; a small step keeps them quick without spinning.
constexpr int kSynchronousStepMs = 5;

}  // namespace

clsAdvShell::clsAdvShell(ExecutionHost& host) : host_(host), mfrmMonitor_(std::make_unique<frmAdvShell>(host.loop)) {
  mfrmMonitor_->Monitor = [this] { mfrmMonitor_Monitor(); };
}

clsAdvShell::~clsAdvShell() { mfrmMonitor_->TimerEnabled(nullptr); }

void clsAdvShell::Environment(const std::string& name, const std::string& value) {
  environment_.emplace_back(name, value);
}

int32_t clsAdvShell::AdvShell(const std::string& file, const std::string& arguments, const std::string& workDir,
                              int32_t windowStyle, bool asynchronous, bool captureOutput) {
  std::string location = "00500";
  try {
    captureOutput_ = captureOutput;
    consoleOutput_.clear();
    std::error_code error;
    workDir_ = !workDir.empty() && fs::is_directory(workDir, error) ? workDir : fs::current_path().string();

    location = "00501";
    const fs::path program = fs::path(file).is_absolute() ? fs::path(file) : fs::path(workDir_) / file;
    if (file.empty() || !platform::IsExecutableFile(program.string())) {
      if (ErrorExecuting) ErrorExecuting(-1);
      return -1;
    }
    appTitle_ = program.filename().string();
    appDir_ = program.parent_path().string();
    if (appDir_.empty() || appDir_.back() != '/') appDir_ += "/";
    comLine_ = arguments.empty() ? appTitle_ : appTitle_ + " " + arguments;

    location = "00502";
    busy_ = true;
    killRequested_ = false;
    windowStyle_ = windowStyle;

    location = "00503";
    platform::Subprocess::Launch launch;
    launch.path = appDir_ + appTitle_;
    launch.argv = SplitCommandLine(comLine_);
    if (launch.argv.empty()) launch.argv.push_back(appTitle_);
    launch.workingFolder = workDir_;
    launch.captureOutput = captureOutput;
    launch.environment = environment_;
    launch.input = input_;
    int startError = 0;
    process_ = platform::Subprocess::Start(launch, startError);
    if (!process_) {
      if (ErrorExecuting) ErrorExecuting(-1);
      busy_ = false;
      return -1;
    }
    processId_ = process_->Pid();

    location = "00504";
    if (LoadProg) LoadProg();

    location = "00505";
    if (asynchronous) {
      mfrmMonitor_->TimerEnabled(process_.get());
      return 0;
    }
    int exitCode = 0;
    while (true) {
      process_->WaitForActivity(kSynchronousStepMs);
      process_->ReadAvailableOutput();
      if (process_->Ended(exitCode)) break;
      if (killRequested_) {
        killRequested_ = false;
        process_->Kill();
        while (!process_->Ended(exitCode)) process_->WaitForActivity(kSynchronousStepMs);
        exitCode = kKilled;
        break;
      }
      host_.pump.Pump();
    }
    Finish(exitCode);
    return exitCode;
  } catch (...) {
    host_.logging.ReportInternalError(location, CurrentError("TWService"));
    return 0;
  }
}

void clsAdvShell::KillProcess() {
  if (!busy_) return;
  killRequested_ = true;
  if (mfrmMonitor_->TimerEnabled()) mfrmMonitor_->Nudge();
}

void clsAdvShell::mfrmMonitor_Monitor() {
  if (!process_) return;
  int exitCode = 0;
  bool finished = process_->Ended(exitCode);
  if (!finished && killRequested_) {
    killRequested_ = false;
    process_->Kill();
    while (!process_->Ended(exitCode)) process_->WaitForActivity(kSynchronousStepMs);
    exitCode = kKilled;
    finished = true;
  }
  if (!finished) return;
  mfrmMonitor_->TimerEnabled(nullptr);
  Finish(exitCode);
}

void clsAdvShell::Finish(int32_t exitCode) {
  killRequested_ = false;
  process_->ReadAvailableOutput();
  if (captureOutput_) consoleOutput_ = process_->Output();
  process_.reset();
  if (ReturnProg) ReturnProg(exitCode);
  busy_ = false;
}

}  // namespace tw
