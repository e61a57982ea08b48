#pragma once
// The local system log: one datagram per entry to the syslog socket.
#include <string>

namespace tw::platform {

// TARNWICK_SYSLOG_SOCKET when set, otherwise /dev/log.
std::string SyslogSocketPath();
// Sends one datagram to a Unix datagram socket. Returns false when it could not be delivered;
// a system log that is down must never disturb the caller.
bool SendDatagram(const std::string& socketPath, const std::string& datagram);

}  // namespace tw::platform
