#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "common/Error.h"
#include "common/NumberText.h"
#include "scheduling/Occurrence.h"
#include "scheduling/OccurrenceBuilder.h"
#include "scheduling/OccurrenceSearch.h"

namespace tw {
namespace {

Date At(int y, int m, int d, int h = 21, int mi = 0, int s = 0) { return DateSerial(y, m, d) + TimeSerial(h, mi, s); }

std::unique_ptr<IOccurrence> Make(const std::string& text) {
  auto occurrence = clsOccurrenceFactory::CreateOccurrence(text);
  EXPECT_TRUE(occurrence) << text;
  return occurrence;
}

TEST(OccurrenceTest, MonthlyWeekPatternsNeedBothADayAndAWeek) {
  auto mondaysNoWeek = Make("2|0.875|0,0,0,0,0,0|0,-1,0,0,0,0,0|0|0");
  EXPECT_FALSE(mondaysNoWeek->MatchDay(At(2026, 11, 23)));
  EXPECT_TRUE(NextMatches(*mondaysNoWeek, At(2026, 1, 1), 1).empty()) << "never matches";

  // The first week is days 1 to 7: Sunday 7 June 2026 is in it, Monday the 8th is not.
  auto firstSundayOrMonday = Make("2|0.875|0,-1,0,0,0,0|-1,-1,0,0,0,0,0|0|0");
  EXPECT_TRUE(firstSundayOrMonday->MatchDay(At(2026, 6, 7)));
  EXPECT_FALSE(firstSundayOrMonday->MatchDay(At(2026, 6, 8)));
  // Sundays of the 5th week: only the 29th, 30th or 31st.
  auto fifthSunday = Make("2|0.875|0,0,0,0,0,-1|-1,0,0,0,0,0,0|0|0");
  EXPECT_TRUE(fifthSunday->MatchDay(At(2026, 3, 29)));
  EXPECT_FALSE(fifthSunday->MatchDay(At(2026, 3, 22)));
  // Sundays of the Last week: from day D-6 on.
  auto lastSunday = Make("2|0.875|-1,0,0,0,0,0|-1,0,0,0,0,0,0|0|0");
  EXPECT_TRUE(lastSunday->MatchDay(At(2026, 3, 29)));
  EXPECT_FALSE(lastSunday->MatchDay(At(2026, 3, 22)));
  EXPECT_TRUE(lastSunday->MatchDay(At(2026, 2, 22))) << "February 2026 has 28 days: the 22nd is in the last seven";
  // 4th and Last together: the 22nd through the 4th week, the 29th through Last.
  auto fourthAndLast = Make("2|0.875|-1,0,0,0,-1,0|-1,0,0,0,0,0,0|0|0");
  EXPECT_TRUE(fourthAndLast->MatchDay(At(2026, 3, 22)));
  EXPECT_TRUE(fourthAndLast->MatchDay(At(2026, 3, 29)));
  EXPECT_FALSE(fourthAndLast->MatchDay(At(2026, 3, 15)));
}

TEST(OccurrenceTest, FirstAndLastWeekdaysStepAroundWeekends) {
  clsOccurrenceMonthly first;
  first.FirstWeekday(true);
  EXPECT_FALSE(first.MatchDay(At(2024, 6, 1)));  // a Saturday
  EXPECT_FALSE(first.MatchDay(At(2024, 6, 2)));
  EXPECT_TRUE(first.MatchDay(At(2024, 6, 3)));   // the Monday after
  EXPECT_FALSE(first.MatchDay(At(2024, 6, 10)));  // a later Monday
  EXPECT_TRUE(first.MatchDay(At(2024, 9, 2)));   // September 2024 began on a Sunday
  EXPECT_TRUE(first.MatchDay(At(2026, 12, 1)));  // a Tuesday the 1st
  EXPECT_TRUE(first.MatchDay(At(2026, 5, 1)));   // a Friday the 1st

  clsOccurrenceMonthly last;
  last.LastWeekday(true);
  EXPECT_TRUE(last.MatchDay(At(2024, 3, 29)));   // March 2024 ended on a Sunday
  EXPECT_FALSE(last.MatchDay(At(2024, 3, 31)));
  EXPECT_FALSE(last.MatchDay(At(2026, 11, 29)));  // the Sunday before a Monday the 30th
  EXPECT_TRUE(last.MatchDay(At(2025, 11, 28)));  // November 2025 ended on a Sunday too
  EXPECT_TRUE(last.MatchDay(At(2026, 11, 30)));  // a Monday the 30th
  EXPECT_TRUE(last.MatchDay(At(2026, 7, 31)));   // a Friday the 31st
}

TEST(OccurrenceTest, SchedulesCountFebruary2100As29Days) {
  EXPECT_EQ(29, clsOccurrenceMonthly::DaysInMonth(2100, 2));
  EXPECT_EQ(29, clsOccurrenceMonthly::DaysInMonth(1900, 2));
  EXPECT_EQ(28, clsOccurrenceMonthly::DaysInMonth(2101, 2));
  // "Last" starts at day 23 instead of 22.
  auto lastMondayOrTuesday = Make("2|0.875|-1,0,0,0,0,0|0,-1,-1,0,0,0,0|0|0");
  EXPECT_FALSE(lastMondayOrTuesday->MatchDay(At(2100, 2, 22)));  // a Monday
  EXPECT_TRUE(lastMondayOrTuesday->MatchDay(At(2100, 2, 23)));   // a Tuesday
  // The last-weekday test looks at days 29, 28 and 27, so Friday the 26th is missed.
  clsOccurrenceMonthly last;
  last.LastWeekday(true);
  EXPECT_FALSE(last.MatchDay(At(2100, 2, 26)));
}

TEST(OccurrenceTest, TimesMatchToTheMinuteIgnoringSeconds) {
  auto weekly = Make("1|0.875|0,-1,0,0,0,-1,0");
  EXPECT_TRUE(weekly->MatchTime(At(2026, 11, 23, 21, 0, 59)));
  EXPECT_FALSE(weekly->MatchTime(At(2026, 11, 23, 21, 1, 0)));
  EXPECT_FALSE(weekly->MatchTime(At(2026, 11, 23, 20, 59, 59)));
  EXPECT_TRUE(weekly->MatchDayAndTime(At(2026, 11, 23, 21, 0, 30)));   // a Monday
  EXPECT_FALSE(weekly->MatchDayAndTime(At(2026, 11, 24, 21, 0, 30)));  // a Tuesday

  // Specific dates: a day of one entry and a time of another match together.
  clsOccurrenceSpecific dates;
  dates.Dates() = {At(2026, 3, 1, 10, 0), At(2026, 3, 2, 22, 0)};
  EXPECT_TRUE(dates.MatchDayAndTime(At(2026, 3, 1, 22, 0)));
  EXPECT_FALSE(dates.MatchDayAndTime(At(2026, 3, 3, 22, 0)));
}

TEST(OccurrenceTest, StringsReadAndWriteBothWays) {
  EXPECT_EQ("1|0|0,0,0,0,0,0,0", clsOccurrenceWeekly().GetString());
  EXPECT_EQ("2|0|0,0,0,0,0,0|0,0,0,0,0,0,0|0|0", clsOccurrenceMonthly().GetString());
  EXPECT_EQ("0|", clsOccurrenceSpecific().GetString());
  for (const std::string text : {"1|0.875|0,-1,0,0,0,-1,0", "2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0",
                                 "2|0.375|0,-1,0,-1,0,0|0,-1,0,-1,0,0,0|-1|-1", "0|45321.875|45352.875",
                                 "1|6.94444444444444E-04|-1,-1,-1,-1,-1,-1,-1"}) {
    EXPECT_EQ(text, Make(text)->GetString());
  }
  // Booleans may be written any way the platform reads them.
  EXPECT_EQ("1|0.5|-1,0,-1,0,0,0,0", Make("1|0.5|True,0,5,False,0,0,0")->GetString());
  // Extra fields and items are ignored.
  EXPECT_EQ("1|0.5|0,0,0,0,0,0,-1", Make("1|0.5|0,0,0,0,0,0,-1,-1|extra")->GetString());

  clsOccurrenceSpecific dates;
  EXPECT_TRUE(dates.SetString("0|"));
  EXPECT_TRUE(dates.Dates().empty());
  EXPECT_TRUE(dates.SetString("0|45321.875|"));
  EXPECT_TRUE(dates.SetString("0|45321.875|"));
  ASSERT_EQ(2u, dates.Dates().size()) << "a second reading replaces the dates";
  EXPECT_EQ(0, dates.Dates()[1]) << "an empty field is 1899-12-30 00:00";

  clsOccurrenceMonthly monthly;
  monthly.Time(0.5);
  EXPECT_FALSE(monthly.SetString("1|0.875|0,-1,0,0,0,-1,0"));
  EXPECT_EQ("2|0.5|0,0,0,0,0,0|0,0,0,0,0,0,0|0|0", monthly.GetString()) << "a wrong kind changes nothing";
}

TEST(OccurrenceTest, TheFactoryTurnsMalformedStringsIntoNothing) {
  for (const char* bad : {"", "x", " 1|0.5|0,0,0,0,0,0,0", "1", "1|0.875", "1|0.875|0,-1,0,0,0,-1",
                          "1|0.875|0,maybe,0,0,0,0,0", "2|0.875|0,0,0,0,0,0|0,0,0,0,0,0,0|0", "2|0.875|0,0|"}) {
    EXPECT_EQ(nullptr, clsOccurrenceFactory::CreateOccurrence(bad)) << bad;
  }
  auto nine = clsOccurrenceFactory::CreateOccurrence("9|0.5");
  ASSERT_NE(nullptr, nine);
  EXPECT_EQ(0, nine->OccurrenceRepetition());
  EXPECT_EQ("0|", nine->GetString());
  EXPECT_FALSE(nine->MatchDayAndTime(At(2026, 11, 23)));

  clsOccurrenceWeekly weekly;
  EXPECT_TRUE(weekly.SetString("1|0.25|0,0,0,0,0,0,0"));
  EXPECT_THROW(weekly.SetString("1|0.5|0,0"), TWError);
  EXPECT_DOUBLE_EQ(0.5, weekly.Time()) << "fields read before the error stay assigned";
  EXPECT_THROW(weekly.DayOfWeek(0), TWError);
  EXPECT_THROW(weekly.DayOfWeek(8, true), TWError);
  EXPECT_THROW(clsOccurrenceMonthly().Week(6), TWError);
  EXPECT_THROW(clsOccurrenceMonthly().DayOfWeek(8), TWError);
}

TEST(OccurrenceTest, SummariesInWords) {
  auto check = [](const std::string& text, int32_t type, const std::string& expected) {
    auto occurrence = clsOccurrenceFactory::CreateOccurrence(text);
    ASSERT_NE(nullptr, occurrence) << text;
    occurrence->OccurrenceType(type);
    EXPECT_EQ(expected, occurrence->TextSummary()) << text << " type " << type;
  };
  check("1|0.875|0,-1,0,0,0,-1,0", 0, "Mon,Fri");
  check("1|0.875|0,-1,0,0,0,-1,0", 1, "21:00");
  check("1|0.875|0,-1,0,0,0,-1,0", 2, "Mon,Fri 21:00");
  check("1|0.875|0,0,0,0,0,0,0", 2, "(none)");
  check("2|0.875|-1,-1,0,0,0,0|0,0,0,0,0,-1,0|0|0", 0, "Last&1st Fri");
  check("2|0.875|-1,0,0,0,0,0|0,0,0,0,0,-1,0|0|0", 2, "Last Fri 21:00");
  check("2|0.375|0,-1,0,-1,0,0|0,-1,0,-1,0,0,0|0|0", 0, "1st&3rd Mon&Wed");
  check("2|0.375|0,0,0,0,0,0|0,0,0,0,0,0,0|-1|0", 0, "First weekday");
  check("2|0.375|0,0,0,0,0,0|0,0,0,0,0,0,0|-1|-1", 2, "First&Last weekday 09:00");
  check("2|0.375|0,-1,0,0,0,0|0,0,0,0,0,0,0|-1|0", 0, "1st  First weekday");
  check("2|0.375|0,-1,0,0,0,0|0,0,0,0,0,0,0|0|0", 2, "(none)");
  check("2|0.375|0,-1,0,0,0,0|0,0,0,0,0,0,0|0|0", 1, "09:00");
  const std::string dates = "0|" + NumberToText(At(2026, 12, 24, 18, 0)) + "|" + NumberToText(At(2026, 12, 31, 12, 0));
  check(dates, 0, "24/12/2026, 31/12/2026");
  check(dates, 1, "18:00, 12:00");
  check(dates, 2, "24/12/2026 18:00, 31/12/2026 12:00");
  check("0|", 2, "");
}

TEST(OccurrenceTest, NextMatchesAreWhatMinuteByMinuteAsking) {
  // A start inside a matching minute counts.
  const auto next = NextMatches(*Make("1|0.875|0,-1,0,0,0,-1,0"), At(2026, 11, 23, 21, 0, 40), 3);
  EXPECT_EQ((std::vector<Date>{At(2026, 11, 23), At(2026, 11, 27), At(2026, 11, 30)}), next);

  // Random schedules from random starting minutes, around leap days and month ends.
  std::mt19937 random(20261123);
  auto below = [&](unsigned limit) { return static_cast<int>(random() % limit); };
  auto flags = [&](int count) {
    std::string list;
    for (int i = 0; i < count; ++i) list += std::string(i ? "," : "") + (below(3) == 0 ? "-1" : "0");
    return list;
  };
  auto minute = [&] { return TimeSerial(below(24), below(60), 0); };
  for (int round = 0; round < 60; ++round) {
    const Date start = DateSerial(2027 + below(80), 1, 1) + below(365) + minute() + TimeSerial(0, 0, below(60));
    std::string text;
    switch (round % 3) {
      case 0: text = "1|" + NumberToText(minute()) + "|" + flags(7); break;
      case 1:
        text = "2|" + NumberToText(minute()) + "|" + flags(6) + "|" + flags(7) + "|" + flags(1) + "|" + flags(1);
        break;
      default:
        text = "0|" + NumberToText(DateOnly(start) + below(20) + minute()) + "|" +
               NumberToText(DateOnly(start) + below(20) + minute());
    }
    auto occurrence = Make(text);
    EXPECT_EQ(NextMatchesByMinute(*occurrence, start, 25, start + 62), NextMatches(*occurrence, start, 25, start + 62))
        << text << " from " << IsoText(start);
  }
}

TEST(OccurrenceTest, ReadableFormsBecomeOccurrenceStrings) {
  EXPECT_EQ("1|0.875|0,-1,0,0,0,-1,0", WeeklyOccurrence("mon,fri@21:00"));
  EXPECT_EQ("1|0.875|0,-1,-1,-1,-1,-1,0", WeeklyOccurrence("Weekdays@21:00"));
  EXPECT_EQ("1|0.25|-1,0,0,0,0,0,-1", WeeklyOccurrence("sunday, sat @ 06:00"));
  EXPECT_EQ("2|0.375|0,-1,0,-1,0,0|0,-1,0,-1,0,0,0|0|0", MonthlyOccurrence("1st,3rd:mon,wed@09:00"));
  EXPECT_EQ("2|0.375|0,0,0,0,0,0|0,0,0,0,0,0,0|-1|0", FirstWeekdayOccurrence("09:00"));
  EXPECT_EQ("2|0.375|0,0,0,0,0,0|0,0,0,0,0,0,0|0|-1", LastWeekdayOccurrence("09:00"));
  EXPECT_EQ("0|" + NumberToText(At(2026, 12, 24, 18, 0)), SpecificOccurrence("2026-12-24 18:00"));

  auto message = [](const std::function<std::string()>& build) {
    try {
      build();
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ("missing \"@HH:MM\" in \"mon\"", message([] { return WeeklyOccurrence("mon"); }));
  EXPECT_EQ("expected WEEKS:DAYS@HH:MM, such as last:fri@21:00, not \"fri@21:00\"",
            message([] { return MonthlyOccurrence("fri@21:00"); }));
  EXPECT_EQ("invalid date \"2026-02-30 10:00\" (expected YYYY-MM-DD HH:MM)",
            message([] { return SpecificOccurrence("2026-02-30 10:00"); }));
  EXPECT_EQ("malformed occurrence string \"7|x\" (it must begin with 0, 1 or 2)", OccurrenceProblem("7|x"));
  EXPECT_EQ("malformed occurrence string \"1|0.5\"", OccurrenceProblem("1|0.5"));
}

}  // namespace
}  // namespace tw
