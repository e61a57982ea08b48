#pragma once
// DesktopRights, the rights launcher: starts a product program detached under the backup account
// and says how that went in the way the service understands.
//   DesktopRights USER PASSWORD DOMAIN PROGRAM [OPTION...]
// Exit 255 (read as -1): the program has started and said so. Exit 1: fewer than four arguments.
// Exit 2: the account cannot log on or the program cannot start; the reason is a logon error
// number on standard output (1326 unknown account or wrong password, 1331 locked or expired,
// 1330 password expired, 1907 password must be changed, 5 access denied, 2 program not found,
// 1067 the program ended before it said it had started).
#include <ostream>
#include <string>
#include <vector>

namespace tw::tools {

int RunRightsLauncher(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// The local account name for a user and a domain: the user alone when the domain is empty, "." or
// this computer; otherwise user@domain, as SSSD names domain users.
std::string AccountName(const std::string& user, const std::string& domain, const std::string& computer);

}  // namespace tw::tools
