#pragma once
// The built programs in a temporary application folder with a settings file, a syslog socket and an
// SMTP server of the test's own, and TWService started there with its clock moved by faketime.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "logging/clsLogEntry.h"
#include "reporting/clsReportLogs.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw::test {

// The newest entries of the application log in `applicationFolder`, newest first, and their titles.
std::vector<clsLogEntry> LastLogs(const std::string& applicationFolder, int count);
std::vector<std::string> LogTitles(const std::string& applicationFolder, int count);

class ServiceFixture : public ::testing::Test {
 protected:
  ServiceFixture();

  // Mail to the test's server, reports to SBS and the event log on.
  clsJob Job(const std::string& name, Date time, const std::string& source);
  // Starts TWService with its clock at `fakeStart` ("2026-11-23 21:00:05", or with " x30" to run
  // faster). With `setup`, the service runs in a mount namespace of its own after that shell text
  // has run there (as root: mounts that only the service sees).
  void Start(const std::string& fakeStart, const std::string& setup = "");
  void Stop();
  void RequestTestBackup();  // of Nightly
  // Asks for a test backup and returns the answer that ends it.
  std::string TestBackup();
  std::vector<clsReportLogEntry> Reports();
  bool ReportsArrive(size_t count, int timeoutMs = 40000);
  bool MailsArrive(int count);
  std::vector<std::string> Titles(int count);
  bool TitleArrives(const std::string& title, int count = 20, int timeoutMs = 40000);
  std::vector<std::string> Subjects();
  std::vector<std::string> Answers();

  TempDir dir_;
  DatagramReceiver syslog_{dir_ / "syslog"};
  SmtpServer smtp_;
  TWSettings settings_{dir_ / "settings.db"};
  std::unique_ptr<ChildProcess> service_;
  size_t testBackups_ = 0;
};

}  // namespace tw::test
