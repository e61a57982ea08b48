#include "platform/Terminal.h"

#include <termios.h>
#include <unistd.h>

#include <iostream>

namespace tw::platform {
namespace {

// Switches terminal echo off for its lifetime and restores the previous mode.
class EchoOff {
 public:
  EchoOff() {
    if (::tcgetattr(STDIN_FILENO, &saved_) != 0) return;
    termios quiet = saved_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    // TCSANOW, not TCSAFLUSH: what was typed ahead of the prompt must not be thrown away.
    active_ = ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet) == 0;
  }
  ~EchoOff() {
    if (active_) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &saved_);
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  termios saved_{};
  bool active_ = false;
};

}  // namespace

bool StdinIsTerminal() { return ::isatty(STDIN_FILENO) == 1; }

std::optional<std::string> ReadHiddenLine(const std::string& prompt) {
  const bool terminal = StdinIsTerminal();
  std::string line;
  bool ok = false;
  {
    // Echo goes off before the prompt shows, so nothing typed after it is ever echoed.
    std::optional<EchoOff> quiet;
    if (terminal) quiet.emplace();
    if (terminal) std::cerr << prompt << std::flush;
    ok = static_cast<bool>(std::getline(std::cin, line));
  }
  if (terminal) std::cerr << "\n";
  if (!ok) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

}  // namespace tw::platform
