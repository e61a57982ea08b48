#pragma once
// Entries in the system log for the administrator's monitoring: the "Tarnwick" source for the
// outcome of every run and the "SmallBusinessServer" source for small-business monitoring. Each
// entry is one RFC 5424 datagram to the local syslog socket. A failed write is silent.
#include <cstdint>
#include <optional>
#include <string>

#include "common/Clock.h"

namespace tw {

// Event types of the entries, and the event IDs the service writes.
namespace eventtype {
constexpr int16_t Error = 1;
constexpr int16_t Warning = 2;
constexpr int16_t Information = 4;
}  // namespace eventtype

struct SyslogEntry {
  std::string appName;  // "Tarnwick" or "SmallBusinessServer"
  int16_t eventType = eventtype::Information;
  uint32_t eventId = 0;
  int category = 0;
  std::optional<std::string> text;  // the entry's one string, if it has one
  Date time = 0;
  std::string host;
  int processId = 0;
};

// "<PRI>1 TIMESTAMP HOST APP-NAME PROCID MSGID [tarnwick@32473 ...] MSG": facility daemon, the
// severity from the event type, the event ID as MSGID and again with type and category as
// structured data. An over-long text is cut to what a syslog socket takes.
std::string FormatSyslogDatagram(const SyslogEntry& entry);

class modAppLog {
 public:
  // `socketPath` defaults to the local syslog socket (TARNWICK_SYSLOG_SOCKET overrides it).
  explicit modAppLog(const Clock& clock, std::string socketPath = {});

  // One entry under the source "Tarnwick", category 0.
  void WriteEventLog(const std::string& text, int16_t eventType, uint32_t eventId);
  // One entry under the source "SmallBusinessServer", category 5: 5633 information or 5634
  // error with the text; without the text the same messages carry their full severity IDs.
  void WriteSbsEventLog(bool success, const std::string& text, bool withText);

 private:
  void Send(SyslogEntry entry);

  const Clock& clock_;
  std::string socketPath_;
};

}  // namespace tw
