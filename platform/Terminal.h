#pragma once
// Questions asked on the terminal.
#include <optional>
#include <string>

namespace tw::platform {

bool StdinIsTerminal();
// Shows `prompt` on stderr and reads one line from standard input without echoing it when the
// input is a terminal. Nothing at end of input.
std::optional<std::string> ReadHiddenLine(const std::string& prompt);

}  // namespace tw::platform
