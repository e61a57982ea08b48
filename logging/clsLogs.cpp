#include "logging/clsLogs.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string_view>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "logging/LogLine.h"
#include "platform/Files.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// A file holds this many entries; the next entry starts a new file.
constexpr size_t kEntriesPerFile = 100;
// One more than a full file, so that an overfull file (two writers at once) still reads as full.
constexpr size_t kLineBuffer = 101;

std::function<double()> DefaultRandom() {
  auto generator = std::make_shared<std::mt19937_64>(std::random_device{}());
  return [generator] { return std::uniform_real_distribution<double>(0.0, 1.0)(*generator); };
}

void CreateFolderIfMissing(const std::string& folder) {
  platform::CreatePrivateFolder(folder);  // a failure shows when the file in it is written
}

// The number of a log file's name ("TWLog.0007", compared without regard to case, is 7); nothing
// for any other name, TWLog.0003.bak and a number too large for the count (TWLog.99999999999)
// included.
std::optional<int32_t> LogFileNumber(std::string_view name) {
  if (!StartsWithIgnoreCase(name, "TWLog.")) return std::nullopt;
  const auto number = ParseNumber(name.substr(6));
  if (!number || *number < 0 || *number > 2147483647.0) return std::nullopt;
  return ToInt32(*number);
}

void DeleteFilesIn(const std::string& folder) {
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored)) fs::remove(it->path(), ignored);
  }
}

void WriteText(const std::string& path, const std::string& text, std::ios::openmode mode) {
  std::ofstream out(path, std::ios::binary | mode);
  out << text;
  out.close();
  if (!out) throw TWError(errnum::PathFileAccess, "Path/File access error: " + path, "TWService");
}

// Appends one line or nothing: a line cut short by a full disk is cut off again, or the next entry
// would be glued to it and both would read back broken.
void AppendLine(const std::string& path, const std::string& line) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  const std::uintmax_t before = error ? 0 : size;
  try {
    WriteText(path, line, std::ios::app);
  } catch (...) {
    fs::resize_file(path, before, error);
    throw;
  }
}

}  // namespace

clsLogs::clsLogs(const std::string& applicationFolder, TWSettings& settings, const Clock& clock, EventPump& pump,
                 std::function<double()> random)
    : logDirectory_(applicationFolder + "/Logs"),
      attachmentDirectory_(logDirectory_ + "/Attachments"),
      settings_(settings),
      clock_(clock),
      pump_(pump),
      random_(random ? std::move(random) : DefaultRandom()) {}

const std::string& clsLogs::MakeAttachmentDirectory() {
  CreateFolderIfMissing(logDirectory_);
  CreateFolderIfMissing(attachmentDirectory_);
  return attachmentDirectory_;
}

void clsLogs::LogDirectory(const std::string& folder) {
  logDirectory_ = folder;
  attachmentDirectory_ = folder + "/Attachments";
}

std::string clsLogs::LogFilePath(int32_t number) const {
  char name[32];
  std::snprintf(name, sizeof name, "TWLog.%04d", number);
  return logDirectory_ + "/" + name;
}

int32_t clsLogs::HighestLogNumber() {
  if (watch_ && watchedDirectory_ == logDirectory_) {
    if (const auto changes = watch_->Changes()) {
      bool highestRemoved = false;
      for (const auto& change : *changes) {
        const auto number = LogFileNumber(change.name);
        if (!number) continue;
        if (change.added) highest_ = std::max(highest_, *number);
        // Another name may hold the same number (twlog.0007 beside TWLog.0007): read the folder.
        if (!change.added && *number == highest_) highestRemoved = true;
      }
      if (!highestRemoved) return highest_;
    }
  }
  return ReadHighestLogNumber();
}

int32_t clsLogs::ReadHighestLogNumber() {
  // The watch begins before the reading, so that nothing done meanwhile is missed.
  watch_ = std::make_unique<platform::FolderWatch>(logDirectory_);
  watchedDirectory_ = logDirectory_;
  highest_ = 0;
  for (const auto& name : platform::FolderNames(logDirectory_).value_or(std::vector<std::string>{})) {
    if (const auto number = LogFileNumber(name)) highest_ = std::max(highest_, *number);
  }
  return highest_;
}

void clsLogs::LoadLogFile(int32_t number) { lines_ = ReadTextLines(LogFilePath(number), kLineBuffer); }

void clsLogs::AddLog(clsLogEntry& entry) {
  CreateFolderIfMissing(logDirectory_);
  int32_t number = HighestLogNumber();
  LoadLogFile(number);
  if (lines_.size() >= kEntriesPerFile) ++number;

  const FormattedLogLine formatted = FormatLogLine(entry, random_());
  AppendLine(LogFilePath(number), formatted.line + "\r\n");

  const std::string attachmentPath = attachmentDirectory_ + "/" + formatted.attachmentName;
  if (entry.AttachmentType == 1 || entry.AttachmentType == 2) MakeAttachmentDirectory();
  if (entry.AttachmentType == 2) {
    std::error_code error;
    fs::copy_file(entry.Attachment, attachmentPath, fs::copy_options::overwrite_existing, error);
    if (error) {
      // The failure text then goes into the file with the ".png" name, while the line keeps
      // type 2: readers find a ".png" path whose content says what went wrong.
      entry.AttachmentType = 1;
      entry.Attachment = "A screenshot was captured but could not be saved - " + error.message();
    }
  }
  if (entry.AttachmentType == 1) WriteText(attachmentPath, entry.Attachment, std::ios::trunc);

  // Lets a console see that the log changed without reading the folder.
  settings_.General().Console().LogLastChanged(clock_.Now());
}

bool clsLogs::AddLogSimple(int32_t logType, const std::string& title, const std::string& message,
                           int32_t attachmentType, const std::string& attachment) {
  try {
    if (logType == 3 && !settings_.General().Options().DetailedLogging()) return false;
    pump_.Pump();
    clsLogEntry entry{clock_.Now(), logType, title, message, attachment, attachmentType};
    bool written = false;
    try {
      AddLog(entry);
      written = true;
    } catch (...) {
      // reported by the result
    }
    if (echo_) echo_(entry);
    return written;
  } catch (...) {
    return false;
  }
}

void clsLogs::GetLastLogs(int32_t count, std::vector<clsLogEntry>& entries) {
  int32_t file = HighestLogNumber();
  LoadLogFile(file);
  int64_t line = static_cast<int64_t>(lines_.size()) - 1;
  if (line < 0) return;
  for (int32_t k = 0; k < count; ++k) {
    if (static_cast<size_t>(k) >= entries.size()) {
      throw TWError(errnum::SubscriptOutOfRange, "Subscript out of range", "TWService");
    }
    entries[k] = clsLogEntry{};
    ParseLogLine(lines_[static_cast<size_t>(line)], attachmentDirectory_, entries[k]);
    --line;
    // Step back to the next earlier file that holds lines; a gap in the numbering or an empty
    // file is passed over.
    while (line < 0) {
      if (--file < 0) return;
      LoadLogFile(file);
      line = static_cast<int64_t>(lines_.size()) - 1;
    }
  }
}

void clsLogs::Clear() {
  DeleteFilesIn(attachmentDirectory_);
  DeleteFilesIn(logDirectory_);
}

}  // namespace tw
