#pragma once
// The application log: the service's journal of what it did and what went wrong. Entries go into
// numbered files "TWLog.0000", "TWLog.0001", ... in the log folder, at most 100 to a file, with
// text and screenshot attachments in its "Attachments" folder. The service only appends; the
// console reads the same files back with GetLastLogs. The highest file number is found by reading
// the folder once and then followed through the folder's changes, so an append costs the same in a
// folder of years of logs, and files that another program adds or removes are taken into account.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "logging/clsLogEntry.h"
#include "platform/FolderWatch.h"
#include "settings/TWSettings.h"

namespace tw {

class clsLogs {
 public:
  // The log folder is <applicationFolder>/Logs. It is created (one level) by the append that
  // needs it, and the attachment folder by the first attachment: a program that only reads the log,
  // or ends before it writes an entry, leaves nothing behind. A folder that cannot be created makes
  // the append fail. `random` gives values in [0, 1) for the time-stamp jitter.
  clsLogs(const std::string& applicationFolder, TWSettings& settings, const Clock& clock, EventPump& pump,
          std::function<double()> random = {});

  // Fills entries[0 .. count-1] with the newest entries, newest first. The caller sizes the
  // vector; elements past the last entry found are left as they were. Raises Subscript out of
  // range (9) when the vector is too short for an entry that exists.
  void GetLastLogs(int32_t count, std::vector<clsLogEntry>& entries);

  // Adds one entry stamped now. Returns false when it was filtered out (a detail entry while
  // detailed logging is off) or could not be written; never raises.
  bool AddLogSimple(int32_t logType, const std::string& title, const std::string& message, int32_t attachmentType,
                    const std::string& attachment);

  const std::string& LogDirectory() const { return logDirectory_; }
  // Moves the log to another folder (and its attachments beneath it); creates no folder.
  void LogDirectory(const std::string& folder);
  const std::string& AttachmentDirectory() const { return attachmentDirectory_; }
  // The attachment folder, made with the log folder when missing: for a picture that another
  // program is to write there before its entry is added.
  const std::string& MakeAttachmentDirectory();

  // Deletes every file in the attachment folder, then every file in the log folder; folders stay
  // and failures are ignored.
  void Clear();

  // Shows every entry as it is added, written or not (the service's -debug mode).
  void SetEcho(std::function<void(const clsLogEntry&)> echo) { echo_ = std::move(echo); }

 private:
  std::string LogFilePath(int32_t number) const;
  // The highest number of a "TWLog." file in the log folder, 0 when there is none.
  int32_t HighestLogNumber();
  int32_t ReadHighestLogNumber();
  void LoadLogFile(int32_t number);
  void AddLog(clsLogEntry& entry);

  std::string logDirectory_;
  std::string attachmentDirectory_;
  TWSettings& settings_;
  const Clock& clock_;
  EventPump& pump_;
  std::function<double()> random_;
  std::function<void(const clsLogEntry&)> echo_;
  // The lines of the file loaded last; 101 at most, as a full file holds 100.
  std::vector<std::string> lines_;
  // The highest number in `watchedDirectory_`, kept right while `watch_` can tell what changed.
  std::unique_ptr<platform::FolderWatch> watch_;
  std::string watchedDirectory_;
  int32_t highest_ = 0;
};

}  // namespace tw
