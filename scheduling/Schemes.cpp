#include "scheduling/Schemes.h"

#include <algorithm>

#include "common/Error.h"
#include "common/Strings.h"

namespace tw {
namespace {

const char* const kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kFriday = 6;

bool IsWeekday(Date when) {
  const int day = Weekday(when);
  return day >= 2 && day <= 6;
}

// The job's own media values: the label it names (its name when it names none) and its method,
// mode and eject settings.
class FixedMediaScheme : public IScheme {
 public:
  void AttachJob(const clsJob& job) override { job_ = job; }
  bool ReminderNeeded(Date when) override { return ScheduledRun(when) != 0; }
  std::string MediaLabel(Date) override {
    const std::string label = Job().TapeLabel();
    return label.empty() ? Job().Name() : label;
  }
  int32_t BackupMethod(Date) override { return Job().BackupMethod(); }
  int32_t BackupMode(Date) override { return Job().BackupMode(); }
  bool Eject(Date) override { return Job().Eject(); }

 protected:
  clsJob& Job() {
    if (!job_) throw TWError(errnum::InvalidProcedureCall, "No job is attached to the scheme", "TWSchemes");
    return *job_;
  }

 private:
  std::optional<clsJob> job_;
};

// Every day of the week.
class DailyScheme final : public FixedMediaScheme {
 public:
  int32_t ScheduledRun(Date) override { return 1; }
};

// Monday to Friday.
class WeekdaysScheme final : public FixedMediaScheme {
 public:
  int32_t ScheduledRun(Date when) override { return IsWeekday(when) ? 1 : 0; }
};

// Grandfather-father-son: four daily media for Monday to Thursday (incremental), a weekly medium
// for each Friday (full), and a monthly medium for the last Friday of the month (full). No run at
// weekends. Labels: "Daily-Mon" .. "Daily-Thu", "Weekly-1" .. "Weekly-4", "Monthly-Jan" ..
// "Monthly-Dec". A reminder is due whenever the medium to load differs from the previous run's.
class GrandfatherFatherSonScheme final : public IScheme {
 public:
  void AttachJob(const clsJob& job) override { job_ = job; }
  bool ReminderNeeded(Date when) override {
    if (!IsWeekday(when)) return false;
    Date previous = DateOnly(when) - 1;
    while (!IsWeekday(previous)) previous -= 1;
    return MediaLabel(when) != MediaLabel(previous);
  }
  int32_t ScheduledRun(Date when) override { return IsWeekday(when) ? 1 : 0; }
  std::string MediaLabel(Date when) override {
    const Date day = NextRunDay(when);
    const DateParts parts = SplitDate(day);
    if (Weekday(day) != kFriday) return std::string("Daily-") + kDayNames[Weekday(day) - 1];
    if (IsLastFriday(day)) return std::string("Monthly-") + kMonthNames[parts.month - 1];
    return "Weekly-" + std::to_string((parts.day - 1) / 7 + 1);
  }
  int32_t BackupMethod(Date when) override {
    return Weekday(NextRunDay(when)) == kFriday ? backup::kFull : backup::kIncremental;
  }
  int32_t BackupMode(Date) override { return backup::kOverwrite; }
  bool Eject(Date when) override {
    // Weekly and monthly media leave the building; daily ones follow the job's setting.
    if (Weekday(NextRunDay(when)) == kFriday) return true;
    return job_ ? job_->Eject() : false;
  }

 private:
  // A weekend date (a run asked for by hand) uses the medium of the Monday after.
  static Date NextRunDay(Date when) {
    Date day = DateOnly(when);
    while (!IsWeekday(day)) day += 1;
    return day;
  }
  static bool IsLastFriday(Date day) { return SplitDate(day + 7).month != SplitDate(day).month; }

  std::optional<clsJob> job_;
};

}  // namespace

const SchemeRegistry& SchemeRegistry::BuiltIn() {
  static const SchemeRegistry registry({
      {"TWSchemes.Daily", "every day; the job's own label, method, mode and eject settings",
       [] { return std::make_unique<DailyScheme>(); }},
      {"TWSchemes.Weekdays", "Monday to Friday; the job's own label, method, mode and eject settings",
       [] { return std::make_unique<WeekdaysScheme>(); }},
      {"TWSchemes.GFS",
       "grandfather-father-son: daily media Mon-Thu (incremental), weekly media on Fridays and monthly "
       "media on the last Friday (full); reminds whenever the medium changes",
       [] { return std::make_unique<GrandfatherFatherSonScheme>(); }},
  });
  return registry;
}

std::string SchemeRegistry::CanonicalId(const std::string& id) const {
  for (const auto& scheme : schemes_) {
    if (EqualsIgnoreCase(scheme.id, id)) return scheme.id;
  }
  return {};
}

std::unique_ptr<IScheme> SchemeRegistry::Create(const std::string& id) const {
  for (const auto& scheme : schemes_) {
    if (EqualsIgnoreCase(scheme.id, id)) return scheme.create();
  }
  // 429: the object named cannot be created, as for any unknown component.
  throw TWError(429, "Unknown media scheme \"" + id + "\"", "TWService");
}

std::string MethodName(int32_t method) {
  switch (method) {
    case backup::kFull: return "full";
    case backup::kIncremental: return "incremental";
    default: return "method " + std::to_string(method);
  }
}

std::string ModeName(int32_t mode) {
  switch (mode) {
    case backup::kOverwrite: return "overwrite";
    case backup::kAppend: return "append";
    default: return "mode " + std::to_string(mode);
  }
}

}  // namespace tw
