#pragma once
// An e-mail as it goes over the wire: the headers, a UTF-8 text body and, optionally, one file
// attached, in MIME form with CR LF line ends.
#include <string>
#include <vector>

#include "common/Date.h"
#include "reporting/MailAddress.h"

namespace tw {

struct MailMessage {
  std::string from;                     // "tarnwick@server1" or "Backups <b@example.org>"
  std::string fromName;                 // "Tarnwick", or the custom product name, when `from` has none
  std::vector<std::string> to;          // entries of a recipient list, with or without names
  std::string subject;                  // UTF-8
  std::string body;                     // UTF-8
  std::string attachmentPath;           // empty: none
};

// The whole message: Date (local, with its offset from UTC), From, To, Subject (encoded when not
// plain ASCII), Message-ID, MIME-Version, and the body (and attachment) in base64. Names in From
// and To are quoted or encoded as they need. Raises TWError when an address is malformed or the
// attachment cannot be read.
std::string ComposeMime(const MailMessage& message, Date now, const std::string& messageId,
                        const std::string& boundary);

std::string Base64(const std::string& bytes);

}  // namespace tw
