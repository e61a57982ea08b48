#pragma once
#include <cstdint>
#include <string>

#include "common/Date.h"

namespace tw {

// One application-log record.
struct clsLogEntry {
  Date Timestamp = 0;
  int32_t LogType = 0;         // 0 information, 1 warning, 2 error, 3 detail
  std::string Title;
  std::string Message;
  std::string Attachment;      // depends on AttachmentType
  int32_t AttachmentType = 0;  // 0 none, 1 text, 2 screenshot, 3 text kept as a file (or gone)
};

}  // namespace tw
