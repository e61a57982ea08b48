#pragma once
// An e-mail as it goes over the wire: the headers, a UTF-8 text body and, optionally, one file
// attached, in MIME form with CR LF line ends.
#include <string>
#include <vector>

#include "common/Date.h"

namespace tw {

struct MailMessage {
  std::string from;                     // "tarnwick@server1"
  std::string fromName;                 // "Tarnwick", or the custom product name
  std::vector<std::string> to;
  std::string subject;                  // UTF-8
  std::string body;                     // UTF-8
  std::string attachmentPath;           // empty: none
};

// The whole message: Date (local, with its offset from UTC), From, To, Subject (encoded when not
// plain ASCII), Message-ID, MIME-Version, and the body (and attachment) in base64. Raises TWError
// when the attachment cannot be read.
std::string ComposeMime(const MailMessage& message, Date now, const std::string& messageId,
                        const std::string& boundary);

// "a@x; b@y,c@z" to its addresses, blanks and empty pieces dropped; a line break separates too.
std::vector<std::string> SplitRecipients(const std::string& list);
std::string Base64(const std::string& bytes);

}  // namespace tw
