#include "logging/clsAuthMessages.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace tw {
namespace {

TEST(ClsAuthMessagesTest, AKnownErrorIsExplainedAndAnUnknownOneNamesItsNumberAndLocation) {
  test::TempDir dir;
  TWSettings settings{dir / "settings.db"};
  clsAuthMessages messages{settings};
  // A known error: its title underlined, the explanation, the help page.
  const std::string known = messages.GetMessage(1326, 106);
  EXPECT_EQ(0u, known.find("Incorrect password/username/domain (Error 1326)\r\n"
                           "-----------------------------------------------\r\nThe username/password combination"));
  EXPECT_NE(std::string::npos, known.find("\r\n\r\nPlease visit https://tarnwick.example/support/logon-errors for "
                                          "more details on how to correct this.\r\n\r\n"));
  const std::string unknown = messages.GetMessage(5, 106);
  EXPECT_EQ(0u, unknown.find("Unrecognized error\r\n------------------\r\nAn unrecognized user authentication error "
                             "has occurred.\r\nError number 5 at location 106\r\n\r\n"));
  EXPECT_EQ(unknown, messages.GetMessage(5, 106)) << "each call starts afresh";

  settings.Store().WriteText("deployment.auth_troubleshooting_page", "https://example.net/logon");
  EXPECT_NE(std::string::npos,
            messages.GetMessage(1907, 106).find("\r\n\r\nPlease visit https://example.net/logon for"));
}

}  // namespace
}  // namespace tw
