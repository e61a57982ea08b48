#pragma once
// The installation dialog of "TWService -install": the account the service runs as, and its
// password typed twice.
#include <optional>
#include <string>

namespace tw {

struct InstallForm {
  // Empty: the system's default account, root, as "-setup" without an account.
  std::string user;
  std::string password1;
  std::string password2;
  std::string caption = "Tarnwick Service Installation";
};

class IInstallDialog {
 public:
  virtual ~IInstallDialog() = default;
  // Shows the form and lets the administrator fill it in; with `passwordsOnly` the user name stays
  // and only the passwords are asked again. Nothing when the administrator gives up.
  virtual std::optional<InstallForm> Show(const InstallForm& form, bool passwordsOnly) = 0;
  // A message box; errors go to standard error, the rest to standard output.
  virtual void Message(const std::string& text, bool isError) = 0;
};

// The dialog on the terminal: the form's caption and labels, the user name with its default in
// brackets ("root" for an empty one), passwords read without echo.
class TerminalInstallDialog final : public IInstallDialog {
 public:
  std::optional<InstallForm> Show(const InstallForm& form, bool passwordsOnly) override;
  void Message(const std::string& text, bool isError) override;
};

}  // namespace tw
