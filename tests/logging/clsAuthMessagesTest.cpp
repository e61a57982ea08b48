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
  settings_.Store().WriteText("deployment.auth_troubleshooting_page", "https://example.net/logon");
  EXPECT_NE(std::string::npos,
            messages_.GetMessage(1907, 106).find("\r\n\r\nPlease visit https://example.net/logon for"));
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
}

}  // namespace
}  // namespace tw
