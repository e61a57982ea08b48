#include "logging/LogLine.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/NumberText.h"
#include "common/Strings.h"

namespace tw {
namespace {

// A text attachment of this size or more is shown as its path, not inline.
constexpr uintmax_t kInlineAttachmentLimit = 4096;

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

}  // namespace

std::string EscapeLogField(std::string_view text) {
  std::string escaped = ReplaceAll(text, "\\", "\\\\");
  escaped = ReplaceAll(escaped, "\r\n", "\\n");
  // What is left of CR and LF stands alone (output of Linux programs, typed text): escaped too, or
  // the entry would end there and its rest read back as an entry of its own.
  escaped = ReplaceAll(escaped, "\r", "\\r");
  escaped = ReplaceAll(escaped, "\n", "\\l");
  return ReplaceAll(escaped, "\t", "\\t");
}

std::string UnescapeLogField(std::string_view text) {
  std::string plain = ReplaceAll(text, "\\\\", "\x01");
  plain = ReplaceAll(plain, "\\t", "\t");
  plain = ReplaceAll(plain, "\\n", "\r\n");
  plain = ReplaceAll(plain, "\\r", "\r");
  plain = ReplaceAll(plain, "\\l", "\n");
  return ReplaceAll(plain, "\x01", "\\");
}

FormattedLogLine FormatLogLine(const clsLogEntry& entry, double random) {
  const Date jittered = entry.Timestamp + random / 60 / 60 / 24 / 2;
  FormattedLogLine result;
  result.stamp = std::string(TrimBlanks(NumberToText(jittered)));
  result.line = result.stamp + "\t" + EscapeLogField(entry.Title) + "\t" + std::to_string(entry.LogType) + "\t" +
                EscapeLogField(entry.Message) + "\t" + std::to_string(entry.AttachmentType);
  if (entry.AttachmentType == 2) result.attachmentName = result.stamp + ".png";
  if (entry.AttachmentType == 1) result.attachmentName = result.stamp + ".txt";
  return result;
}

void ParseLogLine(std::string_view line, const std::string& attachmentDirectory, clsLogEntry& entry) {
  const std::vector<std::string> fields = Split(line, '\t');
  auto field = [&](size_t i) -> const std::string* { return i < fields.size() ? &fields[i] : nullptr; };

  if (auto f = field(0)) entry.Timestamp = LeadingNumber(*f);
  if (auto f = field(1)) entry.Title = UnescapeLogField(*f);
  if (auto f = field(2)) {
    try {
      entry.LogType = ToInt32(LeadingNumber(*f));
    } catch (...) {
      // keeps its previous value
    }
  }
  if (auto f = field(3)) entry.Message = UnescapeLogField(*f);
  if (auto f = field(4)) {
    try {
      entry.AttachmentType = TextToInt32(*f);
    } catch (...) {
      // keeps its previous value
    }
  }

  const std::string base = attachmentDirectory + "/" + std::string(TrimBlanks(fields[0]));
  switch (entry.AttachmentType) {
    case 2:
      entry.Attachment = base + ".png";
      break;
    case 1:
    case 3: {
      const std::string path = base + ".txt";
      std::error_code error;
      const uintmax_t size = std::filesystem::file_size(path, error);
      if (error) {
        entry.Attachment = "The attachment file has been deleted!";
        entry.AttachmentType = 3;
      } else if (size < kInlineAttachmentLimit) {
        entry.Attachment = ReadWholeFile(path);
        entry.AttachmentType = 1;
      } else {
        entry.Attachment = path;
        entry.AttachmentType = 3;
      }
      break;
    }
    default:
      entry.Attachment.clear();
  }
}

std::vector<std::string> ReadTextLines(const std::string& path, size_t maxLines) {
  std::vector<std::string> lines;
  std::ifstream in(path, std::ios::binary);
  std::string current;
  char chunk[65536];
  while (lines.size() < maxLines && in) {
    in.read(chunk, sizeof chunk);
    const std::streamsize got = in.gcount();
    for (std::streamsize i = 0; i < got && lines.size() < maxLines; ++i) {
      current += chunk[i];
      if (current.ends_with("\r\n")) {
        current.resize(current.size() - 2);
        lines.push_back(std::move(current));
        current.clear();
      }
    }
  }
  if (!current.empty() && lines.size() < maxLines) lines.push_back(std::move(current));
  return lines;
}

}  // namespace tw
