#include "reporting/MailMessage.h"

#include <algorithm>
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

std::vector<std::string> SplitRecipients(const std::string& list) {
  std::vector<std::string> addresses;
  // A list pasted one address per line reads as the same list separated by ";".
  const auto isSeparator = [](char c) { return c == ',' || c == '\r' || c == '\n'; };
  std::string separated(list);
  std::replace_if(separated.begin(), separated.end(), isSeparator, ';');
  for (const auto& piece : Split(separated, ';')) {
    const std::string address(TrimWhitespace(piece));
    if (!address.empty()) addresses.push_back(address);
  }
  return addresses;
}

std::string ComposeMime(const MailMessage& message, Date now, const std::string& messageId,
                        const std::string& boundary) {
  std::string mime = "Date: " + Rfc5322Text(now) + kCrLf;
  mime += "From: " + HeaderText(message.fromName) + " <" + message.from + ">" + kCrLf;
  mime += "To: " + Join(message.to, ", ") + kCrLf;
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
