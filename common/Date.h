#pragma once
// The date type of the whole system: local wall-clock time held as a double counting days since
// 1899-12-30, the time of day being the fraction. Settings, log files, report files and schedule
// strings all store this number, so it is kept as it is rather than wrapped.
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace tw {

using Date = double;

constexpr double kSecondsPerDay = 86400.0;

struct DateParts {
  int year = 1899;
  int month = 12;
  int day = 30;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// Calendar arithmetic; the proleptic Gregorian calendar, no time zone involved.
Date DateSerial(int year, int month, int day);  // month and day may run over (month 13 = next January)
Date TimeSerial(int hour, int minute, int second);
Date MakeDate(const DateParts& parts);
// Rounded to the nearest second. For values before 1899-12-30 the integer part is the day and
// the magnitude of the fraction the time, as the platform date type has always read them. Values
// outside the years 100 to 9999 read as the nearest end of that range, and NaN as 0; so do they
// for every function below that takes a Date apart.
DateParts SplitDate(Date value);
int Weekday(Date value);  // 1 = Sunday .. 7 = Saturday
Date DateOnly(Date value);
Date TimeOfDay(Date value);

// Minute boundaries crossed from `from` to `to`: 10:59:59 to 11:05:00 is 6, though only five
// minutes and a second passed. Wall-clock values, so a daylight-saving jump counts as it reads.
int64_t MinutesBetween(Date from, Date to);
// Whole seconds from `from` to `to` by the wall clock.
int64_t SecondsBetween(Date from, Date to);

// Conversion through the C library's local time, so the wall clock is right on both sides of a
// daylight-saving change. A wall-clock time that does not exist (skipped by a spring-forward)
// becomes the instant the C library chooses for it.
Date DateFromUnix(std::time_t seconds, long nanoseconds = 0);
std::time_t UnixFromDate(Date value);

std::string FormatStamp(Date value);        // "yyyymmddhhmmss"
std::string ShortDate(Date value);          // "dd/mm/yyyy"
std::string ShortTime(Date value);          // "HH:MM", 24-hour
std::string LongTime(Date value);           // "HH:MM:SS"
// The platform's general form of a date-time: the short date and the long time, the date alone
// at midnight, the time alone on day 0.
std::string DefaultDateText(Date value);
std::string IsoText(Date value);            // "yyyy-mm-dd HH:MM:SS", what the console shows
std::string Iso8601Text(Date value);        // "yyyy-mm-ddTHH:MM:SS+01:00", for JSON
std::string Rfc3164Text(Date value);        // "Nov  3 21:00:00", the traditional syslog form
std::string Rfc5322Text(Date value);        // "Mon, 23 Nov 2026 21:00:05 +0100", for mail

// "HH:MM" or "HH:MM:SS" to a fraction of a day; nothing for anything else.
std::optional<Date> ParseTimeOfDay(std::string_view text);
// "YYYY-MM-DD" or "YYYY-MM-DD HH:MM[:SS]"; nothing for anything else or an impossible date.
std::optional<Date> ParseIsoDate(std::string_view text);

}  // namespace tw
