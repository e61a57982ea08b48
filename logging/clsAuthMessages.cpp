#include "logging/clsAuthMessages.h"

#include <map>
#include <utility>

#include "logging/modLogging.h"

namespace tw {
namespace {

struct Explanation {
  const char* title;
  const char* text;
};

const std::map<int32_t, Explanation>& Explanations() {
  static const std::map<int32_t, Explanation> table = {
      {1326,
       {"Incorrect password/username/domain (Error 1326)",
        "The username/password combination entered in the Backup User Identity settings (Tarnwick Administration "
        "Console -> View -> Navigator -> Settings) is incorrect.  Please check that these fields have the correct "
        "details and that the account they refer to has not been changed or deleted."}},
      {1328,
       {"Invalid logon hours (Error 1328)",
        "The user account that has been entered in the Backup User Identity settings (Tarnwick Administration "
        "Console -> View -> Navigator -> Settings) is not allowed to logon during these hours.  Please ensure that "
        "the account has permission to logon for the entire period that the backup will run (Active Directory Users "
        "and Computers -> double click user account -> Account tab -> Logon Hours)."}},
      {1330,
       {"Password expired (Error 1330)",
        "The password for the user account that has been entered in the Backup User Identity settings (Tarnwick "
        "Administration Console -> View -> Navigator -> Settings) has expired.  Please go to the user manager (Start "
        "-> All Programs -> Administrative Tools -> Active Directory Users and Computers), find the relevant user, "
        "double click, and in the \u2018Account\u2019 tab select the option \u2018Password never expires\u2019."}},
      {1331,
       {"Account disabled (Error 1331)",
        "The account that has been entered in the Backup User Identity settings (Tarnwick Administration Console -> "
        "View -> Navigator -> Settings) has been disabled.  Please go to the user manager (Start -> All Programs -> "
        "Administrative Tools -> Active Directory Users and Computers), find the relevant user and, in the "
        "\u2018Account\u2019 tab uncheck the option \u2018Account is disabled\u2019.  Also ensure that the account "
        "has not expired."}},
      {1380,
       {"No network logon in Group Policy (Error 1380)",
        "The account that has been entered in the Backup User Identity settings (Tarnwick Administration Console -> "
        "View -> Navigator -> Settings) does not have permission to logon over the network.  Please check that this "
        "account is included under the \u2018Access this computer from the network\u2019 and also that it is not "
        "included under \u2018Deny access to this computer from the network\u2019 (Start -> All Programs -> "
        "Administrative Tools -> Domain Controller Security Policy -> Local Policies -> User Rights Assignment)."}},
      {1385,
       {"Deny logon locally (Error 1385)",
        "The account that has been entered in the Backup User Identity settings (Tarnwick Administration Console -> "
        "View -> Navigator -> Settings) does not have permission to logon locally to this computer.  Please check "
        "that this account is not included under \u2018Deny logon locally\u2019 setting (Start -> All Programs -> "
        "Administrative Tools -> Domain Controller Security Policy -> Local Policies -> User Rights Assignment)."}},
      {1907,
       {"User must change password at next logon (Error 1907)",
        "The account that has been entered in the Backup User Identity settings (Tarnwick Administration Console -> "
        "View -> Navigator -> Settings) must change their password at next logon (Tarnwick cannot do that).  Please "
        "go to the user manager (Start -> All Programs -> Administrative Tools -> Active Directory Users and "
        "Computers), find the relevant user, double click, and in the \u2018Account\u2019 tab deselect the option "
        "\u2018User must change password at next logon\u2019"}},
  };
  return table;
}

}  // namespace

void clsAuthMessages::AddMessageTitle(const std::string& title) {
  message_ += title + "\r\n" + std::string(title.size(), '-') + "\r\n";
}

void clsAuthMessages::AddMessageParagraph(const std::string& paragraph) { message_ += paragraph + "\r\n\r\n"; }

std::string clsAuthMessages::GetMessage(int32_t errorNumber, int32_t location) {
  message_.clear();
  const std::string page = DeploymentSetting(settings_, "deployment.auth_troubleshooting_page");
  const auto found = Explanations().find(errorNumber);
  if (found != Explanations().end()) {
    AddMessageTitle(found->second.title);
    // Branded before the help page is added: the page's address stays as it is.
    AddMessageParagraph(Branded(found->second.text, productName_));
    AddMessageParagraph("Please visit " + page + " for more details on how to correct this.");
    return message_;
  }
  const std::string support = DeploymentSetting(settings_, "deployment.support_email");
  AddMessageTitle("Unrecognized error");
  AddMessageParagraph("An unrecognized user authentication error has occurred.\r\nError number " +
                      std::to_string(errorNumber) + " at location " + std::to_string(location) +
                      "\r\n\r\nPlease visit " + page +
                      " for a complete list of error messages and numbers. If this webpage does not contain your "
                      "error, please contact " +
                      support + " for further assistance.");
  return message_;
}

}  // namespace tw
