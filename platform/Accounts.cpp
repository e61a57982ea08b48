#include "platform/Accounts.h"

#include <crypt.h>
#include <pwd.h>
#include <shadow.h>
#include <unistd.h>

#include <ctime>
#include <vector>

#include "common/Strings.h"
#include "platform/HostName.h"

namespace tw::platform {
namespace {

std::string ComputerShortName() {
  char buffer[256] = {};
  if (GetHostName(buffer, sizeof buffer - 1) != 0) return {};
  const std::string name = buffer;
  return name.substr(0, name.find('.'));
}

}  // namespace

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

std::string AccountNameFor(const std::string& user, const std::string& domain, const std::string& computer) {
  if (domain.empty() || domain == "." || EqualsIgnoreCase(domain, computer)) return user;
  return user + "@" + domain;
}

std::optional<Account> LookUpIdentity(const std::string& user, const std::string& domain) {
  return LookUpAccount(AccountNameFor(user, domain, ComputerShortName()));
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
