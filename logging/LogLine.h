#pragma once
// The line format of the application log files. The console reads what the service writes, so
// this layout is an interface between programs and is kept byte for byte:
//   time stamp TAB escaped title TAB type TAB escaped message TAB attachment type
// with "\" doubled, CR LF written as the two characters \n, a lone CR as \r, a lone LF as \l and a
// tab as \t: a field never holds a line break of its own.
#include <string>
#include <string_view>
#include <vector>

#include "logging/clsLogEntry.h"

namespace tw {

std::string EscapeLogField(std::string_view text);
// The reverse, in the order that makes a stored code-1 character read back as "\".
std::string UnescapeLogField(std::string_view text);

struct FormattedLogLine {
  std::string line;            // without its line break
  std::string stamp;           // field 1, also the attachment's base name
  std::string attachmentName;  // stamp + ".png" (type 2) or ".txt" (type 1), else empty
};

// `random` is a value in [0, 1): up to half a second is added to the time stamp, so that entries
// made in the same second get distinct attachment names.
FormattedLogLine FormatLogLine(const clsLogEntry& entry, double random);

// Fills `entry` from one line; a field that cannot be read keeps the value `entry` had. Text
// attachments are looked up in `attachmentDirectory`.
void ParseLogLine(std::string_view line, const std::string& attachmentDirectory, clsLogEntry& entry);

// Reads at most `maxLines` lines of a text file, each ended by CR LF as the log writes them. A lone
// CR or LF belongs to its line: an entry that an older version wrote with a lone line break in its
// message still reads as one entry. A missing or unreadable file gives the lines read so far.
std::vector<std::string> ReadTextLines(const std::string& path, size_t maxLines);

}  // namespace tw
