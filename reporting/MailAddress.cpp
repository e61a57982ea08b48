#include "reporting/MailAddress.h"

#include <algorithm>
#include <cstring>

#include "common/Strings.h"

namespace tw {
namespace {

// The characters of an unquoted local part besides letters and digits (RFC 5322 atext).
bool IsAtext(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         (c != '\0' && std::strchr("!#$%&'*+-/=?^_`{|}~", c) != nullptr);
}

bool IsLabelChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

// Dot-separated non-empty pieces whose characters all pass `allowed`.
bool IsDotted(std::string_view text, bool (*allowed)(char)) {
  if (text.empty() || text.front() == '.' || text.back() == '.' || text.find("..") != std::string_view::npos) {
    return false;
  }
  return std::all_of(text.begin(), text.end(), [&](char c) { return c == '.' || allowed(c); });
}

// What is wrong with a bare address, or "" when nothing is. Host names without a dot are allowed,
// as the default sender tarnwick@<host name> has one of those on many networks.
std::string AddressProblem(std::string_view address) {
  const size_t at = address.rfind('@');
  if (at == std::string_view::npos) return "has no @";
  if (address.size() > 254) return "is longer than 254 characters";
  if (!IsDotted(address.substr(0, at), IsAtext)) return "the part before the @ is not a valid mailbox name";
  const std::string_view domain = address.substr(at + 1);
  const bool literal = domain.size() > 2 && domain.front() == '[' && domain.back() == ']';
  if (!literal && !IsDotted(domain, IsLabelChar)) return "the part after the @ is not a valid host name";
  return "";
}

bool HoldsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

// A quoted name without its quotes and escapes; `rest` gets what follows the closing quote.
std::optional<std::string> Unquoted(std::string_view text, std::string_view& rest) {
  std::string name;
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      name += text[++i];
    } else if (text[i] == '"') {
      rest = text.substr(i + 1);
      return name;
    } else {
      name += text[i];
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<MailAddress> ParseMailAddress(std::string_view text, std::string* problem) {
  const auto fail = [&](const std::string& why) -> std::optional<MailAddress> {
    if (problem != nullptr) *problem = why;
    return std::nullopt;
  };
  text = TrimWhitespace(text);
  if (text.empty()) return fail("is empty");
  if (HoldsControl(text)) return fail("holds a line break or another control character");
  MailAddress result;
  std::string_view rest = text;
  if (text.front() == '"') {
    const auto name = Unquoted(text, rest);
    if (!name) return fail("its quoted name has no closing quote");
    result.name = std::string(TrimWhitespace(*name));
    rest = TrimWhitespace(rest);
    if (rest.empty() || rest.front() != '<') return fail("a quoted name must be followed by <address>");
  }
  const size_t open = rest.find('<');
  if (open == std::string_view::npos) {
    if (rest.find('>') != std::string_view::npos) return fail("has > without <");
    result.address = std::string(rest);
  } else {
    if (rest.back() != '>') return fail("does not end with > after <address");
    if (text.front() != '"') {
      result.name = std::string(TrimWhitespace(rest.substr(0, open)));
      if (result.name.find_first_of(">\"") != std::string::npos) return fail("an unquoted name holds > or \"");
    }
    result.address = std::string(TrimWhitespace(rest.substr(open + 1, rest.size() - open - 2)));
  }
  if (const std::string why = AddressProblem(result.address); !why.empty()) return fail(why);
  return result;
}

std::vector<std::string> SplitRecipients(const std::string& list) {
  std::vector<std::string> entries;
  std::string current;
  bool quoted = false;
  const auto finish = [&] {
    const std::string entry(TrimWhitespace(current));
    if (!entry.empty()) entries.push_back(entry);
    current.clear();
  };
  for (size_t i = 0; i < list.size(); ++i) {
    const char c = list[i];
    if (quoted && c == '\\' && i + 1 < list.size()) {
      current += c;
      current += list[++i];
      continue;
    }
    if (c == '"') quoted = !quoted;
    // A list pasted one address per line reads as the same list separated by ";".
    if (!quoted && (c == ';' || c == ',' || c == '\r' || c == '\n')) {
      finish();
    } else {
      current += c;
    }
  }
  finish();
  return entries;
}

std::optional<std::string> MailAddressProblem(const std::string& text, bool list, const std::string& what) {
  // An empty sender stands for tarnwick@<host name>, an empty list for nobody.
  if (TrimWhitespace(text).empty()) return std::nullopt;
  const std::vector<std::string> entries = list ? SplitRecipients(text) : std::vector<std::string>{text};
  for (const auto& entry : entries) {
    std::string problem;
    if (!ParseMailAddress(entry, &problem)) {
      return "invalid address \"" + entry + "\" for " + what + " (" + problem + ")";
    }
  }
  return std::nullopt;
}

}  // namespace tw
