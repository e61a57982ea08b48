#include "platform/Accounts.h"

#include <crypt.h>
#include <pwd.h>
#include <shadow.h>
#include <unistd.h>

#include <ctime>
#include <vector>

namespace tw::platform {

std::optional<Account> LookUpAccount(const std::string& name) {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return std::nullopt;
  }
  return Account{found->pw_name, found->pw_uid, found->pw_gid, found->pw_dir ? found->pw_dir : "/",
                 found->pw_shell ? found->pw_shell : "/bin/sh"};
}

bool RunningAsRoot() { return ::geteuid() == 0; }

std::string CurrentAccountName() {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return {};
  return found->pw_name;
}

LogonCheck CheckLogon(const std::string& name, const std::string& password) {
  spwd entry{};
  spwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getspnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return LogonCheck::Ok;
  }
  const long today = static_cast<long>(std::time(nullptr) / 86400);
  const std::string hash = found->sp_pwdp ? found->sp_pwdp : "";
  if (!hash.empty() && hash[0] == '!') return LogonCheck::Locked;
  if (found->sp_expire > 0 && today >= found->sp_expire) return LogonCheck::Locked;
  if (found->sp_lstchg == 0) return LogonCheck::MustChangePassword;
  if (found->sp_max > 0 && found->sp_lstchg > 0 && today > found->sp_lstchg + found->sp_max) {
    return LogonCheck::PasswordExpired;
  }
  if (!password.empty()) {
    crypt_data data{};
    const char* computed = ::crypt_r(password.c_str(), hash.c_str(), &data);
    if (computed == nullptr || hash != computed) return LogonCheck::WrongPassword;
  }
  return LogonCheck::Ok;
}

}  // namespace tw::platform
