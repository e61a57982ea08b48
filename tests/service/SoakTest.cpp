// A week of the service at work, on a manual clock: fifty jobs with runs, media reminders and
// maintenance e-mails, driven tick by tick through the real frmService, settings store, log
// folder, launch and completion path, and a real SMTP server. What fired is compared with what
// the schedules say should have fired, worked out here independently with the standard calendar;
// and the heap in use after the last day is compared with the heap after the first.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <tuple>

#include "common/NumberText.h"
#include "service/frmService.h"
#include "tests/service/ServiceFakes.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
namespace chr = std::chrono;

// The simulated period starts on Thursday 26 November 2026 at midnight and takes a week, across
// the end of November: the month's last Friday, last weekday and last seven days, then the first
// weekday and the first week of December.
constexpr chr::year_month_day kStart{chr::year{2026}, chr::November, chr::day{26}};
constexpr int kWeek = 7;

// The seconds of each minute at which the test ticks (a tick every ten seconds would cost too
// much): at :00 a run or reminder must not fire yet, and a maintenance mail has its first chance;
// :01 is the first second a run or reminder may fire; :59 would fire it a second time if the
// once-a-minute guard failed, and gives a job with two things due in one minute its second chance,
// since a tick acts on only one thing per job.
constexpr int kTickSeconds[] = {0, 1, 59};

enum class Scheme { Daily, Weekdays, GFS };

// Minutes are counted from the start of the simulated period: At(day, hour, minute).
using Minutes = std::vector<int>;
constexpr int At(int day, int hour, int minute) { return day * 1440 + hour * 60 + minute; }

struct JobPlan {
  std::string name;
  int hour = 0, minute = 0, second = 0;
  Scheme scheme = Scheme::Daily;
  bool reminder = false;  // a media reminder by e-mail
  int reminderHour = 0, reminderMinute = 0;
  std::string maintenance;     // the occurrence string of its maintenance mails
  Minutes maintenanceMinutes;  // and the minutes of the week in which it asks for one
};

chr::sys_days Day(int offset) { return chr::sys_days(kStart) + chr::days(offset); }
bool IsWeekday(chr::sys_days day) {
  const unsigned w = chr::weekday(day).c_encoding();
  return w >= 1 && w <= 5;
}

// The minute `hour`:`minute` of each day whose scheme day, `shift` days before, is one the scheme
// runs on.
Minutes Daily(Scheme scheme, int days, int hour, int minute, int shift) {
  Minutes minutes;
  for (int d = 0; d < days; ++d) {
    if (scheme == Scheme::Daily || IsWeekday(Day(d - shift))) minutes.push_back(At(d, hour, minute));
  }
  return minutes;
}

// A scheduled run falls due once a day, on the days its scheme runs, a job timed at or before
// 06:00 counting as the night of the day before.
Minutes ExpectedRuns(const JobPlan& job, int days) {
  const bool smallHours = job.hour * 3600 + job.minute * 60 + job.second <= 6 * 3600;
  return Daily(job.scheme, days, job.hour, job.minute, smallHours ? 1 : 0);
}

// Reminders go out on the days the scheme runs, judged by the day of sending itself. (Every
// weekday under the grandfather-father-son scheme too, since its medium changes every weekday.)
Minutes ExpectedReminders(const JobPlan& job, int days) {
  return job.reminder ? Daily(job.scheme, days, job.reminderHour, job.reminderMinute, 0) : Minutes{};
}

// Fifty jobs: daily ones at spread times, clusters at 21:00 and 22:00, the small hours up to and
// including 06:00, a time with seconds, the two weekday schemes, media reminders (one in the
// minute of its own run), and each kind of maintenance schedule.
std::vector<JobPlan> FiftyJobs() {
  std::vector<JobPlan> jobs;
  const auto add = [&](int h, int m, int s, Scheme scheme) {
    jobs.push_back(JobPlan{"Job" + std::to_string(jobs.size()), h, m, s, scheme, false, 0, 0, "", {}});
  };
  for (int i = 0; i < 8; ++i) add(21, 0, 0, Scheme::Daily);      // 0-7: eight at once
  for (int i = 0; i < 6; ++i) add(22, 0, 0, i % 2 ? Scheme::Weekdays : Scheme::GFS);  // 8-13
  add(0, 0, 0, Scheme::Daily);                                   // 14: midnight
  add(0, 0, 0, Scheme::Weekdays);                                // 15: midnight, the night before
  add(2, 30, 0, Scheme::Weekdays);                               // 16
  add(5, 59, 0, Scheme::GFS);                                    // 17
  add(6, 0, 0, Scheme::Weekdays);                                // 18: 06:00 still the night before
  add(6, 1, 0, Scheme::Weekdays);                                // 19: 06:01 the day itself
  add(23, 59, 0, Scheme::Daily);                                 // 20
  add(13, 45, 30, Scheme::Daily);                                // 21: fires in 13:45:31 .. 13:46:29
  for (int i = 0; i < 28; ++i) {                                 // 22-49: spread over the day
    add((7 + i * 5) % 24, (i * 17) % 60, 0, i % 3 == 0 ? Scheme::Weekdays : i % 7 == 0 ? Scheme::GFS : Scheme::Daily);
  }

  const auto remind = [&](size_t i, int h, int m) {
    std::tie(jobs[i].reminder, jobs[i].reminderHour, jobs[i].reminderMinute) = std::tuple(true, h, m);
  };
  remind(0, 20, 30);
  remind(1, 21, 0);  // the reminder and the run in the same minute
  remind(8, 17, 0);
  remind(9, 17, 0);
  remind(15, 23, 45);
  remind(16, 5, 0);
  remind(25, 9, 15);
  remind(30, 0, 0);

  // Maintenance mails, one of each kind of schedule: the occurrence string and the minutes of the
  // week it names, by the calendar. Day 0 is Thursday 26 November.
  const auto maintain = [&](size_t i, const std::string& occurrence, Minutes minutes) {
    jobs[i].maintenance = occurrence;
    jobs[i].maintenanceMinutes = std::move(minutes);
  };
  const auto time = [](int h, int m) { return NumberToText(TimeSerial(h, m, 0)); };
  const auto date = [](int month, int day, int h, int m) {
    return NumberToText(DateSerial(2026, month, day) + TimeSerial(h, m, 0));
  };
  // Mondays and Fridays in the minute of its run; weekdays in the minute of its reminder.
  maintain(2, "1|" + time(21, 0) + "|0,-1,0,0,0,-1,0", {At(1, 21, 0), At(4, 21, 0)});
  maintain(25, "1|" + time(9, 15) + "|0,-1,-1,-1,-1,-1,0", Daily(Scheme::Weekdays, kWeek, 9, 15, 0));
  // The last Friday of November (the 27th), and the last weekday (Monday the 30th).
  maintain(10, "2|" + time(21, 0) + "|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0", {At(1, 21, 0)});
  maintain(20, "2|" + time(17, 0) + "|0,0,0,0,0,0|0,0,0,0,0,0,0|0|-1", {At(4, 17, 0)});
  // Two dates: each day of the list at each time of the list, four mails in all.
  maintain(22, "0|" + date(11, 28, 10, 0) + "|" + date(12, 1, 22, 30),
           {At(2, 10, 0), At(2, 22, 30), At(5, 10, 0), At(5, 22, 30)});
  return jobs;
}

// Minutes in which the service does not poll: paused on the first evening and on the Saturday
// evening (the weekday schemes skip that day, so none of their runs is missed), stopped on the last
// evening, when the start reads the report logs of the whole period. What falls in them is missed,
// never done late.
struct Outage {
  int from, to;  // the first minute without a poll, and the minute at which the service is back
  bool stop;
};

std::vector<Outage> Outages(int days) {
  const int lastDay = (days - 1) * 1440;
  std::vector<Outage> outages{{At(0, 20, 0), At(0, 22, 0), false}, {At(2, 19, 0), At(2, 23, 30), false}};
  std::erase_if(outages, [&](const Outage& o) { return o.from >= lastDay; });
  outages.push_back({lastDay + 18 * 60, lastDay + 23 * 60 + 30, true});
  return outages;
}

// The simulated length: a week, or SOAK_DAYS days. Under the sanitizers, which make each tick some
// three times dearer, two days unless SOAK_DAYS says otherwise.
int SimulatedDays() {
#if defined(__SANITIZE_ADDRESS__)
  constexpr int kDefaultDays = 2;
#else
  constexpr int kDefaultDays = kWeek;
#endif
  const char* text = std::getenv("SOAK_DAYS");
  const int days = text ? std::atoi(text) : kDefaultDays;
  return days >= 1 && days <= kWeek ? days : kDefaultDays;
}

size_t HeapInUse() {
#if defined(__SANITIZE_ADDRESS__)
  return 0;  // the sanitizer's allocator does not keep mallinfo's books
#else
  return ::mallinfo2().uordblks;
#endif
}

class SoakTest : public ::testing::Test {
 protected:
  SoakTest() {
    auto general = host_.settings.General();
    auto mail = general.MailSettings();
    mail.EmailEnabled(true);
    mail.ReminderRecipients("ops@example.org");
    mail.FailureReportRecipients("failures@example.org");  // the missed-backup mails
    host_.settings.Store().WriteText("mail.server", "127.0.0.1");
    host_.settings.Store().WriteInt("mail.port", smtp_.Port());
    // Stand-in for the rights launcher and the executor together, far cheaper than a real backup:
    // it takes the marker of the run it was started for (the executor's --backup-log-id, its
    // sixth argument), marks that job completed normally with a short report naming it, and
    // answers that the executor has started.
    test::WriteScript(
        dir_ / "DesktopRights",
        "cd \"$(dirname \"$0\")\"\n"
        "id=$6; marker=BackupLog-$id.txt\n"
        "[ -f \"$marker\" ] || exit 2\n"
        "sqlite3 -cmd '.timeout 20000' settings.db \"UPDATE jobs SET run_status = 1 WHERE backup_log_id = '$id'\"\n"
        "{ printf '\\377\\376'; printf 'Ran %s\\r\\nResult: completed normally' \"$id\" | iconv -t UTF-16LE; } "
        "> \"$marker\"\n"
        "exit 255\n");
  }

  void AddJobs(const std::vector<JobPlan>& plans) {
    static const char* const kSchemes[] = {"TWSchemes.Daily", "TWSchemes.Weekdays", "TWSchemes.GFS"};
    for (const auto& plan : plans) {
      clsJob job = host_.settings.General().AddJob(plan.name, plan.name);
      job.ScheduledTime(TimeSerial(plan.hour, plan.minute, plan.second));
      job.SchemeProgId(kSchemes[static_cast<int>(plan.scheme)]);
      auto notification = job.JobNotification();
      notification.MediaReminderByEmail(plan.reminder);
      notification.ReminderTime(TimeSerial(plan.reminderHour, plan.reminderMinute, 0));
      if (!plan.maintenance.empty()) {
        notification.MaintenanceEmailEnabled(true);
        notification.MaintenanceSubject("Maintenance " + plan.name);
        notification.MaintenanceBody("Clean the drive heads.");
        notification.MaintenanceOccurrence(plan.maintenance);
      }
    }
  }

  // One poll tick at `minute`:`second` of the period; then the runs it launched are carried to
  // their end: the stand-ins finish, and each slot's own poll reads the outcome.
  void Tick(int minute, int second) {
    clock_.Set(start_ + (minute * 60 + second) / kSecondsPerDay);
    service_.tmrPoll_Timer();
    for (size_t i = 0; i < 10; ++i) {
      const auto slot = service_.Slot(i);
      if (!slot) continue;
      for (int waited = 0; slot->Shell().Busy() && waited < 30000; waited += 2) loop_.Sleep(2);
      slot->tmrPoll_Timer();
    }
    loop_.Pump();
  }

  bool InOutage(int minute) const {
    return std::any_of(outages_.begin(), outages_.end(),
                       [&](const Outage& o) { return minute >= o.from && minute < o.to; });
  }

  // The minutes of `minutes` within the period that fall in an outage (`inside`), or outside every
  // one.
  Minutes Filtered(const Minutes& minutes, bool inside) const {
    Minutes kept;
    std::copy_if(minutes.begin(), minutes.end(), std::back_inserter(kept),
                 [&](int m) { return m < days_ * 1440 && InOutage(m) == inside; });
    return kept;
  }

  // Stops or pauses the service at the start of an outage, starts or continues it at its end.
  void StopOrStart(int minute) {
    for (const Outage& outage : outages_) {
      if (minute != outage.from && minute != outage.to) continue;
      bool done = false;
      clock_.Set(start_ + minute * 60 / kSecondsPerDay);
      if (minute == outage.from) outage.stop ? service_.ServiceStop(done) : service_.ServicePause(done);
      if (minute == outage.to) outage.stop ? service_.ServiceStart(done) : service_.ServiceContinue(done);
      EXPECT_TRUE(done) << minute;
      SettleMail();
    }
  }

  // Waits for the mails under way, so that the heap and the server are at rest.
  void SettleMail() {
    for (int i = 0; i < 3000 && host_.mailer.InFlight() > 0; ++i) loop_.Sleep(5);
    loop_.Pump();
  }

  // The minute of the period that holds `value`.
  int Minute(Date value) const { return static_cast<int>(std::floor((value - start_) * 1440 + 1e-6)); }

  // The mails the server received: subject, and the minutes of their Date headers.
  std::map<std::string, Minutes> Mails() {
    std::map<std::string, Minutes> mails;
    for (int n = 1; n <= smtp_.Count(); ++n) {
      const std::string message = "\r\n" + test::ReadFile(smtp_.Maildir() + "/" + std::to_string(n) + ".eml");
      const auto header = [&](const std::string& name) {
        const size_t value = message.find("\r\n" + name + ": ") + name.size() + 4;
        return message.substr(value, message.find("\r\n", value) - value);
      };
      std::tm date{};  // "Thu, 26 Nov 2026 20:30:01 +0000"
      std::istringstream(header("Date")) >> std::get_time(&date, "%a, %d %b %Y %H:%M");
      mails[header("Subject")].push_back(Minute(DateSerial(date.tm_year + 1900, date.tm_mon + 1, date.tm_mday) +
                                                TimeSerial(date.tm_hour, date.tm_min, 0)));
    }
    return mails;
  }

  const int days_ = SimulatedDays();
  const std::vector<Outage> outages_ = Outages(days_);
  test::TempDir dir_;
  test::SmtpServer smtp_;
  const Date start_ = DateSerial(2026, 11, 26);
  ManualClock clock_{start_};
  platform::EventLoop loop_;
  ServiceHost host_{dir_.Path(), dir_ / "settings.db", clock_, loop_, loop_};
  test::FakeServiceControl control_;
  test::FakeDialog dialog_;
  std::ostringstream err_;
  frmService service_{host_, control_, dialog_, err_};
};

TEST_F(SoakTest, AWeekOfFiftyJobsFiresEveryScheduledMinuteOnceAndHoldsItsMemory) {
  const std::vector<JobPlan> plans = FiftyJobs();
  AddJobs(plans);
  size_t heapAfterDay1 = 0;
  for (int minute = 0; minute < days_ * 1440; ++minute) {
    StopOrStart(minute);
    if (!InOutage(minute)) {
      for (const int second : kTickSeconds) Tick(minute, second);
    }
    if (minute == 1439) {
      SettleMail();
      heapAfterDay1 = HeapInUse();
    }
  }
  SettleMail();
  const size_t heapAfterLastDay = HeapInUse();

  // What should have fired: the runs and the mails, each in its minutes. Each run that fell in an
  // outage is told once, with its job; every outage holds runs (of the jobs at 21:00), and they are
  // mailed once, as the service comes back.
  std::map<std::string, Minutes> wantRuns, wantMails;
  std::map<std::string, std::pair<int64_t, int>> wantMissed;  // how many, and the last
  size_t missedCount = 0;
  for (const auto& plan : plans) {
    if (const Minutes want = Filtered(ExpectedRuns(plan, days_), false); !want.empty()) wantRuns[plan.name] = want;
    if (const Minutes skipped = Filtered(ExpectedRuns(plan, days_), true); !skipped.empty()) {
      wantMissed[plan.name] = {skipped.size(), skipped.back()};
      missedCount += skipped.size();
    }
    const Minutes reminders = Filtered(ExpectedReminders(plan, days_), false);
    if (!reminders.empty()) wantMails["Tarnwick media reminder for " + plan.name] = reminders;
    const Minutes maintenance = Filtered(plan.maintenanceMinutes, false);
    if (!maintenance.empty()) wantMails["Maintenance " + plan.name] = maintenance;
  }
  for (const Outage& outage : outages_) wantMails["Tarnwick missed backup"].push_back(outage.to);

  // The runs, from their report logs: job, minute of launch, outcome, and the report the stand-in
  // wrote for that very job.
  std::map<std::string, Minutes> runs;
  const auto reports = host_.reports.GetSummaries(0);
  for (const auto& entry : reports) {
    runs[entry.JobName].push_back(Minute(entry.TimeStart));
    EXPECT_EQ(0, entry.Status) << entry.JobName;
    EXPECT_EQ("Ran " + entry.JobName + "\r\nResult: completed normally", entry.Report);
  }
  for (auto& [name, minutes] : runs) std::sort(minutes.begin(), minutes.end());
  EXPECT_EQ(wantRuns, runs);
  std::map<std::string, std::pair<int64_t, int>> missed;
  for (const auto& status : host_.settings.Store().JobStatuses()) {
    if (status.missedRuns > 0) missed[status.name] = {status.missedRuns, Minute(status.lastMissed)};
  }
  EXPECT_EQ(wantMissed, missed);
  EXPECT_EQ(0, service_.JobManager().JobsRunning());
  ASSERT_TRUE(
      test::WaitUntil([&] { return fs::exists(smtp_.Maildir() + "/" + std::to_string(smtp_.Count()) + ".env"); }));
  EXPECT_EQ(wantMails, Mails()) << "no mail besides reminders, maintenance and missed runs";
  if (days_ == kWeek) {
    // The week holds every kind of schedule at least once; a sanity check on the expectations.
    EXPECT_GT(reports.size(), 250u);
    EXPECT_GT(missedCount, 10u) << "the outages hold runs";
  }

  // Nothing went wrong on the way: no warning or error in the application log but the missed runs.
  size_t missedWarnings = 0;
  for (const std::string& entry : test::EntryLines(host_.logs, 20000)) {
    if (entry.starts_with("1 Backup run missed | ")) {
      ++missedWarnings;
    } else {
      EXPECT_EQ('0', entry[0]) << entry;
    }
  }
  EXPECT_EQ(missedCount, missedWarnings);

  // After the first day every cache the service keeps (SQLite's page cache above all) is warm, and
  // the days after it repeat the same work. 16 KiB allows for the allocator's own slack; it is less
  // than one lost object of a hundred bytes per run (some 215 runs after the first day), per mail
  // (some 90) or per tick (25,920) would add.
  std::cout << "heap in use after day 1: " << heapAfterDay1 << " bytes, after day " << days_ << ": " << heapAfterLastDay
            << " bytes\n";
  if (days_ >= 3) {
    EXPECT_LT(static_cast<double>(heapAfterLastDay), heapAfterDay1 + 16.0 * 1024);
  }
}

}  // namespace
}  // namespace tw
