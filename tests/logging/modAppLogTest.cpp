#include "logging/modAppLog.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <unistd.h>

#include "platform/Process.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

const Date kWhen = DateSerial(2026, 11, 23) + TimeSerial(21, 0, 0);

// Each kind of entry the writers make, with what a syslog datagram and the journal carry for it.
struct Kind {
  std::function<void(modAppLog&)> write;
  std::string source;
  uint32_t eventId;
  int eventType;
  int category;
  int priority;
  std::string datagramText;  // what follows "Event ID N" in the datagram
  std::string message;       // the journal's MESSAGE
};

const std::vector<Kind>& Kinds() {
  using eventtype::Error, eventtype::Information, eventtype::Warning;
  static const std::vector<Kind> kinds = {
      {[](modAppLog& log) { log.WriteEventLog("\r\n\r\nJob Nightly: 12 files\r\nResult: done\r\n", Information, 1000); },
       "Tarnwick", 1000, Information, 0, 6,
       ": \r\n\r\nJob Nightly: 12 files\r\nResult: done\r\n", "Job Nightly: 12 files\nResult: done"},
      {[](modAppLog& log) { log.WriteEventLog("\r\n\r\nJob Nightly: tar failed", Error, 1001); },
       "Tarnwick", 1001, Error, 0, 3,
       ": \r\n\r\nJob Nightly: tar failed", "Job Nightly: tar failed"},
      {[](modAppLog& log) { log.WriteEventLog("\r\n\r\nBackup process timed out", Warning, 1002); },
       "Tarnwick", 1002, Warning, 0, 4,
       ": \r\n\r\nBackup process timed out", "Backup process timed out"},
      {[](modAppLog& log) { log.WriteSbsEventLog(true, "Tarnwick job A completed normally.\r\n\r\nJob name: A", true); },
       "SmallBusinessServer", 5633, Information, 5, 6,
       ": Tarnwick job A completed normally.\r\n\r\nJob name: A", "Tarnwick job A completed normally.\n\nJob name: A"},
      {[](modAppLog& log) { log.WriteSbsEventLog(false, "Tarnwick job A failed.", true); },
       "SmallBusinessServer", 5634, Error, 5, 3,
       ": Tarnwick job A failed.", "Tarnwick job A failed."},
      {[](modAppLog& log) { log.WriteSbsEventLog(true, "ignored", false); },
       "SmallBusinessServer", 1074796033, Information, 5, 6,
       "", "Event ID 1074796033"},
      {[](modAppLog& log) { log.WriteSbsEventLog(false, "ignored", false); },
       "SmallBusinessServer", 3222279682, Error, 5, 3,
       "", "Event ID 3222279682"},
  };
  return kinds;
}

TEST(ModAppLogTest, AnEntryAsASyslogDatagramAndAsJournalFields) {
  EventLogEntry entry;
  entry.source = "Tarnwick";
  entry.eventType = eventtype::Warning;
  entry.eventId = 1002;
  entry.text = "\r\n\r\nThe report\r\nline 2\rline 3\r\n";
  entry.time = DateSerial(2026, 3, 7) + TimeSerial(9, 5, 3);
  entry.processId = 4242;
  EXPECT_EQ("<28>Mar  7 09:05:03 Tarnwick[4242]: Event ID 1002: \r\n\r\nThe report\r\nline 2\rline 3\r\n",
            FormatSyslogDatagram(entry));
  EXPECT_EQ((std::vector<std::string>{"MESSAGE=The report\nline 2\nline 3", "PRIORITY=4", "SYSLOG_FACILITY=3",
                                      "SYSLOG_IDENTIFIER=Tarnwick", "TARNWICK_EVENT_ID=1002", "TARNWICK_EVENT_TYPE=2",
                                      "TARNWICK_CATEGORY=0"}),
            JournalFields(entry));

  entry.text = "\r\n\r\n";
  EXPECT_EQ("MESSAGE=Event ID 1002", JournalFields(entry)[0]) << "a report with no lines";

  // An over-long report is cut, not lost, and never inside a character.
  entry.text = std::string(59999, 'r') + "\u00e9" + std::string(40000, 'r');
  EXPECT_EQ("<28>Mar  7 09:05:03 Tarnwick[4242]: Event ID 1002: " + std::string(59999, 'r'),
            FormatSyslogDatagram(entry));
  EXPECT_EQ("MESSAGE=" + std::string(59999, 'r'), JournalFields(entry)[0]);
}

TEST(ModAppLogTest, EachWriterSendsOneDatagramWithItsTypeAndId) {
  test::TempDir dir;
  test::DatagramReceiver receiver(dir / "log.sock");
  ManualClock clock(kWhen);
  modAppLog appLog(clock, dir / "log.sock");
  for (const auto& kind : Kinds()) {
    kind.write(appLog);
    EXPECT_EQ("<" + std::to_string(24 + kind.priority) + ">Nov 23 21:00:00 " + kind.source + "[" +
                  std::to_string(::getpid()) + "]: Event ID " + std::to_string(kind.eventId) + kind.datagramText,
              receiver.Receive().value_or("nothing"));
  }
}

TEST(ModAppLogTest, ASyslogThatIsNotThereIsSilent) {
  ManualClock clock(kWhen);
  modAppLog appLog(clock, "/nonexistent/log.sock");
  EXPECT_NO_THROW(appLog.WriteEventLog("text", eventtype::Information, 1000));
  EXPECT_NO_THROW(appLog.WriteSbsEventLog(false, "text", true));
}

// The datagrams as a stock rsyslog files them: imuxsock's own parser for local sockets.
TEST(ModAppLogTest, RsyslogFilesEachEntryUnderItsSourceAndSeverity) {
  const std::string daemon = "/usr/sbin/rsyslogd";
  if (!fs::exists(daemon)) GTEST_SKIP() << "rsyslog is not installed";
  test::TempDir dir;
  test::WriteFile(dir / "rsyslog.conf",
                  "global(workDirectory=\"" + dir.Path() + "\")\n"
                  "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                  "input(type=\"imuxsock\" Socket=\"" + (dir / "log.sock") + "\")\n"
                  "template(name=\"tw\" type=\"string\" string=\"%programname%|%syslogseverity-text%|%msg%\\n\")\n"
                  "*.* action(type=\"omfile\" file=\"" + (dir / "out.log") + "\" template=\"tw\")\n");
  test::ChildProcess rsyslogd({daemon, "-n", "-f", dir / "rsyslog.conf", "-i", dir / "pid"});
  ASSERT_TRUE(test::WaitUntil([&] { return fs::exists(dir / "log.sock"); }));
  ManualClock clock(kWhen);
  modAppLog appLog(clock, dir / "log.sock");
  for (const auto& kind : Kinds()) kind.write(appLog);

  // rsyslog keeps the blank after the tag in the message, shows control characters as octal
  // escapes and drops a final line feed.
  const std::string expected =
      "Tarnwick|info| Event ID 1000: #015#012#015#012Job Nightly: 12 files#015#012Result: done#015\n"
      "Tarnwick|err| Event ID 1001: #015#012#015#012Job Nightly: tar failed\n"
      "Tarnwick|warning| Event ID 1002: #015#012#015#012Backup process timed out\n"
      "SmallBusinessServer|info| Event ID 5633: Tarnwick job A completed normally.#015#012#015#012Job name: A\n"
      "SmallBusinessServer|err| Event ID 5634: Tarnwick job A failed.\n"
      "SmallBusinessServer|info| Event ID 1074796033\n"
      "SmallBusinessServer|err| Event ID 3222279682\n";
  test::WaitUntil([&] { return test::ReadFile(dir / "out.log") == expected; }, 3000);
  EXPECT_EQ(expected, test::ReadFile(dir / "out.log"));
}

// A journald instance of the test's own: a journal namespace, stopped and removed with its files.
class JournalNamespace {
 public:
  JournalNamespace()
      : name_("tarnwick-test-" + std::to_string(::getpid()) + "-" + std::to_string(std::random_device()() % 100000)) {
    daemon_ = std::make_unique<test::ChildProcess>(std::vector<std::string>{kDaemon, name_});
    test::WaitUntil([&] { return fs::exists(SocketFolder() + "/socket"); });
  }
  ~JournalNamespace() {
    daemon_->Signal(SIGTERM);
    daemon_->Wait();
    std::error_code ignored;
    fs::remove_all(SocketFolder(), ignored);
    for (const char* store : {"/var/log/journal", "/run/log/journal"}) {
      for (const auto& entry : fs::directory_iterator(store, ignored)) {
        if (entry.path().extension() == "." + name_) fs::remove_all(entry.path(), ignored);
      }
    }
  }
  JournalNamespace(const JournalNamespace&) = delete;
  JournalNamespace& operator=(const JournalNamespace&) = delete;

  static constexpr const char* kDaemon = "/lib/systemd/systemd-journald";
  std::string SocketFolder() const { return "/run/systemd/journal." + name_; }
  // The entries journalctl selects with `filters`, as JSON objects.
  std::vector<nlohmann::json> Entries(const std::vector<std::string>& filters) const {
    std::vector<std::string> argv{"journalctl", "--namespace", name_, "-o", "json", "-q", "--no-pager"};
    argv.insert(argv.end(), filters.begin(), filters.end());
    std::vector<nlohmann::json> entries;
    std::istringstream lines(platform::RunCommand(argv).output);
    for (std::string line; std::getline(lines, line);) entries.push_back(nlohmann::json::parse(line));
    return entries;
  }

 private:
  std::string name_;
  std::unique_ptr<test::ChildProcess> daemon_;
};

std::vector<std::string> EventIds(const std::vector<nlohmann::json>& entries) {
  std::vector<std::string> ids;
  for (const auto& e : entries) ids.push_back(e.value("TARNWICK_EVENT_ID", "none"));
  return ids;
}

// The entries as a real journald stores them, found as an administrator looks for them; a socket
// named in TARNWICK_SYSLOG_SOCKET still takes them, and where no journal listens they go to /dev/log.
TEST(ModAppLogTest, JournaldFindsEachEntryBySourcePriorityAndEventId) {
  if (::geteuid() != 0) GTEST_SKIP() << "a journald instance of the test's own needs root";
  if (!fs::exists(JournalNamespace::kDaemon)) GTEST_SKIP() << "systemd-journald is not installed";
  JournalNamespace journal;
  ASSERT_TRUE(fs::exists(journal.SocketFolder() + "/socket")) << "journald did not start";
  ManualClock clock(kWhen);
  test::TempDir dir;
  test::DatagramReceiver socket(dir / "log.sock");
  // The test's socket stands at /dev/log too: what the journal took must not arrive there again.
  const auto written = test::RunWithMounts(
      {{journal.SocketFolder(), "/run/systemd/journal"}, {dir / "log.sock", "/dev/log"}}, [&] {
        ::unsetenv("TARNWICK_SYSLOG_SOCKET");
        modAppLog toJournal(clock);
        for (const auto& kind : Kinds()) kind.write(toJournal);
        // A socket named in the environment takes the entries even where a journal listens.
        ::setenv("TARNWICK_SYSLOG_SOCKET", (dir / "log.sock").c_str(), 1);
        modAppLog toSocket(clock);
        Kinds()[2].write(toSocket);
        return 0;
      });
  if (!written) GTEST_SKIP() << "no mount namespace of our own: unshare is not allowed here";
  ASSERT_EQ(0, *written);
  EXPECT_EQ("Tarnwick 1002", test::SyslogSourceAndId(socket.Receive().value_or("nothing")));
  EXPECT_EQ(std::nullopt, socket.Receive(200));

  ASSERT_TRUE(test::WaitUntil([&] { return journal.Entries({"-t", "SmallBusinessServer"}).size() == 4; }));
  auto entries = journal.Entries({"-t", "Tarnwick"});
  EXPECT_EQ((std::vector<std::string>{"1000", "1001", "1002"}), EventIds(entries));
  const auto sbs = journal.Entries({"-t", "SmallBusinessServer"});
  entries.insert(entries.end(), sbs.begin(), sbs.end());
  ASSERT_EQ(Kinds().size(), entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    const Kind& kind = Kinds()[i];
    const auto& e = entries[i];
    SCOPED_TRACE(e.dump());
    EXPECT_EQ(kind.source, e.value("SYSLOG_IDENTIFIER", ""));
    EXPECT_EQ(std::to_string(kind.eventId), e.value("TARNWICK_EVENT_ID", ""));
    EXPECT_EQ(std::to_string(kind.priority), e.value("PRIORITY", ""));
    EXPECT_EQ("3", e.value("SYSLOG_FACILITY", ""));
    EXPECT_EQ(std::to_string(kind.eventType), e.value("TARNWICK_EVENT_TYPE", ""));
    EXPECT_EQ(std::to_string(kind.category), e.value("TARNWICK_CATEGORY", ""));
    // journalctl writes a field that is not plain text as an array of bytes.
    EXPECT_EQ(nlohmann::json(kind.message), e.value("MESSAGE", nlohmann::json()));
  }
  EXPECT_EQ((std::vector<std::string>{"1001"}), EventIds(journal.Entries({"TARNWICK_EVENT_ID=1001"})));
  EXPECT_EQ((std::vector<std::string>{"5634", "3222279682"}),
            EventIds(journal.Entries({"-t", "SmallBusinessServer", "-p", "err"})));

  fs::create_directory(dir / "no-journal");
  const auto fallen = test::RunWithMounts(
      {{dir / "no-journal", "/run/systemd/journal"}, {dir / "log.sock", "/dev/log"}}, [&] {
        ::unsetenv("TARNWICK_SYSLOG_SOCKET");
        modAppLog appLog(clock);
        Kinds()[1].write(appLog);
        return 0;
      });
  ASSERT_EQ(0, fallen.value_or(-1));
  EXPECT_EQ("Tarnwick 1001", test::SyslogSourceAndId(socket.Receive().value_or("nothing")));
}

}  // namespace
}  // namespace tw
