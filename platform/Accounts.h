#pragma once
// Local accounts: looking them up, checking that one may log on, and the identity this process
// runs under.
#include <optional>
#include <string>

namespace tw::platform {

struct Account {
  std::string name;
  unsigned uid = 0;
  unsigned gid = 0;
  std::string home;
  std::string shell;
};

std::optional<Account> LookUpAccount(const std::string& name);
// The local name of the backup account given as user and domain: the user alone when the domain
// is empty, "." or this computer (`computer`, compared without regard to case); otherwise
// user@domain, as SSSD names domain users.
std::string AccountNameFor(const std::string& user, const std::string& domain, const std::string& computer);
// The account of `user` in `domain` (as above, against this computer's short host name).
std::optional<Account> LookUpIdentity(const std::string& user, const std::string& domain);
bool RunningAsRoot();
std::string CurrentAccountName();

enum class LogonCheck {
  Ok,
  WrongPassword,       // the password does not match
  Locked,              // locked, or the account has expired
  PasswordExpired,
  MustChangePassword,  // the password has to be changed before it can be used
};

// Checks the account's shadow entry, where this process can read it (as root): a locked or expired
// account or password, and, when `password` is not empty, the password itself. Without access to
// the shadow entry (not root, a directory account) only the lookup counts.
LogonCheck CheckLogon(const std::string& name, const std::string& password);

}  // namespace tw::platform
