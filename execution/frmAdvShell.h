#pragma once
// The watcher of an asynchronous program run ("Process Monitor"). While it is switched on it raises
// Monitor when the program ends or a kill is asked for, and reads the program's output as it
// arrives. Where a timer once looked every 50 ms, the program's pidfd wakes it: an idle service
// does not wake at all for a running job.
#include <functional>

#include "platform/EventLoop.h"
#include "platform/Subprocess.h"

namespace tw {

class frmAdvShell {
 public:
  explicit frmAdvShell(platform::EventLoop& loop) : loop_(loop) {}
  ~frmAdvShell();
  frmAdvShell(const frmAdvShell&) = delete;
  frmAdvShell& operator=(const frmAdvShell&) = delete;

  const char* Caption() const { return "Process Monitor"; }
  bool TimerEnabled() const { return process_ != nullptr; }
  // Switched on, it watches `process`; switched off (process null), nothing.
  void TimerEnabled(platform::Subprocess* process);
  // Raises Monitor soon, from the loop: a kill request takes effect at once.
  void Nudge();

  std::function<void()> Monitor;

 private:
  void Unwatch();

  platform::EventLoop& loop_;
  platform::Subprocess* process_ = nullptr;
  platform::EventLoop::SourceId endWatch_ = 0;
  platform::EventLoop::SourceId outputWatch_ = 0;
};

}  // namespace tw
