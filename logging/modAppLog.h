#pragma once
// Entries in the system log for the administrator's monitoring: the "Tarnwick" source for the
// outcome of every run and the "SmallBusinessServer" source for small-business monitoring. With
// journald each entry is a journal entry with the event as fields of its own; without it, or when
// a socket is named, a traditional syslog datagram. A failed write is silent.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/Clock.h"

namespace tw {

// Event types of the entries, and the event IDs the service writes.
namespace eventtype {
constexpr int16_t Error = 1;
constexpr int16_t Warning = 2;
constexpr int16_t Information = 4;
}  // namespace eventtype

struct EventLogEntry {
  std::string source;  // "Tarnwick" or "SmallBusinessServer"
  int16_t eventType = eventtype::Information;
  uint32_t eventId = 0;
  int category = 0;
  std::optional<std::string> text;  // the entry's one string, if it has one
  Date time = 0;
  int processId = 0;
};

// "<PRI>Mmm dd hh:mm:ss SOURCE[PID]: Event ID N: TEXT", as glibc's syslog() writes to /dev/log:
// facility daemon, the severity from the event type. The text is kept as it is, cut when over-long;
// an entry without one reads "Event ID N".
std::string FormatSyslogDatagram(const EventLogEntry& entry);
// The entry as journal fields: SYSLOG_IDENTIFIER, PRIORITY, SYSLOG_FACILITY, TARNWICK_EVENT_ID,
// TARNWICK_EVENT_TYPE, TARNWICK_CATEGORY and a MESSAGE that journalctl shows as text.
std::vector<std::string> JournalFields(const EventLogEntry& entry);

class modAppLog {
 public:
  // Entries go as datagrams to `socketPath` when one is given or TARNWICK_SYSLOG_SOCKET names one;
  // otherwise to the journal, and as datagrams to /dev/log where no journal takes them.
  explicit modAppLog(const Clock& clock, std::string socketPath = {});

  // One entry under the source "Tarnwick", category 0.
  void WriteEventLog(const std::string& text, int16_t eventType, uint32_t eventId);
  // One entry under the source "SmallBusinessServer", category 5: 5633 information or 5634
  // error with the text; without the text the same messages carry their full severity IDs.
  void WriteSbsEventLog(bool success, const std::string& text, bool withText);

 private:
  void Send(EventLogEntry entry);

  const Clock& clock_;
  std::optional<std::string> socketPath_;  // nothing: the journal
};

}  // namespace tw
