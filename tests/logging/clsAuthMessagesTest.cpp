#include "logging/clsAuthMessages.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace tw {
namespace {

class ClsAuthMessagesTest : public ::testing::Test {
 protected:
  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  clsAuthMessages messages_{settings_};
};

TEST_F(ClsAuthMessagesTest, AKnownErrorHasTitleUnderlineExplanationAndHelpPage) {
  EXPECT_EQ("Incorrect password/username/domain (Error 1326)\r\n"
            "-----------------------------------------------\r\n"
            "The username/password combination entered in the Backup User Identity settings (Tarnwick "
            "Administration Console -> View -> Navigator -> Settings) is incorrect.  Please check that these fields "
            "have the correct details and that the account they refer to has not been changed or deleted.\r\n\r\n"
            "Please visit https://tarnwick.example/support/logon-errors for more details on how to correct this."
            "\r\n\r\n",
            messages_.GetMessage(1326, 106));
  EXPECT_EQ(47u, std::string("Incorrect password/username/domain (Error 1326)").size());

  // The 1907 explanation keeps its missing full stop; the quotes are typographic.
  settings_.Store().WriteText("deployment.auth_troubleshooting_page", "https://example.net/logon");
  EXPECT_EQ("User must change password at next logon (Error 1907)\r\n"
            "----------------------------------------------------\r\n"
            "The account that has been entered in the Backup User Identity settings (Tarnwick Administration "
            "Console -> View -> Navigator -> Settings) must change their password at next logon (Tarnwick cannot do "
            "that).  Please go to the user manager (Start -> All Programs -> Administrative Tools -> Active "
            "Directory Users and Computers), find the relevant user, double click, and in the \u2018Account\u2019 "
            "tab deselect the option \u2018User must change password at next logon\u2019\r\n\r\n"
            "Please visit https://example.net/logon for more details on how to correct this.\r\n\r\n",
            messages_.GetMessage(1907, 106));
  for (int number : {1328, 1330, 1331, 1380, 1385}) {
    const std::string text = messages_.GetMessage(number, 0);
    EXPECT_NE(std::string::npos, text.find("(Error " + std::to_string(number) + ")\r\n---")) << number;
  }
}

TEST_F(ClsAuthMessagesTest, AnUnknownErrorNamesItsNumberAndLocation) {
  const std::string expected =
      "Unrecognized error\r\n"
      "------------------\r\n"
      "An unrecognized user authentication error has occurred.\r\n"
      "Error number 5 at location 106\r\n\r\n"
      "Please visit https://tarnwick.example/support/logon-errors for a complete list of error messages and numbers. "
      "If this webpage does not contain your error, please contact support@tarnwick.example for further "
      "assistance.\r\n\r\n";
  EXPECT_EQ(expected, messages_.GetMessage(5, 106));
  // Each call starts afresh.
  EXPECT_EQ(expected, messages_.GetMessage(5, 106));
  EXPECT_EQ(0u, messages_.GetMessage(1331, 1).find("Account disabled (Error 1331)\r\n"));
}

}  // namespace
}  // namespace tw
