#pragma once
// twmessage, the messenger: writes a message to the terminals of a user logged in on this host
// ("*" for everybody), as a broadcast from the service.
//   twmessage RECIPIENT TEXT
// A character 20 in TEXT is a line break. Exit 0 when at least one terminal got it, 1 when the
// recipient has none, 2 on bad usage.
#include <ostream>
#include <string>
#include <vector>

#include "common/Clock.h"

namespace tw::tools {

// The broadcast comes from the product under the custom product name of the settings at
// `settingsPath`, when they hold one and can be read.
int RunMessenger(const std::vector<std::string>& args, const Clock& clock, const std::string& settingsPath,
                 std::ostream& out, std::ostream& err);

// What appears on the terminal.
std::string MessengerText(const std::string& text, const std::string& productName, const std::string& computer,
                          Date now);

}  // namespace tw::tools
