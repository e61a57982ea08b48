// A week of fifty jobs, tick by tick on a manual clock through the real frmService, settings store, log folder,
// launch path and a real SMTP server: what fired against the schedules worked out here, the heap against day one.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "common/NumberText.h"
#include "service/frmService.h"
#include "tests/service/ServiceFakes.h"
#include "tests/support/ServiceFixture.h"

namespace tw {
namespace {

// The seconds of each minute the test ticks at: at :00 a run or reminder must not fire yet; :59 would fire it
// again if the once-a-minute guard failed, and is the second chance of a job with two things due in a minute.
constexpr int kTickSeconds[] = {0, 1, 59};

enum class Scheme { Daily, Weekdays, GFS };

// Minutes are counted from Thursday 26 November 2026 at midnight, across the end of November.
using Minutes = std::vector<int>;
constexpr int At(int day, int hour, int minute) { return day * 1440 + hour * 60 + minute; }

struct JobPlan {
  std::string name;
  int hour = 0, minute = 0;
  Scheme scheme = Scheme::Daily;
  int reminder = -1;  // the minute of the day of its media reminder by e-mail, if any
};

// The minute `hour`:`minute` of each day whose scheme day, `shift` days before, is one the scheme runs on
// (the grandfather-father-son one too runs every weekday). A reminder goes by the day of sending itself.
Minutes Daily(Scheme scheme, int days, int hour, int minute, int shift) {
  Minutes minutes;
  for (int d = 0; d < days; ++d) {
    const int weekday = (d - shift + 4 + 7) % 7;  // day 0 is a Thursday; 0 is Sunday
    if (scheme == Scheme::Daily || (weekday >= 1 && weekday <= 5)) minutes.push_back(At(d, hour, minute));
  }
  return minutes;
}

// Fifty jobs: clusters at 21:00 and 22:00, times spread over the day, the weekday schemes, reminders.
std::vector<JobPlan> FiftyJobs() {
  std::vector<JobPlan> jobs;
  const auto add = [&](int h, int m, Scheme scheme) {
    jobs.push_back(JobPlan{"Job" + std::to_string(jobs.size()), h, m, scheme});
  };
  for (int i = 0; i < 8; ++i) add(21, 0, Scheme::Daily);                           // 0-7
  for (int i = 0; i < 6; ++i) add(22, 0, i % 2 ? Scheme::Weekdays : Scheme::GFS);  // 8-13
  for (int i = 0; i < 36; ++i) {                                                   // 14-49, the small hours among them
    add((7 + i * 5) % 24, (i * 17) % 60, i % 3 == 0 ? Scheme::Weekdays : i % 7 == 0 ? Scheme::GFS : Scheme::Daily);
  }
  // Reminders: one in the minute of its job's run; one of a weekday job at 04:33, a run for the night before.
  jobs[1].reminder = 21 * 60;
  jobs[8].reminder = 17 * 60;
  jobs[23].reminder = 3 * 60;
  return jobs;
}

// The service is paused on the first evening: what falls due then is missed, never done late.
constexpr int kPausedFrom = At(0, 20, 0), kPausedUntil = At(0, 22, 0);
bool Paused(int minute) { return minute >= kPausedFrom && minute < kPausedUntil; }

// A week, or SOAK_DAYS days; two under the sanitizers, which make ticks dearer and keep no books for mallinfo.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kDefaultDays = 2;
size_t HeapInUse() { return 0; }
#else
constexpr int kDefaultDays = 7;
size_t HeapInUse() { return ::mallinfo2().uordblks; }
#endif
int SimulatedDays() {
  const int days = std::getenv("SOAK_DAYS") ? std::atoi(std::getenv("SOAK_DAYS")) : kDefaultDays;
  return days >= 1 && days <= 7 ? days : kDefaultDays;
}

class SoakTest : public ::testing::Test {
 protected:
  SoakTest() {
    auto mail = host_.settings.General().MailSettings();
    mail.EmailEnabled(true);
    mail.ReminderRecipients("ops@example.org");
    mail.FailureReportRecipients("failures@example.org");  // the missed-backup mails
    host_.settings.Store().WriteText("mail.server", "127.0.0.1");
    host_.settings.Store().WriteInt("mail.port", smtp_.Port());
    // Stand-in for the rights launcher and the executor together: it marks the job of the run it was
    // started for (its sixth argument) completed normally, with a report naming it in its marker.
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

  // One poll tick at `minute`:`second` of the period; the stand-ins it launched finish, each slot reads the end.
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

  void Want(std::map<std::string, Minutes>& map, const std::string& key, Minutes minutes) const {
    std::erase_if(minutes, [&](int m) { return m >= days_ * 1440 || Paused(m); });
    if (!minutes.empty()) map[key] = minutes;
  }

  // Waits for the mails under way, so that the heap and the server are at rest.
  void SettleMail() {
    for (int i = 0; i < 3000 && host_.mailer.InFlight() > 0; ++i) loop_.Sleep(5);
    loop_.Pump();
  }

  // The mails the server received: subject, and the minutes of their Date headers.
  std::map<std::string, Minutes> Mails() {
    std::map<std::string, Minutes> mails;
    for (int n = 1; n <= smtp_.Count(); ++n) {
      const std::string message = "\r\n" + test::ReadFile(smtp_.Maildir() + "/" + std::to_string(n) + ".eml");
      const size_t subject = message.find("\r\nSubject: ") + 11;
      int day = 0, hour = 0, minute = 0;  // "Date: Thu, 26 Nov 2026 20:30:01 +0000"; November has 30 days
      std::sscanf(message.substr(message.find("\r\nDate: ") + 8).c_str(), "%*s %d %*s %*d %d:%d", &day, &hour, &minute);
      mails[message.substr(subject, message.find("\r\n", subject) - subject)].push_back(
          At(day >= 26 ? day - 26 : day + 4, hour, minute));
    }
    return mails;
  }

  const int days_ = SimulatedDays();
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
  static const char* const kSchemes[] = {"TWSchemes.Daily", "TWSchemes.Weekdays", "TWSchemes.GFS"};
  for (const auto& plan : plans) {
    clsJob job = host_.settings.General().AddJob(plan.name, plan.name);
    job.ScheduledTime(TimeSerial(plan.hour, plan.minute, 0));
    job.SchemeProgId(kSchemes[static_cast<int>(plan.scheme)]);
    auto notification = job.JobNotification();
    if (plan.reminder >= 0) {
      notification.MediaReminderByEmail(true);
      notification.ReminderTime(TimeSerial(plan.reminder / 60, plan.reminder % 60, 0));
    }
  }
  // Maintenance on Mondays and Fridays (day 1 is Friday 27 November), in the minute of its job's run.
  auto maintenance = host_.settings.General().JobByName("Job2").JobNotification();
  maintenance.MaintenanceEmailEnabled(true);
  maintenance.MaintenanceSubject("Maintenance Job2");
  maintenance.MaintenanceOccurrence("1|" + NumberToText(TimeSerial(21, 0, 0)) + "|0,-1,0,0,0,-1,0");
  size_t heapAfterDay1 = 0;
  for (int minute = 0; minute < days_ * 1440; ++minute) {
    if (minute == kPausedFrom || minute == kPausedUntil) {
      bool done = false;
      clock_.Set(start_ + minute * 60 / kSecondsPerDay);
      minute == kPausedFrom ? service_.ServicePause(done) : service_.ServiceContinue(done);
      EXPECT_TRUE(done) << minute;
    }
    if (!Paused(minute)) {
      for (const int second : kTickSeconds) Tick(minute, second);
    }
    if (minute == 1439) {
      SettleMail();
      heapAfterDay1 = HeapInUse();
    }
  }
  SettleMail();
  const size_t heapAfterLastDay = HeapInUse();

  // What should have fired, in its minutes. The runs due in the pause are each told once, mailed together after.
  std::map<std::string, Minutes> wantRuns, wantMails{{"Tarnwick missed backup", {kPausedUntil}}};
  Want(wantMails, "Maintenance Job2", {At(1, 21, 0), At(4, 21, 0)});
  size_t missedCount = 0;
  for (const auto& plan : plans) {
    // Once a day; a job timed at or before 06:00 runs for the night of the day before.
    const Minutes runs = Daily(plan.scheme, days_, plan.hour, plan.minute, plan.hour * 60 + plan.minute <= 360);
    Want(wantRuns, plan.name, runs);
    missedCount += static_cast<size_t>(std::count_if(runs.begin(), runs.end(), Paused));
    if (plan.reminder >= 0) {
      Want(wantMails, "Tarnwick media reminder for " + plan.name,
           Daily(plan.scheme, days_, plan.reminder / 60, plan.reminder % 60, 0));
    }
  }

  // The runs from their report logs, each with the report the stand-in wrote for that very job.
  std::map<std::string, Minutes> runs;
  for (const auto& entry : host_.reports.GetSummaries(0)) {
    runs[entry.JobName].push_back(static_cast<int>(std::floor((entry.TimeStart - start_) * 1440 + 1e-6)));
    EXPECT_EQ(0, entry.Status) << entry.JobName;
    EXPECT_EQ("Ran " + entry.JobName + "\r\nResult: completed normally", entry.Report);
  }
  for (auto& [name, minutes] : runs) std::sort(minutes.begin(), minutes.end());
  EXPECT_EQ(wantRuns, runs);
  EXPECT_EQ(wantMails, Mails()) << "no mail besides reminders, maintenance and missed runs";

  // Nothing went wrong on the way: the application log holds information and the missed runs only.
  const auto entries = test::EntryLines(host_.logs, 20000);
  EXPECT_EQ(entries.size(), missedCount + test::CountStartingWith(entries, "0 "));
  EXPECT_EQ(missedCount, test::CountStartingWith(entries, "1 Backup run missed | "));

  // After the first day every cache (SQLite's page cache above all) is warm and the days repeat the same work.
  // 16 KiB allows for the allocator's slack; a lost object of a hundred bytes per run or tick would add more.
  if (days_ >= 3) {
    EXPECT_LT(static_cast<double>(heapAfterLastDay), heapAfterDay1 + 16.0 * 1024);
  }
}

}  // namespace
}  // namespace tw
