#pragma once
// A mail address as the settings hold it: "b@example.org", "<b@example.org>" or
// "Backups <b@example.org>". The SMTP envelope carries only the address; the From and To headers
// carry the name as well. One parser serves the Mailer and the console's checks, so that what
// `twctl config set` accepts is exactly what the Mailer can send to.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

struct MailAddress {
  std::string name;     // display name, UTF-8, unquoted; empty when none was given
  std::string address;  // "b@example.org", plain ASCII
};

// The address in `text`, or nullopt with `problem` (when given) saying what is wrong, such as
// "has no @". A name may be quoted ("\"Doe, Jane\" <j@example.org>").
std::optional<MailAddress> ParseMailAddress(std::string_view text, std::string* problem = nullptr);

// "a@x; b@y,c@z" to its entries, blanks and empty pieces dropped; a line break separates too, and
// a separator inside a quoted name does not.
std::vector<std::string> SplitRecipients(const std::string& list);

// Why `text`, as a recipient list (`list`) or as one address, cannot be used: "invalid address
// \"x\" for mail.sender (has no @)", or nullopt. `what` names the setting.
std::optional<std::string> MailAddressProblem(const std::string& text, bool list, const std::string& what);

}  // namespace tw
