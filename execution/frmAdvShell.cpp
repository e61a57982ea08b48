#include "execution/frmAdvShell.h"

namespace tw {

frmAdvShell::~frmAdvShell() { Unwatch(); }

void frmAdvShell::Unwatch() {
  if (endWatch_ != 0) loop_.Remove(endWatch_);
  if (outputWatch_ != 0) loop_.Remove(outputWatch_);
  endWatch_ = outputWatch_ = 0;
  process_ = nullptr;
}

void frmAdvShell::TimerEnabled(platform::Subprocess* process) {
  Unwatch();
  if (process == nullptr) return;
  process_ = process;
  endWatch_ = loop_.WatchProcess(process->PidFd(), [this] {
    endWatch_ = 0;  // a process ends once; the loop has dropped the watch
    if (Monitor) Monitor();
  });
  if (process->OutputFd() >= 0) {
    outputWatch_ = loop_.WatchReadable(process->OutputFd(), [this] {
      process_->ReadAvailableOutput();
      if (process_->OutputClosed()) {
        // Nothing more will come; a closed pipe would otherwise wake the loop for ever.
        loop_.Remove(outputWatch_);
        outputWatch_ = 0;
      }
    });
  }
}

void frmAdvShell::Nudge() {
  loop_.Post([this] {
    if (process_ != nullptr && Monitor) Monitor();
  });
}

}  // namespace tw
