#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "common/Error.h"
#include "common/NumberText.h"
#include "tests/logging/LogTestFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

using ClsLogsTest = test::LogTestFixture;

TEST_F(ClsLogsTest, FirstEntryGoesIntoTWLog0000ByteForByte) {
  EXPECT_TRUE(Last(1).empty());
  EXPECT_FALSE(fs::exists(dir_ / "Logs")) << "reading makes no folder; the first entry does";
  EXPECT_TRUE(logs_.AddLogSimple(0, "Tarnwick service starting", "The Tarnwick service has been instructed to start",
                                 0, "ignored"));
  EXPECT_FALSE(fs::exists(dir_ / "Logs/Attachments")) << "made by the first attachment";
  EXPECT_EQ("45321.875\tTarnwick service starting\t0\tThe Tarnwick service has been instructed to start\t0\r\n",
            LogFile("TWLog.0000"));
  EXPECT_DOUBLE_EQ(45321.875, settings_.General().Console().LogLastChanged());
  EXPECT_EQ(std::vector<std::string>{"pump"}, pump_.calls) << "an append lets pending events run once";
}

TEST_F(ClsLogsTest, FieldsAreEscapedAndReadBack) {
  // A lone LF or CR (the rights launcher's number, then what a Linux program printed) is escaped
  // too, and the entry reads back as the one it is.
  const std::string message = "1326\r\nTWExecutor: no marker\nsecond\rthird\ttabbed\\n\n\r";
  logs_.AddLogSimple(2, "Copy of C:\\Temp\tfailed", message, 0, "");
  EXPECT_EQ("45321.875\tCopy of C:\\\\Temp\\tfailed\t2\t1326\\nTWExecutor: no marker\\lsecond\\rthird\\ttabbed\\\\n"
            "\\l\\r\t0\r\n",
            LogFile("TWLog.0000"));
  auto entries = Last(1);
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ("Copy of C:\\Temp\tfailed", entries[0].Title);
  EXPECT_EQ(message, entries[0].Message);

  // An older version wrote the lone line feed as it was: the entry still reads as one.
  test::WriteFile(dir_ / "Logs/TWLog.0000", "45321.5\tDesktop rights output\t3\t1326\\nno marker\nend\t0\r\n");
  entries = Last(3);
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ("1326\r\nno marker\nend", entries[0].Message);
}

TEST_F(ClsLogsTest, AFullFileIsNeverAppendedToAndEntriesComeNewestFirstAcrossFiles) {
  // Two writers on one folder (the service and a console) take turns; each follows the other's files.
  clsLogs other{dir_.Path(), settings_, clock_, pump_, [] { return 0.0; }};
  for (int i = 1; i <= 101; ++i) {
    ASSERT_TRUE((i % 2 ? logs_ : other).AddLogSimple(0, std::to_string(i), "", 0, ""));
  }
  auto countLines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
  EXPECT_EQ(100, countLines(LogFile("TWLog.0000")));
  EXPECT_EQ(1, countLines(LogFile("TWLog.0001")));
  const auto newest = Last(3);
  EXPECT_EQ("101", newest.at(0).Title);
  EXPECT_EQ("99", newest.at(2).Title);

  // Asking for more than there is fills what exists and leaves the rest as it was.
  clsLogEntry marker;
  marker.Title = "untouched";
  std::vector<clsLogEntry> all(150, marker);
  logs_.GetLastLogs(150, all);
  EXPECT_EQ("1", all[100].Title);
  EXPECT_EQ("untouched", all[101].Title);
  std::vector<clsLogEntry> tooShort(2);
  EXPECT_THROW(logs_.GetLastLogs(3, tooShort), TWError);
}

TEST_F(ClsLogsTest, NumberingComesFromTheFolderIgnoringStrayNames) {
  fs::create_directory(dir_ / "Logs");
  test::WriteFile(dir_ / "Logs/TWLog.abc", "junk\r\n");
  test::WriteFile(dir_ / "Logs/TWLog.0003.bak", "junk\r\n");
  test::WriteFile(dir_ / "Logs/TWLog.99999999999", "junk\r\n");
  test::WriteFile(dir_ / "Logs/twlog.0007", "45321.5\tolder\t0\t\t0\r\n");
  logs_.AddLogSimple(0, "newest", "", 0, "");
  // twlog.0007 counts as number 7, so the entry goes into file 7.
  EXPECT_EQ("45321.875\tnewest\t0\t\t0\r\n", LogFile("TWLog.0007"));
  EXPECT_FALSE(fs::exists(dir_ / "Logs/TWLog.0000"));

  // Reading steps back over the gap to earlier files.
  test::WriteFile(dir_ / "Logs/TWLog.0002", "45321.25\tearlier\t0\t\t0\r\n");
  const auto read = Last(5);
  ASSERT_EQ(2u, read.size());
  EXPECT_EQ("earlier", read[1].Title);
  // Files that others add or remove later are followed: the numbering carries on from the highest
  // file left, here twlog.0007.
  test::WriteFile(dir_ / "Logs/TWLog.0012", "45321.5\tother writer\t0\t\t0\r\n");
  logs_.AddLogSimple(0, "after", "", 0, "");
  EXPECT_EQ("45321.5\tother writer\t0\t\t0\r\n45321.875\tafter\t0\t\t0\r\n", LogFile("TWLog.0012"));
  fs::remove(dir_ / "Logs/TWLog.0012");
  logs_.AddLogSimple(0, "next", "", 0, "");
  EXPECT_FALSE(fs::exists(dir_ / "Logs/TWLog.0012"));
  EXPECT_EQ("45321.875\tnewest\t0\t\t0\r\n45321.875\tnext\t0\t\t0\r\n", LogFile("TWLog.0007"));
  fs::remove(dir_ / "Logs/TWLog.0007");
  logs_.AddLogSimple(0, "last", "", 0, "");
  EXPECT_EQ("45321.875\tlast\t0\t\t0\r\n", LogFile("TWLog.0007"));
  // Past TWLog.9999 a number has five digits.
  test::WriteFile(dir_ / "Logs/TWLog.10000", "");
  logs_.AddLogSimple(0, "ten thousand", "", 0, "");
  EXPECT_EQ("45321.875\tten thousand\t0\t\t0\r\n", LogFile("TWLog.10000"));

  // A log moved to another folder is numbered from that folder's files.
  fs::create_directory(dir_ / "Moved");
  test::WriteFile(dir_ / "Moved/TWLog.0003", "");
  logs_.LogDirectory(dir_ / "Moved");
  logs_.AddLogSimple(0, "moved", "", 0, "");
  EXPECT_EQ("45321.875\tmoved\t0\t\t0\r\n", test::ReadFile(dir_ / "Moved/TWLog.0003"));
}

TEST_F(ClsLogsTest, TextAttachmentsAreInlineBelow4096BytesAndAPathFromThenOn) {
  logs_.AddLogSimple(0, "small", "", 1, std::string(4095, 'a'));
  clock_.AdvanceSeconds(1);
  logs_.AddLogSimple(0, "large", "", 1, std::string(4096, 'b'));

  auto entries = Last(2);
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ(3, entries[0].AttachmentType);
  EXPECT_EQ(dir_ / ("Logs/Attachments/" + NumberToText(45321.875 + 1.0 / 86400) + ".txt"), entries[0].Attachment);
  EXPECT_EQ(1, entries[1].AttachmentType);
  EXPECT_EQ(std::string(4095, 'a'), entries[1].Attachment);
}

TEST_F(ClsLogsTest, ScreenshotsAreCopiedAndAFailedCopyLeavesItsReason) {
  test::WriteFile(dir_ / "shot.png", "PNG bytes");
  logs_.AddLogSimple(1, "Previous backup process killed", "see picture", 2, dir_ / "shot.png");
  EXPECT_EQ("PNG bytes", test::ReadFile(dir_ / "Logs/Attachments/45321.875.png"));

  clock_.AdvanceSeconds(1);
  const std::string stamp = NumberToText(clock_.Now());
  logs_.AddLogSimple(1, "Backup process timed out", "no picture", 2, "");
  // The line keeps type 2; the ".png" file holds the reason instead of a picture.
  EXPECT_NE(std::string::npos, LogFile("TWLog.0000").find(stamp + "\tBackup process timed out\t1\tno picture\t2\r\n"));
  EXPECT_EQ("A screenshot was captured but could not be saved - No such file or directory",
            test::ReadFile(dir_ / ("Logs/Attachments/" + stamp + ".png")));
}

TEST_F(ClsLogsTest, DetailEntriesNeedDetailedLoggingAndFailuresReturnFalse) {
  // Settings that cannot be read drop a detail entry, without an error.
  test::WriteFile(dir_ / "settings.db", std::string(4096, 'x'));
  EXPECT_FALSE(logs_.AddLogSimple(3, "DesktopRights", "detail", 0, ""));
  fs::remove(dir_ / "settings.db");
  EXPECT_FALSE(logs_.AddLogSimple(3, "DesktopRights", "detail", 0, ""));
  EXPECT_FALSE(fs::exists(dir_ / "Logs/TWLog.0000"));
  settings_.General().Options().DetailedLogging(true);
  EXPECT_TRUE(logs_.AddLogSimple(3, "DesktopRights", "detail", 0, ""));
  EXPECT_EQ("45321.875\tDesktopRights\t3\tdetail\t0\r\n", LogFile("TWLog.0000"));

  logs_.LogDirectory(dir_ / "no/such/folder");
  EXPECT_EQ(dir_ / "no/such/folder/Attachments", logs_.AttachmentDirectory());
  EXPECT_FALSE(logs_.AddLogSimple(0, "lost", "", 0, ""));
}

// An append cut short by a full disk is cut off again: otherwise the next entry would be glued to
// it and both would read back broken.
TEST_F(ClsLogsTest, ALineCutShortIsRemoved) {
  logs_.AddLogSimple(0, "first", "", 0, "");
  const std::string before = LogFile("TWLog.0000");
  rlimit unlimited{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &unlimited));
  rlimit full = unlimited;
  full.rlim_cur = before.size() + 10;  // the disk fills up ten bytes into the next line
  const auto previous = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &full));
  EXPECT_FALSE(logs_.AddLogSimple(0, "cut short", "", 0, ""));
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(before, LogFile("TWLog.0000"));
}

TEST_F(ClsLogsTest, ClearDeletesFilesButKeepsFolders) {
  logs_.AddLogSimple(0, "a", "", 1, "text");
  fs::create_directory(dir_ / "Logs/keep");
  logs_.Clear();
  EXPECT_TRUE(fs::is_empty(dir_ / "Logs/Attachments"));
  EXPECT_TRUE(fs::is_directory(dir_ / "Logs/keep"));
  EXPECT_FALSE(fs::exists(dir_ / "Logs/TWLog.0000"));
  EXPECT_TRUE(Last(5).empty());
}

}  // namespace
}  // namespace tw
