#include "logging/modAppLog.h"

#include "platform/Environment.h"
#include "platform/EventLog.h"
#include "platform/HostName.h"

namespace tw {
namespace {

constexpr int kFacilityDaemon = 3;
// Private enterprise number 32473 is the one set aside for documentation and private use.
const char* kStructuredDataId = "tarnwick@32473";
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

std::string LocalHostName() {
  char buffer[256] = {};
  if (platform::GetHostName(buffer, sizeof buffer - 1) != 0 || buffer[0] == '\0') return "-";
  return buffer;
}

}  // namespace

std::string FormatSyslogDatagram(const SyslogEntry& entry) {
  const int priority = kFacilityDaemon * 8 + SeverityOf(entry.eventType);
  std::string datagram = "<" + std::to_string(priority) + ">1 " + Rfc3339Text(entry.time) + " " +
                         (entry.host.empty() ? "-" : entry.host) + " " + entry.appName + " " +
                         std::to_string(entry.processId) + " " + std::to_string(entry.eventId) + " [" +
                         kStructuredDataId + " eventID=\"" + std::to_string(entry.eventId) + "\" eventType=\"" +
                         std::to_string(entry.eventType) + "\" category=\"" + std::to_string(entry.category) + "\"]";
  if (entry.text) datagram += " " + CutText(*entry.text);
  return datagram;
}

modAppLog::modAppLog(const Clock& clock, std::string socketPath)
    : clock_(clock), socketPath_(socketPath.empty() ? platform::SyslogSocketPath() : std::move(socketPath)) {}

void modAppLog::WriteEventLog(const std::string& text, int16_t eventType, uint32_t eventId) {
  SyslogEntry entry;
  entry.appName = "Tarnwick";
  entry.eventType = eventType;
  entry.eventId = eventId;
  entry.category = 0;
  entry.text = text;
  Send(std::move(entry));
}

void modAppLog::WriteSbsEventLog(bool success, const std::string& text, bool withText) {
  SyslogEntry entry;
  entry.appName = "SmallBusinessServer";
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

void modAppLog::Send(SyslogEntry entry) {
  try {
    entry.time = clock_.Now();
    entry.host = LocalHostName();
    entry.processId = platform::ProcessId();
    platform::SendDatagram(socketPath_, FormatSyslogDatagram(entry));
  } catch (...) {
    // A failure to write the event is silent.
  }
}

}  // namespace tw
