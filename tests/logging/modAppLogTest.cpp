#include "logging/modAppLog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <unistd.h>

#include "tests/support/TestSupport.h"

namespace tw {
namespace {

const Date kWhen = DateSerial(2026, 11, 23) + TimeSerial(21, 0, 0);

TEST(ModAppLogTest, DatagramsAreRfc5424WithTheEventInStructuredData) {
  test::ScopedTimeZone utc("UTC");
  SyslogEntry entry;
  entry.appName = "Tarnwick";
  entry.eventType = eventtype::Warning;
  entry.eventId = 1002;
  entry.text = "\r\n\r\nThe report";
  entry.time = kWhen;
  entry.host = "server1";
  entry.processId = 4242;
  EXPECT_EQ("<28>1 2026-11-23T21:00:00.000000+00:00 server1 Tarnwick 4242 1002 "
            "[tarnwick@32473 eventID=\"1002\" eventType=\"2\" category=\"0\"] \r\n\r\nThe report",
            FormatSyslogDatagram(entry));

  entry.appName = "SmallBusinessServer";
  entry.eventType = eventtype::Error;
  entry.eventId = 0xC0101602u;
  entry.category = 5;
  entry.text.reset();
  EXPECT_EQ("<27>1 2026-11-23T21:00:00.000000+00:00 server1 SmallBusinessServer 4242 3222279682 "
            "[tarnwick@32473 eventID=\"3222279682\" eventType=\"1\" category=\"5\"]",
            FormatSyslogDatagram(entry));

  entry.text = std::string(100000, 'r');
  EXPECT_LT(FormatSyslogDatagram(entry).size(), 61000u) << "an over-long report is cut, not lost";
}

TEST(ModAppLogTest, EachWriterSendsOneDatagramWithItsTypeAndId) {
  test::TempDir dir;
  test::DatagramReceiver receiver(dir / "log.sock");
  ManualClock clock(kWhen);
  modAppLog appLog(clock, dir / "log.sock");

  struct Case {
    std::function<void()> write;
    std::string expectedStart;
    std::string expectedEnd;
  };
  const std::vector<Case> cases = {
      {[&] { appLog.WriteEventLog("\r\n\r\nAll done", eventtype::Information, 1000); }, "<30>1 ",
       " Tarnwick " + std::to_string(::getpid()) +
           " 1000 [tarnwick@32473 eventID=\"1000\" eventType=\"4\" category=\"0\"] \r\n\r\nAll done"},
      {[&] { appLog.WriteEventLog("failed", eventtype::Error, 1001); }, "<27>1 ",
       " 1001 [tarnwick@32473 eventID=\"1001\" eventType=\"1\" category=\"0\"] failed"},
      {[&] { appLog.WriteSbsEventLog(true, "Tarnwick job A completed normally.", true); }, "<30>1 ",
       " 5633 [tarnwick@32473 eventID=\"5633\" eventType=\"4\" category=\"5\"] Tarnwick job A completed normally."},
      {[&] { appLog.WriteSbsEventLog(false, "Tarnwick job A failed.", true); }, "<27>1 ",
       " 5634 [tarnwick@32473 eventID=\"5634\" eventType=\"1\" category=\"5\"] Tarnwick job A failed."},
      {[&] { appLog.WriteSbsEventLog(true, "ignored", false); }, "<30>1 ",
       " 1074796033 [tarnwick@32473 eventID=\"1074796033\" eventType=\"4\" category=\"5\"]"},
      {[&] { appLog.WriteSbsEventLog(false, "ignored", false); }, "<27>1 ",
       " 3222279682 [tarnwick@32473 eventID=\"3222279682\" eventType=\"1\" category=\"5\"]"},
  };
  for (const auto& c : cases) {
    c.write();
    const auto datagram = receiver.Receive();
    ASSERT_TRUE(datagram);
    EXPECT_EQ(0u, datagram->find(c.expectedStart)) << *datagram;
    ASSERT_GE(datagram->size(), c.expectedEnd.size());
    EXPECT_EQ(c.expectedEnd, datagram->substr(datagram->size() - c.expectedEnd.size())) << *datagram;
  }
}

TEST(ModAppLogTest, ASyslogThatIsNotThereIsSilent) {
  ManualClock clock(kWhen);
  modAppLog appLog(clock, "/nonexistent/log.sock");
  EXPECT_NO_THROW(appLog.WriteEventLog("text", eventtype::Information, 1000));
  EXPECT_NO_THROW(appLog.WriteSbsEventLog(false, "text", true));
}

// The datagrams as a real rsyslog daemon parses them.
TEST(ModAppLogTest, RsyslogReadsSourceEventAndText) {
  const std::string daemon = "/usr/sbin/rsyslogd";
  if (!std::filesystem::exists(daemon)) GTEST_SKIP() << "rsyslog is not installed";
  test::TempDir dir;
  test::WriteFile(dir / "rsyslog.conf",
                  "global(workDirectory=\"" + dir.Path() + "\")\n"
                  "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                  "input(type=\"imuxsock\" Socket=\"" + (dir / "log.sock") +
                      "\" UseSpecialParser=\"off\" ParseHostname=\"on\")\n"
                      "template(name=\"tw\" type=\"string\" "
                      "string=\"%app-name%|%msgid%|%structured-data%|%syslogseverity-text%|%msg%\\n\")\n"
                      "*.* action(type=\"omfile\" file=\"" + (dir / "out.log") + "\" template=\"tw\")\n");
  ASSERT_EQ(0, std::system((daemon + " -f " + (dir / "rsyslog.conf") + " -i " + (dir / "pid")).c_str()));
  for (int i = 0; i < 100 && !std::filesystem::exists(dir / "log.sock"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ManualClock clock(kWhen);
  modAppLog appLog(clock, dir / "log.sock");
  appLog.WriteEventLog("\r\n\r\nJob Nightly: 12 files", eventtype::Warning, 1002);
  appLog.WriteSbsEventLog(true, "Tarnwick job Nightly completed normally.", true);

  const std::string expected =
      "Tarnwick|1002|[tarnwick@32473 eventID=\"1002\" eventType=\"2\" category=\"0\"]|warning|"
      "#015#012#015#012Job Nightly: 12 files\n"
      "SmallBusinessServer|5633|[tarnwick@32473 eventID=\"5633\" eventType=\"4\" category=\"5\"]|info|"
      "Tarnwick job Nightly completed normally.\n";
  std::string got;
  for (int i = 0; i < 150 && got != expected; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    got = test::ReadFile(dir / "out.log");
  }
  std::system(("kill $(cat " + (dir / "pid") + ")").c_str());
  EXPECT_EQ(expected, got);
}

}  // namespace
}  // namespace tw
