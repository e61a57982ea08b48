#include "reporting/clsReportLogEntry.h"

#include <algorithm>
#include <system_error>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "common/Utf16.h"
#include "platform/Files.h"

namespace tw {
namespace {

const char* kCrLf = "\r\n";

std::string Escape(const std::string& text) { return ReplaceAll(text, "\r\n", "\x01"); }
std::string Unescape(const std::string& text) { return ReplaceAll(text, "\x01", "\r\n"); }

// Reads the file's lines one at a time and hands over the rest of it unread. Every line is
// written with CR LF; a lone CR or LF belongs to its line, since older versions wrote one typed in a
// job's description or label as it was, and reading it as a line end made the whole file
// unreadable.
class LineReader {
 public:
  explicit LineReader(std::string text) : text_(std::move(text)) {}
  std::string Next() {
    if (position_ >= text_.size()) throw TWError(62, "Input past end of file", "TWService");
    const size_t end = text_.find(kCrLf, position_);
    std::string line = text_.substr(position_, end == std::string::npos ? std::string::npos : end - position_);
    position_ = end == std::string::npos ? text_.size() : end + 2;
    return line;
  }
  std::string Rest() const { return position_ < text_.size() ? text_.substr(position_) : std::string(); }

 private:
  std::string text_;
  size_t position_ = 0;
};

// The two times were written in the locale's form; a "," decimal point reads as ".".
Date ReadTime(const std::string& line) { return LeadingNumber(ReplaceAll(line, ",", ".")); }

}  // namespace

std::string clsReportLogEntry::StatusString() const {
  if (Status == 0) return "Normal";
  if (Status == 2) return "Errors";
  return "Warnings";
}

std::vector<std::string> clsReportLogEntry::ExtraFieldKeys() const {
  std::vector<std::string> keys;
  for (const auto& [key, value] : extraFields_) keys.push_back(key);
  return keys;
}

std::string clsReportLogEntry::ExtraField(const std::string& key) const {
  for (const auto& [k, value] : extraFields_) {
    if (k == key) return value;
  }
  return {};
}

void clsReportLogEntry::ExtraField(const std::string& key, const std::string& value) {
  for (auto& [k, v] : extraFields_) {
    if (k == key) {
      v = value;
      return;
    }
  }
  extraFields_.emplace_back(key, value);
}

bool clsReportLogEntry::Load(const std::string& filename) {
  if (!filename.empty()) filename_ = filename;
  if (filename_.empty()) return false;
  std::string text;
  if (!ReadUnicodeFile(filename_, text)) throw TWError(errnum::FileNotFound, "File not found: " + filename_, "TWService");
  LineReader lines(text);
  TimeStart = ReadTime(lines.Next());
  TimeEnd = ReadTime(lines.Next());
  JobName = Unescape(lines.Next());
  JobDesc = Unescape(lines.Next());
  Status = TextToInt32(lines.Next());
  Label = Unescape(lines.Next());
  Computer = Unescape(lines.Next());
  const int32_t count = TextToInt32(lines.Next());
  extraFields_.clear();
  for (int32_t i = 0; i < count; ++i) {
    const std::string key = Unescape(lines.Next());
    ExtraField(key, Unescape(lines.Next()));
  }
  Report = lines.Rest();
  fullyLoaded_ = true;
  return true;
}

bool clsReportLogEntry::QuickLoad(const std::string& filename) {
  if (!filename.empty()) filename_ = filename;
  if (filename_.empty()) return false;
  extraFields_.clear();
  // Opened as Save opens it, for writing: the file is emptied, and reading from it fails.
  if (!WriteUnicodeFile(filename_, "")) throw TWError(errnum::PathFileAccess, "Path/File access error", "TWService");
  throw TWError(54, "Bad file mode", "TWService");
}

void clsReportLogEntry::NewFile(const std::string& directory, Date now, double random) {
  const std::string name = std::string(TrimBlanks(NumberToText(now + random / 60 / 60 / 24 / 2))) + ".log";
  if (directory.empty()) {
    filename_ = name;
  } else {
    filename_ = directory + (directory.back() == '/' ? "" : "/") + name;
  }
}

bool clsReportLogEntry::Save() const {
  std::string text = NumberToText(TimeStart) + kCrLf + NumberToText(TimeEnd) + kCrLf + Escape(JobName) + kCrLf +
                     Escape(JobDesc) + kCrLf + std::to_string(Status) + kCrLf + Escape(Label) + kCrLf +
                     Escape(Computer) + kCrLf + std::to_string(extraFields_.size()) + kCrLf;
  for (const auto& [key, value] : extraFields_) text += Escape(key) + kCrLf + Escape(value) + kCrLf;
  text += Report;
  // A report cut short by a full disk must never stand as the run's report: the file appears
  // whole or not at all.
  if (const int error = platform::WriteFileAtomically(filename_, Utf16FileBytes(text))) {
    throw TWError(errnum::PathFileAccess,
                  "Path/File access error: " + filename_ + ": " + std::generic_category().message(error), "TWService");
  }
  return true;
}

}  // namespace tw
