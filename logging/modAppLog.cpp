#include "logging/modAppLog.h"

#include "platform/Environment.h"
#include "platform/EventLog.h"

namespace tw {
namespace {

constexpr int kFacilityDaemon = 3;
// Syslog daemons take datagrams of a few dozen kilobytes; a longer text is cut rather than lost.
constexpr size_t kMaxText = 60000;

int SeverityOf(int16_t eventType) {
  switch (eventType) {
    case eventtype::Error: return 3;
    case eventtype::Warning: return 4;
    default: return 6;  // information and anything else
  }
}

std::string CutText(const std::string& text) {
  if (text.size() <= kMaxText) return text;
  size_t end = kMaxText;
  // Do not split a UTF-8 sequence.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

std::string EventIdText(const EventLogEntry& entry) { return "Event ID " + std::to_string(entry.eventId); }

// journalctl shows a field holding a carriage return as "[blob data]", so every line ends in a
// bare LF. The Tarnwick entries' text starts with two line breaks that set the report apart in a
// Windows event viewer; in the journal they would only put an empty line first, so leading line
// breaks go, and trailing ones too, as journald drops them from the lines it reads itself.
std::string JournalText(const std::string& text) {
  std::string lines;
  lines.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      lines += text[i];
    } else if (i + 1 == text.size() || text[i + 1] != '\n') {
      lines += '\n';  // a carriage return on its own breaks the line as well
    }
  }
  const size_t first = lines.find_first_not_of('\n');
  if (first == std::string::npos) return {};
  return lines.substr(first, lines.find_last_not_of('\n') + 1 - first);
}

}  // namespace

std::string FormatSyslogDatagram(const EventLogEntry& entry) {
  const int priority = kFacilityDaemon * 8 + SeverityOf(entry.eventType);
  std::string datagram = "<" + std::to_string(priority) + ">" + Rfc3164Text(entry.time) + " " + entry.source +
                         "[" + std::to_string(entry.processId) + "]: " + EventIdText(entry);
  if (entry.text) datagram += ": " + CutText(*entry.text);
  return datagram;
}

std::vector<std::string> JournalFields(const EventLogEntry& entry) {
  std::string message = entry.text ? JournalText(CutText(*entry.text)) : std::string();
  if (message.empty()) message = EventIdText(entry);
  return {"MESSAGE=" + message,
          "PRIORITY=" + std::to_string(SeverityOf(entry.eventType)),
          "SYSLOG_FACILITY=" + std::to_string(kFacilityDaemon),
          "SYSLOG_IDENTIFIER=" + entry.source,
          "TARNWICK_EVENT_ID=" + std::to_string(entry.eventId),
          "TARNWICK_EVENT_TYPE=" + std::to_string(entry.eventType),
          "TARNWICK_CATEGORY=" + std::to_string(entry.category)};
}

modAppLog::modAppLog(const Clock& clock, std::string socketPath) : clock_(clock) {
  if (!socketPath.empty()) {
    socketPath_ = std::move(socketPath);
  } else {
    socketPath_ = platform::SyslogSocketOverride();
  }
}

void modAppLog::WriteEventLog(const std::string& text, int16_t eventType, uint32_t eventId) {
  EventLogEntry entry;
  entry.source = "Tarnwick";
  entry.eventType = eventType;
  entry.eventId = eventId;
  entry.category = 0;
  entry.text = text;
  Send(std::move(entry));
}

void modAppLog::WriteSbsEventLog(bool success, const std::string& text, bool withText) {
  EventLogEntry entry;
  entry.source = "SmallBusinessServer";
  entry.eventType = success ? eventtype::Information : eventtype::Error;
  if (withText) {
    entry.eventId = success ? 5633 : 5634;
    entry.text = text;
  } else {
    // The same message numbers with the severity and facility bits set.
    entry.eventId = success ? 0x40101601u : 0xC0101602u;
  }
  entry.category = 5;
  Send(std::move(entry));
}

void modAppLog::Send(EventLogEntry entry) {
  try {
    entry.time = clock_.Now();
    entry.processId = platform::ProcessId();
    if (!socketPath_ && platform::SendJournalEntry(JournalFields(entry))) return;
    platform::SendDatagram(socketPath_.value_or(platform::kSyslogSocket), FormatSyslogDatagram(entry));
  } catch (...) {
    // A failure to write the event is silent.
  }
}

}  // namespace tw
