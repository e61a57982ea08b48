#include <gtest/gtest.h>

#include "common/Error.h"
#include "scheduling/Schemes.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

class SchemesTest : public ::testing::Test {
 protected:
  std::unique_ptr<IScheme> Attached(const std::string& id) {
    auto scheme = SchemeRegistry::BuiltIn().Create(id);
    scheme->AttachJob(job_);
    return scheme;
  }

  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  clsJob job_ = settings_.General().AddJob("Nightly", "Nightly");
};

TEST_F(SchemesTest, DailyAndWeekdaysUseTheJobsOwnMedia) {
  auto daily = Attached("TWSchemes.Daily");
  auto weekdays = Attached("twschemes.weekdays");  // identifiers compare without regard to case
  const Date saturday = DateSerial(2026, 11, 28);
  const Date monday = DateSerial(2026, 11, 23);
  EXPECT_NE(0, daily->ScheduledRun(saturday));
  EXPECT_EQ(0, weekdays->ScheduledRun(saturday));
  EXPECT_EQ(0, weekdays->ScheduledRun(saturday + 1));
  EXPECT_NE(0, weekdays->ScheduledRun(monday + 0.9));
  EXPECT_TRUE(daily->ReminderNeeded(saturday));
  EXPECT_FALSE(weekdays->ReminderNeeded(saturday));

  EXPECT_EQ("Nightly", daily->MediaLabel(monday)) << "a job without a label uses its name";
  job_.TapeLabel("Disk A");
  job_.BackupMethod(backup::kIncremental);
  job_.BackupMode(backup::kAppend);
  job_.Eject(true);
  EXPECT_EQ("Disk A", weekdays->MediaLabel(monday));
  EXPECT_EQ(backup::kIncremental, weekdays->BackupMethod(monday));
  EXPECT_EQ(backup::kAppend, weekdays->BackupMode(monday));
  EXPECT_TRUE(weekdays->Eject(monday));
}

TEST_F(SchemesTest, GrandfatherFatherSonRotatesDailyWeeklyAndMonthlyMedia) {
  auto gfs = Attached("TWSchemes.GFS");
  struct Day {
    int day;
    bool runs;
    const char* label;
    int32_t method;
    bool eject;
  };
  // November 2026: Fridays on the 6th, 13th, 20th and 27th (the last).
  const Day november[] = {
      {2, true, "Daily-Mon", backup::kIncremental, false}, {5, true, "Daily-Thu", backup::kIncremental, false},
      {6, true, "Weekly-1", backup::kFull, true},          {7, false, "Daily-Mon", backup::kIncremental, false},
      {13, true, "Weekly-2", backup::kFull, true},         {20, true, "Weekly-3", backup::kFull, true},
      {24, true, "Daily-Tue", backup::kIncremental, false}, {27, true, "Monthly-Nov", backup::kFull, true},
  };
  for (const auto& d : november) {
    const Date date = DateSerial(2026, 11, d.day) + 0.875;
    EXPECT_EQ(d.runs, gfs->ScheduledRun(date) != 0) << d.day;
    EXPECT_EQ(d.label, gfs->MediaLabel(date)) << d.day;
    EXPECT_EQ(d.method, gfs->BackupMethod(date)) << d.day;
    EXPECT_EQ(backup::kOverwrite, gfs->BackupMode(date)) << d.day;
    EXPECT_EQ(d.eject, gfs->Eject(date)) << d.day;
  }
  // The medium changes on every working day, Thursday to Friday and Friday to Monday too; at
  // weekends nothing is loaded.
  EXPECT_TRUE(gfs->ReminderNeeded(DateSerial(2026, 11, 23)));
  EXPECT_TRUE(gfs->ReminderNeeded(DateSerial(2026, 11, 27)));
  EXPECT_FALSE(gfs->ReminderNeeded(DateSerial(2026, 11, 28)));
  EXPECT_EQ("Monthly-Dec", gfs->MediaLabel(DateSerial(2026, 12, 25)));
  // A Friday a week before the month's end is not its last; a Friday the 7th is in the first week.
  EXPECT_EQ("Weekly-4", gfs->MediaLabel(DateSerial(2026, 7, 24)));
  EXPECT_EQ("Weekly-1", gfs->MediaLabel(DateSerial(2026, 8, 7)));
}

TEST_F(SchemesTest, AnUnknownIdentifierIsAnError) {
  const TWError error = test::ErrorFrom([] { SchemeRegistry::BuiltIn().Create("TWSchemes.Hourly"); });
  EXPECT_EQ(429, error.Number);
  EXPECT_EQ("Unknown media scheme \"TWSchemes.Hourly\"", error.Description);
  EXPECT_EQ("TWSchemes.GFS", SchemeRegistry::BuiltIn().CanonicalId("twschemes.gfs"));
  EXPECT_EQ("", SchemeRegistry::BuiltIn().CanonicalId("gfs"));
  EXPECT_EQ(3u, SchemeRegistry::BuiltIn().Schemes().size());
}

}  // namespace
}  // namespace tw
