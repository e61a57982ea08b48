#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Utf16.h"
#include "reporting/clsReportLogs.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// The error `action` raises, as "NUMBER: DESCRIPTION".
std::string ErrorOf(const std::function<void()>& action) {
  const TWError error = test::ErrorFrom(action);
  return std::to_string(error.Number) + ": " + error.Description;
}

class ReportLogsTest : public ::testing::Test {
 protected:
  // The file names of the reports listed, newest first.
  std::vector<std::string> Names(int32_t count = 0, std::vector<std::string>* skipped = nullptr) {
    std::vector<std::string> names;
    for (const auto& entry : reports_.GetSummaries(count, skipped)) {
      names.push_back(fs::path(entry.Filename()).filename());
    }
    return names;
  }

  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{45321.9};
  clsReportLogs reports_{dir_.Path(), settings_, clock_, [] { return 0.0; }};
};

TEST_F(ReportLogsTest, TheFileFormatByteForByte) {
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
  entry.NewFile(dir_.Path() + "/", 45321.875, 0);
  ASSERT_TRUE(entry.Save());
  const std::string expected =
      "45321.875\r\n45321.8753240741\r\nNightly\r\nServers\x01" "and desktops\r\n2\r\nDaily-Mon\r\nserver1\r\n2\r\n"
      "Sources\r\n/srv\r\nTape\r\nDLT\x01" "7\r\nTarnwick backup report\r\n\r\nErrors: 1\r\n\r\n";
  EXPECT_EQ(Utf16FileBytes(expected), test::ReadFile(entry.Filename()));

  clsReportLogEntry back;
  ASSERT_TRUE(back.Load(entry.Filename()));
  EXPECT_TRUE(back.FullyLoaded());
  EXPECT_EQ("DLT\r\n7", back.ExtraField("Tape"));
  EXPECT_EQ("Errors", back.StatusString());
  back.NewFile(dir_.Path(), 1, 0);
  ASSERT_TRUE(back.Save());
  EXPECT_EQ(test::ReadFile(entry.Filename()), test::ReadFile(back.Filename())) << "every field read back";

  // Written where "," is the decimal point, the times read the same.
  WriteUnicodeFile(dir_ / "comma.log", "45321,875\r\n45321,9\r\nJob\r\n\r\n0\r\n\r\n\r\n0\r\n");
  ASSERT_TRUE(back.Load(dir_ / "comma.log"));
  EXPECT_DOUBLE_EQ(45321.875, back.TimeStart);
  EXPECT_EQ("", back.Report) << "an empty body reads as empty";
  EXPECT_TRUE(back.ExtraFieldKeys().empty()) << "nothing left of the report read before";
  EXPECT_EQ("Normal", back.StatusString());

  // Older versions wrote a lone line feed or carriage return of a description or label as it was.
  WriteUnicodeFile(dir_ / "old.log",
                   "45321.875\r\n45321.9\r\nJob\r\nFront\ndesk\r\n2\r\nDisk\rA\r\nserver1\r\n0\r\nText\n");
  ASSERT_TRUE(back.Load(dir_ / "old.log"));
  EXPECT_EQ("Front\ndesk", back.JobDesc);
  EXPECT_EQ("Disk\rA", back.Label);
  EXPECT_EQ("Text\n", back.Report);
}

TEST_F(ReportLogsTest, NamesAndFailures) {
  clsReportLogEntry entry;
  EXPECT_FALSE(entry.Load("")) << "no file name at all";
  EXPECT_FALSE(entry.QuickLoad(""));
  entry.NewFile("", 45321.875, 0.5);
  EXPECT_EQ(NumberToText(45321.875 + 0.5 / 86400 / 2) + ".log", entry.Filename());

  WriteUnicodeFile(dir_ / "short.log", "45321.875\r\n45321.9\r\nJob\r\n");
  EXPECT_EQ("62: Input past end of file", ErrorOf([&] { entry.Load(dir_ / "short.log"); }));
  EXPECT_EQ("53: File not found: " + (dir_ / "missing.log"), ErrorOf([&] { entry.Load(dir_ / "missing.log"); }));
  // QuickLoad as it stands: it forgets the extra fields, empties the file and then fails.
  entry.ExtraField("Tape", "7");
  EXPECT_EQ("54: Bad file mode", ErrorOf([&] { entry.QuickLoad(dir_ / "short.log"); }));
  EXPECT_EQ(std::string("\xFF\xFE", 2), test::ReadFile(dir_ / "short.log"));
  EXPECT_TRUE(entry.ExtraFieldKeys().empty());
}

TEST_F(ReportLogsTest, SummariesComeNewestFirstWithinTheirLimitAndFollowChanges) {
  EXPECT_TRUE(Names().empty());
  EXPECT_FALSE(fs::exists(dir_ / "Reports")) << "the first report makes the folder; listing does not";
  // Runs launched together end together: rather than take an earlier report's name when the
  // random part draws alike, a report moves on a millisecond.
  clsReportLogEntry entry;
  for (int i = 0; i < 3; ++i) reports_.SaveNewEntry(entry);
  EXPECT_DOUBLE_EQ(clock_.Now(), settings_.General().Console().LatestReportTime());
  const auto later = [](int ms) { return NumberToText(45321.9 + ms / 86400.0 / 1000) + ".log"; };
  // Upper case counts; a backup copy does not; a corrupt file (even one named only ".log") is left
  // out and named.
  fs::copy_file(entry.Filename(), dir_ / "Reports/45000.5.LOG");
  fs::copy_file(entry.Filename(), dir_ / "Reports/99999.5.log.bak");
  test::WriteFile(dir_ / "Reports/.log", "garbage");
  EXPECT_EQ((std::vector<std::string>{later(2), later(1), "45321.9.log", "45000.5.LOG"}), Names());
  std::vector<std::string> skipped;
  EXPECT_EQ(4u, Names(10, &skipped).size()) << "more than there are: all of them";
  EXPECT_EQ((std::vector<std::string>{".log: Input past end of file"}), skipped);
  EXPECT_EQ((std::vector<std::string>{later(2), later(1)}), Names(2));
  EXPECT_TRUE(Names(-1).empty());
  EXPECT_EQ(1, clsReportLogs::IComparator_Compare("a", "b"));
  EXPECT_EQ(0, clsReportLogs::IComparator_Compare("a", "a"));
  EXPECT_EQ(-1, clsReportLogs::IComparator_Compare("b", "a"));

  // Between two listings another program (the service) adds a report and writes it again in place,
  // and the administrator deletes, renames and copies.
  SystemClock clock;
  clsReportLogs other(dir_.Path(), settings_, clock, [] { return 0.0; });
  other.SaveNewEntry(entry);
  entry.Save();
  const std::string newest = fs::path(entry.Filename()).filename();
  fs::remove(dir_ / ("Reports/" + later(2)));
  fs::rename(dir_ / ("Reports/" + later(1)), dir_ / "Reports/kept.log.old");
  fs::copy_file(dir_ / "Reports/45000.5.LOG", dir_ / "Reports/45000.6.log");
  EXPECT_EQ((std::vector<std::string>{newest, "45321.9.log", "45000.6.log", "45000.5.LOG"}), Names());
  EXPECT_EQ((std::vector<std::string>{newest}), Names(1));
  fs::rename(dir_ / "Reports/kept.log.old", dir_ / ("Reports/" + later(1)));
  EXPECT_EQ((std::vector<std::string>{newest, later(1), "45321.9.log", "45000.6.log", "45000.5.LOG"}), Names());

  // A folder removed and made again is read afresh, with nothing left of the one before.
  fs::remove_all(dir_ / "Reports");
  fs::create_directory(dir_ / "Reports");
  other.SaveNewEntry(entry);
  skipped.clear();
  EXPECT_EQ((std::vector<std::string>{fs::path(entry.Filename()).filename()}), Names(0, &skipped));
  EXPECT_TRUE(skipped.empty());
  test::WriteFile(dir_ / "Reports/99999.5.log.bak", "");
  other.Clear();
  EXPECT_TRUE(Names().empty());
  EXPECT_TRUE(fs::exists(dir_ / "Reports/99999.5.log.bak"));
  reports_.ReportLogsDirectory(dir_ / "settings.db");
  EXPECT_EQ("76: Path not found: " + (dir_ / "settings.db"), ErrorOf([&] { reports_.GetSummaries(0); }));
}

}  // namespace
}  // namespace tw
