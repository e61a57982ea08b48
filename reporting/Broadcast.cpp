#include "reporting/Broadcast.h"

#include <vector>

#include "common/CommandLine.h"
#include "common/Strings.h"
#include "platform/Process.h"

namespace tw {

std::string BroadcastCommand(const std::string& applicationFolder, const std::string& piece, const std::string& title,
                             const std::string& convertedMessage) {
  // Nothing is escaped: a double quote in a name or the text ends up as it stands. Only the
  // program's own path is quoted, when the application folder has a blank in it.
  std::string program = applicationFolder + "/twmessage";
  if (program.find_first_of(" \t") != std::string::npos) program = "\"" + program + "\"";
  return program + " \"" + piece + "\" \" " + title + kBroadcastLineBreak + kBroadcastLineBreak +
         convertedMessage + "\"";
}

void Broadcast(ExecutionHost& host, const std::string& recipients, const std::string& title, const std::string& message) {
  const std::string converted = ReplaceAll(message, "\r\n", std::string(1, kBroadcastLineBreak));
  host.logging.Logs().AddLogSimple(3, "Sending net message",
                                   "Recipients: " + recipients + "\r\nTitle: " + title + "\r\nMessage: " + converted, 0,
                                   "");
  // An empty list holds no piece at all, not one empty name.
  const std::vector<std::string> pieces = recipients.empty() ? std::vector<std::string>{} : Split(recipients, ';');
  for (const auto& piece : pieces) {
    try {
      const std::string command = BroadcastCommand(host.applicationFolder, piece, title, converted);
      host.logging.Logs().AddLogSimple(3, "Broadcasting network message", "Executing the broadcast:\r\n\r\n" + command,
                                       0, "");
      platform::StartDetached(SplitCommandLine(command));
    } catch (...) {
      // The outcome of a broadcast is not observed.
    }
  }
}

}  // namespace tw
