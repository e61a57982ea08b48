#include <gtest/gtest.h>

#include <cmath>

#include "common/Date.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

std::string Parts(Date value) {
  const DateParts p = SplitDate(value);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour, p.minute,
                p.second);
  return text;
}

TEST(DateTest, SerialNumbersMatchTheCalendarThroughLeapYearsAndMonthEnds) {
  EXPECT_EQ(0, DateSerial(1899, 12, 30));
  EXPECT_EQ(2, DateSerial(1900, 1, 1));
  EXPECT_EQ(61, DateSerial(1900, 3, 1));  // the date type has no 29 February 1900
  EXPECT_EQ(45321, DateSerial(2024, 1, 30));
  EXPECT_EQ(45351, DateSerial(2024, 2, 29));
  EXPECT_EQ("2024-03-01 00:00:00", Parts(DateSerial(2024, 2, 29) + 1));
  EXPECT_EQ("2100-03-01 00:00:00", Parts(DateSerial(2100, 2, 28) + 1));  // 2100 is no leap year
  EXPECT_EQ("2000-02-29 00:00:00", Parts(DateSerial(2000, 2, 28) + 1));  // 2000 is one
  EXPECT_EQ("2025-01-01 00:00:00", Parts(DateSerial(2024, 13, 1)));      // a month that runs over
  EXPECT_EQ("2024-02-29 00:00:00", Parts(DateSerial(2024, 3, 0)));       // day 0 is the last of the month before
  EXPECT_EQ("2024-12-31 23:59:59", Parts(DateSerial(2024, 12, 31) + TimeSerial(23, 59, 59)));
  EXPECT_EQ("2024-01-30 21:00:00", Parts(45321.875));
  // Rounding to the second carries into the next day.
  EXPECT_EQ("2024-01-31 00:00:00", Parts(45321.9999999));
  // Before 1899-12-30 the integer part is the day and the fraction's size the time.
  EXPECT_EQ("1899-12-29 06:00:00", Parts(-1.25));
  EXPECT_EQ(DateSerial(2024, 1, 30), DateOnly(45321.875));
  EXPECT_DOUBLE_EQ(0.875, TimeOfDay(45321.875));
  // Weekdays count from Sunday, 1.
  EXPECT_EQ(7, Weekday(DateSerial(2024, 6, 1)));
  EXPECT_EQ(2, Weekday(DateSerial(2024, 6, 3) + 0.99));
  EXPECT_EQ(6, Weekday(-1.25));  // Friday 29 December 1899
}

TEST(DateTest, MinuteDifferenceCountsBoundariesNotElapsedTime) {
  const Date start = DateSerial(2026, 11, 23) + TimeSerial(10, 59, 59);
  EXPECT_EQ(6, MinutesBetween(start, DateSerial(2026, 11, 23) + TimeSerial(11, 5, 0)));
  EXPECT_EQ(0, MinutesBetween(start, start));
  EXPECT_EQ(1, MinutesBetween(start, DateSerial(2026, 11, 23) + TimeSerial(11, 0, 0)));
  EXPECT_EQ(-6, MinutesBetween(DateSerial(2026, 11, 23) + TimeSerial(11, 5, 0), start));
  EXPECT_EQ(2, MinutesBetween(DateSerial(2026, 11, 23) + TimeSerial(23, 59, 30), DateSerial(2026, 11, 24) + TimeSerial(0, 1, 0)));
  EXPECT_EQ(61, SecondsBetween(start, DateSerial(2026, 11, 23) + TimeSerial(11, 1, 0)));
}

TEST(DateTest, LocalTimeIsRightOnBothSidesOfDaylightSavingChanges) {
  const test::ScopedEnvironment london{{{"TZ", "Europe/London"}}};
  // Spring forward, 29 March 2026 01:00 UTC: the clock jumps from 00:59:59 to 02:00:00.
  const std::time_t spring = 1774746000;
  EXPECT_EQ("2026-03-29 00:59:59", Parts(DateFromUnix(spring - 1)));
  EXPECT_EQ("2026-03-29 02:00:00", Parts(DateFromUnix(spring)));
  EXPECT_EQ(spring, UnixFromDate(DateFromUnix(spring)));
  EXPECT_EQ(spring - 1, UnixFromDate(DateFromUnix(spring - 1)));
  // Fall back, 25 October 2026 01:00 UTC: 01:30 comes twice.
  const std::time_t fall = 1792890000;
  EXPECT_EQ("2026-10-25 01:30:00", Parts(DateFromUnix(fall - 1800)));
  EXPECT_EQ("2026-10-25 01:30:00", Parts(DateFromUnix(fall + 1800)));
  EXPECT_EQ("2026-10-25 00:59:59", Parts(DateFromUnix(fall - 3601)));
  EXPECT_EQ("2026-10-25T00:59:59+01:00", Iso8601Text(DateFromUnix(fall - 3601)));
  // Nanoseconds become the fraction of the second.
  EXPECT_NEAR(0.5 / kSecondsPerDay, DateFromUnix(spring, 500000000) - DateFromUnix(spring), 1e-10);
}

TEST(DateTest, TextForms) {
  const Date when = DateSerial(2026, 3, 7) + TimeSerial(9, 5, 3);
  EXPECT_EQ("20260307090503", FormatStamp(when));
  EXPECT_EQ("07/03/2026", ShortDate(when));
  EXPECT_EQ("09:05", ShortTime(when));
  EXPECT_EQ("09:05:03", LongTime(when));
  EXPECT_EQ("07/03/2026 09:05:03", DefaultDateText(when));
  EXPECT_EQ("07/03/2026", DefaultDateText(DateSerial(2026, 3, 7)));
  EXPECT_EQ("21:00:00", DefaultDateText(0.875));
  EXPECT_EQ("2026-03-07 09:05:03", IsoText(when));
  EXPECT_EQ("2026-03-07T09:05:03+00:00", Iso8601Text(when));
  EXPECT_EQ("Mar  7 09:05:03", Rfc3164Text(when));
  EXPECT_EQ("Dec 31 23:59:59", Rfc3164Text(DateSerial(2026, 12, 31) + TimeSerial(23, 59, 59)));
}

TEST(DateTest, NumbersBeyondTheDateRangeReadAsItsEnds) {
  // A log line, report file or setting edited by hand can hold any number where a date belongs.
  EXPECT_EQ("9999-12-31 23:59:59", Parts(1E+300));
  EXPECT_EQ("9999-12-31 23:59:59", IsoText(HUGE_VAL));
  EXPECT_EQ("0100-01-01 00:00:00", Parts(-1E+30));
  EXPECT_EQ("1899-12-30 00:00:00", Parts(NAN));
  EXPECT_EQ("9999-12-31 23:59:59", Parts(DateSerial(9999, 12, 31) + TimeSerial(23, 59, 59)));  // still in range
  EXPECT_EQ(6, Weekday(1E+300));  // 31 December 9999 is a Friday
  EXPECT_EQ(0, MinutesBetween(1E+300, 2E+300));
  EXPECT_EQ("31/12/9999", ShortDate(1E+20));
}

TEST(DateTest, ParsesTimesAndDatesTypedByAnAdministrator) {
  EXPECT_DOUBLE_EQ(0.875, *ParseTimeOfDay("21:00"));
  EXPECT_DOUBLE_EQ(TimeSerial(6, 0, 30), *ParseTimeOfDay("06:00:30"));
  for (const char* bad : {"", "9:00", "1230", "12::00", "24:00", "12:60", "12:00:60", "12:00:", "12-00", "12:00 "}) {
    EXPECT_FALSE(ParseTimeOfDay(bad)) << bad;
  }
  EXPECT_EQ(DateSerial(2024, 2, 29), *ParseIsoDate("2024-02-29"));
  EXPECT_EQ(DateSerial(2024, 3, 1) + 0.875, *ParseIsoDate("2024-03-01 21:00"));
  // Before 1899-12-30 the time is the magnitude of the fraction of a negative number.
  EXPECT_EQ("1026-11-23 21:00:00", IsoText(*ParseIsoDate("1026-11-23 21:00")));
  EXPECT_EQ("1899-12-29 06:00:00", IsoText(MakeDate({1899, 12, 29, 6, 0, 0})));
  for (const char* bad : {"2023-02-29", "2024-13-01", "2024-1-01", "2024-01-01T10:00", "2024-01-01 25:00",
                          "0026-11-23"}) {
    EXPECT_FALSE(ParseIsoDate(bad)) << bad;
  }
}

}  // namespace
}  // namespace tw
