#pragma once
// An application-log entry as people read it on a terminal: time, type and title on one line; the
// message, and a text attachment, indented below; other attachments by their path.
#include <cstdint>
#include <string>

#include "logging/clsLogEntry.h"

namespace tw {

std::string LogTypeName(int32_t logType);  // "info", "warning", "error", "detail"
std::string FormatLogEntry(const clsLogEntry& entry);

}  // namespace tw
