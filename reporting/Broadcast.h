#pragma once
// Messages to people at their terminals: a title and a message sent to each recipient of a ";"
// list through twmessage (in the application folder), which writes them to that user's terminals.
#include <string>

#include "execution/ExecutionHost.h"

namespace tw {

// The character that stands for a line break inside a broadcast.
constexpr char kBroadcastLineBreak = '\x14';

// Logs what it sends (detail entries), then starts twmessage once per piece of the list, hidden and
// without waiting; from the start of the sending on, failures are skipped silently. A failure
// before that (the log entry) reaches the caller.
void Broadcast(ExecutionHost& host, const std::string& recipients, const std::string& title, const std::string& message);

// The command line that sends one broadcast: "<folder>/twmessage "PIECE" " TITLE<20><20>MESSAGE"".
std::string BroadcastCommand(const std::string& applicationFolder, const std::string& piece, const std::string& title,
                             const std::string& convertedMessage);

}  // namespace tw
