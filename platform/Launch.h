#pragma once
// Starting a program detached, under another account when running as root, and knowing that it
// has started: the launcher passes the program a pipe (its number in TARNWICK_READY_FD) and waits
// until the program writes to it, ends, or cannot be started at all. What the program prints until
// then (on standard output or error) comes back to the launcher; later output goes nowhere, since
// nobody waits for it any more.
#include <optional>
#include <string>
#include <vector>

#include "platform/Accounts.h"

namespace tw::platform {

struct LaunchResult {
  enum class Outcome {
    Ready,          // the program said it had started
    EndedUnready,   // it ended (or closed the pipe) without saying so
    NotStarted,     // it could not be started; `error` is the errno
  };
  Outcome outcome = Outcome::NotStarted;
  int error = 0;
  std::string output;  // what the program printed before it said it had started or ended
};

// Starts `program` in a new session, with standard input on /dev/null, as `runAs` when given
// (HOME, USER and LOGNAME then follow the account), and waits for its answer.
LaunchResult LaunchAndAwaitReady(const std::string& program, const std::vector<std::string>& arguments,
                                 const std::optional<Account>& runAs);

// For the programs started so: tells the launcher the program has started, and sends the
// program's standard output and error to /dev/null from then on. Does nothing when the program
// was started otherwise.
void SignalReady();

}  // namespace tw::platform
