#include "tools/Messenger.h"

#include "common/ProductName.h"
#include "common/Strings.h"
#include "platform/HostName.h"
#include "platform/Terminals.h"
#include "settings/TWSettings.h"

namespace tw::tools {

namespace {

std::string ProductNameIn(const std::string& settingsPath) {
  try {
    TWSettings settings(settingsPath);
    return Branded(kProductName, settings.General().Options().CustomProductName());
  } catch (...) {
    return std::string(kProductName);  // the message matters more than the name it comes under
  }
}

}  // namespace

std::string MessengerText(const std::string& text, const std::string& productName, const std::string& computer,
                          Date now) {
  const std::string lines = ReplaceAll(ReplaceAll(std::string(TrimBlanks(text)), "\x14", "\r\n"), "\n", "\r\n");
  return "\r\n\aBroadcast message from " + productName + " on " + computer + " at " + ShortTime(now) + ":\r\n\r\n" +
         ReplaceAll(lines, "\r\r\n", "\r\n") + "\r\n";
}

int RunMessenger(const std::vector<std::string>& args, const Clock& clock, const std::string& settingsPath,
                 std::ostream& out, std::ostream& err) {
  if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
    out << "Usage: twmessage RECIPIENT TEXT\nWrites TEXT to the terminals of the user RECIPIENT on this host (\"*\": "
           "every user logged in).\n";
    return 0;
  }
  if (args.size() < 2 || TrimWhitespace(args[0]).empty()) {
    err << "Usage: twmessage RECIPIENT TEXT\n";
    return 2;
  }
  char host[256] = {};
  platform::GetHostName(host, sizeof host - 1);
  const std::string text = MessengerText(args[1], ProductNameIn(settingsPath), host, clock.Now());
  int delivered = 0;
  for (const auto& terminal : platform::TerminalsOf(std::string(TrimWhitespace(args[0])))) {
    if (platform::WriteToTerminal(terminal, text)) ++delivered;
  }
  if (delivered == 0) {
    err << "twmessage: " << args[0] << " is not logged in on a terminal here\n";
    return 1;
  }
  return 0;
}

}  // namespace tw::tools
