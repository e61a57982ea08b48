#include "logging/modAppLog.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <unistd.h>

#include "common/Strings.h"
#include "platform/Process.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

const Date kWhen = DateSerial(2026, 3, 7) + TimeSerial(9, 5, 3);

// One entry of each form the writers make (which number each outcome gets, the service's tests
// check): what it is given (a SmallBusinessServer entry without text ignores the text) and what the
// journal's MESSAGE carries for it.
struct Kind {
  std::string source;
  uint32_t eventId;
  int16_t eventType;
  int category;
  int severity;
  std::optional<std::string> text;
  std::string message;
};

const std::vector<Kind> kKinds = {
    {"Tarnwick", 1000, eventtype::Information, 0, 6, "\r\n\r\nJob Nightly: 12 files\rResult: done\r\n",
     "Job Nightly: 12 files\nResult: done"},
    {"Tarnwick", 1002, eventtype::Warning, 0, 4, "\r\n\r\nBackup process timed out", "Backup process timed out"},
    {"SmallBusinessServer", 5633, eventtype::Information, 5, 6, "Tarnwick job A completed normally.\r\n\r\nJob name: A",
     "Tarnwick job A completed normally.\n\nJob name: A"},
    {"SmallBusinessServer", 3222279682, eventtype::Error, 5, 3, std::nullopt, "Event ID 3222279682"},
};

void Write(modAppLog& log, const Kind& kind) {
  if (kind.source == "Tarnwick") {
    log.WriteEventLog(*kind.text, kind.eventType, kind.eventId);
  } else {
    log.WriteSbsEventLog(kind.eventType == eventtype::Information, kind.text.value_or("ignored"),
                         kind.text.has_value());
  }
}

// An over-long text is cut, not lost, and never inside a character. A socket that is not there is
// no error.
TEST(ModAppLogTest, TextsThatAreTooLong) {
  EventLogEntry entry;
  entry.source = "Tarnwick";
  entry.eventId = 1002;
  entry.text = std::string(59999, 'r') + "\u00e9" + std::string(40000, 'r');
  EXPECT_EQ("MESSAGE=" + std::string(59999, 'r'), JournalFields(entry)[0]);
  EXPECT_TRUE(FormatSyslogDatagram(entry).ends_with("Tarnwick[0]: Event ID 1002: " + std::string(59999, 'r')));

  ManualClock clock(kWhen);
  modAppLog nowhere(clock, "/nonexistent/log.sock");
  EXPECT_NO_THROW(Write(nowhere, kKinds[0]));
}

// The datagrams as a stock rsyslog files them, with the time and the process they carry: imuxsock's
// own parser for local sockets.
TEST(ModAppLogTest, RsyslogFilesEachEntryUnderItsSourceAndSeverity) {
  const std::string daemon = "/usr/sbin/rsyslogd";
  if (!fs::exists(daemon)) GTEST_SKIP() << "rsyslog is not installed";
  test::TempDir dir;
  test::WriteFile(dir / "rsyslog.conf",
                  "global(workDirectory=\"" + dir.Path() + "\")\n"
                  "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                  "input(type=\"imuxsock\" Socket=\"" + (dir / "log.sock") +
                  "\" IgnoreTimestamp=\"off\" UseSysTimeStamp=\"off\")\n"
                  "template(name=\"tw\" type=\"string\" string=\"%timereported:::date-rfc3164% %programname%[%procid%] "
                  "%syslogfacility-text%.%syslogseverity-text%|%msg%\\n\")\n"
                  "*.* action(type=\"omfile\" file=\"" + (dir / "out.log") + "\" template=\"tw\")\n");
  test::ChildProcess rsyslogd({daemon, "-n", "-f", dir / "rsyslog.conf", "-i", dir / "pid"});
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir / "log.sock"); }));
  ManualClock clock(kWhen);
  modAppLog appLog(clock, dir / "log.sock");
  Write(appLog, kKinds[1]);
  Write(appLog, kKinds[3]);

  // rsyslog keeps the blank after the tag in the message and shows control characters as octal escapes.
  const std::string expected = ReplaceAll(
      "Mar  7 09:05:03 Tarnwick[PID] daemon.warning| Event ID 1002: #015#012#015#012Backup process timed out\n"
      "Mar  7 09:05:03 SmallBusinessServer[PID] daemon.err| Event ID 3222279682\n",
      "PID", std::to_string(::getpid()));
  test::WaitUntil([&] { return test::ReadFile(dir / "out.log") == expected; }, 3000);
  EXPECT_EQ(expected, test::ReadFile(dir / "out.log"));
}

// A journald instance of the test's own: a journal namespace, stopped and removed with its files.
class JournalNamespace {
 public:
  JournalNamespace()
      : name_("tarnwick-test-" + std::to_string(::getpid()) + "-" + std::to_string(std::random_device()() % 100000)),
        daemon_({kDaemon, name_}) {
    test::WaitUntil([&] { return fs::exists(SocketFolder() + "/socket"); });
  }
  ~JournalNamespace() {
    daemon_.Signal(SIGTERM);
    daemon_.Wait();
    std::error_code ignored;
    fs::remove_all(SocketFolder(), ignored);
    for (const char* store : {"/var/log/journal", "/run/log/journal"}) {
      for (const auto& entry : fs::directory_iterator(store, ignored)) {
        if (entry.path().extension() == "." + name_) fs::remove_all(entry.path(), ignored);
      }
    }
  }

  static constexpr const char* kDaemon = "/lib/systemd/systemd-journald";
  std::string SocketFolder() const { return "/run/systemd/journal." + name_; }
  // Our entries in the journal, oldest first, as JSON objects.
  std::vector<nlohmann::json> Entries() const {
    std::vector<nlohmann::json> entries;
    std::istringstream lines(platform::RunCommand({"journalctl", "--namespace", name_, "-o", "json", "-q", "--no-pager",
                                                   "-t", "Tarnwick", "-t", "SmallBusinessServer"})
                                 .output);
    for (std::string line; std::getline(lines, line);) entries.push_back(nlohmann::json::parse(line));
    return entries;
  }

 private:
  std::string name_;
  test::ChildProcess daemon_;
};

// The entries as a real journald stores them. (That a socket named in TARNWICK_SYSLOG_SOCKET takes
// them first, the service's end-to-end tests show.)
TEST(ModAppLogTest, JournaldKeepsEachEntryWithItsSourcePriorityAndEventId) {
  if (::geteuid() != 0) GTEST_SKIP() << "a journald instance of the test's own needs root";
  if (!fs::exists(JournalNamespace::kDaemon)) GTEST_SKIP() << "systemd-journald is not installed";
  JournalNamespace journal;
  ASSERT_TRUE(fs::exists(journal.SocketFolder() + "/socket")) << "journald did not start";
  ManualClock clock(kWhen);
  const auto written = test::RunWithMounts({{journal.SocketFolder(), "/run/systemd/journal"}}, [&] {
    ::unsetenv("TARNWICK_SYSLOG_SOCKET");
    modAppLog toJournal(clock);
    for (const auto& kind : kKinds) Write(toJournal, kind);
    return 0;
  });
  if (!written) GTEST_SKIP() << "no mount namespace of our own: unshare is not allowed here";
  ASSERT_EQ(0, *written);

  ASSERT_TRUE(test::WaitUntil([&] { return journal.Entries().size() == kKinds.size(); }));
  const auto entries = journal.Entries();
  for (size_t i = 0; i < entries.size(); ++i) {
    const Kind& kind = kKinds[i];
    SCOPED_TRACE(entries[i].dump());
    // journalctl writes a field that is not plain text as an array of bytes: MESSAGE must be text.
    const nlohmann::json expected = {{"SYSLOG_IDENTIFIER", kind.source},
                                     {"PRIORITY", std::to_string(kind.severity)},
                                     {"SYSLOG_FACILITY", "3"},
                                     {"TARNWICK_EVENT_ID", std::to_string(kind.eventId)},
                                     {"TARNWICK_EVENT_TYPE", std::to_string(kind.eventType)},
                                     {"TARNWICK_CATEGORY", std::to_string(kind.category)},
                                     {"MESSAGE", kind.message}};
    for (const auto& [key, value] : expected.items()) EXPECT_EQ(value, entries[i].value(key, nlohmann::json())) << key;
  }
}

}  // namespace
}  // namespace tw
