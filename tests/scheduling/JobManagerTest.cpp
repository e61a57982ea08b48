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
  EXPECT_FALSE(manager_.JobTimedOut());
  auto record = manager_.AddJob(settings_.General().AddJob("A", "A"));
  EXPECT_EQ(clock_.Now(), record->BackupStartTime);
  EXPECT_EQ("A", record->BackupJob->Name());
  // From 10:59:59, 11:05:00 is the sixth minute boundary, though only five minutes and a second
  // have passed; 12:05:00 is the 66th.
  for (const auto& [timeout, lastOnTime] : {std::pair{0, TimeSerial(11, 4, 59)}, {60, TimeSerial(12, 4, 59)}}) {
    record->BackupTimeout = timeout;
    clock_.Set(DateSerial(2026, 11, 23) + lastOnTime);
    EXPECT_FALSE(manager_.JobTimedOut()) << timeout;
    clock_.AdvanceSeconds(1);
    EXPECT_TRUE(manager_.JobTimedOut()) << timeout;
  }
  // The time-out and the five minutes are added in 32 bits.
  record->BackupTimeout = 2147483642;
  EXPECT_FALSE(manager_.JobTimedOut());
  record->BackupTimeout = 2147483643;
  EXPECT_EQ(errnum::Overflow, test::ErrorFrom([&] { manager_.JobTimedOut(); }).Number);
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
  EXPECT_EQ(second, manager_.FirstTimedOutJob());
  EXPECT_EQ(third, manager_.RunOf(third->BackupJob->Id()));
  // A run that has ended and waits only for its report to be written is not late.
  second->ReportPending = true;
  EXPECT_EQ(third, manager_.FirstTimedOutJob());
  manager_.RemoveJob(second);
  manager_.RemoveJob(third);
  EXPECT_FALSE(manager_.JobTimedOut());
  EXPECT_EQ(1, manager_.JobsRunning());
  EXPECT_EQ(first, manager_.Jobs().front());
  EXPECT_EQ(nullptr, manager_.RunOf(third->BackupJob->Id()));
}

}  // namespace
}  // namespace tw
