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
