#include "common/Date.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tw {
namespace {

// Days from 1970-01-01 to a civil date, valid for any Gregorian year.
constexpr int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2 ? 1 : 0;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yearOfEra = y - era * 400;
  const int64_t dayOfYear = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

void CivilFromDays(int64_t z, int& year, int& month, int& day) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t dayOfEra = z - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t mp = (5 * dayOfYear + 2) / 153;
  day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
}

// Serial 0 in days since 1970; a constant, so dates are right even in other files' static initialisers.
constexpr int64_t kEpochOffset = DaysFromCivil(1899, 12, 30);

// The platform's date type holds 1 January 100 to 31 December 9999, 23:59:59.
constexpr double kFirstSerial = -657434.0;
constexpr double kLastSerial = 2958465.0 + 86399.0 / kSecondsPerDay;

// Day number and second of the day, rounded to the nearest second. A number beyond the date
// range (a hand-edited file can hold 1E+300) reads as the nearest end of it, and one that is not
// a number as day 0, so that no stored value can make the calendar arithmetic overflow.
void SplitSerial(Date value, int64_t& dayNumber, int64_t& secondOfDay) {
  if (std::isnan(value)) value = 0;
  value = std::clamp(value, kFirstSerial, kLastSerial);
  const double whole = std::trunc(value);
  const double fraction = std::fabs(value - whole);
  dayNumber = static_cast<int64_t>(whole);
  secondOfDay = std::llround(fraction * kSecondsPerDay);
  if (secondOfDay >= 86400) {
    secondOfDay -= 86400;
    dayNumber += 1;
  }
}

std::string Format(const char* pattern, int a, int b, int c, int d = 0, int e = 0, int f = 0) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, pattern, a, b, c, d, e, f);
  return buffer;
}

bool ReadNumber(std::string_view text, size_t& pos, size_t digits, int& out) {
  if (pos + digits > text.size()) return false;
  int value = 0;
  for (size_t i = 0; i < digits; ++i) {
    const char c = text[pos + i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  pos += digits;
  out = value;
  return true;
}

bool Expect(std::string_view text, size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

// The names are English whatever the locale, as mail and syslog want them.
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Calendar fields for mktime, which decides itself whether daylight-saving time applies.
std::tm LocalTm(const DateParts& p) {
  std::tm local{};
  local.tm_year = p.year - 1900;
  local.tm_mon = p.month - 1;
  local.tm_mday = p.day;
  local.tm_hour = p.hour;
  local.tm_min = p.minute;
  local.tm_sec = p.second;
  local.tm_isdst = -1;
  return local;
}

int DaysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

}  // namespace

Date DateSerial(int year, int month, int day) {
  // Normalise an overflowing month first; an overflowing day is plain day arithmetic.
  int64_t months = static_cast<int64_t>(year) * 12 + (month - 1);
  const int64_t y = months >= 0 ? months / 12 : (months - 11) / 12;
  const int64_t m = months - y * 12 + 1;
  return static_cast<Date>(DaysFromCivil(y, m, 1) - kEpochOffset + (day - 1));
}

Date TimeSerial(int hour, int minute, int second) {
  return (hour * 3600.0 + minute * 60.0 + second) / kSecondsPerDay;
}

namespace {
// Before 1899-12-30 the number is negative while its fraction still counts forward from midnight,
// so the time is taken away from the day number rather than added to it.
Date WithTime(Date day, Date time) { return day < 0 ? day - time : day + time; }
}  // namespace

Date MakeDate(const DateParts& p) {
  return WithTime(DateSerial(p.year, p.month, p.day), TimeSerial(p.hour, p.minute, p.second));
}

DateParts SplitDate(Date value) {
  int64_t dayNumber = 0;
  int64_t secondOfDay = 0;
  SplitSerial(value, dayNumber, secondOfDay);
  DateParts parts;
  CivilFromDays(dayNumber + kEpochOffset, parts.year, parts.month, parts.day);
  parts.hour = static_cast<int>(secondOfDay / 3600);
  parts.minute = static_cast<int>(secondOfDay / 60 % 60);
  parts.second = static_cast<int>(secondOfDay % 60);
  return parts;
}

int Weekday(Date value) {
  int64_t dayNumber = 0;
  int64_t secondOfDay = 0;
  SplitSerial(value, dayNumber, secondOfDay);
  // Serial 0, 1899-12-30, was a Saturday.
  const int64_t mod = ((dayNumber % 7) + 7) % 7;
  return static_cast<int>((mod + 6) % 7 + 1);
}

Date DateOnly(Date value) { return std::trunc(value); }

Date TimeOfDay(Date value) { return std::fabs(value - std::trunc(value)); }

int64_t MinutesBetween(Date from, Date to) {
  auto minuteIndex = [](Date v) {
    int64_t dayNumber = 0;
    int64_t secondOfDay = 0;
    SplitSerial(v, dayNumber, secondOfDay);
    return dayNumber * 1440 + secondOfDay / 60;
  };
  return minuteIndex(to) - minuteIndex(from);
}

int64_t SecondsBetween(Date from, Date to) {
  auto secondIndex = [](Date v) {
    int64_t dayNumber = 0;
    int64_t secondOfDay = 0;
    SplitSerial(v, dayNumber, secondOfDay);
    return dayNumber * 86400 + secondOfDay;
  };
  return secondIndex(to) - secondIndex(from);
}

Date DateFromUnix(std::time_t seconds, long nanoseconds) {
  std::tm local{};
  localtime_r(&seconds, &local);
  const DateParts parts{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                        local.tm_hour,        local.tm_min,     local.tm_sec};
  return MakeDate(parts) + nanoseconds / 1e9 / kSecondsPerDay;
}

std::time_t UnixFromDate(Date value) {
  std::tm local = LocalTm(SplitDate(value));
  return std::mktime(&local);
}

std::string FormatStamp(Date value) {
  const DateParts p = SplitDate(value);
  return Format("%04d%02d%02d%02d%02d%02d", p.year, p.month, p.day, p.hour, p.minute, p.second);
}

std::string ShortDate(Date value) {
  const DateParts p = SplitDate(value);
  return Format("%02d/%02d/%04d", p.day, p.month, p.year);
}

std::string ShortTime(Date value) {
  const DateParts p = SplitDate(value);
  return Format("%02d:%02d", p.hour, p.minute, 0);
}

std::string LongTime(Date value) {
  const DateParts p = SplitDate(value);
  return Format("%02d:%02d:%02d", p.hour, p.minute, p.second);
}

std::string DefaultDateText(Date value) {
  int64_t dayNumber = 0;
  int64_t secondOfDay = 0;
  SplitSerial(value, dayNumber, secondOfDay);
  if (dayNumber == 0) return LongTime(value);
  if (secondOfDay == 0) return ShortDate(value);
  return ShortDate(value) + " " + LongTime(value);
}

std::string IsoText(Date value) {
  const DateParts p = SplitDate(value);
  return Format("%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour, p.minute, p.second);
}

// The offset from UTC that the local clock had at that wall-clock time.
static long UtcOffsetMinutes(const DateParts& p) {
  std::tm local = LocalTm(p);
  std::mktime(&local);
  return local.tm_gmtoff / 60;
}

std::string Iso8601Text(Date value) {
  const DateParts p = SplitDate(value);
  const long offset = UtcOffsetMinutes(p);
  return Format("%04d-%02d-%02dT%02d:%02d:%02d", p.year, p.month, p.day, p.hour, p.minute, p.second) +
         Format("%c%02d:%02d", offset < 0 ? '-' : '+', static_cast<int>(std::labs(offset) / 60),
                static_cast<int>(std::labs(offset) % 60));
}

std::string Rfc3164Text(Date value) {
  const DateParts p = SplitDate(value);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%s %2d %02d:%02d:%02d", kMonths[p.month - 1], p.day, p.hour, p.minute,
                p.second);
  return buffer;
}

std::string Rfc5322Text(Date value) {
  const DateParts p = SplitDate(value);
  std::tm local = LocalTm(p);
  std::mktime(&local);  // fills in the weekday
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const long offset = UtcOffsetMinutes(p);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%s, %02d %s %04d %02d:%02d:%02d %c%02ld%02ld", kDays[local.tm_wday], p.day,
                kMonths[p.month - 1], p.year, p.hour, p.minute, p.second, offset < 0 ? '-' : '+',
                std::labs(offset) / 60, std::labs(offset) % 60);
  return buffer;
}

std::optional<Date> ParseTimeOfDay(std::string_view text) {
  size_t pos = 0;
  int hour = 0, minute = 0, second = 0;
  if (!ReadNumber(text, pos, 2, hour) || !Expect(text, pos, ':') || !ReadNumber(text, pos, 2, minute)) {
    return std::nullopt;
  }
  if (pos < text.size() && (!Expect(text, pos, ':') || !ReadNumber(text, pos, 2, second))) {
    return std::nullopt;
  }
  if (pos != text.size() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return TimeSerial(hour, minute, second);
}

std::optional<Date> ParseIsoDate(std::string_view text) {
  size_t pos = 0;
  int year = 0, month = 0, day = 0;
  if (!ReadNumber(text, pos, 4, year) || !Expect(text, pos, '-') || !ReadNumber(text, pos, 2, month) ||
      !Expect(text, pos, '-') || !ReadNumber(text, pos, 2, day)) {
    return std::nullopt;
  }
  // A year before 100 lies outside what a date can hold; it is refused rather than shown as 0100.
  if (year < 100 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month)) return std::nullopt;
  Date result = DateSerial(year, month, day);
  if (pos == text.size()) return result;
  if (!Expect(text, pos, ' ')) return std::nullopt;
  const auto time = ParseTimeOfDay(text.substr(pos));
  if (!time) return std::nullopt;
  return WithTime(result, *time);
}

}  // namespace tw
