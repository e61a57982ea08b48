#include "tools/RightsLauncher.h"

#include <cerrno>
#include <optional>

#include "common/Strings.h"
#include "platform/Accounts.h"
#include "platform/Launch.h"
#include "platform/Process.h"

namespace tw::tools {
namespace {

// Logon error numbers, as the service explains them to the administrator.
constexpr int kFileNotFound = 2;
constexpr int kAccessDenied = 5;
constexpr int kBadProgram = 193;
constexpr int kGeneralFailure = 31;
constexpr int kProcessAborted = 1067;
constexpr int kLogonFailure = 1326;
constexpr int kPasswordExpired = 1330;
constexpr int kAccountDisabled = 1331;
constexpr int kMustChangePassword = 1907;

// The longest password taken from standard input; a real one is far shorter.
constexpr size_t kMaxPassword = 4096;

const char* const kUsage =
    "Usage: DesktopRights USER PASSWORD DOMAIN PROGRAM [OPTION...]\n"
    "Starts PROGRAM detached as USER (the current account when USER is empty) and exits 255 once it\n"
    "has started; exit 2 prints the logon error number that prevented it. A PASSWORD of - is read\n"
    "from standard input, which keeps it out of the process list.\n";

// The service reads the number from the first line; lines end in CR LF, as in its other texts.
int Fail(std::ostream& out, int number, const std::string& programOutput = "") {
  out << number << "\r\n" << ReplaceAll(ReplaceAll(programOutput, "\r\n", "\n"), "\n", "\r\n");
  return 2;
}

std::string ReadPassword(std::istream& in) {
  std::string password;
  char c;
  while (password.size() < kMaxPassword && in.get(c)) password += c;
  // "echo secret | DesktopRights user - ..." ends it with a line break that is not part of it.
  if (!password.empty() && password.back() == '\n') password.pop_back();
  if (!password.empty() && password.back() == '\r') password.pop_back();
  return password;
}

int NumberForErrno(int error) {
  switch (error) {
    case ENOENT: return kFileNotFound;
    case EACCES:
    case EPERM: return kAccessDenied;
    case ENOEXEC: return kBadProgram;
    default: return kGeneralFailure;
  }
}

}  // namespace

int RunRightsLauncher(const std::vector<std::string>& args, std::istream& in, std::ostream& out, std::ostream& err) {
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    out << kUsage;
    return 0;
  }
  if (args.size() < 4) {
    err << kUsage;
    return 1;
  }
  const std::string& user = args[0];
  const std::string password = args[1] == "-" ? ReadPassword(in) : args[1];
  const std::string& domain = args[2];
  const std::string& program = args[3];
  const std::vector<std::string> options(args.begin() + 4, args.end());

  std::optional<platform::Account> runAs;
  if (!user.empty()) {
    const auto account = platform::LookUpIdentity(user, domain);
    if (!account) return Fail(out, kLogonFailure);
    switch (platform::CheckLogon(account->name, password)) {
      case platform::LogonCheck::WrongPassword: return Fail(out, kLogonFailure);
      case platform::LogonCheck::Locked: return Fail(out, kAccountDisabled);
      case platform::LogonCheck::PasswordExpired: return Fail(out, kPasswordExpired);
      case platform::LogonCheck::MustChangePassword: return Fail(out, kMustChangePassword);
      case platform::LogonCheck::Ok: break;
    }
    if (account->name != platform::CurrentAccountName()) {
      // Only root may start a program as another account.
      if (!platform::RunningAsRoot()) return Fail(out, kAccessDenied);
      runAs = account;
    }
  }
  if (!platform::IsExecutableFile(program)) return Fail(out, kFileNotFound);

  const auto result = platform::LaunchAndAwaitReady(program, options, runAs);
  switch (result.outcome) {
    case platform::LaunchResult::Outcome::Ready:
      out << result.output;
      return 255;
    case platform::LaunchResult::Outcome::EndedUnready: return Fail(out, kProcessAborted, result.output);
    case platform::LaunchResult::Outcome::NotStarted: return Fail(out, NumberForErrno(result.error));
  }
  return Fail(out, kGeneralFailure);
}

}  // namespace tw::tools
