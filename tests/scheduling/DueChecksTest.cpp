#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "common/Error.h"
#include "common/NumberText.h"
#include "scheduling/DueChecks.h"
#include "scheduling/OccurrenceBuilder.h"
#include "tests/logging/LogTestFixture.h"

namespace tw {
namespace {

// A scheme whose answers a test sets and whose questions it reads back. It answers "no" until it
// has been told its job, as a scheme that needs the job's settings could not answer otherwise.
struct SchemeScript {
  bool answer = true;
  std::vector<Date> scheduled, reminders;
};

class ScriptedScheme final : public IScheme {
 public:
  ScriptedScheme(SchemeScript& script, bool failing) : script_(script), failing_(failing) {}
  void AttachJob(const clsJob&) override { attached_ = true; }
  bool ReminderNeeded(Date when) override {
    script_.reminders.push_back(when);
    return attached_ && script_.answer;
  }
  int32_t ScheduledRun(Date when) override {
    script_.scheduled.push_back(when);
    return attached_ && script_.answer ? 1 : 0;
  }
  std::string MediaLabel(Date) override {
    if (failing_) throw TWError(5, "The tape library is offline", "TestScheme");
    return "Tape 7";
  }
  int32_t BackupMethod(Date) override { return backup::kIncremental; }
  int32_t BackupMode(Date) override { return backup::kAppend; }
  bool Eject(Date) override { return false; }

 private:
  SchemeScript& script_;
  bool failing_;
  bool attached_ = false;
};

class DueChecksTest : public test::LogTestFixture {
 protected:
  DueChecksTest() {
    job_.SchemeProgId("Test.Scripted");
    job_.ScheduledTime(TimeSerial(21, 0, 0));
  }

  // Asks `check` every `step` seconds from `start` up to `end`; the moments at which it fired.
  std::vector<Date> Fires(const std::function<bool()>& check, Date start, Date end, double step) {
    std::vector<Date> fired;
    for (clock_.Set(start); clock_.Now() <= end + 1e-9; clock_.AdvanceSeconds(step)) {
      if (check()) fired.push_back(clock_.Now());
    }
    return fired;
  }
  static std::vector<std::string> Stamps(const std::vector<Date>& dates) {
    std::vector<std::string> texts;
    for (Date d : dates) texts.push_back(IsoText(d));
    return texts;
  }

  SchemeScript script_;
  SchemeRegistry schemes_{{
      {"Test.Scripted", "", [this] { return std::make_unique<ScriptedScheme>(script_, false); }},
      {"Test.Failing", "", [this] { return std::make_unique<ScriptedScheme>(script_, true); }},
  }};
  modLogging logging_{logs_, settings_, pump_};
  clsDueChecks checks_{clock_, logging_, schemes_};
  clsJob job_ = settings_.General().AddJob("Nightly", "Nightly");
  const Date monday_ = DateSerial(2026, 11, 23);
};

TEST_F(DueChecksTest, AScheduledTimeFiresOncePerMinuteAndNeverAtItsSecond) {
  auto check = [&] { return checks_.IsScheduledTimeDue(job_); };
  EXPECT_EQ((std::vector<std::string>{"2026-11-23 21:00:05"}),
            Stamps(Fires(check, monday_ + TimeSerial(20, 59, 0), monday_ + TimeSerial(21, 3, 0), 5)));
  EXPECT_EQ((std::vector<std::string>{"2026-11-24 21:00:01"}),
            Stamps(Fires(check, monday_ + 1 + TimeSerial(20, 59, 1), monday_ + 1 + TimeSerial(21, 3, 0), 10)));
  EXPECT_DOUBLE_EQ(monday_ + 1 + TimeSerial(21, 0, 0), job_.ScheduleLastFired());
  // Ticks that land only on whole minutes never see the window.
  EXPECT_TRUE(Fires(check, monday_ + 2 + TimeSerial(20, 58, 0), monday_ + 2 + TimeSerial(21, 3, 0), 60).empty());
  EXPECT_EQ(2u, script_.scheduled.size());
  // A time with seconds has its window run on into the next minute.
  job_.ScheduledTime(TimeSerial(21, 0, 30));
  EXPECT_EQ((std::vector<std::string>{"2026-11-26 21:01:05"}),
            Stamps(Fires(check, monday_ + 3 + TimeSerial(21, 0, 25), monday_ + 3 + TimeSerial(21, 3, 0), 40)));
  // The window is shorter where the day ends first.
  EXPECT_EQ(59, clsDueChecks::WindowSeconds(TimeSerial(21, 0, 30)));
  EXPECT_EQ(9, clsDueChecks::WindowSeconds(TimeSerial(23, 59, 50)));
}

TEST_F(DueChecksTest, ARunAtOrBeforeSixBelongsToThePreviousDay) {
  const std::pair<Date, Date> cases[] = {
      {TimeSerial(6, 0, 0), monday_ - 1},
      {TimeSerial(2, 0, 0), monday_ - 1},
      {TimeSerial(6, 1, 0), monday_},
  };
  for (const auto& [time, expectedDay] : cases) {
    script_.scheduled.clear();
    job_.ScheduledTime(time);
    job_.ScheduleLastFired(0);
    clock_.Set(monday_ + time + TimeSerial(0, 0, 5));
    EXPECT_TRUE(checks_.IsScheduledTimeDue(job_));
    ASSERT_EQ(1u, script_.scheduled.size());
    EXPECT_EQ(IsoText(expectedDay + time + TimeSerial(0, 0, 5)), IsoText(script_.scheduled[0]));
  }
  // The scheme's "no" still uses up the minute.
  script_.answer = false;
  job_.ScheduleLastFired(0);
  clock_.Set(monday_ + 1 + TimeSerial(6, 1, 5));
  EXPECT_FALSE(checks_.IsScheduledTimeDue(job_));
  EXPECT_DOUBLE_EQ(monday_ + 1 + TimeSerial(6, 1, 0), job_.ScheduleLastFired());
}

TEST_F(DueChecksTest, RemindersFireInTheirWindowAsTheSchemeDecides) {
  auto notification = job_.JobNotification();
  notification.ReminderTime(TimeSerial(2, 0, 0));
  auto check = [&] { return checks_.IsReminderDue(job_); };
  EXPECT_TRUE(Fires(check, monday_ + TimeSerial(1, 59, 0), monday_ + TimeSerial(2, 2, 0), 5).empty())
      << "both reminder switches are off";
  notification.MediaReminderByBroadcast(true);
  EXPECT_EQ((std::vector<std::string>{"2026-11-23 02:00:05"}),
            Stamps(Fires(check, monday_ + TimeSerial(1, 59, 0), monday_ + TimeSerial(2, 2, 0), 5)));
  EXPECT_EQ(IsoText(monday_ + TimeSerial(2, 0, 5)), IsoText(script_.reminders.at(0)));

  script_.answer = false;
  EXPECT_TRUE(Fires(check, monday_ + 1 + TimeSerial(1, 59, 0), monday_ + 1 + TimeSerial(2, 2, 0), 5).empty());
  EXPECT_EQ(2u, script_.reminders.size()) << "the scheme is asked once per minute";
  EXPECT_DOUBLE_EQ(monday_ + 1 + TimeSerial(2, 0, 0), notification.ReminderLastFired());

  script_.answer = true;
  EXPECT_EQ((std::vector<std::string>{"2026-11-25 02:00:03"}),
            Stamps(Fires(check, monday_ + 2 + TimeSerial(1, 58, 53), monday_ + 2 + TimeSerial(2, 3, 0), 10)));
  // A last firing exactly a minute before the reminder time still counts as this minute's.
  notification.ReminderLastFired(monday_ + 3 + TimeSerial(1, 59, 0));
  clock_.Set(monday_ + 3 + TimeSerial(2, 0, 30));
  EXPECT_FALSE(checks_.IsReminderDue(job_));
  notification.ReminderLastFired(monday_ + 3 + TimeSerial(1, 58, 59));
  EXPECT_TRUE(checks_.IsReminderDue(job_));
}

TEST_F(DueChecksTest, MaintenanceFiresOnTheFirstTickOfItsMinute) {
  auto notification = job_.JobNotification();
  notification.MaintenanceEmailEnabled(true);
  notification.MaintenanceOccurrence(WeeklyOccurrence("mon@21:00"));
  auto check = [&] { return checks_.IsMaintenanceDue(job_); };
  EXPECT_EQ((std::vector<std::string>{"2026-11-23 21:00:00"}),
            Stamps(Fires(check, monday_ + TimeSerial(20, 59, 50), monday_ + TimeSerial(21, 2, 0), 5)));
  EXPECT_DOUBLE_EQ(monday_ + TimeSerial(21, 0, 0), notification.MaintenanceLastFired());

  // A match exactly a minute after the last firing does not fire; two minutes after does.
  notification.MaintenanceOccurrence(SpecificOccurrence("2026-11-24 21:00,2026-11-24 21:01,2026-11-24 21:03"));
  EXPECT_EQ((std::vector<std::string>{"2026-11-24 21:00:00", "2026-11-24 21:03:00"}),
            Stamps(Fires(check, monday_ + 1 + TimeSerial(20, 59, 0), monday_ + 1 + TimeSerial(21, 5, 0), 10)));
}

TEST_F(DueChecksTest, EveryCheckFiresOnceAcrossMidnight) {
  // Ticks at the last half second of Monday and on into Tuesday: each check takes the date and the
  // time of day from one rounding of the clock.
  auto notification = job_.JobNotification();
  notification.MaintenanceEmailEnabled(true);
  notification.MaintenanceOccurrence(WeeklyOccurrence("tue@00:00"));
  notification.MediaReminderByEmail(true);
  notification.ReminderTime(0);
  job_.ScheduledTime(0);
  const Date from = monday_ + TimeSerial(23, 59, 39) + 0.6 / kSecondsPerDay;
  const Date to = monday_ + 1 + TimeSerial(0, 2, 0);
  EXPECT_EQ((std::vector<std::string>{"2026-11-24 00:00:00"}),
            Stamps(Fires([&] { return checks_.IsMaintenanceDue(job_); }, from, to, 10)));
  EXPECT_DOUBLE_EQ(monday_ + 1, notification.MaintenanceLastFired());
  EXPECT_EQ((std::vector<std::string>{"2026-11-24 00:00:10"}),
            Stamps(Fires([&] { return checks_.IsReminderDue(job_); }, from, to, 10)));
  EXPECT_EQ((std::vector<std::string>{"2026-11-24 00:00:10"}),
            Stamps(Fires([&] { return checks_.IsScheduledTimeDue(job_); }, from, to, 10)));
  EXPECT_DOUBLE_EQ(monday_ + 1, job_.ScheduleLastFired());
}

TEST_F(DueChecksTest, ABrokenMaintenanceScheduleIsLoggedOnEveryTick) {
  auto notification = job_.JobNotification();
  notification.MaintenanceEmailEnabled(true);
  for (const std::string broken : {"", "x", "1|0.875|0,1"}) {
    notification.MaintenanceOccurrence(broken);
    clock_.Set(monday_ + TimeSerial(21, 0, 0));
    EXPECT_FALSE(checks_.IsMaintenanceDue(job_));
    clock_.AdvanceSeconds(10);
    EXPECT_FALSE(checks_.IsMaintenanceDue(job_));
  }
  const auto entries = Last(10);
  ASSERT_EQ(6u, entries.size());
  for (const auto& entry : entries) {
    EXPECT_EQ(1, entry.LogType);
    EXPECT_EQ("Maintenance scheduling not set up correctly", entry.Title);
    EXPECT_EQ("Please check the maintenance scheduling setup for the backup job: Nightly", entry.Message);
    EXPECT_EQ(0, entry.AttachmentType);
  }
}

TEST_F(DueChecksTest, SchemeFailuresAreTrappedUnderTheirCodes) {
  const Date when = monday_ + TimeSerial(21, 0, 5);
  EXPECT_EQ("Tape 7", checks_.GetSchemeMediaValues(job_, when).Label);
  EXPECT_TRUE(Last(1).empty());

  job_.SchemeProgId("Test.Failing");
  const MediaValues failed = checks_.GetSchemeMediaValues(job_, when);
  EXPECT_EQ("Unknown", failed.Label);
  EXPECT_EQ(0, failed.Method);
  EXPECT_EQ(0, failed.Mode);
  EXPECT_TRUE(failed.Eject);
  EXPECT_EQ("Internal error #20016 - please submit a diagnostics report to support@tarnwick.example", Last(1)[0].Title);
  EXPECT_NE(std::string::npos, Last(1)[0].Message.find("  Error number: 5\r\n  Error description: The tape library is "
                                                       "offline\r\n  Error source: TestScheme"));
  EXPECT_EQ("Unknown", checks_.GetSchemeLabel(job_, when));

  job_.SchemeProgId("TWSchemes.Nope");
  clock_.Set(when);
  EXPECT_FALSE(checks_.IsScheduledTimeDue(job_));
  EXPECT_EQ("Internal error #20013 - please submit a diagnostics report to support@tarnwick.example", Last(1)[0].Title);
  EXPECT_NE(std::string::npos, Last(1)[0].Message.find("Error description: Unknown media scheme \"TWSchemes.Nope\""));
  EXPECT_DOUBLE_EQ(monday_ + TimeSerial(21, 0, 0), job_.ScheduleLastFired()) << "the minute is used up all the same";
  EXPECT_FALSE(checks_.InvokeSchemeReminder(job_, when));
  EXPECT_EQ(0u, Last(1)[0].Title.find("Internal error #20018 - "));

  // A job whose stored values cannot be read is reported by the check itself.
  settings_.Store().SetJobText(job_.Id(), JobField::Suspended, "maybe");
  EXPECT_FALSE(checks_.IsScheduledTimeDue(job_));
  EXPECT_EQ(0u, Last(1)[0].Title.find("Internal error #20001 - "));
  EXPECT_FALSE(checks_.IsReminderDue(job_));
  EXPECT_FALSE(checks_.IsMaintenanceDue(job_));
  EXPECT_EQ(0u, Last(1)[0].Title.find("Internal error #20002 - "));
}

TEST_F(DueChecksTest, TheJobsLeftOutOfTheChecksAreNeverDue) {
  auto general = settings_.General();
  auto add = [&](const std::string& name, Date time) {
    clsJob job = general.AddJob(name, name);
    job.SchemeProgId("Test.Scripted");
    job.ScheduledTime(time);
    return job;
  };
  // Index 0 is job_, at 21:00.
  add("Reminder", TimeSerial(3, 0, 0)).JobNotification().MediaReminderByEmail(true);  // 1
  clsJob suspended = add("Suspended", TimeSerial(21, 0, 0));  // 2
  suspended.Suspended(true);
  suspended.JobNotification().MediaReminderByBroadcast(true);
  add("Maintenance", TimeSerial(10, 0, 0)).JobNotification().MaintenanceOccurrence(WeeklyOccurrence("mon@21:01"));  // 3
  add("Broken schedule", TimeSerial(10, 0, 0)).JobNotification().MaintenanceOccurrence("x");  // 4
  // Values that do not read: the check of the job reports them.
  const std::pair<const char*, JobField> unreadable[] = {{"Unreadable", JobField::Suspended},
                                                         {"Unreadable time", JobField::ScheduledTime},
                                                         {"Unreadable reminder", JobField::MediaReminderByEmail},
                                                         {"Unreadable maintenance", JobField::MaintenanceEmailEnabled}};
  for (const auto& [name, field] : unreadable) {
    settings_.Store().SetJobText(add(name, TimeSerial(10, 0, 0)).Id(), field, "maybe");  // 5 to 8
  }
  for (int i : {0, 1, 2}) general.JobByIndex(i).JobNotification().ReminderTime(TimeSerial(20, 0, 0));
  // The suspended job's maintenance schedule does not read either, and is not even warned about.
  for (int i : {2, 3, 4}) general.JobByIndex(i).JobNotification().MaintenanceEmailEnabled(true);

  auto mayBeDue = [&] { return checks_.JobsThatMayBeDue(general.JobTimings()); };
  clock_.Set(monday_ + TimeSerial(12, 0, 30));
  EXPECT_EQ((std::vector<int32_t>{4, 5, 6, 7, 8}), mayBeDue()) << "only the jobs whose checks report something";

  // Around every window: a job left out is one whose checks neither fire nor log anything.
  std::set<std::pair<int32_t, std::string>> fired;
  for (const Date from : {monday_ + TimeSerial(2, 59, 30), monday_ + TimeSerial(19, 59, 30),
                          monday_ + TimeSerial(20, 59, 30)}) {
    for (clock_.Set(from); clock_.Now() < from + TimeSerial(0, 3, 0); clock_.AdvanceSeconds(10)) {
      const std::vector<int32_t> candidates = mayBeDue();
      const std::vector<clsLogEntry> before = Last(1);
      for (int32_t i = 0; i < general.JobCount(); ++i) {
        if (std::find(candidates.begin(), candidates.end(), i) != candidates.end()) continue;
        clsJob job = general.JobByIndex(i);
        EXPECT_FALSE(checks_.IsReminderDue(job) || checks_.IsScheduledTimeDue(job) || checks_.IsMaintenanceDue(job))
            << job.Name() << " at " << IsoText(clock_.Now());
        const std::vector<clsLogEntry> after = Last(1);
        EXPECT_TRUE(before.size() == after.size() && (before.empty() || before[0].Timestamp == after[0].Timestamp))
            << job.Name() << " logged at " << IsoText(clock_.Now());
      }
      for (const int32_t i : candidates) {
        clsJob job = general.JobByIndex(i);
        const std::string when = IsoText(clock_.Now());
        if (checks_.IsReminderDue(job)) fired.emplace(i, "reminder " + when);
        if (checks_.IsScheduledTimeDue(job)) fired.emplace(i, "run " + when);
        if (checks_.IsMaintenanceDue(job)) fired.emplace(i, "maintenance " + when);
      }
    }
  }
  EXPECT_EQ((std::set<std::pair<int32_t, std::string>>{{1, "run 2026-11-23 03:00:10"},
                                                         {1, "reminder 2026-11-23 20:00:10"},
                                                         {0, "run 2026-11-23 21:00:10"},
                                                         {3, "maintenance 2026-11-23 21:01:00"}}),
            fired);
}

}  // namespace
}  // namespace tw
