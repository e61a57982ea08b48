#include "tests/support/ServiceFixture.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "common/Clock.h"
#include "common/EventPump.h"
#include "logging/clsLogs.h"
#include "tests/support/LogEntries.h"

namespace tw::test {

namespace fs = std::filesystem;

std::vector<clsLogEntry> LastLogs(const std::string& applicationFolder, int count) {
  // Reading the log needs no settings; the file named here is never opened.
  TWSettings settings(applicationFolder + "/settings.db");
  SystemClock clock;
  BlockingPump pump;
  clsLogs logs(applicationFolder, settings, clock, pump);
  return NewestEntries(logs, count);
}

std::vector<std::string> LogTitles(const std::string& applicationFolder, int count) {
  std::vector<std::string> titles;
  for (const auto& e : LastLogs(applicationFolder, count)) titles.push_back(e.Title);
  return titles;
}

ServiceFixture::ServiceFixture() {
  // twprocess and TWCam stay out: a lingering-executor check must not reach other tests' runs.
  for (const char* program : {"TWService", "DesktopRights", "TWExecutor", "TWPrintOut", "twmessage"}) {
    fs::create_symlink(std::string(TW_BIN_DIR) + "/" + program, dir_ / program);
  }
  fs::create_directory(dir_ / "src");
  WriteFile(dir_ / "src/a.txt", "alpha\n");
  settings_.Store().WriteBool("mail.email_enabled", true);
  settings_.Store().WriteText("mail.server", "127.0.0.1");
  settings_.Store().WriteInt("mail.port", smtp_.Port());
  settings_.Store().WriteText("mail.success_recipients", "ok@example.org");
  settings_.Store().WriteText("mail.failure_recipients", "failed@example.org");
  settings_.General().Options().SbsReportingEnabled(true);
  settings_.General().Options().EventLogEnabled(true);
}

clsJob ServiceFixture::Job(const std::string& name, Date time, const std::string& source) {
  clsJob job = settings_.General().AddJob(name, name);
  job.ScheduledTime(time);
  job.Sources({source});
  job.Destination().Path(dir_ / "dest");
  return job;
}

void ServiceFixture::Start(const std::string& fakeStart, const std::string& setup) {
  // The library itself rather than the faketime wrapper, so that signals reach the service.
  const std::vector<std::string> environment{
      "TARNWICK_HOME=" + dir_.Path(), "TARNWICK_SYSLOG_SOCKET=" + (dir_ / "syslog"),
      "LD_PRELOAD=/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1", "FAKETIME=@" + fakeStart};
  std::vector<std::string> argv{dir_ / "TWService"};
  if (!setup.empty()) {
    // unshare and the shell exec in turn, so the process the test signals is the service.
    argv = {"/usr/bin/unshare", "-m", "/bin/sh", "-ec", setup + "\nexec \"$0\"", dir_ / "TWService"};
  }
  service_ = std::make_unique<ChildProcess>(argv, environment, dir_ / "service.out");
}

void ServiceFixture::Stop() {
  service_->Signal(SIGTERM);
  EXPECT_EQ(0, service_->Wait(10000)) << "the service did not stop; its log:\n" << ReadFile(dir_ / "Logs/TWLog.0000");
}

void ServiceFixture::RequestTestBackup() {
  auto console = settings_.General().Console();
  console.RequestJobName("Nightly");
  console.TestBackupRequested(true);
}

std::string ServiceFixture::TestBackup() {
  RequestTestBackup();
  ++testBackups_;
  EXPECT_TRUE(WaitUntil([&] { return CountStartingWith(Answers(), "RESULT: ") == testBackups_; }, 60000));
  const auto answers = Answers();
  return answers.empty() ? "" : answers.back();
}

std::vector<clsReportLogEntry> ServiceFixture::Reports() {
  SystemClock clock;
  return clsReportLogs(dir_.Path(), settings_, clock).GetSummaries(0);
}

bool ServiceFixture::ReportsArrive(size_t count, int timeoutMs) {
  return WaitUntil([&] { return Reports().size() >= count; }, timeoutMs);
}

bool ServiceFixture::MailsArrive(int count) {
  return WaitUntil([&] { return smtp_.Count() == count; }, 20000);
}

std::vector<std::string> ServiceFixture::Titles(int count) { return LogTitles(dir_.Path(), count); }

bool ServiceFixture::TitleArrives(const std::string& title, int count, int timeoutMs) {
  return WaitUntil([&] { return std::ranges::count(Titles(count), title) > 0; }, timeoutMs);
}

std::vector<std::string> ServiceFixture::Subjects() {
  std::vector<std::string> subjects;
  for (int i = 1; i <= smtp_.Count(); ++i) subjects.push_back(nlohmann::json::parse(smtp_.Read(i))["subject"]);
  std::sort(subjects.begin(), subjects.end());
  return subjects;
}

std::vector<std::string> ServiceFixture::Answers() {
  std::vector<std::string> lines;
  for (const auto& [number, line] : settings_.General().Console().AnswersAfter(0)) lines.push_back(line);
  return lines;
}

}  // namespace tw::test
