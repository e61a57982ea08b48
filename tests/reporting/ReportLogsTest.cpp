#include <gtest/gtest.h>

#include <filesystem>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Utf16.h"
#include "reporting/clsReportLogs.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class ReportLogsTest : public ::testing::Test {
 protected:
  clsReportLogEntry Sample() {
    clsReportLogEntry entry;
    entry.TimeStart = 45321.875;
    entry.TimeEnd = 45321.8753240741;
    entry.JobName = "Nightly";
    entry.JobDesc = "Servers\r\nand desktops";
    entry.Status = 2;
    entry.Label = "Daily-Mon";
    entry.Computer = "server1";
    entry.ExtraField("Sources", "/srv");
    entry.ExtraField("Tape", "DLT\r\n7");
    entry.Report = "Tarnwick backup report\r\n\r\nErrors: 1\r\n\r\n";
    return entry;
  }

  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{45321.9};
  double random_ = 0;
  clsReportLogs reports_{dir_.Path(), settings_, clock_, [this] { return random_; }};
};

TEST_F(ReportLogsTest, TheFileFormatByteForByte) {
  fs::create_directory(dir_ / "Reports");
  clsReportLogEntry entry = Sample();
  entry.NewFile(dir_ / "Reports", 45321.875, 0);
  EXPECT_EQ(dir_ / "Reports/45321.875.log", entry.Filename());
  ASSERT_TRUE(entry.Save());
  const std::string expected =
      "45321.875\r\n45321.8753240741\r\nNightly\r\nServers\x01" "and desktops\r\n2\r\nDaily-Mon\r\nserver1\r\n2\r\n"
      "Sources\r\n/srv\r\nTape\r\nDLT\x01" "7\r\nTarnwick backup report\r\n\r\nErrors: 1\r\n\r\n";
  EXPECT_EQ(Utf16FileBytes(expected), test::ReadFile(entry.Filename()));
  EXPECT_EQ(std::string("\xFF\xFEq\0", 4), Utf16FileBytes("q")) << "UTF-16LE with its byte-order mark";

  clsReportLogEntry back;
  ASSERT_TRUE(back.Load(entry.Filename()));
  EXPECT_TRUE(back.FullyLoaded());
  EXPECT_DOUBLE_EQ(45321.875, back.TimeStart);
  EXPECT_DOUBLE_EQ(45321.8753240741, back.TimeEnd);
  EXPECT_EQ("Servers\r\nand desktops", back.JobDesc);
  EXPECT_EQ("Errors", back.StatusString());
  EXPECT_EQ((std::vector<std::string>{"Sources", "Tape"}), back.ExtraFieldKeys());
  EXPECT_EQ("DLT\r\n7", back.ExtraField("Tape"));
  EXPECT_EQ("", back.ExtraField("Nothing"));
  EXPECT_EQ("Tarnwick backup report\r\n\r\nErrors: 1\r\n\r\n", back.Report) << "the body reads to the end";

  // Written where "," is the decimal point, the times read the same.
  WriteUnicodeFile(dir_ / "comma.log", "45321,875\r\n45321,9\r\nJob\r\n\r\n0\r\n\r\n\r\n0\r\n");
  ASSERT_TRUE(back.Load(dir_ / "comma.log"));
  EXPECT_DOUBLE_EQ(45321.875, back.TimeStart);
  EXPECT_EQ("", back.Report) << "an empty body reads as empty";
  EXPECT_EQ("Normal", back.StatusString());
  back.Status = 3;
  EXPECT_EQ("Warnings", back.StatusString());

  // Older versions wrote a lone line feed or carriage return of a description or label as it was.
  WriteUnicodeFile(dir_ / "old.log",
                   "45321.875\r\n45321.9\r\nJob\r\nFront\ndesk\r\n2\r\nDisk\rA\r\nserver1\r\n0\r\nText\n");
  ASSERT_TRUE(back.Load(dir_ / "old.log"));
  EXPECT_EQ("Front\ndesk", back.JobDesc);
  EXPECT_EQ(2, back.Status);
  EXPECT_EQ("Disk\rA", back.Label);
  EXPECT_EQ("server1", back.Computer);
  EXPECT_EQ("Text\n", back.Report);
}

TEST_F(ReportLogsTest, NamesAndFailures) {
  clsReportLogEntry entry;
  EXPECT_FALSE(entry.Load("")) << "no file name at all";
  entry.NewFile("/var/reports/", 45321.875, 0);
  const std::string withSlash = entry.Filename();
  entry.NewFile("/var/reports", 45321.875, 0);
  EXPECT_EQ(withSlash, entry.Filename());
  entry.NewFile("", 45321.875, 0.5);
  EXPECT_EQ(NumberToText(45321.875 + 0.5 / 86400 / 2) + ".log", entry.Filename());

  WriteUnicodeFile(dir_ / "short.log", "45321.875\r\n45321.9\r\nJob\r\n");
  EXPECT_THROW(entry.Load(dir_ / "short.log"), TWError);
  EXPECT_THROW(entry.Load(dir_ / "missing.log"), TWError);

  // QuickLoad as it stands: it empties the file and then fails.
  clsReportLogEntry saved = Sample();
  saved.NewFile(dir_.Path(), 45321.875, 0);
  saved.Save();
  clsReportLogEntry quick;
  EXPECT_THROW(quick.QuickLoad(saved.Filename()), TWError);
  EXPECT_EQ(std::string("\xFF\xFE", 2), test::ReadFile(saved.Filename()));
}

TEST_F(ReportLogsTest, SummariesComeNewestFirstWithinTheirLimit) {
  EXPECT_TRUE(reports_.GetSummaries(0).empty());
  EXPECT_FALSE(fs::exists(dir_ / "Reports")) << "the first report makes the folder; listing does not";
  clsReportLogEntry entry = Sample();
  for (int i = 0; i < 3; ++i) {
    entry.JobName = "Run " + std::to_string(i);
    clock_.AdvanceSeconds(60);
    reports_.SaveNewEntry(entry);
  }
  EXPECT_DOUBLE_EQ(clock_.Now(), settings_.General().Console().LatestReportTime());
  // Upper case counts; a backup copy does not; a corrupt file is left out.
  fs::copy_file(entry.Filename(), dir_ / "Reports/45000.5.LOG");
  fs::copy_file(entry.Filename(), dir_ / "Reports/99999.5.log.bak");
  test::WriteFile(dir_ / "Reports/1.log", "garbage");

  auto all = reports_.GetSummaries(0);
  ASSERT_EQ(4u, all.size());
  EXPECT_EQ("Run 2", all[0].JobName);
  EXPECT_EQ("Run 1", all[1].JobName);
  EXPECT_EQ("Run 0", all[2].JobName);
  EXPECT_EQ(dir_ / "Reports/45000.5.LOG", all[3].Filename());
  EXPECT_EQ(4u, reports_.GetSummaries(10).size()) << "more than there are: all of them";
  EXPECT_EQ(2u, reports_.GetSummaries(2).size());
  EXPECT_TRUE(reports_.GetSummaries(-1).empty());
  EXPECT_EQ(1, clsReportLogs::IComparator_Compare("a", "b"));
  EXPECT_EQ(-1, clsReportLogs::IComparator_Compare("b", "a"));

  reports_.Clear();
  EXPECT_TRUE(reports_.GetSummaries(0).empty());
  EXPECT_TRUE(fs::exists(dir_ / "Reports/99999.5.log.bak"));
  reports_.ReportLogsDirectory(dir_ / "settings.db");
  EXPECT_THROW(reports_.GetSummaries(0), TWError) << "a folder that cannot be read";
}

TEST_F(ReportLogsTest, RunsEndingInTheSameInstantKeepEveryReport) {
  // Several runs launched together end together; their names must not meet even when the random
  // part draws alike.
  clsReportLogEntry entry = Sample();
  std::vector<std::string> names;
  for (int i = 0; i < 3; ++i) {
    entry.JobName = "Run " + std::to_string(i);
    reports_.SaveNewEntry(entry);
    names.push_back(entry.Filename());
  }
  auto all = reports_.GetSummaries(0);
  ASSERT_EQ(3u, all.size());
  EXPECT_EQ("Run 2", all[0].JobName);
  EXPECT_EQ("Run 1", all[1].JobName);
  EXPECT_EQ("Run 0", all[2].JobName);
  EXPECT_EQ(dir_ / "Reports/45321.9.log", names[0]);
  EXPECT_EQ(dir_ / ("Reports/" + NumberToText(45321.9 + 1.0 / 86400 / 1000) + ".log"), names[1])
      << "a millisecond on";
}

TEST_F(ReportLogsTest, TheListingFollowsChangesMadeBetweenCalls) {
  auto names = [&](int32_t count) {
    std::vector<std::string> found;
    for (const auto& entry : reports_.GetSummaries(count)) found.push_back(fs::path(entry.Filename()).filename());
    return found;
  };
  clsReportLogEntry entry;
  entry.JobName = "Nightly";
  for (int i = 0; i < 3; ++i) {
    clock_.AdvanceSeconds(60);
    reports_.SaveNewEntry(entry);
  }
  const std::vector<std::string> first = names(0);
  ASSERT_EQ(3u, first.size());

  // Another program (the service) adds reports, the administrator deletes, renames and copies.
  SystemClock clock;
  clsReportLogs other(dir_.Path(), settings_, clock, [] { return 0.0; });
  other.SaveNewEntry(entry);
  const std::string newest = fs::path(entry.Filename()).filename();
  fs::remove(dir_ / ("Reports/" + first[0]));
  fs::rename(dir_ / ("Reports/" + first[1]), dir_ / ("Reports/" + first[1] + ".old"));
  fs::copy_file(dir_ / ("Reports/" + first[2]), dir_ / "Reports/45000.5.log");
  test::WriteFile(dir_ / "Reports/notes.txt", "not a report");
  EXPECT_EQ((std::vector<std::string>{newest, first[2], "45000.5.log"}), names(0));
  EXPECT_EQ((std::vector<std::string>{newest}), names(1));

  fs::rename(dir_ / ("Reports/" + first[1] + ".old"), dir_ / ("Reports/" + first[1]));
  EXPECT_EQ((std::vector<std::string>{newest, first[1], first[2], "45000.5.log"}), names(0));
  other.Clear();
  EXPECT_TRUE(names(0).empty());

  // A folder removed and made again is read afresh.
  fs::remove_all(dir_ / "Reports");
  fs::create_directory(dir_ / "Reports");
  other.SaveNewEntry(entry);
  EXPECT_EQ((std::vector<std::string>{fs::path(entry.Filename()).filename()}), names(0));
}

}  // namespace
}  // namespace tw
