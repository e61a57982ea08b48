#pragma once
// The local system log: entries with fields of their own to the journal, or one datagram per entry
// to a syslog socket where no journal runs or a socket is named.
#include <optional>
#include <string>
#include <vector>

namespace tw::platform {

// The local syslog socket that takes an entry when no journal does.
inline constexpr const char* kSyslogSocket = "/dev/log";

// The socket named by TARNWICK_SYSLOG_SOCKET, unless it is empty: tests and administrators send
// the entries there instead of to the journal.
std::optional<std::string> SyslogSocketOverride();
// Sends one datagram to a Unix datagram socket. Returns false when it could not be delivered;
// a system log that is down must never disturb the caller.
bool SendDatagram(const std::string& socketPath, const std::string& datagram);
// Sends one journal entry of "NAME=value" fields (a value may hold line breaks). Returns false when
// no journal took it, above all when no journald listens on its native socket.
bool SendJournalEntry(const std::vector<std::string>& fields);

}  // namespace tw::platform
