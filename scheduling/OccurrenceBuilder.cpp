#include "scheduling/OccurrenceBuilder.h"

#include <array>
#include <stdexcept>

#include "common/Date.h"
#include "common/Strings.h"
#include "scheduling/Occurrence.h"

namespace tw {
namespace {

[[noreturn]] void Invalid(const std::string& message) { throw std::invalid_argument(message); }

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

Date MinuteTime(std::string_view text) {
  const auto time = ParseTimeOfDay(TrimWhitespace(text));
  if (!time) Invalid("invalid time " + Quoted(text) + " (expected HH:MM)");
  const DateParts parts = SplitDate(*time);
  return TimeSerial(parts.hour, parts.minute, 0);  // schedules have minute resolution
}

// Splits "WHAT@HH:MM".
void SplitAtTime(std::string_view text, std::string& what, Date& time) {
  const size_t at = text.rfind('@');
  if (at == std::string_view::npos) Invalid("missing \"@HH:MM\" in " + Quoted(text));
  what = std::string(TrimWhitespace(text.substr(0, at)));
  time = MinuteTime(text.substr(at + 1));
}

// The days named in a comma-separated list, Sunday first.
std::array<bool, 7> ParseDays(const std::string& list) {
  static const char* const kNames[] = {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
  std::array<bool, 7> days{};
  for (const auto& item : Split(list, ',')) {
    const std::string name = ToLower(TrimWhitespace(item));
    if (name == "daily") {
      days.fill(true);
    } else if (name == "weekdays") {
      for (size_t day = 1; day <= 5; ++day) days[day] = true;
    } else {
      bool known = false;
      for (size_t day = 0; day < 7; ++day) {
        // A day by its full name or its first three letters or more.
        if (name.size() >= 3 && std::string(kNames[day]).compare(0, name.size(), name) == 0) {
          days[day] = true;
          known = true;
        }
      }
      if (!known) Invalid("unknown day " + Quoted(item) + " (expected sun, mon, tue, wed, thu, fri, sat)");
    }
  }
  return days;
}

void SetWeeks(clsOccurrenceMonthly& occurrence, const std::string& list) {
  static const char* const kWeeks[][3] = {{"last", "last", "0"},  {"1st", "first", "1"}, {"2nd", "second", "2"},
                                          {"3rd", "third", "3"},  {"4th", "fourth", "4"}, {"5th", "fifth", "5"}};
  for (const auto& item : Split(list, ',')) {
    const std::string name = ToLower(TrimWhitespace(item));
    bool known = false;
    for (int week = 0; week < 6; ++week) {
      if (name == kWeeks[week][0] || name == kWeeks[week][1] || (week > 0 && name == kWeeks[week][2])) {
        occurrence.Week(week, true);
        known = true;
      }
    }
    if (!known) Invalid("unknown week " + Quoted(item) + " (expected last, 1st, 2nd, 3rd, 4th or 5th)");
  }
}

}  // namespace

std::string WeeklyOccurrence(std::string_view text) {
  std::string days;
  Date time = 0;
  SplitAtTime(text, days, time);
  clsOccurrenceWeekly occurrence;
  occurrence.Time(time);
  const auto flags = ParseDays(days);
  for (int32_t day = 1; day <= 7; ++day) occurrence.DayOfWeek(day, flags[static_cast<size_t>(day - 1)]);
  return occurrence.GetString();
}

std::string MonthlyOccurrence(std::string_view text) {
  std::string pattern;
  Date time = 0;
  SplitAtTime(text, pattern, time);
  const size_t colon = pattern.find(':');
  if (colon == std::string::npos) Invalid("expected WEEKS:DAYS@HH:MM, such as last:fri@21:00, not " + Quoted(text));
  clsOccurrenceMonthly occurrence;
  occurrence.Time(time);
  SetWeeks(occurrence, pattern.substr(0, colon));
  const auto flags = ParseDays(pattern.substr(colon + 1));
  for (int32_t day = 1; day <= 7; ++day) occurrence.DayOfWeek(day, flags[static_cast<size_t>(day - 1)]);
  return occurrence.GetString();
}

std::string FirstWeekdayOccurrence(std::string_view time) {
  clsOccurrenceMonthly occurrence;
  occurrence.Time(MinuteTime(time));
  occurrence.FirstWeekday(true);
  return occurrence.GetString();
}

std::string LastWeekdayOccurrence(std::string_view time) {
  clsOccurrenceMonthly occurrence;
  occurrence.Time(MinuteTime(time));
  occurrence.LastWeekday(true);
  return occurrence.GetString();
}

std::string SpecificOccurrence(std::string_view text) {
  clsOccurrenceSpecific occurrence;
  for (const auto& item : Split(text, ',')) {
    const auto when = ParseIsoDate(TrimWhitespace(item));
    if (!when) Invalid("invalid date " + Quoted(TrimWhitespace(item)) + " (expected YYYY-MM-DD HH:MM)");
    occurrence.Dates().push_back(*when);
  }
  return occurrence.GetString();
}

std::string OccurrenceProblem(const std::string& text) {
  if (text.empty()) return "the occurrence string is empty";
  if (text[0] < '0' || text[0] > '2') {
    return "malformed occurrence string " + Quoted(text) + " (it must begin with 0, 1 or 2)";
  }
  if (!clsOccurrenceFactory::CreateOccurrence(text)) return "malformed occurrence string " + Quoted(text);
  return {};
}

}  // namespace tw
