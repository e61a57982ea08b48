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
    active_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
  }
  ~EchoOff() {
    if (active_) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
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
  if (terminal) std::cerr << prompt << std::flush;
  std::string line;
  bool ok = false;
  {
    std::optional<EchoOff> quiet;
    if (terminal) quiet.emplace();
    ok = static_cast<bool>(std::getline(std::cin, line));
  }
  if (terminal) std::cerr << "\n";
  if (!ok) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

}  // namespace tw::platform
