#include <gtest/gtest.h>

#include <cstring>

#include "logging/modLogging.h"
#include "tests/logging/LogTestFixture.h"

namespace tw {
namespace {

class ModLoggingTest : public test::LogTestFixture {
 protected:
  int hostCalls_ = 0;
  // The name followed by zero characters, as the system leaves it in the blank-filled buffer.
  const std::string host_ = std::string("server1.example.com\0\0\0", 22);
  int hostError_ = 0;
  modLogging logging_{logs_, settings_, pump_, [this](char* buffer, size_t length) {
                        ++hostCalls_;
                        if (hostError_) return hostError_;
                        std::memcpy(buffer, host_.data(), std::min(length, host_.size()));
                        return 0;
                      }};
};

TEST_F(ModLoggingTest, TheThreeReportsHaveTheirExactLayouts) {
  logging_.ReportError("00102", "Unable to launch Backup executor due to incorrect arguments.",
                       "The backup could not be performed.");
  logging_.ReportInternalError("20012", 91, "Object variable not set", "TWService");
  logging_.ReportWarning("20101", "Unable to create backup log file", 75, "Path/File access error", "TWService");
  auto entries = Last(3);
  ASSERT_EQ(3u, entries.size());

  EXPECT_EQ(2, entries[2].LogType);
  EXPECT_EQ("Error #00102 - Unable to launch Backup executor due to incorrect arguments.", entries[2].Title);
  EXPECT_EQ("Error #00102 has occurred. Please check the description of this error for more details.\r\n\r\n"
            "Description: The backup could not be performed.",
            entries[2].Message);

  EXPECT_EQ(2, entries[1].LogType);
  EXPECT_EQ("Internal error #20012 - please submit a diagnostics report to support@tarnwick.example", entries[1].Title);
  EXPECT_EQ("An unexpected error has been detected. Please include a diagnostics file and report this to "
            "support@tarnwick.example for assistance. For help compiling diagnostics, please visit: "
            "https://tarnwick.example/support/diagnostics \r\n"
            "  Tarnwick error #20012\r\n"
            "  Error number: 91\r\n"
            "  Error description: Object variable not set\r\n"
            "  Error source: TWService",
            entries[1].Message);

  EXPECT_EQ(1, entries[0].LogType);
  EXPECT_EQ("Warning #20101", entries[0].Title);
  EXPECT_EQ("An unexpected condition has been detected. Please examine the warning and take the appropriate "
            "action. Details: \r\n"
            "  Tarnwick warning #20101\r\n"
            "  Description: Unable to create backup log file\r\n"
            "  Error number: 75\r\n"
            "  Error description: Path/File access error\r\n"
            "  Error source: TWService",
            entries[0].Message);
  for (const auto& e : entries) EXPECT_EQ(0, e.AttachmentType);

  // A warning without a description still has all six lines.
  logging_.ReportWarning("20102", "", 0, "", "");
  const std::string message = Last(1)[0].Message;
  EXPECT_EQ(5, std::count(message.begin(), message.end(), '\n'));
}

TEST_F(ModLoggingTest, DeploymentSettingsShapeTheInternalErrorReport) {
  settings_.Store().WriteText("deployment.support_email", "help@example.net");
  settings_.Store().WriteText("deployment.troubleshooting_page", "https://example.net/diag");
  logging_.ReportInternalError("20000", TWError(5, "Invalid procedure call", "TWSettings"));
  const auto entry = Last(1)[0];
  EXPECT_EQ("Internal error #20000 - please submit a diagnostics report to help@example.net", entry.Title);
  EXPECT_EQ(0u, entry.Message.find("An unexpected error has been detected. Please include a diagnostics file and "
                                   "report this to help@example.net for assistance. For help compiling diagnostics, "
                                   "please visit: https://example.net/diag \r\n"));
  EXPECT_NE(std::string::npos, entry.Message.find("  Error number: 5\r\n  Error description: Invalid procedure call\r\n"
                                                  "  Error source: TWSettings"));
}

TEST_F(ModLoggingTest, BrandingUsesTheCustomNameReadOnce) {
  std::string text = "Tarnwick service starting";
  EXPECT_EQ("Tarnwick service starting", logging_.BrandText(text));
  EXPECT_EQ("Tarnwick", logging_.ProductName());

  modLogging branded(logs_, settings_, pump_);
  settings_.General().Options().CustomProductName("Acme Backup");
  std::string message = "The Tarnwick service stopped; tarnwick and TARNWICK stay; Tarnwick again";
  EXPECT_EQ("The Acme Backup service stopped; tarnwick and TARNWICK stay; Acme Backup again", branded.BrandText(message));
  EXPECT_EQ("The Acme Backup service stopped; tarnwick and TARNWICK stay; Acme Backup again", message) << "in place";
  branded.ReportInternalError("20012", 1, "x", "y");
  EXPECT_NE(std::string::npos, Last(1)[0].Message.find("\r\n  Acme Backup error #20012\r\n"));

  // The name was read once: a later change waits for the next start.
  settings_.General().Options().CustomProductName("Other");
  EXPECT_EQ("Acme Backup", branded.ProductName());
}

TEST_F(ModLoggingTest, EscapeArgumentDoublesBackslashesAndEscapesQuotes) {
  EXPECT_EQ("\\\\\\\"\\\\", EscapeArgument("\\\"\\"));  // \"\  ->  \\\"\\ .
  EXPECT_EQ("plain text", EscapeArgument("plain text"));
  EXPECT_EQ("CORP\\\\backup", EscapeArgument("CORP\\backup"));
  EXPECT_EQ("say \\\"hi\\\"", EscapeArgument("say \"hi\""));
  // A code 0 in a value (a password set through the store can hold one) is a character like any other.
  EXPECT_EQ(std::string("a\0\\\\b", 5), EscapeArgument(std::string("a\0\\b", 4)));
}

TEST_F(ModLoggingTest, WaitSecondsSleepsInFifthsAndPumpsBetween) {
  logging_.WaitSeconds(0);
  logging_.WaitSeconds(-3);
  EXPECT_TRUE(pump_.calls.empty());
  logging_.WaitSeconds(2);
  ASSERT_EQ(20u, pump_.calls.size());
  for (size_t i = 0; i < 20; i += 2) {
    EXPECT_EQ("sleep 200", pump_.calls[i]);
    EXPECT_EQ("pump", pump_.calls[i + 1]);
  }
}

TEST_F(ModLoggingTest, ComputerNameIsTheShortHostNameWithoutZeros) {
  EXPECT_EQ("server1", logging_.ComputerName());
  EXPECT_EQ("server1", logging_.ComputerName());
  EXPECT_EQ(1, hostCalls_) << "cached";

  modLogging failing(logs_, settings_, pump_, [](char*, size_t) { return 13; });
  try {
    failing.ComputerName();
    FAIL();
  } catch (const TWError& e) {
    EXPECT_EQ(23220, e.Number);
    EXPECT_EQ("Unable to get computer name: 13", e.Description);
  }
}

}  // namespace
}  // namespace tw
