#include "scheduling/OccurrenceSearch.h"

#include <algorithm>

namespace tw {
namespace {

constexpr int kMinutesPerDay = 1440;

Date MinuteOfDay(int minute) { return TimeSerial(minute / 60, minute % 60, 0); }

Date DefaultEnd(Date from) { return std::min(from + 400 * 366.0, DateSerial(9999, 12, 31) + 0.99999); }

}  // namespace

std::vector<Date> NextMatches(const IOccurrence& occurrence, Date from, size_t count, Date searchEnd) {
  if (searchEnd == 0) searchEnd = DefaultEnd(from);
  std::vector<Date> matches;
  std::vector<int> minutes;
  for (int minute = 0; minute < kMinutesPerDay; ++minute) {
    if (occurrence.MatchTime(MinuteOfDay(minute))) minutes.push_back(minute);
  }
  if (minutes.empty() || count == 0) return matches;

  const DateParts start = SplitDate(from);
  const Date firstDay = DateSerial(start.year, start.month, start.day);
  const int firstMinute = start.hour * 60 + start.minute;
  for (Date day = firstDay; day <= searchEnd; day += 1) {
    if (!occurrence.MatchDay(day)) continue;
    for (int minute : minutes) {
      if (day == firstDay && minute < firstMinute) continue;
      const Date when = day + MinuteOfDay(minute);
      if (when > searchEnd) return matches;
      matches.push_back(when);
      if (matches.size() == count) return matches;
    }
  }
  return matches;
}

std::vector<Date> NextMatchesByMinute(const IOccurrence& occurrence, Date from, size_t count, Date searchEnd) {
  std::vector<Date> matches;
  const DateParts start = SplitDate(from);
  const Date firstDay = DateSerial(start.year, start.month, start.day);
  for (Date day = firstDay; day <= searchEnd && matches.size() < count; day += 1) {
    for (int minute = 0; minute < kMinutesPerDay && matches.size() < count; ++minute) {
      const Date when = day + MinuteOfDay(minute);
      if (when < firstDay + MinuteOfDay(start.hour * 60 + start.minute) || when > searchEnd) continue;
      if (occurrence.MatchDayAndTime(when)) matches.push_back(when);
    }
  }
  return matches;
}

}  // namespace tw
