#include <gtest/gtest.h>

#include <cstring>

#include "logging/modLogging.h"
#include "tests/logging/LogTestFixture.h"

namespace tw {
namespace {

class ModLoggingTest : public test::LogTestFixture {
 protected:
  int hostCalls_ = 0;
  modLogging logging_{logs_, settings_, pump_, [this](char* buffer, size_t length) {
                        ++hostCalls_;
                        // The name followed by zero characters, as the system leaves it in the blank-filled buffer.
                        std::memcpy(buffer, "server1.example.com\0\0\0", std::min<size_t>(length, 22));
                        return 0;
                      }};
};

TEST_F(ModLoggingTest, TheReportsHaveTheirExactLayouts) {
  settings_.Store().WriteText("deployment.support_email", "help@example.net");
  settings_.Store().WriteText("deployment.troubleshooting_page", "https://example.net/diag");
  logging_.ReportInternalError("20012", TWError(91, "Object variable not set", "TWService"));
  logging_.ReportWarning("20101", "Unable to create backup log file", 75, "Path/File access error", "TWService");
  auto entries = Last(2);
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ(2, entries[1].LogType);
  EXPECT_EQ("Internal error #20012 - please submit a diagnostics report to help@example.net", entries[1].Title);
  // The lines after the first are those of every internal error, checked where the service reports one.
  EXPECT_EQ(0u, entries[1].Message.find("An unexpected error has been detected. Please include a diagnostics file and "
                                        "report this to help@example.net for assistance. For help compiling "
                                        "diagnostics, please visit: https://example.net/diag \r\n"));

  EXPECT_EQ(1, entries[0].LogType);
  EXPECT_EQ("Warning #20101", entries[0].Title);
  EXPECT_NE(std::string::npos, entries[0].Message.find("action. Details: \r\n  Tarnwick warning #20101\r\n"
                                                       "  Description: Unable to create backup log file\r\n"
                                                       "  Error number: 75\r\n"));
  for (const auto& e : entries) EXPECT_EQ(0, e.AttachmentType);
}

TEST_F(ModLoggingTest, BrandingUsesTheCustomNameReadOnce) {
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
  EXPECT_EQ("say \\\"CORP\\\\backup\\\"", EscapeArgument("say \"CORP\\backup\""));
  // A code 0 in a value (a password set through the store can hold one) is a character like any other.
  EXPECT_EQ(std::string("a\0\\\\b", 5), EscapeArgument(std::string("a\0\\b", 4)));
}

TEST_F(ModLoggingTest, WaitSecondsSleepsInFifthsAndPumpsBetween) {
  logging_.WaitSeconds(2);
  std::vector<std::string> expected;
  for (int i = 0; i < 10; ++i) expected.insert(expected.end(), {"sleep 200", "pump"});
  EXPECT_EQ(expected, pump_.calls);
}

TEST_F(ModLoggingTest, ComputerNameIsTheShortHostNameWithoutZeros) {
  EXPECT_EQ("server1", logging_.ComputerName());
  EXPECT_EQ("server1", logging_.ComputerName());
  EXPECT_EQ(1, hostCalls_) << "cached";
  modLogging failing(logs_, settings_, pump_, [](char*, size_t) { return 13; });
  const TWError error = test::ErrorFrom([&] { failing.ComputerName(); });
  EXPECT_EQ(23220, error.Number);
  EXPECT_EQ("Unable to get computer name: 13", error.Description);
}

}  // namespace
}  // namespace tw
