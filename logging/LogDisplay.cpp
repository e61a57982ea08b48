#include "logging/LogDisplay.h"

#include <iomanip>
#include <sstream>

#include "common/Strings.h"

namespace tw {
namespace {

// Each line indented; a lone CR breaks the line too, rather than send the terminal's cursor back
// over what it has shown.
void AppendIndented(std::ostringstream& out, const std::string& text) {
  const std::string lines = ReplaceAll(ReplaceAll(text, "\r\n", "\n"), "\r", "\n");
  for (const auto& line : Split(lines, '\n')) out << "    " << line << "\n";
}

}  // namespace

std::string LogTypeName(int32_t logType) {
  switch (logType) {
    case 0: return "info";
    case 1: return "warning";
    case 2: return "error";
    case 3: return "detail";
    default: return "type " + std::to_string(logType);
  }
}

std::string FormatLogEntry(const clsLogEntry& entry) {
  std::ostringstream out;
  out << IsoText(entry.Timestamp) << "  " << std::left << std::setw(7) << LogTypeName(entry.LogType) << "  "
      << entry.Title << "\n";
  if (!entry.Message.empty()) AppendIndented(out, entry.Message);
  if (entry.AttachmentType == 1) {
    out << "  Attachment:\n";
    AppendIndented(out, entry.Attachment);
  } else if (entry.AttachmentType == 2 || entry.AttachmentType == 3) {
    out << "  Attachment: " << entry.Attachment << "\n";
  }
  return out.str();
}

}  // namespace tw
