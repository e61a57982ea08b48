#include "logging/clsAuthMessages.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace tw {
namespace {

TEST(ClsAuthMessagesTest, AKnownErrorIsExplainedAndAnUnknownOneNamesItsNumberAndLocation) {
  test::TempDir dir;
  TWSettings settings{dir / "settings.db"};
  clsAuthMessages messages{settings};
  EXPECT_EQ("Incorrect password/username/domain (Error 1326)\r\n"
            "-----------------------------------------------\r\n"
            "The username/password combination entered in the Backup User Identity settings (Tarnwick "
            "Administration Console -> View -> Navigator -> Settings) is incorrect.  Please check that these fields "
            "have the correct details and that the account they refer to has not been changed or deleted.\r\n\r\n"
            "Please visit https://tarnwick.example/support/logon-errors for more details on how to correct this."
            "\r\n\r\n",
            messages.GetMessage(1326, 106));
  const std::string unknown =
      "Unrecognized error\r\n"
      "------------------\r\n"
      "An unrecognized user authentication error has occurred.\r\n"
      "Error number 5 at location 106\r\n\r\n"
      "Please visit https://tarnwick.example/support/logon-errors for a complete list of error messages and numbers. "
      "If this webpage does not contain your error, please contact support@tarnwick.example for further "
      "assistance.\r\n\r\n";
  EXPECT_EQ(unknown, messages.GetMessage(5, 106));
  EXPECT_EQ(unknown, messages.GetMessage(5, 106)) << "each call starts afresh";

  settings.Store().WriteText("deployment.auth_troubleshooting_page", "https://example.net/logon");
  EXPECT_NE(std::string::npos,
            messages.GetMessage(1907, 106).find("\r\n\r\nPlease visit https://example.net/logon for"));
}

}  // namespace
}  // namespace tw
