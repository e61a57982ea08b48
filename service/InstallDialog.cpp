#include "service/InstallDialog.h"

#include <iostream>

#include "common/Strings.h"
#include "platform/Terminal.h"

namespace tw {

std::optional<InstallForm> TerminalInstallDialog::Show(const InstallForm& form, bool passwordsOnly) {
  InstallForm filled = form;
  if (!passwordsOnly) {
    std::cout << "\n" << form.caption << "\n\n"
              << "Enter the username and password of a user with rights to perform tape backups.\n"
              << "Leave the user name empty to run the service as root.\n\n"
              << "User Name: [" << (form.user.empty() ? "root" : form.user) << "] " << std::flush;
    std::string typed;
    if (!std::getline(std::cin, typed)) return std::nullopt;
    typed = std::string(TrimWhitespace(typed));
    if (!typed.empty()) filled.user = typed;
  }
  auto first = platform::ReadHiddenLine("Password: ");
  if (!first) return std::nullopt;
  auto second = platform::ReadHiddenLine("Confirm Password: ");
  if (!second) return std::nullopt;
  filled.password1 = *first;
  filled.password2 = *second;
  return filled;
}

void TerminalInstallDialog::Message(const std::string& text, bool isError) {
  (isError ? std::cerr : std::cout) << text << "\n" << std::flush;
}

}  // namespace tw
