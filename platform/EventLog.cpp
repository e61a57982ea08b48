#include "platform/EventLog.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

// The entry's place in our source means nothing to an administrator reading the journal.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include "platform/Environment.h"

namespace tw::platform {
namespace {

// Where libsystemd sends journal entries; journald listens there.
const char* const kJournalSocket = "/run/systemd/journal/socket";

// An unbound Unix datagram socket, closed with the object.
class DatagramSocket {
 public:
  DatagramSocket() : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~DatagramSocket() {
    if (fd_ >= 0) ::close(fd_);
  }
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;
  int Fd() const { return fd_; }

 private:
  int fd_;
};

bool AddressOf(const std::string& socketPath, sockaddr_un& address) {
  if (socketPath.size() >= sizeof address.sun_path) return false;
  address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
  return true;
}

// libsystemd reports success when the journal's socket does not exist at all, so whether a
// journald takes datagrams there is asked first.
bool JournalListens() {
  sockaddr_un address;
  DatagramSocket socket;
  return AddressOf(kJournalSocket, address) && socket.Fd() >= 0 &&
         ::connect(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

std::optional<std::string> SyslogSocketOverride() {
  auto path = GetEnv("TARNWICK_SYSLOG_SOCKET");
  if (path && path->empty()) return std::nullopt;  // cleared, as in "TARNWICK_SYSLOG_SOCKET= TWService"
  return path;
}

bool SendDatagram(const std::string& socketPath, const std::string& datagram) {
  sockaddr_un address;
  if (!AddressOf(socketPath, address)) return false;
  DatagramSocket socket;
  if (socket.Fd() < 0) return false;
  const ssize_t sent = ::sendto(socket.Fd(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return sent == static_cast<ssize_t>(datagram.size());
}

bool SendJournalEntry(const std::vector<std::string>& fields) {
  if (!JournalListens()) return false;
  std::vector<iovec> parts;
  parts.reserve(fields.size());
  for (const auto& field : fields) parts.push_back({const_cast<char*>(field.data()), field.size()});
  return ::sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

}  // namespace tw::platform
