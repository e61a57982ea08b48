#include "reporting/MailMessage.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/Error.h"
#include "common/Strings.h"

namespace tw {
namespace {

const char* kCrLf = "\r\n";

bool IsPlainAscii(const std::string& text) {
  for (unsigned char c : text) {
    if (c < 0x20 || c > 0x7E) return false;
  }
  return true;
}

// RFC 2047 encoding of a header value that is not plain ASCII. Header lines should stay within 78
// characters, so the text goes in pieces of up to 39 bytes (52 in base64), cut only between UTF-8
// characters, one encoded word on each folded line.
std::string HeaderText(const std::string& text) {
  if (IsPlainAscii(text)) return text;
  constexpr size_t kPieceBytes = 39;
  std::string words;
  for (size_t start = 0; start < text.size();) {
    size_t end = std::min(text.size(), start + kPieceBytes);
    while (end < text.size() && end > start + 1 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    if (!words.empty()) words += "\r\n ";
    words += "=?UTF-8?B?" + Base64(text.substr(start, end - start)) + "?=";
    start = end;
  }
  return words;
}

// A display name as a header may hold it: as it is when it is words of plain characters, encoded
// when it is not ASCII, otherwise quoted (a comma or a dot would end or split the name).
std::string NameText(const std::string& name) {
  if (!IsPlainAscii(name)) return HeaderText(name);
  const auto isWordChar = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) ||
           std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
  };
  bool plain = !name.empty() && name.front() != ' ' && name.back() != ' ' && name.find("  ") == std::string::npos;
  for (char c : name) plain = plain && (c == ' ' || isWordChar(c));
  if (plain) return name;
  std::string quoted = "\"";
  for (char c : name) quoted += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
  return quoted + "\"";
}

// "Name <address>" for a header, or the bare address when there is no name.
std::string HeaderAddress(const std::string& text, const std::string& defaultName) {
  std::string problem;
  const auto parsed = ParseMailAddress(text, &problem);
  if (!parsed) {
    throw TWError(errnum::InvalidProcedureCall, "invalid e-mail address \"" + text + "\" (" + problem + ")", "Mailer");
  }
  const std::string name = parsed->name.empty() ? defaultName : parsed->name;
  return name.empty() ? parsed->address : NameText(name) + " <" + parsed->address + ">";
}

// Base64 in lines of 76 characters, as MIME wants them.
std::string Base64Lines(const std::string& bytes) {
  const std::string encoded = Base64(bytes);
  std::string lines;
  for (size_t i = 0; i < encoded.size(); i += 76) lines += encoded.substr(i, 76) + kCrLf;
  return lines;
}

std::string ContentTypeOf(const std::string& path) {
  const std::string extension = ToLower(std::filesystem::path(path).extension().string());
  if (extension == ".png") return "image/png";
  if (extension == ".txt" || extension == ".log") return "text/plain; charset=UTF-8";
  return "application/octet-stream";
}

// Line ends as mail wants them: every line ends with CR LF.
std::string CrLfLines(const std::string& text) { return ReplaceAll(ReplaceAll(text, "\r\n", "\n"), "\n", "\r\n"); }

}  // namespace

std::string Base64(const std::string& bytes) {
  static const char* const kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) | (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                       static_cast<unsigned char>(bytes[i + 2]);
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < bytes.size()) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string ComposeMime(const MailMessage& message, Date now, const std::string& messageId,
                        const std::string& boundary) {
  std::string mime = "Date: " + Rfc5322Text(now) + kCrLf;
  mime += "From: " + HeaderAddress(message.from, message.fromName) + kCrLf;
  std::vector<std::string> to;
  for (const auto& entry : message.to) to.push_back(HeaderAddress(entry, ""));
  mime += "To: " + Join(to, ", ") + kCrLf;
  mime += "Subject: " + HeaderText(message.subject) + kCrLf;
  mime += "Message-ID: <" + messageId + ">" + kCrLf;
  mime += std::string("MIME-Version: 1.0") + kCrLf;
  const std::string bodyHeaders = std::string("Content-Type: text/plain; charset=UTF-8") + kCrLf +
                                  "Content-Transfer-Encoding: base64" + kCrLf + kCrLf;
  const std::string body = Base64Lines(CrLfLines(message.body));
  if (message.attachmentPath.empty()) return mime + bodyHeaders + body;

  std::ifstream in(message.attachmentPath, std::ios::binary);
  if (!in) throw TWError(errnum::FileNotFound, "The attachment " + message.attachmentPath + " cannot be read", "Mailer");
  std::stringstream content;
  content << in.rdbuf();
  const std::string name = std::filesystem::path(message.attachmentPath).filename().string();
  mime += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"" + kCrLf + kCrLf;
  mime += "--" + boundary + kCrLf + bodyHeaders + body;
  mime += "--" + boundary + kCrLf;
  mime += "Content-Type: " + ContentTypeOf(name) + "; name=\"" + name + "\"" + kCrLf;
  mime += "Content-Disposition: attachment; filename=\"" + name + "\"" + kCrLf;
  mime += std::string("Content-Transfer-Encoding: base64") + kCrLf + kCrLf;
  mime += Base64Lines(content.str());
  mime += "--" + boundary + "--" + kCrLf;
  return mime;
}

}  // namespace tw
