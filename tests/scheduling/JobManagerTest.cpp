#include <gtest/gtest.h>

#include "common/Error.h"
#include "scheduling/clsCurrentJobManager.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

class JobManagerTest : public ::testing::Test {
 protected:
  test::TempDir dir_;
  TWSettings settings_{dir_ / "settings.db"};
  ManualClock clock_{DateSerial(2026, 11, 23) + TimeSerial(10, 59, 59)};
  clsCurrentJobManager manager_{clock_};
};

TEST_F(JobManagerTest, AJobIsLateAfterItsTimeOutPlusFiveMinuteBoundaries) {
  EXPECT_EQ(0, manager_.JobsRunning());
  EXPECT_FALSE(manager_.JobTimedOut());

  auto record = manager_.AddJob(settings_.General().AddJob("A", "A"));
  EXPECT_EQ(clock_.Now(), record->BackupStartTime);
  EXPECT_EQ("A", record->BackupJob->Name());
  record->BackupTimeout = 0;
  // 10:59:59 to 11:05:00 crosses six minute boundaries in five minutes and a second.
  clock_.Set(DateSerial(2026, 11, 23) + TimeSerial(11, 4, 59));
  EXPECT_FALSE(manager_.JobTimedOut());
  clock_.Set(DateSerial(2026, 11, 23) + TimeSerial(11, 5, 0));
  EXPECT_TRUE(manager_.JobTimedOut());

  record->BackupTimeout = 60;  // late at the first check with 66 boundaries behind it
  clock_.Set(DateSerial(2026, 11, 23) + TimeSerial(12, 4, 59));
  EXPECT_FALSE(manager_.JobTimedOut());
  clock_.Set(DateSerial(2026, 11, 23) + TimeSerial(12, 5, 0));
  EXPECT_TRUE(manager_.JobTimedOut());
}

TEST_F(JobManagerTest, RecordsKeepTheirOrderAndTheFirstLateOneIsFound) {
  auto general = settings_.General();
  auto first = manager_.AddJob(general.AddJob("A", "A"));
  clock_.AdvanceSeconds(60);
  auto second = manager_.AddJob(general.AddJob("B", "B"));
  auto third = manager_.AddJob(general.AddJob("C", "C"));
  first->BackupTimeout = 1000;
  second->BackupTimeout = 0;
  third->BackupTimeout = 0;
  EXPECT_EQ(3, manager_.JobsRunning());
  clock_.AdvanceSeconds(3600);
  EXPECT_TRUE(manager_.JobTimedOut());
  EXPECT_EQ(second, manager_.FirstTimedOutJob());
  manager_.RemoveJob(second);
  EXPECT_EQ(third, manager_.FirstTimedOutJob());
  manager_.RemoveJob(third);
  EXPECT_FALSE(manager_.JobTimedOut());
  EXPECT_EQ(1, manager_.JobsRunning());
  EXPECT_EQ(first, manager_.Jobs().front());
}

TEST_F(JobManagerTest, TheTimeOutSumIs32BitAndOverflowsWithAnError) {
  auto record = manager_.AddJob(settings_.General().AddJob("A", "A"));
  record->BackupTimeout = 2147483642;  // + 5 still fits
  EXPECT_FALSE(manager_.JobTimedOut());
  record->BackupTimeout = 2147483643;
  try {
    manager_.JobTimedOut();
    FAIL() << "no overflow";
  } catch (const TWError& e) {
    EXPECT_EQ(errnum::Overflow, e.Number);
  }
}

}  // namespace
}  // namespace tw
