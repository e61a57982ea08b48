#pragma once
// DesktopRights, the rights launcher: starts a product program detached under the backup account
// and says how that went in the way the service understands.
//   DesktopRights USER PASSWORD DOMAIN PROGRAM [OPTION...]
// A PASSWORD of "-" is read from standard input instead: the service always passes it so, since
// every local user can read a process's arguments.
// Exit 255 (read as -1): the program has started and said so. Exit 1: fewer than four arguments.
// Exit 2: the account cannot log on or the program cannot start; the reason is a logon error
// number on the first line of standard output (1326 unknown account or wrong password, 1331 locked
// or expired, 1330 password expired, 1907 password must be changed, 5 access denied, 2 program not
// found, 1067 the program ended before it said it had started), followed by whatever the program
// printed until then.
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace tw::tools {

int RunRightsLauncher(const std::vector<std::string>& args, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace tw::tools
