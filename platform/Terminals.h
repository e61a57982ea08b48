#pragma once
// The terminals people are logged in on, from the login records.
#include <string>
#include <vector>

namespace tw::platform {

// The terminal devices ("/dev/pts/3") of `user`'s sessions; "*" for everybody's. The records are
// read from TARNWICK_UTMP when it is set, else from the system's.
std::vector<std::string> TerminalsOf(const std::string& user);

// Writes `text` to a terminal without waiting for it; false when it cannot be written.
bool WriteToTerminal(const std::string& device, const std::string& text);

}  // namespace tw::platform
